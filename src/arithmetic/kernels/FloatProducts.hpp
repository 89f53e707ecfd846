#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

namespace Torvo::lanes {

/// The words of float lanes F, FMALanes or FMA512Lanes, with products in floating point, for p <=
/// greatestFloatPrime. Factors in [0, p) are twice as great as the centred ones that F is made for: the product
/// is within 1 + 2 * 0.251 multiples of p.
template <class F>
struct FloatProducts : F::WordLanes {
    using Words = typename F::WordLanes::Words;
    static constexpr bool hasModularProduct = true;

    /// x * y mod p in [0, p) for x, y < p.
    [[gnu::always_inline]] static Words modularProduct(Words x, Words y, u64 p) {
        const auto prime = static_cast<double>(p);
        const FloatModulus m{prime, 1.0 / prime};
        const auto zero = F::splat(0);
        return F::toWords(F::looseProduct(F::fromWords(x, zero), F::fromWords(y, zero), m), m);
    }
};

} // namespace Torvo::lanes
