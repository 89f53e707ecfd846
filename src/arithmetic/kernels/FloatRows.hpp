#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "arithmetic/kernels/NTTFMA.hpp"
#include "arithmetic/kernels/TransformRows.hpp"
#include "core/Integers.hpp"

/// The butterflies and passes of the transforms in floating point, each formula once, over a lanes type:
/// FMALanes or FMA512Lanes. Between the first and the last pass a row holds reals instead of words.
///
/// Bounds limit the magnitude of a real, in multiples of p. Factors of a product may reach 3.99, other reals as
/// much as integers are exact. A product of |y| <= b is within 0.5 + e b, where e = 0.376, or e = 0.188 for the
/// roomy lanes, whose primes are half as great; a loose one is within 1 + 0.251 b: see FMALanes.
namespace Torvo::FMA {

template <class L>
struct Twiddle {
    typename L::Reals value;
    typename L::Reals ratio;
};

template <class L>
[[gnu::always_inline]] inline Twiddle<L> splat(double w, FloatModulus m) {
    return {L::splat(w), L::splat(w * m.inverse)};
}

/// One twiddle per lane.
template <class L>
[[gnu::always_inline]] inline Twiddle<L> withRatio(typename L::Reals w, FloatModulus m) {
    return {w, L::mul(w, L::splat(m.inverse))};
}

enum class Product { Tight, Loose };

/// (x, y) := (x + w*y, x - w*y).
template <class L, Product kind = Product::Tight>
[[gnu::always_inline]] inline void forwardButterfly(typename L::Reals& x, typename L::Reals& y,
                                                    const Twiddle<L>& w, FloatModulus m) {
    const auto v =
        kind == Product::Loose ? L::looseProduct(y, w.value, w.ratio, m) : L::product(y, w.value, w.ratio, m);
    y = L::sub(x, v);
    x = L::add(x, v);
}

/// (x, y) := (x + y, w*(x - y)).
template <class L>
[[gnu::always_inline]] inline void backwardButterfly(typename L::Reals& x, typename L::Reals& y,
                                                     const Twiddle<L>& w, FloatModulus m) {
    const auto d = L::sub(x, y);
    x = L::add(x, y);
    y = L::looseProduct(d, w.value, w.ratio, m);
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
[[gnu::always_inline]] inline void forwardSquare(Four<L>& x, const Twiddle<L>& w, const Twiddle<L>& low,
                                                 const Twiddle<L>& high, FloatModulus m) {
    forwardButterfly<L, first>(x.v0, x.v2, w, m);
    forwardButterfly<L, first>(x.v1, x.v3, w, m);
    forwardButterfly<L>(x.v0, x.v1, low, m);
    forwardButterfly<L>(x.v2, x.v3, high, m);
}

/// The same with the upper half reduced first. Values stay within 3.92: 0.5 + 1 + 0.984 = 2.484, and
/// 2.484 + 0.5 + 0.934 = 3.918.
///
/// On roomy lanes v0 alone is reduced, because v1 enters the results through products only. Values stay within
/// 2.72, factors within 2.72 + 0.5 + 0.512 = 3.732: 0.5 + 0.5 + 0.512 + 0.5 + 0.702 = 2.714.
template <class L>
[[gnu::always_inline]] inline void forwardSquareReduced(Four<L>& x, const Twiddle<L>& w,
                                                        const Twiddle<L>& low, const Twiddle<L>& high,
                                                        FloatModulus m) {
    x.v0 = L::reduce(x.v0, m);
    if constexpr (!L::isRoomy) x.v1 = L::reduce(x.v1, m);
    forwardSquare<L, Product::Loose>(x, w, low, high, m);
}

/// Two backward stages. From values within 0.51 the sums of sums reach 2.04, sums of products 2.51, all other
/// values less.
template <class L>
[[gnu::always_inline]] inline void backwardSquare(Four<L>& x, const Twiddle<L>& low, const Twiddle<L>& high,
                                                  const Twiddle<L>& w, FloatModulus m) {
    backwardButterfly<L>(x.v0, x.v1, low, m);
    backwardButterfly<L>(x.v2, x.v3, high, m);
    backwardButterfly<L>(x.v0, x.v2, w, m);
    backwardButterfly<L>(x.v1, x.v3, w, m);
}

/// On roomy lanes v3, a product of products, may stay. Values within 0.81 make sums of sums within 3.24, and of
/// products v3 = 0.5 + 0.188 * 2 (0.5 + 0.188 * 1.62) = 0.803.
template <class L>
[[gnu::always_inline]] inline void reduceAll(Four<L>& x, FloatModulus m) {
    x.v0 = L::reduce(x.v0, m);
    x.v1 = L::reduce(x.v1, m);
    x.v2 = L::reduce(x.v2, m);
    if constexpr (!L::isRoomy) x.v3 = L::reduce(x.v3, m);
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
        const auto w = splat<L>(tables.twiddles[1], m);
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
        const auto w = splat<L>(tables.twiddles[1], m);
        const auto low = splat<L>(tables.twiddles[2], m);
        const auto high = splat<L>(tables.twiddles[3], m);
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
            const auto w = splat<L>(twiddles[g], m);
            const auto low = splat<L>(nextTwiddles[2 * g], m);
            const auto high = splat<L>(nextTwiddles[2 * g + 1], m);
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
            const auto low = splat<L>(twiddles[2 * g], m);
            const auto high = splat<L>(twiddles[2 * g + 1], m);
            const auto w = splat<L>(nextTwiddles[g], m);
            u64* begin = a + 4 * t * g;
            for (u64 j = 0; j < t; j += L::width) {
                auto x = load<L>(begin + j, t);
                backwardSquare<L>(x, low, high, w, m);
                reduceAll<L>(x, m);
                store<L>(begin + j, t, x);
            }
        }
    }

    template <int range>
    static void backwardExitStage(u64* a, const Tables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 half = tables.degree / 2;
        const auto scale = splat<L>(tables.degreeInverse, m);
        const auto root = splat<L>(tables.degreeInverseRoot, m);
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
        const auto low = splat<L>(twiddles[0], m);
        const auto high = splat<L>(twiddles[1], m);
        const auto scale = splat<L>(tables.degreeInverse, m);
        const auto root = splat<L>(tables.degreeInverseRoot, m);
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
                                                     const Twiddle<L>& scale, const Twiddle<L>& root,
                                                     FloatModulus m) {
        const auto d = L::sub(x, y);
        x = L::looseProduct(L::add(x, y), scale.value, scale.ratio, m);
        y = L::looseProduct(d, root.value, root.ratio, m);
    }
};

} // namespace Torvo::FMA
