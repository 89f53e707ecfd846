#include "arithmetic/kernels/NTTFMA.hpp"

#include "arithmetic/kernels/AVX2Lanes.hpp"
#include "arithmetic/kernels/FMALanes.hpp"
#include "arithmetic/kernels/TransformRows.hpp"

namespace Torvo::FMA {

namespace {

using L = FMALanes;
using Reals = L::Reals;
using rows::backwardBase, rows::Groups;

/// The bounds below limit the magnitude of a real, in multiples of p; none may exceed 3.99, see FMALanes.
struct Twiddle {
    Reals value;
    Reals ratio;
};

[[gnu::always_inline]] inline Twiddle splat(double w, FloatModulus m) {
    return {L::splat(w), L::splat(w * m.inverse)};
}

[[gnu::always_inline]] inline Twiddle loadTwiddles(const double* w, FloatModulus m) {
    const Reals value = L::load(w);
    return {value, _mm256_mul_pd(value, L::splat(m.inverse))};
}

/// (x, y) := (x + w*y, x - w*y).
[[gnu::always_inline]] inline void forwardButterfly(Reals& x, Reals& y, const Twiddle& w, FloatModulus m) {
    const Reals v = L::product(y, w.value, w.ratio, m);
    y = L::sub(x, v);
    x = L::add(x, v);
}

/// (x, y) := (x + y, w*(x - y)).
[[gnu::always_inline]] inline void backwardButterfly(Reals& x, Reals& y, const Twiddle& w, FloatModulus m) {
    const Reals d = L::sub(x, y);
    x = L::add(x, y);
    y = L::product(d, w.value, w.ratio, m);
}

/// Four vectors: quarters of a group of two stages, or the rows or columns of sixteen words.
struct Four {
    Reals v0, v1, v2, v3;
};

[[gnu::always_inline]] inline Four load(const u64* a, u64 stride) {
    return {L::load(a), L::load(a + stride), L::load(a + 2 * stride), L::load(a + 3 * stride)};
}

[[gnu::always_inline]] inline void store(u64* a, u64 stride, const Four& x) {
    L::store(a, x.v0);
    L::store(a + stride, x.v1);
    L::store(a + 2 * stride, x.v2);
    L::store(a + 3 * stride, x.v3);
}

[[gnu::always_inline]] inline void storeWords(u64* a, u64 stride, const Four& x, FloatModulus m) {
    AVX2Lanes::store(a, L::toWords(x.v0, m));
    AVX2Lanes::store(a + stride, L::toWords(x.v1, m));
    AVX2Lanes::store(a + 2 * stride, L::toWords(x.v2, m));
    AVX2Lanes::store(a + 3 * stride, L::toWords(x.v3, m));
}

[[gnu::always_inline]] inline void transpose(Four& x) {
    const Reals a = _mm256_unpacklo_pd(x.v0, x.v1);
    const Reals b = _mm256_unpackhi_pd(x.v0, x.v1);
    const Reals c = _mm256_unpacklo_pd(x.v2, x.v3);
    const Reals d = _mm256_unpackhi_pd(x.v2, x.v3);
    x.v0 = _mm256_permute2f128_pd(a, c, 0x20);
    x.v1 = _mm256_permute2f128_pd(b, d, 0x20);
    x.v2 = _mm256_permute2f128_pd(a, c, 0x31);
    x.v3 = _mm256_permute2f128_pd(b, d, 0x31);
}

/// Two forward stages. If v0 and v1 are within b0, and v2 and v3 within b, the first stage leaves values
/// within b0 + 0.5 + 0.376 b, and the second adds 0.5 and 0.376 times that.
[[gnu::always_inline]] inline void forwardSquare(Four& x, const Twiddle& w, const Twiddle& low,
                                                 const Twiddle& high, FloatModulus m) {
    forwardButterfly(x.v0, x.v2, w, m);
    forwardButterfly(x.v1, x.v3, w, m);
    forwardButterfly(x.v0, x.v1, low, m);
    forwardButterfly(x.v2, x.v3, high, m);
}

/// The same with the upper half reduced first. Values stay within 3.9: 0.5 + 0.5 + 1.467 = 2.467, and
/// 2.467 + 0.5 + 0.928 = 3.895.
[[gnu::always_inline]] inline void forwardSquareReduced(Four& x, const Twiddle& w, const Twiddle& low,
                                                        const Twiddle& high, FloatModulus m) {
    x.v0 = L::reduce(x.v0, m);
    x.v1 = L::reduce(x.v1, m);
    forwardSquare(x, w, low, high, m);
}

/// Two backward stages. From values within 0.51 the sums of sums reach 2.04, all other values less.
[[gnu::always_inline]] inline void backwardSquare(Four& x, const Twiddle& low, const Twiddle& high,
                                                  const Twiddle& w, FloatModulus m) {
    backwardButterfly(x.v0, x.v1, low, m);
    backwardButterfly(x.v2, x.v3, high, m);
    backwardButterfly(x.v0, x.v2, w, m);
    backwardButterfly(x.v1, x.v3, w, m);
}

[[gnu::always_inline]] inline void reduceAll(Four& x, FloatModulus m) {
    x.v0 = L::reduce(x.v0, m);
    x.v1 = L::reduce(x.v1, m);
    x.v2 = L::reduce(x.v2, m);
    x.v3 = L::reduce(x.v3, m);
}

/// Words in range 4 as reals in [0, p).
[[gnu::always_inline]] inline Reals loadRangeFour(const u64* a, u64 p) {
    return L::fromWords(rows::fromForwardRange<1, AVX2Lanes>(AVX2Lanes::load(a), p), L::splat(0));
}

/// Words in range 2 as reals in [0, p), minus `offset`.
[[gnu::always_inline]] inline Reals loadRangeTwo(const u64* a, u64 p, Reals offset) {
    return L::fromWords(rows::toRange<1, AVX2Lanes>(AVX2Lanes::load(a), p), offset);
}

/// Between the first and the last pass a row holds reals instead of words.
struct FloatForm {
    using Tables = TransformTables;
    static constexpr int tailStages = 4;

