#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/FMA512Lanes.hpp"
#include "arithmetic/kernels/FloatProducts.hpp"
#include "arithmetic/kernels/IFMALanes.hpp"

namespace Torvo::IFMA {

constinit const RowKernels kernels = makeRowKernels<IFMALanes, lanes::Estimating<IFMALanes>>();
constinit const RowKernels floatKernels =
    makeRowKernels<IFMALanes, lanes::Estimating<IFMALanes>, lanes::FloatProducts<FMA512Lanes<0>>>();

} // namespace Torvo::IFMA
