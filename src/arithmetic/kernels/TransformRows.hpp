#pragma once

#include "arithmetic/kernels/ModulusRows.hpp"
#include "core/Integers.hpp"

#include <bit>

/// The butterflies and stages of NTT, each formula once, over a lanes type: ScalarLanes, AVX2Lanes or
/// AVX512Lanes, or lanes::Estimating of these for results in range 1 only. As in ModulusRows.hpp, a lanes type
/// with internal linkage keeps every instantiation within its unit.
///
/// R is L::productRange, 2 or 4. Forward words lie in [0, 2R p) between stages, backward words in [0, R p); a
/// comparison by the sign of the difference is right for both, since R p < 2^63.
///
/// Roomy lanes have R = 4 and p < 2^59. There words grow from stage to stage, and reductions are done once in two
/// stages (settleForward, settleBackward): forward words lie in [0, 4R p) between these, backward words in
/// [0, 2R p). No sum reaches 32p.
namespace Torvo::rows {

/// Input of one direction of the transform, for a row of `degree` words modulo p < 2^61. The twiddle of a
/// group is in `powers`, its Shoup companion at the same index of `companions`. The two `lastStage` tables
/// hold the twiddles of the stage of distance 1 for vectors, with the two middle words of every four
/// exchanged; they are null in a transform built without vectors.
struct TransformTables {
    u64 p;
    u64 degree;
    const u64* powers;
    const u64* companions;
    const u64* lastStagePowers;
    const u64* lastStageCompanions;
    ShoupConstant degreeInverse;
    ShoupConstant degreeInverseRoot;

