#pragma once

#include "arithmetic/kernels/AVX2Lanes.hpp"
#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX2 and FMA; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// Residues modulo p <= greatestFloatPrime as doubles that hold integers, positive or negative, four at a time.
///
/// The sum of two doubles holds the product of two words exactly, and a fused multiply-add subtracts the quotient
/// times p from it exactly. So a modular product takes six operations, where words of 64 bits need about
/// twenty-five. Bounds, in multiples of p; integers are exact up to 2^53 > 3.99 p:
///
///   reduce:   |x| <= 3.99                      gives  |r| <= 0.5 + 2^-48
///   product:  |y| <= 3.99, |w| <= 0.5 + 2^-48  gives  |v| <= 0.5 + 0.376 |y|
///
/// Proof of the second: the quotient fl(y * w) * fl(1/p) is rounded three times, each time by at most a relative
/// 2^-53. Its error is at most 3 * 2^-53 * |y| * |w| / p <= 1.5 * 2^-53 * |y| before it is rounded to an integer.
/// `spare` bits, 0, 1 or 4, say how much smaller p is: see FloatRows.hpp.
template <int spare>
struct FMALanes {
    using Reals = __m256d;
    using WordLanes = AVX2Lanes;
    static constexpr u64 width = 4;
    static constexpr int spareBits = spare;

    [[gnu::always_inline]] static Reals load(const u64* from) {
        return _mm256_loadu_pd(reinterpret_cast<const double*>(from));
    }
    [[gnu::always_inline]] static Reals load(const double* from) { return _mm256_loadu_pd(from); }
    [[gnu::always_inline]] static void store(u64* to, Reals x) {
        _mm256_storeu_pd(reinterpret_cast<double*>(to), x);
    }
    [[gnu::always_inline]] static Reals splat(double x) { return _mm256_set1_pd(x); }
    [[gnu::always_inline]] static Reals add(Reals x, Reals y) { return _mm256_add_pd(x, y); }
    [[gnu::always_inline]] static Reals sub(Reals x, Reals y) { return _mm256_sub_pd(x, y); }

    /// The centred representative of x mod p.
    [[gnu::always_inline]] static Reals reduce(Reals x, FloatModulus modulus) {
        return _mm256_fnmadd_pd(quotient(x, modulus), splat(modulus.prime), x);
    }
    /// y * w mod p. The high part minus the quotient times p is an integer below 2^53, so neither the fused
    /// operation nor the sum rounds.
    [[gnu::always_inline]] static Reals product(Reals y, Reals w, FloatModulus modulus) {
        const Reals high = _mm256_mul_pd(y, w);
        const Reals low = _mm256_fmsub_pd(y, w, high);
        return add(_mm256_fnmadd_pd(quotient(high, modulus), splat(modulus.prime), high), low);
    }
    /// The same for a result v that only needs to be within 1 + 0.251 |y|: other lanes have a cheaper one.
    [[gnu::always_inline]] static Reals looseProduct(Reals y, Reals w, FloatModulus modulus) {
        return product(y, w, modulus);
    }

    /// Converts words below 2^52 to reals and subtracts `offset`, integers below 2^52. The double 2^52 + x
    /// has x in its lowest bits.
    [[gnu::always_inline]] static Reals fromWords(__m256i x, Reals offset) {
        const Reals shifted = _mm256_castsi256_pd(_mm256_or_si256(x, _mm256_castpd_si256(splat(twoTo52))));
        return sub(shifted, add(splat(twoTo52), offset));
    }
    /// Converts any residue |x| <= 3.99 p to its word in [0, p).
    [[gnu::always_inline]] static __m256i toWords(Reals x, FloatModulus modulus) {
        const Reals r = reduce(x, modulus);
        // A comparison, not the sign bit, decides: in the rounding mode downwards an exact cancellation gives
        // -0.
        const Reals isNegative = _mm256_cmp_pd(r, _mm256_setzero_pd(), _CMP_LT_OQ);
        const Reals positive = _mm256_blendv_pd(r, add(r, splat(modulus.prime)), isNegative);
        return _mm256_xor_si256(_mm256_castpd_si256(add(positive, splat(twoTo52))),
                                _mm256_castpd_si256(splat(twoTo52)));
    }

private:
    static constexpr double twoTo52 = 4503599627370496.0;

    /// x / p, rounded to an integer.
    [[gnu::always_inline]] static Reals quotient(Reals x, FloatModulus modulus) {
        return _mm256_round_pd(_mm256_mul_pd(x, splat(modulus.inverse)),
                               _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    }
};

} // namespace

} // namespace Torvo
