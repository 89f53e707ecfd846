#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "arithmetic/kernels/NTTFMA.hpp"
#include "arithmetic/kernels/TransformRows.hpp"
#include "core/Integers.hpp"

/// The butterflies and passes of the transforms in floating point, each formula once, over a lanes type:
/// FMALanes or FMA512Lanes. Between the first and the last pass a row holds reals instead of words.
///
/// Bounds limit the magnitude of a real, in multiples of p. A product of |y| <= b is within 0.5 + e b, a loose
/// one within 1 + e' b, where b must not exceed the limit; other reals may be twice as great:
///
///   spare bits   p below       e       e'      limit
///   0            2^51 + 2^41   0.376   0.251   3.99
///   1            2^50          0.188           3.99
///   4            2^47          0.024           31.9
///
/// With spare bits loose products are as good as others.
namespace Torvo::FMA {

enum class Product { Tight, Loose };

/// (x, y) := (x + w*y, x - w*y).
template <class L, Product kind = Product::Tight>
[[gnu::always_inline]] inline void forwardButterfly(typename L::Reals& x, typename L::Reals& y,
                                                    typename L::Reals w, FloatModulus m) {
    const auto v = kind == Product::Loose ? L::looseProduct(y, w, m) : L::product(y, w, m);
    y = L::sub(x, v);
    x = L::add(x, v);
}

/// (x, y) := (x + y, w*(x - y)).
template <class L>
[[gnu::always_inline]] inline void backwardButterfly(typename L::Reals& x, typename L::Reals& y,
                                                     typename L::Reals w, FloatModulus m) {
    const auto d = L::sub(x, y);
    x = L::add(x, y);
    y = L::looseProduct(d, w, m);
}

/// Four vectors: quarters of a group of two stages, or the rows or columns of sixteen words.
template <class L>
struct Four {
    typename L::Reals v0, v1, v2, v3;
};

template <class L>
[[gnu::always_inline]] inline Four<L> load(const u64* a, u64 stride) {
    return {L::load(a), L::load(a + stride), L::load(a + 2 * stride), L::load(a + 3 * stride)};
}

template <class L>
[[gnu::always_inline]] inline void store(u64* a, u64 stride, const Four<L>& x) {
    L::store(a, x.v0);
    L::store(a + stride, x.v1);
    L::store(a + 2 * stride, x.v2);
    L::store(a + 3 * stride, x.v3);
}

template <class L>
[[gnu::always_inline]] inline void storeWords(u64* a, typename L::Reals x, FloatModulus m) {
    L::WordLanes::store(a, L::toWords(x, m));
}

template <class L>
[[gnu::always_inline]] inline void storeWords(u64* a, u64 stride, const Four<L>& x, FloatModulus m) {
    storeWords<L>(a, x.v0, m);
    storeWords<L>(a + stride, x.v1, m);
    storeWords<L>(a + 2 * stride, x.v2, m);
    storeWords<L>(a + 3 * stride, x.v3, m);
}

/// Two forward stages. If v0 and v1 are within b0, and v2 and v3 within b, the first stage leaves values within
/// b0 more than its products of b, and the second adds products of that.
template <class L, Product first = Product::Tight>
[[gnu::always_inline]] inline void forwardSquare(Four<L>& x, typename L::Reals w, typename L::Reals low,
                                                 typename L::Reals high, FloatModulus m) {
    forwardButterfly<L, first>(x.v0, x.v2, w, m);
    forwardButterfly<L, first>(x.v1, x.v3, w, m);
    forwardButterfly<L>(x.v0, x.v1, low, m);
    forwardButterfly<L>(x.v2, x.v3, high, m);
}

/// The same with the upper half reduced first. Values stay within 3.92: 0.5 + 1 + 0.984 = 2.484, and
/// 2.484 + 0.5 + 0.934 = 3.918.
///
/// With one spare bit v0 alone is reduced, because v1 enters the results through products only. Values stay
/// within 2.72, factors within 2.72 + 0.5 + 0.512 = 3.732: 0.5 + 0.5 + 0.512 + 0.5 + 0.702 = 2.714. With four
/// nothing is reduced: a stage adds 0.5 and a fortieth, and 30 stages from 1 leave values within 24.
template <class L>
[[gnu::always_inline]] inline void forwardSquareReduced(Four<L>& x, typename L::Reals w,
                                                        typename L::Reals low, typename L::Reals high,
                                                        FloatModulus m) {
    if constexpr (L::spareBits < 4) x.v0 = L::reduce(x.v0, m);
    if constexpr (L::spareBits < 1) x.v1 = L::reduce(x.v1, m);
    forwardSquare<L, Product::Loose>(x, w, low, high, m);
}

/// Two backward stages. From values within 0.51 the sums of sums reach 2.04, sums of products 2.51, all other
/// values less.
template <class L>
[[gnu::always_inline]] inline void backwardSquare(Four<L>& x, typename L::Reals low, typename L::Reals high,
                                                  typename L::Reals w, FloatModulus m) {
    backwardButterfly<L>(x.v0, x.v1, low, m);
    backwardButterfly<L>(x.v2, x.v3, high, m);
    backwardButterfly<L>(x.v0, x.v2, w, m);
    backwardButterfly<L>(x.v1, x.v3, w, m);
}

/// Reduces what two backward stages leave. With one spare bit v3, a product of products, may stay: values within
/// 0.83 make sums of sums within 3.32, and v3 = 0.5 + 0.188 * 2 (0.5 + 0.188 * 1.66) = 0.806. With four only v0
/// must be reduced: values within 1.11 make sums of products within 2 (0.5 + 0.024 * 2.22) = 1.107.
template <class L>
[[gnu::always_inline]] inline void reduceGreat(Four<L>& x, FloatModulus m) {
    x.v0 = L::reduce(x.v0, m);
    if constexpr (L::spareBits < 4) x.v1 = L::reduce(x.v1, m);
    if constexpr (L::spareBits < 4) x.v2 = L::reduce(x.v2, m);
    if constexpr (L::spareBits < 1) x.v3 = L::reduce(x.v3, m);
}

/// Words in range 4 as reals in [0, p).
template <class L>
[[gnu::always_inline]] inline typename L::Reals loadRangeFour(const u64* a, u64 p) {
    using W = typename L::WordLanes;
    return L::fromWords(rows::fromForwardRange<1, W>(W::load(a), p), L::splat(0));
}

/// Words in range 2 as reals in [0, p), minus `offset`.
template <class L>
[[gnu::always_inline]] inline typename L::Reals fromRangeTwo(typename L::WordLanes::Words x, u64 p,
                                                             typename L::Reals offset) {
    return L::fromWords(rows::toRange<1, typename L::WordLanes>(x, p), offset);
}

/// The passes of a form on lanes L; the form adds the stages within vectors.
template <class L>
struct FloatPasses {
    using Tables = TransformTables;

