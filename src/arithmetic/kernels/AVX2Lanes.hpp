#pragma once

#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX2. Everything here has internal linkage: a weak symbol of such a unit could
// be chosen by the linker for the whole program and would then run on processors without AVX2.
namespace Torvo {

namespace arith {

/// The four 32x32-bit products of 64-bit lanes x and y, summed to the words of the 128-bit product:
/// low = low32 + 2^32 * middle modulo 2^64. No sum overflows: a 32x32 product is at most (2^32 - 1)^2.
struct ProductParts {
    __m256i lowProduct; // xl * yl
    __m256i middle;     // low half of (hi32(xl*yl) + xl*yh), plus xh*yl
    __m256i high;       // the high word of the product
};

[[gnu::always_inline]] static inline ProductParts multiplyParts(__m256i x, __m256i y) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i xh = _mm256_srli_epi64(x, 32);
    const __m256i yh = _mm256_srli_epi64(y, 32);
    const __m256i lowProduct = _mm256_mul_epu32(x, y);
    const __m256i m = _mm256_add_epi64(_mm256_srli_epi64(lowProduct, 32), _mm256_mul_epu32(x, yh));
    const __m256i middle = _mm256_add_epi64(_mm256_blend_epi32(m, zero, 0b10101010), _mm256_mul_epu32(xh, y));
    const __m256i carries = _mm256_add_epi64(_mm256_srli_epi64(m, 32), _mm256_srli_epi64(middle, 32));
    return {lowProduct, middle, _mm256_add_epi64(_mm256_mul_epu32(xh, yh), carries)};
}

/// High words of the four products of 64-bit lanes.
[[gnu::always_inline]] static inline __m256i mul64To128Hi(__m256i x, __m256i y) {
    return multiplyParts(x, y).high;
}

/// High and low words of the four products of 64-bit lanes.
[[gnu::always_inline]] static inline void mul64To128(__m256i x, __m256i y, __m256i& high, __m256i& low) {
    const ProductParts parts = multiplyParts(x, y);
    high = parts.high;
    low = _mm256_blend_epi32(parts.lowProduct, _mm256_slli_epi64(parts.middle, 32), 0b10101010);
}

/// Low halves of xl * yh and xh * yl, as the halves of each lane. One instruction gives both, because only
/// their lowest 32 bits reach the low word of x * y.
[[gnu::always_inline]] static inline __m256i crossProducts(__m256i x, __m256i y) {
    return _mm256_mullo_epi32(x, _mm256_shuffle_epi32(y, 0b10110001));
}

/// x + 2^32 * (the sum of the halves of `cross`) modulo 2^64.
[[gnu::always_inline]] static inline __m256i addCross(__m256i x, __m256i cross) {
    const __m256i sum = _mm256_add_epi64(cross, _mm256_slli_epi64(cross, 32));
    return _mm256_add_epi64(x, _mm256_blend_epi32(_mm256_setzero_si256(), sum, 0b10101010));
}

} // namespace arith

namespace {

/// Four words at a time: the vector form of the row kernels. ScalarLanes has the same members.
struct AVX2Lanes {
    using Words = __m256i;
    static constexpr u64 width = 4;
    /// Shoup products lie in [0, productRange * p).
    static constexpr u64 productRange = 2;

