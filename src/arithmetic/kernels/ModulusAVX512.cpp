#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/FMA512Lanes.hpp"
#include "arithmetic/kernels/FloatProducts.hpp"

namespace Torvo::AVX512 {

constinit const RowKernels kernels = makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>>();
constinit const RowKernels floatKernels =
    makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>, lanes::FloatProducts<FMA512Lanes<0>>>();

} // namespace Torvo::AVX512