    /// From range 4 to 1 + 0.876 = 1.876.
    static void forwardEntryStage(u64* a, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 half = tables.degree / 2;
        const auto w = L::splat(tables.twiddles[1]);
        for (u64 j = 0; j < half; j += L::width) {
            auto x = loadRangeFour<L>(a + j, tables.p);
            auto y = loadRangeFour<L>(a + j + half, tables.p);
            forwardButterfly<L>(x, y, w, m);
            L::store(a + j, x);
            L::store(a + j + half, y);
        }
    }

    /// From range 4 to 1 + 0.876 + 0.5 + 0.705 = 3.081.
    static void forwardEntryTwoStages(u64* a, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 p = tables.p;
        const u64 quarter = tables.degree / 4;
        const auto w = L::splat(tables.twiddles[1]);
        const auto low = L::splat(tables.twiddles[2]);
        const auto high = L::splat(tables.twiddles[3]);
        for (u64 j = 0; j < quarter; j += L::width) {
            Four<L> x{loadRangeFour<L>(a + j, p), loadRangeFour<L>(a + j + quarter, p),
                      loadRangeFour<L>(a + j + 2 * quarter, p), loadRangeFour<L>(a + j + 3 * quarter, p)};
            forwardSquare<L>(x, w, low, high, m);
            store<L>(a + j, quarter, x);
        }
    }

