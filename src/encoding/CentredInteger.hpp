#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/kernels/Centred.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Reads integers from their residues modulo the first two primes of a chain: y = x0 + q0 * t with t = (x1 - x0) / q0
/// modulo q1, by Garner's form of the Chinese remainder theorem. With both primes below 2^61 y stays below 2^122.
class TwoPrimeReader {
public:
    explicit TwoPrimeReader(const PrimeModuli& primes)
        : m1_(primes[1]), q0_(primes.getPrime(0)), q1_(primes.getPrime(1)),
          inverse_(m1_.inverse(m1_.reduce(q0_))) {}

    /// The integer nearest to zero that is x0 modulo prime 0 and x1 modulo prime 1. Its magnitude is rounded once.
    double operator()(u64 x0, u64 x1) const {
        const u64 t = m1_.mult(m1_.sub(x1, m1_.reduce(x0)), inverse_);
        // Most integers are smaller than q0: theirs is a conversion of one word.
        if (t == 0) return toDouble(x0);
        if (t + 1 == q1_ && x0 < q0_) return -toDouble(q0_ - x0);
        const u128 product = u128{q0_} * q1_;
        u128 y = u128{q0_} * t + x0;
        if (y >= product) y -= product; // for a word x0 that is not reduced
        return centred(y, product);
    }

private:
    /// A signed conversion is one instruction.
    static double toDouble(u64 x) { return static_cast<double>(static_cast<long>(x)); }

    const Modulus& m1_;
    u64 q0_, q1_;
    u64 inverse_; ///< of prime 0, modulo prime 1
};

} // namespace Torvo
