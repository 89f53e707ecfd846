#pragma once

#include "arithmetic/kernels/RowKernels.hpp"

/// The row kernels of Modulus on vectors of eight words, for processors with AVX-512 F, DQ and VL.
namespace Torvo::AVX512 {

extern const RowKernels kernels;

/// The same for processors with IFMA too: for any prime, and for those below `endOfShortPrimes`.
extern const RowKernels kernelsWithIFMA;
extern const RowKernels shortKernelsWithIFMA;

inline constexpr u64 endOfShortPrimes = u64{1} << 49;

} // namespace Torvo::AVX512
