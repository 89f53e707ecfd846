#include "encoding/AVX2Reals.hpp"
#include "encoding/FFTRows.hpp"

namespace Torvo::AVX2 {

constinit const fft::Kernels fftKernels = fft::makeKernels<AVX2Reals>();

} // namespace Torvo::AVX2
