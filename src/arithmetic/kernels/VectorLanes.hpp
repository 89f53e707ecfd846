#pragma once

#include "core/Integers.hpp"

/// What AVX2Lanes and AVX512Lanes have in common: neither set of instructions multiplies to 128 bits. All is
/// written over a type V of vectors of 64-bit words with `mul32` (the products of the lower halves of x and
/// y), `add`, `splat`, `bitAnd`, and `shiftLeft` and `shiftRight` by a constant. As in ModulusRows.hpp,
/// internal linkage of V keeps every instantiation within its unit.
namespace Torvo::lanes {

/// The lower halves of the words.
template <class V>
[[gnu::always_inline]] inline typename V::Words lowerHalf(typename V::Words x) {
    return V::bitAnd(x, V::splat(0xffffffff));
}

/// The four 32x32-bit products of x and y, summed to the words of the 128-bit product: low = low32 + 2^32 *
/// middle modulo 2^64. No sum overflows: a 32x32 product is at most (2^32 - 1)^2.
template <class V>
struct ProductParts {
    typename V::Words lowProduct; // xl * yl
    typename V::Words middle;     // low half of (hi32(xl*yl) + xl*yh), plus xh*yl
    typename V::Words high;       // the high word of the product
};

template <class V>
[[gnu::always_inline]] inline ProductParts<V> multiplyParts(typename V::Words x, typename V::Words y) {
    const auto xh = V::template shiftRight<32>(x);
    const auto yh = V::template shiftRight<32>(y);
    const auto lowProduct = V::mul32(x, y);
    const auto m = V::add(V::template shiftRight<32>(lowProduct), V::mul32(x, yh));
    const auto middle = V::add(lowerHalf<V>(m), V::mul32(xh, y));
    const auto carries = V::add(V::template shiftRight<32>(m), V::template shiftRight<32>(middle));
    return {lowProduct, middle, V::add(V::mul32(xh, yh), carries)};
}

/// A sum of products of words as low + 2^bits * middle + 2^(2 bits) * high, bits <= 31. ModulusRows.hpp says
/// how many terms may be added before `carry` must be called.
template <class V, int bits>
struct LimbSum {
    using Words = typename V::Words;
    struct Limbs {
        Words low;
        Words high;
    };
    /// The limbs of a constant.
    struct Factor {
        u64 low;
        u64 high;
    };

    Words low = V::splat(0);
    Words middle = V::splat(0);
    Words high = V::splat(0);

    [[gnu::always_inline]] static Limbs split(Words x) {
        return {V::bitAnd(x, V::splat(limbMask)), V::template shiftRight<bits>(x)};
    }
    [[gnu::always_inline]] static Factor factor(u64 x) { return {x & limbMask, x >> bits}; }
    [[gnu::always_inline]] static Limbs splat(Factor x) { return {V::splat(x.low), V::splat(x.high)}; }
    [[gnu::always_inline]] void add(const Limbs& x) {
        low = V::add(low, x.low);
        middle = V::add(middle, x.high);
    }
    [[gnu::always_inline]] void addProduct(const Limbs& x, const Limbs& y) {
        low = V::add(low, V::mul32(x.low, y.low));
        middle = V::add(middle, V::mul32(x.low, y.high));
        middle = V::add(middle, V::mul32(x.high, y.low));
        high = V::add(high, V::mul32(x.high, y.high));
    }
    [[gnu::always_inline]] void carry() {
        middle = V::add(middle, V::template shiftRight<bits>(low));
        low = V::bitAnd(low, V::splat(limbMask));
        high = V::add(high, V::template shiftRight<bits>(middle));
        middle = V::bitAnd(middle, V::splat(limbMask));
    }
    /// Valid after `carry`.
    [[gnu::always_inline]] Words highWord() const { return V::template shiftRight<64 - 2 * bits>(high); }
    [[gnu::always_inline]] Words lowWord() const {
        const Words lower = V::add(low, V::template shiftLeft<bits>(middle));
        return V::add(lower, V::template shiftLeft<2 * bits>(high));
    }

private:
    static constexpr u64 limbMask = (u64{1} << bits) - 1;
};

/// Lanes V with cheaper Shoup products, for results that are reduced in the end. The quotient omits the
/// product of the low halves and the carries, which makes it smaller by at most three. A product lies in
/// [0, 4p) for any word x: x*w/p exceeds the quotient by less than 3 plus the error of the companion,
/// x / 2^64.
template <class V>
struct Estimating : V {
    using Words = typename V::Words;
    static constexpr u64 productRange = 4;
    static constexpr bool isRoomy = false;

    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        const Words xh = V::template shiftRight<32>(x);
        const Words companionHigh = V::template shiftRight<32>(companion);
        const Words cross = V::add(V::template shiftRight<32>(V::mul32(x, companionHigh)),
                                   V::template shiftRight<32>(V::mul32(xh, companion)));
        return V::add(V::mul32(xh, companionHigh), cross);
    }
};

/// Estimating lanes for p below `roomyPrimes`, where a word may be up to 32p: see TransformRows.hpp.
template <class V>
struct Roomy : Estimating<V> {
    static constexpr bool isRoomy = true;
};

inline constexpr u64 roomyPrimes = u64{1} << 59;

} // namespace Torvo::lanes
