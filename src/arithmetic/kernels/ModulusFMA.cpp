#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/FMALanes.hpp"
#include "arithmetic/kernels/FloatProducts.hpp"

namespace Torvo::FMA {

constinit const RowKernels floatKernels =
    makeRowKernels<AVX2Lanes, lanes::Estimating<AVX2Lanes>, lanes::FloatProducts<FMALanes<0>>>();

} // namespace Torvo::FMA