    static void forwardTwoStages(u64* a, u64 t, rows::Groups groups, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 quarter = t / 2;
        const double* twiddles = tables.twiddles + tables.degree / (2 * t);
        const double* nextTwiddles = tables.twiddles + tables.degree / t;
        for (u64 g = groups.begin; g < groups.end; ++g) {
            const auto w = L::splat(twiddles[g]);
            const auto low = L::splat(nextTwiddles[2 * g]);
            const auto high = L::splat(nextTwiddles[2 * g + 1]);
            u64* begin = a + 2 * t * g;
            for (u64 j = 0; j < quarter; j += L::width) {
                auto x = load<L>(begin + j, quarter);
                forwardSquareReduced<L>(x, w, low, high, m);
                store<L>(begin + j, quarter, x);
            }
        }
    }

    static void backwardTwoStages(u64* a, u64 t, rows::Groups groups, const Tables& tables) {
        const FloatModulus m = tables.modulus;
        const double* twiddles = tables.twiddles + rows::backwardBase(tables.degree, t);
        const double* nextTwiddles = tables.twiddles + rows::backwardBase(tables.degree, 2 * t);
        for (u64 g = groups.begin; g < groups.end; ++g) {
            const auto low = L::splat(twiddles[2 * g]);
            const auto high = L::splat(twiddles[2 * g + 1]);
            const auto w = L::splat(nextTwiddles[g]);
            u64* begin = a + 4 * t * g;
            for (u64 j = 0; j < t; j += L::width) {
                auto x = load<L>(begin + j, t);
                backwardSquare<L>(x, low, high, w, m);
                reduceGreat<L>(x, m);
                store<L>(begin + j, t, x);
            }
        }
    }

    template <int range>
    static void backwardExitStage(u64* a, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 half = tables.degree / 2;
        const auto scale = L::splat(tables.degreeInverse);
        const auto root = L::splat(tables.degreeInverseRoot);
        for (u64 j = 0; j < half; j += L::width) {
            auto x = L::load(a + j);
            auto y = L::load(a + j + half);
            lastButterfly(x, y, scale, root, m);
            storeWords<L>(a + j, x, m);
            storeWords<L>(a + j + half, y, m);
        }
    }

    template <int range>
    static void backwardExitTwoStages(u64* a, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 t = tables.degree / 4;
        const double* twiddles = tables.twiddles + rows::backwardBase(tables.degree, t);
        const auto low = L::splat(twiddles[0]);
        const auto high = L::splat(twiddles[1]);
        const auto scale = L::splat(tables.degreeInverse);
        const auto root = L::splat(tables.degreeInverseRoot);
        for (u64 j = 0; j < t; j += L::width) {
            auto x = load<L>(a + j, t);
            backwardButterfly<L>(x.v0, x.v1, low, m);
            backwardButterfly<L>(x.v2, x.v3, high, m);
            lastButterfly(x.v0, x.v2, scale, root, m);
            lastButterfly(x.v1, x.v3, scale, root, m);
            storeWords<L>(a + j, t, x, m);
        }
    }

private:
    /// (x, y) := (x + y) / N, w*(x - y) / N.
    [[gnu::always_inline]] static void lastButterfly(typename L::Reals& x, typename L::Reals& y,
                                                     typename L::Reals scale, typename L::Reals root,
                                                     FloatModulus m) {
        const auto d = L::sub(x, y);
        x = L::looseProduct(L::add(x, y), scale, m);
        y = L::looseProduct(d, root, m);
    }
};

} // namespace Torvo::FMA
