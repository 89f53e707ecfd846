#pragma once

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
}

/// For those with IFMA too.
namespace Torvo::IFMA {
extern const RowKernels kernels, floatKernels;
}
