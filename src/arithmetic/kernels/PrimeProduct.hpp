#pragma once

#include "arithmetic/kernels/Modulus.hpp"
#include "core/Integers.hpp"

#include <span>

namespace Torvo {

/// Product of the primes with indices in [begin, end) modulo `modulus`; 1 for none, 0 where `modulus` is one
/// of them.
inline u64 primeProduct(std::span<const Modulus> moduli, u64 begin, u64 end, const Modulus& modulus) {
    u64 product = 1;
    for (u64 i = begin; i < end; ++i) product = modulus.mult(product, modulus.reduce(moduli[i].getPrime()));
    return product;
}

} // namespace Torvo
