#pragma once

#include "arithmetic/kernels/Automorphism.hpp"
#include "arithmetic/kernels/RowKernels.hpp"

// The row kernels of Modulus on vectors. Those of a `Float` table are for primes up to `greatestFloatPrime`.

/// Vectors of four words, for processors with AVX2.
namespace Torvo::AVX2 {
extern const RowKernels kernels;
}

/// For those with FMA too.
namespace Torvo::FMA {
extern const RowKernels floatKernels;
}

/// Vectors of eight words, for processors with AVX-512 F, DQ and VL.
namespace Torvo::AVX512 {
extern const RowKernels kernels, floatKernels;
/// The lines of an automorphism's image: see Automorphism.
void moveLines(const u64* in, const int* lines, const rows::LineOrder* orders, u64* out, u64 count);
} // namespace Torvo::AVX512

/// For those with IFMA too.
namespace Torvo::IFMA {
extern const RowKernels kernels, floatKernels;
}
