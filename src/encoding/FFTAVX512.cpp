#include "encoding/AVX512Reals.hpp"
#include "encoding/FFTRows.hpp"

namespace Torvo::AVX512 {

constinit const fft::Kernels fftKernels = fft::makeKernels<AVX512Reals>();

} // namespace Torvo::AVX512
