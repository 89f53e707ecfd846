#pragma once

#include "arithmetic/PrimeModuli.hpp"

namespace Torvo {

/// p_level * p_(level-1) * ... * p_(level-r+1) modulo prime `row`: what data that owes `r` rescales has been
/// multiplied by on that row. 1 for r = 0; 0 on the rows of those primes themselves.
inline u64 owedPrimes(const PrimeModuli& primes, u64 row, u64 level, u64 r) {
    const Modulus& modulus = primes[row];
    u64 product = 1;
    for (u64 i = level; i > level - r; --i)
        product = modulus.mult(product, modulus.reduce(primes.getPrime(i)));
    return product;
}

} // namespace Torvo