    [[gnu::always_inline]] ShoupConstant twiddle(u64 i) const { return {powers[i], companions[i]}; }
};

/// Consecutive groups of one stage.
struct Groups {
    u64 begin;
    u64 end;
};

/// A twiddle per lane.
template <class L>
struct Twiddle {
    typename L::Words value;
    typename L::Words companion;
};

template <class L>
[[gnu::always_inline]] inline Twiddle<L> splat(ShoupConstant c) {
    return {L::splat(c.value), L::splat(c.companion)};
}

template <class L>
[[gnu::always_inline]] inline typename L::Words shoupProduct(typename L::Words x, const Twiddle<L>& w,
                                                             u64 p) {
    const auto quotient = L::shoupQuotient(x, w.companion);
    return L::mulLowDifference(x, w.value, quotient, L::splat(p));
}

/// (x, y) := (x + w*y, x - w*y) with words in range 2R before and after: x is reduced to range R, the product
/// lies in range R. On roomy lanes x may be greater, and adds R to its range.
template <class L>
[[gnu::always_inline]] inline void forwardButterfly(typename L::Words& x, typename L::Words& y,
                                                    const Twiddle<L>& w, u64 p) {
    const auto rangeR = L::splat(L::productRange * p);
    const auto u = L::isRoomy ? x : L::subtractIfNotBelow(x, rangeR);
    const auto v = shoupProduct<L>(y, w, p);
    x = L::add(u, v);
    y = L::sub(L::add(u, rangeR), v);
}

/// Before two forward stages on roomy lanes: x becomes the first quarter's word, from range 4R to 2R. All results
/// are this one plus two products, thus in range 4R; the second quarter enters them through products alone.
template <class L>
[[gnu::always_inline]] inline void settleForward(typename L::Words& x, u64 p) {
    if constexpr (L::isRoomy) x = L::subtractIfNotBelow(x, L::splat(2 * L::productRange * p));
}

/// (x, y) := (x + y, w*(x - y)) with words in range R before and after. On roomy lanes words are in range 2R, or,
/// after another stage, 4R; the sum is not reduced.
template <class L>
[[gnu::always_inline]] inline void backwardButterfly(typename L::Words& x, typename L::Words& y,
                                                     const Twiddle<L>& w, u64 p) {
    const auto bound = L::splat((L::isRoomy ? 4 : 1) * L::productRange * p);
    const auto d = L::sub(L::add(x, bound), y);
    const auto sum = L::add(x, y);
    x = L::isRoomy ? sum : L::subtractIfNotBelow(sum, bound);
    y = shoupProduct<L>(d, w, p);
}

/// After two backward stages on roomy lanes: x, the sum of sums, from range 8R to 2R. Sums of products are in range
/// 2R already.
template <class L>
[[gnu::always_inline]] inline void settleBackward(typename L::Words& x, u64 p) {
    if constexpr (L::isRoomy) {
        x = L::subtractIfNotBelow(x, L::splat(4 * L::productRange * p));
        x = L::subtractIfNotBelow(x, L::splat(2 * L::productRange * p));
    }
}

/// Reduces a word of the forward transform from range 2R, on roomy lanes 4R, to range `range`.
template <int range, class L>
[[gnu::always_inline]] inline typename L::Words fromForwardRange(typename L::Words x, u64 p) {
    settleForward<L>(x, p);
    if constexpr (range == 2 * L::productRange) {
        return x;
    } else {
        return toRange<range, L>(L::subtractIfNotBelow(x, L::splat(L::productRange * p)), p);
    }
}

/// The last butterfly: (x, y) := (x + y) / N, w*(x - y) / N, into range `range`.
template <int range, class L>
[[gnu::always_inline]] inline void lastButterfly(typename L::Words& x, typename L::Words& y,
                                                 const TransformTables& tables) {
    const u64 p = tables.p;
    const auto bound = L::splat((L::isRoomy ? 4 : 1) * L::productRange * p);
    const auto sum = L::add(x, y);
    const auto e = L::isRoomy ? sum : L::subtractIfNotBelow(sum, bound);
    const auto d = L::sub(L::add(x, bound), y);
    x = toRange<range, L>(shoupProduct<L>(e, tables.degreeInverse, p), p);
    y = toRange<range, L>(shoupProduct<L>(d, tables.degreeInverseRoot, p), p);
}

/// Index of the first twiddle of the backward stage of distance t.
[[gnu::always_inline]] constexpr u64 backwardBase(u64 degree, u64 t) {
    return degree - degree / t + 1;
}

/// One forward stage of distance t >= L::width on the words of `groups`; group g works on [2tg, 2tg + 2t).
template <class L>
void forwardStage(u64* a, u64 t, Groups groups, const TransformTables& tables) {
    const u64 p = tables.p;
    const u64 m = tables.degree / (2 * t);
    for (u64 g = groups.begin; g < groups.end; ++g) {
        const auto w = splat<L>(tables.twiddle(m + g));
        u64* x = a + 2 * t * g;
        for (u64 j = 0; j < t; j += L::width) {
            auto x0 = L::load(x + j);
            auto x1 = L::load(x + j + t);
            forwardButterfly<L>(x0, x1, w, p);
            L::store(x + j, x0);
            L::store(x + j + t, x1);
        }
    }
}

/// The forward stages of distance t and t / 2 in one pass, t / 2 >= L::width; `groups` are those of distance
/// t.
template <class L>
void forwardTwoStages(u64* a, u64 t, Groups groups, const TransformTables& tables) {
    const u64 p = tables.p;
    const u64 m = tables.degree / (2 * t);
    const u64 quarter = t / 2;
    for (u64 g = groups.begin; g < groups.end; ++g) {
        const auto w = splat<L>(tables.twiddle(m + g));
        const auto wLow = splat<L>(tables.twiddle(2 * (m + g)));
        const auto wHigh = splat<L>(tables.twiddle(2 * (m + g) + 1));
        u64* x = a + 2 * t * g;
        for (u64 j = 0; j < quarter; j += L::width) {
            auto x0 = L::load(x + j);
            auto x1 = L::load(x + j + quarter);
            auto x2 = L::load(x + j + 2 * quarter);
            auto x3 = L::load(x + j + 3 * quarter);
            settleForward<L>(x0, p);
            forwardButterfly<L>(x0, x2, w, p);
            forwardButterfly<L>(x1, x3, w, p);
            forwardButterfly<L>(x0, x1, wLow, p);
            forwardButterfly<L>(x2, x3, wHigh, p);
            L::store(x + j, x0);
            L::store(x + j + quarter, x1);
            L::store(x + j + 2 * quarter, x2);
            L::store(x + j + 3 * quarter, x3);
        }
    }
}

/// One backward stage of distance t >= L::width, t < N/2, on the words of `groups`.
template <class L>
void backwardStage(u64* a, u64 t, Groups groups, const TransformTables& tables) {
    const u64 p = tables.p;
    const u64 base = backwardBase(tables.degree, t);
    for (u64 g = groups.begin; g < groups.end; ++g) {
        const auto w = splat<L>(tables.twiddle(base + g));
        u64* x = a + 2 * t * g;
        for (u64 j = 0; j < t; j += L::width) {
            auto x0 = L::load(x + j);
            auto x1 = L::load(x + j + t);
            backwardButterfly<L>(x0, x1, w, p);
            L::store(x + j, x0);
            L::store(x + j + t, x1);
        }
    }
}

/// The backward stages of distance t and 2t in one pass, t >= L::width, 2t < N/2; `groups` are those of
/// distance 2t.
template <class L>
void backwardTwoStages(u64* a, u64 t, Groups groups, const TransformTables& tables) {
    const u64 p = tables.p;
    const u64 base = backwardBase(tables.degree, t);
    const u64 nextBase = backwardBase(tables.degree, 2 * t);
    for (u64 g = groups.begin; g < groups.end; ++g) {
        const auto wLow = splat<L>(tables.twiddle(base + 2 * g));
        const auto wHigh = splat<L>(tables.twiddle(base + 2 * g + 1));
        const auto w = splat<L>(tables.twiddle(nextBase + g));
        u64* x = a + 4 * t * g;
        for (u64 j = 0; j < t; j += L::width) {
            auto x0 = L::load(x + j);
            auto x1 = L::load(x + j + t);
            auto x2 = L::load(x + j + 2 * t);
            auto x3 = L::load(x + j + 3 * t);
            backwardButterfly<L>(x0, x1, wLow, p);
            backwardButterfly<L>(x2, x3, wHigh, p);
            backwardButterfly<L>(x0, x2, w, p);
            backwardButterfly<L>(x1, x3, w, p);
            settleBackward<L>(x0, p);
            L::store(x + j, x0);
            L::store(x + j + t, x1);
            L::store(x + j + 2 * t, x2);
            L::store(x + j + 3 * t, x3);
        }
    }
}

/// The backward stage of distance N/2, into range `range`.
template <int range, class L>
void backwardLastStage(u64* a, const TransformTables& tables) {
    const u64 half = tables.degree / 2;
    for (u64 j = 0; j < half; j += L::width) {
        auto x0 = L::load(a + j);
        auto x1 = L::load(a + j + half);
        lastButterfly<range, L>(x0, x1, tables);
        L::store(a + j, x0);
        L::store(a + j + half, x1);
    }
}

/// The backward stages of distance N/4 and N/2 in one pass, into range `range`.
template <int range, class L>
void backwardLastTwoStages(u64* a, const TransformTables& tables) {
    const u64 t = tables.degree / 4;
    const u64 base = backwardBase(tables.degree, t);
    const auto wLow = splat<L>(tables.twiddle(base));
    const auto wHigh = splat<L>(tables.twiddle(base + 1));
    for (u64 j = 0; j < t; j += L::width) {
        auto x0 = L::load(a + j);
        auto x1 = L::load(a + j + t);
        auto x2 = L::load(a + j + 2 * t);
        auto x3 = L::load(a + j + 3 * t);
        backwardButterfly<L>(x0, x1, wLow, tables.p);
        backwardButterfly<L>(x2, x3, wHigh, tables.p);
        lastButterfly<range, L>(x0, x2, tables);
        lastButterfly<range, L>(x1, x3, tables);
        L::store(a + j, x0);
        L::store(a + j + t, x1);
        L::store(a + j + 2 * t, x2);
        L::store(a + j + 3 * t, x3);
    }
}

/// Words of a sub-transform that stays in the first cache: 32 KiB.
inline constexpr u64 blockWords = 4096;

/// The groups of distance t within words [begin, begin + count).
[[gnu::always_inline]] constexpr Groups groupsWithin(u64 begin, u64 count, u64 t) {
    return {begin / (2 * t), (begin + count) / (2 * t)};
}

/// The passes of a form that keeps words of 64 bits throughout, on lanes L.
template <class L>
struct WordPasses {
    using Tables = TransformTables;

