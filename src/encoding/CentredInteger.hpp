#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/kernels/Centred.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Reads integers from their residues modulo the first two primes of a chain, by the Chinese remainder
/// theorem: y = q0 * (x1 / q0 mod q1) + q1 * (x0 / q1 mod q0) modulo q0 * q1. With both primes below 2^61 the
/// sum stays below 2^123, and below twice the modulus.
class TwoPrimeReader {
public:
    explicit TwoPrimeReader(const PrimeModuli& primes)
        : m0_(primes[0]), m1_(primes[1]), inverse0_(m0_.inverse(m0_.reduce(m1_.getPrime()))),
          inverse1_(m1_.inverse(m1_.reduce(m0_.getPrime()))) {}

    /// The integer nearest to zero that is x0 modulo prime 0 and x1 modulo prime 1.
    double operator()(u64 x0, u64 x1) const {
        const u128 q0 = m0_.getPrime(), q1 = m1_.getPrime(), product = q0 * q1;
        u128 y = q0 * m1_.mult(x1, inverse1_) + q1 * m0_.mult(x0, inverse0_);
        if (y >= product) y -= product;
        return centred(y, product);
    }

private:
    const Modulus& m0_;
    const Modulus& m1_;
    u64 inverse0_; ///< of prime 1, modulo prime 0
    u64 inverse1_; ///< of prime 0, modulo prime 1
};

} // namespace Torvo
