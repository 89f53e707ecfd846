#include "arithmetic/kernels/ModulusAVX512.hpp"

#include "arithmetic/kernels/AVX512Lanes.hpp"

namespace Torvo::AVX512 {

constinit const RowKernels kernels = makeRowKernels<AVX512Lanes>();

} // namespace Torvo::AVX512
