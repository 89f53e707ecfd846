#pragma once

#include "arithmetic/PrimeModuli.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Product of the primes with indices in [begin, end) modulo `modulus`; 1 for none.
inline u64 primeProduct(const PrimeModuli& primes, u64 begin, u64 end, const Modulus& modulus) {
    u64 product = 1;
    for (u64 i = begin; i < end; ++i) product = modulus.mult(product, modulus.reduce(primes.getPrime(i)));
    return product;
}

} // namespace Torvo