    /// From range 4 to 1 + 0.876 = 1.876.
    static void forwardEntryStage(u64* a, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 half = tables.degree / 2;
        const Twiddle w = splat(tables.twiddles[1], m);
        for (u64 j = 0; j < half; j += L::width) {
            Reals x = loadRangeFour(a + j, tables.p);
            Reals y = loadRangeFour(a + j + half, tables.p);
            forwardButterfly(x, y, w, m);
            L::store(a + j, x);
            L::store(a + j + half, y);
        }
    }

    /// From range 4 to 1 + 0.876 + 0.5 + 0.705 = 3.081.
    static void forwardEntryTwoStages(u64* a, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 p = tables.p;
        const u64 quarter = tables.degree / 4;
        const Twiddle w = splat(tables.twiddles[1], m);
        const Twiddle low = splat(tables.twiddles[2], m);
        const Twiddle high = splat(tables.twiddles[3], m);
        for (u64 j = 0; j < quarter; j += L::width) {
            Four x{loadRangeFour(a + j, p), loadRangeFour(a + j + quarter, p),
                   loadRangeFour(a + j + 2 * quarter, p), loadRangeFour(a + j + 3 * quarter, p)};
            forwardSquare(x, w, low, high, m);
            store(a + j, quarter, x);
        }
    }

    static void forwardTwoStages(u64* a, u64 t, Groups groups, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 quarter = t / 2;
        const double* twiddles = tables.twiddles + tables.degree / (2 * t);
        const double* nextTwiddles = tables.twiddles + tables.degree / t;
        for (u64 g = groups.begin; g < groups.end; ++g) {
            const Twiddle w = splat(twiddles[g], m);
            const Twiddle low = splat(nextTwiddles[2 * g], m);
            const Twiddle high = splat(nextTwiddles[2 * g + 1], m);
            u64* begin = a + 2 * t * g;
            for (u64 j = 0; j < quarter; j += L::width) {
                Four x = load(begin + j, quarter);
                forwardSquareReduced(x, w, low, high, m);
                store(begin + j, quarter, x);
            }
        }
    }

    /// Sixteen words form a square: the stages of distance 8 and 4 work on its rows, those of 2 and 1 on its
    /// columns.
    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 n = tables.degree;
        const double* twiddles = tables.twiddles;
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            Four x = load(a + 16 * g, 4);
            forwardSquareReduced(x, splat(twiddles[n / 16 + g], m), splat(twiddles[n / 8 + 2 * g], m),
                                 splat(twiddles[n / 8 + 2 * g + 1], m), m);
            transpose(x);
            forwardSquareReduced(x, loadTwiddles(twiddles + n / 4 + 4 * g, m),
                                 loadTwiddles(twiddles + n / 2 + 8 * g, m),
                                 loadTwiddles(twiddles + n / 2 + 8 * g + 4, m), m);
            transpose(x);
            storeWords(a + 16 * g, 4, x, m);
        }
    }

