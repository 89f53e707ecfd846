#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/AVX2Lanes.hpp"

namespace Torvo::AVX2 {

constinit const RowKernels kernels = makeRowKernels<AVX2Lanes, lanes::Estimating<AVX2Lanes>>();

} // namespace Torvo::AVX2
