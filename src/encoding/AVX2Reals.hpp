#pragma once

#include "core/Integers.hpp"

#include <immintrin.h>

// Only for units compiled for AVX2; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// Four real numbers at a time: the AVX2 form of the complex transform.
struct AVX2Reals {
    using Reals = __m256d;
    static constexpr u64 width = 4;

    [[gnu::always_inline]] static Reals load(const double* from) { return _mm256_loadu_pd(from); }
    [[gnu::always_inline]] static void store(double* to, Reals x) { _mm256_storeu_pd(to, x); }
    [[gnu::always_inline]] static Reals splat(double x) { return _mm256_set1_pd(x); }
    [[gnu::always_inline]] static Reals add(Reals x, Reals y) { return _mm256_add_pd(x, y); }
    [[gnu::always_inline]] static Reals sub(Reals x, Reals y) { return _mm256_sub_pd(x, y); }
    [[gnu::always_inline]] static Reals mul(Reals x, Reals y) { return _mm256_mul_pd(x, y); }

    /// Numbers 2i to `even`, 2i + 1 to `odd`.
    [[gnu::always_inline]] static void loadPairs(const double* from, Reals& even, Reals& odd) {
        const Reals x = load(from), y = load(from + 4);
        even = swapMiddle(_mm256_unpacklo_pd(x, y));
        odd = swapMiddle(_mm256_unpackhi_pd(x, y));
    }
    [[gnu::always_inline]] static void storePairs(double* to, Reals even, Reals odd) {
        const Reals x = swapMiddle(even), y = swapMiddle(odd);
        store(to, _mm256_unpacklo_pd(x, y));
        store(to + 4, _mm256_unpackhi_pd(x, y));
    }
    /// Number j of x[i] and number i of x[j] trade places.
    [[gnu::always_inline]] static void transpose(Reals (&x)[4]) {
        const Reals t0 = _mm256_unpacklo_pd(x[0], x[1]), t1 = _mm256_unpackhi_pd(x[0], x[1]);
        const Reals t2 = _mm256_unpacklo_pd(x[2], x[3]), t3 = _mm256_unpackhi_pd(x[2], x[3]);
        x[0] = _mm256_permute2f128_pd(t0, t2, 0x20);
        x[1] = _mm256_permute2f128_pd(t1, t3, 0x20);
        x[2] = _mm256_permute2f128_pd(t0, t2, 0x31);
        x[3] = _mm256_permute2f128_pd(t1, t3, 0x31);
    }

private:
    [[gnu::always_inline]] static Reals swapMiddle(Reals x) { return _mm256_permute4x64_pd(x, 0b11011000); }
};

} // namespace

} // namespace Torvo
