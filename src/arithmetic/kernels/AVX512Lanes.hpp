#pragma once

#include "arithmetic/kernels/VectorLanes.hpp"
#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX-512 F, DQ and VL; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// Eight words at a time: the AVX-512 form of the row kernels. ScalarLanes has the same members.
struct AVX512Lanes {
    using Words = __m512i;
    static constexpr u64 width = 8;
    /// Shoup products lie in [0, productRange * p).
    static constexpr u64 productRange = 2;
    /// See lanes::Roomy.
    static constexpr bool isRoomy = false;
    /// Whether there is `modularProduct`: see FloatProducts.
    static constexpr bool hasModularProduct = false;

    [[gnu::always_inline]] static Words load(const u64* from) { return _mm512_loadu_si512(from); }
    [[gnu::always_inline]] static void store(u64* to, Words x) { _mm512_storeu_si512(to, x); }
    [[gnu::always_inline]] static Words splat(u64 x) { return _mm512_set1_epi64(static_cast<long long>(x)); }
    [[gnu::always_inline]] static Words add(Words x, Words y) { return _mm512_add_epi64(x, y); }
    [[gnu::always_inline]] static Words sub(Words x, Words y) { return _mm512_sub_epi64(x, y); }
    [[gnu::always_inline]] static Words bitAnd(Words x, Words y) { return _mm512_and_si512(x, y); }
    template <int bits>
    [[gnu::always_inline]] static Words shiftLeft(Words x) {
        return _mm512_slli_epi64(x, bits);
    }
    template <int bits>
    [[gnu::always_inline]] static Words shiftRight(Words x) {
        return _mm512_srli_epi64(x, bits);
    }
    [[gnu::always_inline]] static Words shiftLeftBy(Words x, u64 bits) {
        return _mm512_sllv_epi64(x, splat(bits));
    }
    [[gnu::always_inline]] static Words shiftRightBy(Words x, u64 bits) {
        return _mm512_srlv_epi64(x, splat(bits));
    }
    /// The products of the lower halves.
    [[gnu::always_inline]] static Words mul32(Words x, Words y) { return _mm512_mul_epu32(x, y); }
    [[gnu::always_inline]] static Words mulHigh(Words x, Words y) {
        return lanes::multiplyParts<AVX512Lanes>(x, y).high;
    }
    /// High and low words of the products. The upper halves of the low words are those of `middle`.
    [[gnu::always_inline]] static void mulWide(Words x, Words y, Words& high, Words& low) {
        const auto parts = lanes::multiplyParts<AVX512Lanes>(x, y);
        constexpr __mmask16 upperHalves = 0b1010101010101010;
        high = parts.high;
        low = _mm512_mask_blend_epi32(upperHalves, parts.lowProduct, shiftLeft<32>(parts.middle));
    }
    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        return mulHigh(x, companion);
    }
    [[gnu::always_inline]] static Words mulLow(Words x, Words y) { return _mm512_mullo_epi64(x, y); }
    /// v*w - x*y, low words.
    [[gnu::always_inline]] static Words mulLowDifference(Words v, Words w, Words x, Words y) {
        return sub(mulLow(v, w), mulLow(x, y));
    }
    /// Low word of the product x * y shifted right by `shift` < 64, and the low word of the product itself.
    [[gnu::always_inline]] static Words mulShifted(Words x, Words y, u64 shift, Words& low) {
        Words high;
        mulWide(x, y, high, low);
        const Words fromHigh = _mm512_sll_epi64(high, _mm_cvtsi64_si128(static_cast<long long>(64 - shift)));
        return _mm512_or_si512(fromHigh,
                               _mm512_srl_epi64(low, _mm_cvtsi64_si128(static_cast<long long>(shift))));
    }
    template <int bits>
    using Sum = lanes::LimbSum<AVX512Lanes, bits>;
    /// x - m where x >= m, else x: a negative difference is a greater word than x.
    [[gnu::always_inline]] static Words subtractIfNotBelow(Words x, Words m) {
        return _mm512_min_epu64(x, sub(x, m));
    }
    /// x + y where x > bound, else x.
    [[gnu::always_inline]] static Words addIfAbove(Words x, Words bound, Words y) {
        return _mm512_mask_add_epi64(x, _mm512_cmpgt_epu64_mask(x, bound), x, y);
    }
    /// x + y where the signed word `sign` is negative, else x.
    [[gnu::always_inline]] static Words addIfNegative(Words x, Words sign, Words y) {
        return _mm512_mask_add_epi64(x, _mm512_movepi64_mask(sign), x, y);
    }
};

} // namespace

} // namespace Torvo
