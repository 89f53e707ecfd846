#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/FMA512Lanes.hpp"
#include "arithmetic/kernels/FloatProducts.hpp"
#include "arithmetic/kernels/IFMASums.hpp"

namespace Torvo::IFMA {

constinit const RowKernels kernels =
    makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>, AVX512Lanes, IFMASums>();
constinit const RowKernels floatKernels = makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>,
                                                         lanes::FloatProducts<FMA512Lanes<0>>, IFMASums>();

} // namespace Torvo::IFMA
