#pragma once

#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX-512 F, DQ and VL; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// Eight real numbers at a time: the AVX-512 form of the complex transform. AVX2Reals has the same members.
struct AVX512Reals {
    using Reals = __m512d;
    static constexpr u64 width = 8;

    [[gnu::always_inline]] static Reals load(const double* from) { return _mm512_loadu_pd(from); }
    [[gnu::always_inline]] static void store(double* to, Reals x) { _mm512_storeu_pd(to, x); }
    [[gnu::always_inline]] static Reals splat(double x) { return _mm512_set1_pd(x); }
    [[gnu::always_inline]] static Reals add(Reals x, Reals y) { return _mm512_add_pd(x, y); }
    [[gnu::always_inline]] static Reals sub(Reals x, Reals y) { return _mm512_sub_pd(x, y); }
    [[gnu::always_inline]] static Reals mul(Reals x, Reals y) { return _mm512_mul_pd(x, y); }

    [[gnu::always_inline]] static void loadPairs(const double* from, Reals& even, Reals& odd) {
        const Reals x = load(from), y = load(from + 8);
        even = _mm512_permutex2var_pd(x, _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14), y);
        odd = _mm512_permutex2var_pd(x, _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15), y);
    }
    [[gnu::always_inline]] static void storePairs(double* to, Reals even, Reals odd) {
        store(to, _mm512_permutex2var_pd(even, _mm512_setr_epi64(0, 8, 1, 9, 2, 10, 3, 11), odd));
        store(to + 8, _mm512_permutex2var_pd(even, _mm512_setr_epi64(4, 12, 5, 13, 6, 14, 7, 15), odd));
    }
    [[gnu::always_inline]] static void transpose(Reals (&x)[8]) {
        Reals even[4], odd[4]; // pairs of numbers of one place of x[2i] and x[2i + 1]
#pragma GCC unroll 4
        for (u64 i = 0; i < 4; ++i) {
            even[i] = _mm512_unpacklo_pd(x[2 * i], x[2 * i + 1]);
            odd[i] = _mm512_unpackhi_pd(x[2 * i], x[2 * i + 1]);
        }
        transposePairs(even, x[0], x[2], x[4], x[6]);
        transposePairs(odd, x[1], x[3], x[5], x[7]);
    }

private:
    /// Pair j of x[i] becomes pair i of the j-th output.
    [[gnu::always_inline]] static void transposePairs(const Reals (&x)[4], Reals& out0, Reals& out1,
                                                      Reals& out2, Reals& out3) {
        const Reals low01 = _mm512_shuffle_f64x2(x[0], x[1], 0x44),
                    high01 = _mm512_shuffle_f64x2(x[0], x[1], 0xee);
        const Reals low23 = _mm512_shuffle_f64x2(x[2], x[3], 0x44),
                    high23 = _mm512_shuffle_f64x2(x[2], x[3], 0xee);
        out0 = _mm512_shuffle_f64x2(low01, low23, 0x88);
        out1 = _mm512_shuffle_f64x2(low01, low23, 0xdd);
        out2 = _mm512_shuffle_f64x2(high01, high23, 0x88);
        out3 = _mm512_shuffle_f64x2(high01, high23, 0xdd);
    }
};

} // namespace

} // namespace Torvo