    /// From range 2. The lower words of the first stage are read as y - p, so that its sums stay within 1.
    /// Its differences then reach 2, which their products allow. Sums of sums reach 2, products of
    /// differences 0.5 + 0.376 * 2.51.
    static void backwardHead(u64* a, u64 begin, u64 count, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 p = tables.p;
        const Reals offset = _mm256_setr_pd(0, m.prime, 0, m.prime);
        const double* last = tables.twiddles + backwardBase(tables.degree, 1);
        const double* two = tables.twiddles + backwardBase(tables.degree, 2);
        const double* four = tables.twiddles + backwardBase(tables.degree, 4);
        const double* eight = tables.twiddles + backwardBase(tables.degree, 8);
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            u64* words = a + 16 * g;
            Four x{loadRangeTwo(words, p, offset), loadRangeTwo(words + 4, p, offset),
                   loadRangeTwo(words + 8, p, offset), loadRangeTwo(words + 12, p, offset)};
            transpose(x);
            backwardSquare(x, loadTwiddles(last + 8 * g, m), loadTwiddles(last + 8 * g + 4, m),
                           loadTwiddles(two + 4 * g, m), m);
            reduceAll(x, m);
            transpose(x);
            backwardSquare(x, splat(four[2 * g], m), splat(four[2 * g + 1], m), splat(eight[g], m), m);
            reduceAll(x, m);
            store(words, 4, x);
        }
    }

    static void backwardTwoStages(u64* a, u64 t, Groups groups, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const double* twiddles = tables.twiddles + backwardBase(tables.degree, t);
        const double* nextTwiddles = tables.twiddles + backwardBase(tables.degree, 2 * t);
        for (u64 g = groups.begin; g < groups.end; ++g) {
            const Twiddle low = splat(twiddles[2 * g], m);
            const Twiddle high = splat(twiddles[2 * g + 1], m);
            const Twiddle w = splat(nextTwiddles[g], m);
            u64* begin = a + 4 * t * g;
            for (u64 j = 0; j < t; j += L::width) {
                Four x = load(begin + j, t);
                backwardSquare(x, low, high, w, m);
                reduceAll(x, m);
                store(begin + j, t, x);
            }
        }
    }

    template <int range>
    static void backwardExitStage(u64* a, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 half = tables.degree / 2;
        const Twiddle scale = splat(tables.degreeInverse, m);
        const Twiddle root = splat(tables.degreeInverseRoot, m);
        for (u64 j = 0; j < half; j += L::width) {
            Reals x = L::load(a + j);
            Reals y = L::load(a + j + half);
            lastButterfly(x, y, scale, root, m);
            AVX2Lanes::store(a + j, L::toWords(x, m));
            AVX2Lanes::store(a + j + half, L::toWords(y, m));
        }
    }

    template <int range>
    static void backwardExitTwoStages(u64* a, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 t = tables.degree / 4;
        const double* twiddles = tables.twiddles + backwardBase(tables.degree, t);
        const Twiddle low = splat(twiddles[0], m);
        const Twiddle high = splat(twiddles[1], m);
        const Twiddle scale = splat(tables.degreeInverse, m);
        const Twiddle root = splat(tables.degreeInverseRoot, m);
        for (u64 j = 0; j < t; j += L::width) {
            Four x = load(a + j, t);
            backwardButterfly(x.v0, x.v1, low, m);
            backwardButterfly(x.v2, x.v3, high, m);
            lastButterfly(x.v0, x.v2, scale, root, m);
            lastButterfly(x.v1, x.v3, scale, root, m);
            storeWords(a + j, t, x, m);
        }
    }

private:
    /// (x, y) := (x + y) / N, w*(x - y) / N.
    [[gnu::always_inline]] static void lastButterfly(Reals& x, Reals& y, const Twiddle& scale,
                                                     const Twiddle& root, FloatModulus m) {
        const Reals d = L::sub(x, y);
        x = L::product(L::add(x, y), scale.value, scale.ratio, m);
        y = L::product(d, root.value, root.ratio, m);
    }
};

} // namespace

void forwardTransform(u64* a, const TransformTables& tables) {
    rows::forwardTransform<1, FloatForm>(a, tables);
}

void backwardTransform(u64* a, const TransformTables& tables) {
    rows::backwardTransform<1, FloatForm>(a, tables);
}

} // namespace Torvo::FMA