    [[gnu::always_inline]] static Words load(const u64* from) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    }
    [[gnu::always_inline]] static void store(u64* to, Words x) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), x);
    }
    [[gnu::always_inline]] static Words splat(u64 x) { return _mm256_set1_epi64x(static_cast<long long>(x)); }
    [[gnu::always_inline]] static Words add(Words x, Words y) { return _mm256_add_epi64(x, y); }
    [[gnu::always_inline]] static Words sub(Words x, Words y) { return _mm256_sub_epi64(x, y); }
    [[gnu::always_inline]] static Words mulHigh(Words x, Words y) { return arith::mul64To128Hi(x, y); }
    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        return mulHigh(x, companion);
    }
    /// v*w - x*y, low words. The cross products of both are combined before the shift.
    [[gnu::always_inline]] static Words mulLowDifference(Words v, Words w, Words x, Words y) {
        const Words cross = _mm256_sub_epi32(arith::crossProducts(v, w), arith::crossProducts(x, y));
        return arith::addCross(sub(_mm256_mul_epu32(v, w), _mm256_mul_epu32(x, y)), cross);
    }
    [[gnu::always_inline]] static Words mulLow(Words x, Words y) {
        return arith::addCross(_mm256_mul_epu32(x, y), arith::crossProducts(x, y));
    }
    /// Low word of the product x * y shifted right by `shift` < 64, and the low word of the product itself.
    [[gnu::always_inline]] static Words mulShifted(Words x, Words y, u64 shift, Words& low) {
        Words high;
        arith::mul64To128(x, y, high, low);
        const Words fromHigh = _mm256_sll_epi64(high, _mm_cvtsi64_si128(static_cast<long long>(64 - shift)));
        return _mm256_or_si256(fromHigh,
                               _mm256_srl_epi64(low, _mm_cvtsi64_si128(static_cast<long long>(shift))));
    }
    /// A sum of products of words as low + 2^bits * middle + 2^(2 bits) * high, bits <= 31. ModulusRows.hpp
    /// says how many terms may be added before `carry` must be called.
    template <int bits>
    struct Sum {
        struct Limbs {
            Words low;
            Words high;
        };
        /// The limbs of a constant.
        struct Factor {
            u64 low;
            u64 high;
        };

        Words low = _mm256_setzero_si256();
        Words middle = _mm256_setzero_si256();
        Words high = _mm256_setzero_si256();

        [[gnu::always_inline]] static Limbs split(Words x) {
            return {_mm256_and_si256(x, AVX2Lanes::splat(limbMask)), _mm256_srli_epi64(x, bits)};
        }
        [[gnu::always_inline]] static Factor factor(u64 x) { return {x & limbMask, x >> bits}; }
        [[gnu::always_inline]] static Limbs splat(Factor x) {
            return {AVX2Lanes::splat(x.low), AVX2Lanes::splat(x.high)};
        }
        [[gnu::always_inline]] void add(const Limbs& x) {
            low = AVX2Lanes::add(low, x.low);
            middle = AVX2Lanes::add(middle, x.high);
        }
        [[gnu::always_inline]] void addProduct(const Limbs& x, const Limbs& y) {
            low = AVX2Lanes::add(low, _mm256_mul_epu32(x.low, y.low));
            middle = AVX2Lanes::add(middle, _mm256_mul_epu32(x.low, y.high));
            middle = AVX2Lanes::add(middle, _mm256_mul_epu32(x.high, y.low));
            high = AVX2Lanes::add(high, _mm256_mul_epu32(x.high, y.high));
        }
        [[gnu::always_inline]] void carry() {
            middle = AVX2Lanes::add(middle, _mm256_srli_epi64(low, bits));
            low = _mm256_and_si256(low, AVX2Lanes::splat(limbMask));
            high = AVX2Lanes::add(high, _mm256_srli_epi64(middle, bits));
            middle = _mm256_and_si256(middle, AVX2Lanes::splat(limbMask));
        }
        /// Valid after `carry`.
        [[gnu::always_inline]] Words highWord() const { return _mm256_srli_epi64(high, 64 - 2 * bits); }
        [[gnu::always_inline]] Words lowWord() const {
            const Words lower = AVX2Lanes::add(low, _mm256_slli_epi64(middle, bits));
            return AVX2Lanes::add(lower, _mm256_slli_epi64(high, 2 * bits));
        }

    private:
        static constexpr u64 limbMask = (u64{1} << bits) - 1;
    };
    /// x - m where x >= m, else x; x, m < 2^63, so that the sign of the difference decides.
    [[gnu::always_inline]] static Words subtractIfNotBelow(Words x, Words m) {
        const __m256d difference = _mm256_castsi256_pd(sub(x, m));
        return _mm256_castpd_si256(_mm256_blendv_pd(difference, _mm256_castsi256_pd(x), difference));
    }
    /// x + y where x > bound, else x; x, bound < 2^63: the compare is signed.
    [[gnu::always_inline]] static Words addIfAbove(Words x, Words bound, Words y) {
        return add(x, _mm256_and_si256(_mm256_cmpgt_epi64(x, bound), y));
    }
};

/// The same with cheaper Shoup products, for results that are reduced in the end. The quotient omits the
/// product of the low halves and the carries, which makes it smaller by at most three. A product lies in
/// [0, 4p) for any word x: x*w/p exceeds the quotient by less than 3 plus the error of the companion,
/// x / 2^64.
struct EstimatingLanes : AVX2Lanes {
    static constexpr u64 productRange = 4;

    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        const Words xh = _mm256_srli_epi64(x, 32);
        const Words companionHigh = _mm256_srli_epi64(companion, 32);
        const Words cross = add(_mm256_srli_epi64(_mm256_mul_epu32(x, companionHigh), 32),
                                _mm256_srli_epi64(_mm256_mul_epu32(xh, companion), 32));
        return add(_mm256_mul_epu32(xh, companionHigh), cross);
    }
};

} // namespace

} // namespace Torvo
