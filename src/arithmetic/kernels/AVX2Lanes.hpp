#pragma once

#include "arithmetic/kernels/VectorLanes.hpp"
#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX2. Everything here has internal linkage: a weak symbol of such a unit could
// be chosen by the linker for the whole program and would then run on processors without AVX2.
namespace Torvo {

namespace {

/// Four words at a time: the AVX2 form of the row kernels. ScalarLanes has the same members.
struct AVX2Lanes {
    using Words = __m256i;
    static constexpr u64 width = 4;
    /// Shoup products lie in [0, productRange * p).
    static constexpr u64 productRange = 2;
    /// See lanes::Roomy.
    static constexpr bool isRoomy = false;
    /// Whether there is `modularProduct`: see FloatProducts.
    static constexpr bool hasModularProduct = false;

    [[gnu::always_inline]] static Words load(const u64* from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    }
    [[gnu::always_inline]] static void store(u64* to, Words x) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), x);
    }
    [[gnu::always_inline]] static Words splat(u64 x) { return _mm256_set1_epi64x(static_cast<long long>(x)); }
    [[gnu::always_inline]] static Words add(Words x, Words y) { return _mm256_add_epi64(x, y); }
    [[gnu::always_inline]] static Words sub(Words x, Words y) { return _mm256_sub_epi64(x, y); }
    [[gnu::always_inline]] static Words bitAnd(Words x, Words y) { return _mm256_and_si256(x, y); }
    template <int bits>
    [[gnu::always_inline]] static Words shiftLeft(Words x) {
        return _mm256_slli_epi64(x, bits);
    }
    template <int bits>
    [[gnu::always_inline]] static Words shiftRight(Words x) {
        return _mm256_srli_epi64(x, bits);
    }
    [[gnu::always_inline]] static Words shiftLeftBy(Words x, u64 bits) {
        return _mm256_sllv_epi64(x, splat(bits));
    }
    [[gnu::always_inline]] static Words shiftRightBy(Words x, u64 bits) {
        return _mm256_srlv_epi64(x, splat(bits));
    }
    /// The products of the lower halves.
    [[gnu::always_inline]] static Words mul32(Words x, Words y) { return _mm256_mul_epu32(x, y); }
    [[gnu::always_inline]] static Words mulHigh(Words x, Words y) {
        return lanes::multiplyParts<AVX2Lanes>(x, y).high;
    }
    /// High and low words of the products.
    [[gnu::always_inline]] static void mulWide(Words x, Words y, Words& high, Words& low) {
        const auto parts = lanes::multiplyParts<AVX2Lanes>(x, y);
        high = parts.high;
        low = _mm256_blend_epi32(parts.lowProduct, shiftLeft<32>(parts.middle), 0b10101010);
    }
    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        return mulHigh(x, companion);
    }
    /// v*w - x*y, low words. The cross products of both are combined before the shift.
    [[gnu::always_inline]] static Words mulLowDifference(Words v, Words w, Words x, Words y) {
        const Words cross = _mm256_sub_epi32(crossProducts(v, w), crossProducts(x, y));
        return addCross(sub(mul32(v, w), mul32(x, y)), cross);
    }
    [[gnu::always_inline]] static Words mulLow(Words x, Words y) {
        return addCross(mul32(x, y), crossProducts(x, y));
    }
    /// Low word of the product x * y shifted right by `shift` < 64, and the low word of the product itself.
    [[gnu::always_inline]] static Words mulShifted(Words x, Words y, u64 shift, Words& low) {
        Words high;
        mulWide(x, y, high, low);
        const Words fromHigh = _mm256_sll_epi64(high, _mm_cvtsi64_si128(static_cast<long long>(64 - shift)));
        return _mm256_or_si256(fromHigh,
                               _mm256_srl_epi64(low, _mm_cvtsi64_si128(static_cast<long long>(shift))));
    }
    template <int bits>
    using Sum = lanes::LimbSum<AVX2Lanes, bits>;
    /// x - m where x >= m, else x; x, m < 2^63, so that the sign of the difference decides.
    [[gnu::always_inline]] static Words subtractIfNotBelow(Words x, Words m) {
        const __m256d difference = _mm256_castsi256_pd(sub(x, m));
        return _mm256_castpd_si256(_mm256_blendv_pd(difference, _mm256_castsi256_pd(x), difference));
    }
    /// x + y where x > bound, else x; x, bound < 2^63: the compare is signed.
    [[gnu::always_inline]] static Words addIfAbove(Words x, Words bound, Words y) {
        return add(x, bitAnd(_mm256_cmpgt_epi64(x, bound), y));
    }
    /// x + y where the signed word `sign` is negative, else x.
    [[gnu::always_inline]] static Words addIfNegative(Words x, Words sign, Words y) {
        return add(x, bitAnd(_mm256_cmpgt_epi64(_mm256_setzero_si256(), sign), y));
    }

private:
    /// Low halves of xl * yh and xh * yl, as the halves of each lane. One instruction gives both, because
    /// only their lowest 32 bits reach the low word of x * y.
    [[gnu::always_inline]] static Words crossProducts(Words x, Words y) {
        return _mm256_mullo_epi32(x, _mm256_shuffle_epi32(y, 0b10110001));
    }
    /// x + 2^32 * (the sum of the halves of `cross`) modulo 2^64.
    [[gnu::always_inline]] static Words addCross(Words x, Words cross) {
        const Words sum = add(cross, shiftLeft<32>(cross));
        return add(x, _mm256_blend_epi32(_mm256_setzero_si256(), sum, 0b10101010));
    }
};

} // namespace

namespace arith {

/// High words of the four products of 64-bit lanes.
[[gnu::always_inline]] static inline __m256i mul64To128Hi(__m256i x, __m256i y) {
    return AVX2Lanes::mulHigh(x, y);
}

/// High and low words of the four products of 64-bit lanes.
[[gnu::always_inline]] static inline void mul64To128(__m256i x, __m256i y, __m256i& high, __m256i& low) {
    AVX2Lanes::mulWide(x, y, high, low);
}

} // namespace arith

} // namespace Torvo
