#pragma once

#include "arithmetic/kernels/AVX512Lanes.hpp"
#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

// Only for units compiled for AVX-512 F, DQ and VL; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// FMALanes, eight at a time. Where the bounds allow, a quotient is rounded by a sum with a great number, in one
/// operation less: with 1.5 * 2^52 if it is below 2^51, with 1.5 * 2^53, to an even number, if it is below 2^52.
/// The sum is fused with the product by 1/p, so that besides the rounding the quotient misses no more than
/// 2 * 2^-53 * |y| * |w| / p <= 2^-53 * |y|.
///
/// With spare bits, factors up to the limit of FloatRows.hpp have quotients below 2^51.
template <int spare>
struct FMA512Lanes {
    using Reals = __m512d;
    using WordLanes = AVX512Lanes;
    static constexpr u64 width = 8;
    static constexpr int spareBits = spare;

    [[gnu::always_inline]] static Reals load(const u64* from) {
        return _mm512_castsi512_pd(WordLanes::load(from));
    }
    [[gnu::always_inline]] static Reals load(const double* from) { return _mm512_loadu_pd(from); }
    [[gnu::always_inline]] static void store(u64* to, Reals x) {
        WordLanes::store(to, _mm512_castpd_si512(x));
    }
    [[gnu::always_inline]] static Reals splat(double x) { return _mm512_set1_pd(x); }
    [[gnu::always_inline]] static Reals add(Reals x, Reals y) { return _mm512_add_pd(x, y); }
    [[gnu::always_inline]] static Reals sub(Reals x, Reals y) { return _mm512_sub_pd(x, y); }

    /// The centred representative of x mod p.
    [[gnu::always_inline]] static Reals reduce(Reals x, FloatModulus modulus) {
        return _mm512_fnmadd_pd(smallQuotient(x, modulus), splat(modulus.prime), x);
    }
    /// As FMALanes::product.
    [[gnu::always_inline]] static Reals product(Reals y, Reals w, FloatModulus modulus) {
        const Reals high = _mm512_mul_pd(y, w);
        const Reals quotient = spare > 0 ? smallQuotient(high, modulus) : greatQuotient(high, modulus);
        return productLess(quotient, high, y, w, modulus);
    }
    /// As FMALanes::looseProduct.
    [[gnu::always_inline]] static Reals looseProduct(Reals y, Reals w, FloatModulus modulus) {
        const Reals high = _mm512_mul_pd(y, w);
        const Reals quotient = spare > 0 ? smallQuotient(high, modulus) : evenQuotient(high, modulus);
        return productLess(quotient, high, y, w, modulus);
    }
    /// Converts words below 2^53 to reals and subtracts `offset`, integers below 2^52.
    [[gnu::always_inline]] static Reals fromWords(__m512i x, Reals offset) {
        return sub(_mm512_cvtepi64_pd(x), offset);
    }
    /// Converts any residue |x| <= 3.99 p to its word in [0, p).
    [[gnu::always_inline]] static __m512i toWords(Reals x, FloatModulus modulus) {
        const __m512i r = _mm512_cvtpd_epi64(reduce(x, modulus));
        // A negative number is a greater word than its sum with p.
        return _mm512_min_epu64(r, _mm512_add_epi64(r, _mm512_cvtpd_epi64(splat(modulus.prime))));
    }

private:
    static constexpr int nearest = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;

    /// y * w - quotient * p, with `high` = y * w, rounded.
    [[gnu::always_inline]] static Reals productLess(Reals quotient, Reals high, Reals y, Reals w,
                                                    FloatModulus modulus) {
        const Reals low = _mm512_fmsub_pd(y, w, high);
        return add(_mm512_fnmadd_pd(quotient, splat(modulus.prime), high), low);
    }
    /// x / p, rounded to a multiple of the last bit of `shift`, whatever the rounding mode is.
    [[gnu::always_inline]] static Reals shiftedQuotient(Reals x, FloatModulus modulus, double shift) {
        return sub(_mm512_fmadd_round_pd(x, splat(modulus.inverse), splat(shift), nearest), splat(shift));
    }
    /// x / p below 2^51, rounded to an integer.
    [[gnu::always_inline]] static Reals smallQuotient(Reals x, FloatModulus modulus) {
        return shiftedQuotient(x, modulus, 6755399441055744.0); // 1.5 * 2^52
    }
    /// x / p below 2^52, rounded to an even integer.
    [[gnu::always_inline]] static Reals evenQuotient(Reals x, FloatModulus modulus) {
        return shiftedQuotient(x, modulus, 13510798882111488.0); // 1.5 * 2^53
    }
    /// x / p, rounded to an integer.
    [[gnu::always_inline]] static Reals greatQuotient(Reals x, FloatModulus modulus) {
        return _mm512_roundscale_pd(_mm512_mul_pd(x, splat(modulus.inverse)), nearest);
    }
};

} // namespace

} // namespace Torvo
