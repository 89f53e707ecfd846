#pragma once

#include "core/Integers.hpp"

/// Bounds that hold for the objects of every context. An archive beyond them is damaged or forged.
namespace Torvo::limit {

inline constexpr u64 degree = u64{1} << 20;
/// Primes of a chain: 50 of a ciphertext, and as many temporary ones.
inline constexpr u64 rows = 100;
/// All primes are below it.
inline constexpr u64 prime = u64{1} << 62;
/// Coefficients of a Chebyshev series, and the magnitude of its bounds: sums and differences of such bounds
/// are finite.
inline constexpr u64 coefficients = 1024;
inline constexpr double intervalBound = 0x1p1000;

} // namespace Torvo::limit
