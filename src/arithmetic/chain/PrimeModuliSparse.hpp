#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// `PrimeModuli::forwardNTT` of a polynomial in X^gap, in place: the same words in less time, the less the larger
/// the gap. `gap` is a power of two below the degree, and the coefficients between its multiples are zeros.
///
/// The butterflies of distance `gap` and more pair multiples of the gap with each other, and their twiddles are
/// those of a transform of N / gap words. Each smaller one has a zero in its upper word, so it copies the lower
/// one. So every word of the small transform appears `gap` times in a row.
/// @throws RuntimeException "Operands are not of the ring of the generated context." and the other refusals of
///         `PrimeModuli::forwardNTT`
void forwardNTTOfSparse(const PrimeModuli& primes, Polynomial& a, u64 gap);

} // namespace Torvo