    static void forwardEntryStage(u64* a, const Tables& tables) {
        forwardStage<L>(a, tables.degree / 2, {0, 1}, tables);
    }
    static void forwardEntryTwoStages(u64* a, const Tables& tables) {
        rows::forwardTwoStages<L>(a, tables.degree / 2, {0, 1}, tables);
    }
    static void forwardTwoStages(u64* a, u64 t, Groups groups, const Tables& tables) {
        rows::forwardTwoStages<L>(a, t, groups, tables);
    }
    static void backwardTwoStages(u64* a, u64 t, Groups groups, const Tables& tables) {
        rows::backwardTwoStages<L>(a, t, groups, tables);
    }
    template <int range>
    static void backwardExitStage(u64* a, const Tables& tables) {
        backwardLastStage<range, L>(a, tables);
    }
    template <int range>
    static void backwardExitTwoStages(u64* a, const Tables& tables) {
        backwardLastTwoStages<range, L>(a, tables);
    }
};

/// The whole forward transform. An entry pass does one or two stages. Then each pass does two stages, over
/// the whole row while groups are larger than a block, then block by block; the last stages follow in each
/// block. `Form` supplies the passes: those of WordPasses, and `forwardTail<range>(a, begin, count, tables)`,
/// which does the stages of distance below 2^Form::tailStages on words [begin, begin + count) and reduces
/// them to `range`. The degree has at least two stages more than the tail.
template <int range, class Form>
void forwardTransform(u64* a, const typename Form::Tables& tables) {
    const u64 n = tables.degree;
    const u64 block = n < blockWords ? n : blockWords;
    constexpr u64 tail = u64{1} << Form::tailStages;
    u64 t = n / 4;
    if ((std::countr_zero(n) - Form::tailStages) % 2 != 0) {
        Form::forwardEntryStage(a, tables);
    } else {
        Form::forwardEntryTwoStages(a, tables);
        t /= 2;
    }
    for (; 2 * t > block; t /= 4) Form::forwardTwoStages(a, t, groupsWithin(0, n, t), tables);
    for (u64 begin = 0; begin < n; begin += block) {
        for (u64 s = t; s >= tail; s /= 4)
            Form::forwardTwoStages(a, s, groupsWithin(begin, block, s), tables);
        Form::template forwardTail<range>(a, begin, block, tables);
    }
}

/// The whole backward transform, the mirror image. `Form::backwardHead(a, begin, count, tables)` does the
/// stages of distance below 2^Form::tailStages; the last one or two stages are the exit pass.
template <int range, class Form>
void backwardTransform(u64* a, const typename Form::Tables& tables) {
    const u64 n = tables.degree;
    const u64 block = n < blockWords ? n : blockWords;
    constexpr u64 tail = u64{1} << Form::tailStages;
    u64 t = tail;
    for (u64 begin = 0; begin < n; begin += block) {
        Form::backwardHead(a, begin, block, tables);
        for (t = tail; 4 * t <= block && 4 * t < n; t *= 4)
            Form::backwardTwoStages(a, t, groupsWithin(begin, block, 2 * t), tables);
    }
    for (; 4 * t < n; t *= 4) Form::backwardTwoStages(a, t, groupsWithin(0, n, 2 * t), tables);
    if (4 * t == n) {
        Form::template backwardExitTwoStages<range>(a, tables);
    } else {
        Form::template backwardExitStage<range>(a, tables);
    }
}

} // namespace Torvo::rows
