#pragma once

#include "arithmetic/kernels/AVX512Lanes.hpp"
#include "arithmetic/kernels/ModulusRows.hpp"
#include "core/Integers.hpp"

#include <algorithm>
#include <array>

// Only for units compiled for AVX-512 F, DQ, VL and IFMA; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// Words below have one limb.
inline constexpr u64 oneLimbEnd = u64{1} << 52;
/// The lower 52 bits of a word, all that the factors of these instructions are.
inline constexpr u64 lower52 = oneLimbEnd - 1;

/// sum + the lower or the upper 52 bits of the product of the lower 52 bits of x and y.
[[gnu::always_inline]] inline __m512i addLow52(__m512i sum, __m512i x, __m512i y) {
    return _mm512_madd52lo_epu64(sum, x, y);
}

[[gnu::always_inline]] inline __m512i addHigh52(__m512i sum, __m512i x, __m512i y) {
    return _mm512_madd52hi_epu64(sum, x, y);
}

/// A prime p as the sums need it, in one limb of 52 bits or in two: times the power of two that makes it
/// m = p * 2^shift in (2^51, 2^52) or (2^60, 2^61). One factor of each product is shifted so, and with it the
/// remainder: where the bits of the modulus lie is known when the code is compiled.
template <int limbs>
struct ShiftedModulus {
    static constexpr u64 bits = limbs == 1 ? 52 : 61;

    [[gnu::always_inline]] explicit ShiftedModulus(u64 p)
        : shift(bits - 64 + static_cast<u64>(__builtin_clzl(p))), m(p << shift),
          fold(static_cast<u64>((u128{1} << (limbs == 1 ? 102 : 104)) % m)),
          ratio(static_cast<u64>((u128{1} << (limbs == 1 ? 103 : 111)) / m)) {}

    u64 shift;
    u64 m;
    u64 fold;  ///< what the top of a sum is worth: 2^102 or 2^104 modulo m
    u64 ratio; ///< floor(2^103 / m) or floor(2^111 / m), below 2^52
};

/// A factor as it stands, which is read as its low limb, and its high limb.
struct Limbs {
    using Words = AVX512Lanes::Words;
    Words low;
    Words high;
};

[[gnu::always_inline]] inline Limbs split(AVX512Lanes::Words x) {
    return {x, AVX512Lanes::shiftRight<52>(x)};
}

/// A sum of at most rows::maxTerms products x * c of words with factors c < m, as low + 2^52 middle +
/// 2^104 high; the middle is kept in parts that do not wait for each other. Nothing overflows, so no carry is
/// due before the end. Words have one limb (below 2^52) or two (below 2^61).
template <int limbs>
struct IFMASum {
    using L = AVX512Lanes;
    using Words = L::Words;

    Words low = L::splat(0);
    Words middle = L::splat(0);
    Words lowByHigh = L::splat(0);
    Words highByLow = L::splat(0);
    Words high = L::splat(0);

    /// Before any product: a word below m.
    [[gnu::always_inline]] void begin(const Limbs& x) {
        low = L::bitAnd(x.low, L::splat(lower52));
        middle = x.high;
    }

    template <int wordLimbs>
    [[gnu::always_inline]] void addProduct(Words word, const Limbs& c) {
        low = addLow52(low, word, c.low);
        middle = addHigh52(middle, word, c.low);
        if constexpr (limbs == 2) {
            lowByHigh = addLow52(lowByHigh, word, c.high);
            high = addHigh52(high, word, c.high);
        }
        if constexpr (wordLimbs == 2) {
            const Words wordHigh = L::shiftRight<52>(word);
            highByLow = addLow52(highByLow, wordHigh, c.low);
            high = addHigh52(high, wordHigh, c.low);
            if constexpr (limbs == 2) high = addLow52(high, wordHigh, c.high); // limbs below 2^9
        }
    }

    /// The remainder modulo p, in [0, p).
    [[gnu::always_inline]] Words reduce(const ShiftedModulus<limbs>& modulus) const {
        const auto m = L::splat(modulus.m);
        const auto [top, word] = limbs == 1 ? foldOneLimb(modulus) : foldTwoLimbs(modulus);
        const Words quotient = addHigh52(L::splat(0), top, L::splat(modulus.ratio));
        Words r = L::sub(word, L::mulLow(quotient, m));
        r = L::subtractIfNotBelow(r, L::splat(2 * modulus.m));
        r = L::subtractIfNotBelow(r, m);
        return _mm512_srlv_epi64(r, L::splat(modulus.shift));
    }

private:
    /// What the quotient is estimated from, and the low word of a number congruent to the sum.
    struct Folded {
        Words top;
        Words word;
    };

    /// low < 17 * 2^52, middle < 2^57, high < 2^13. With everything from bit 102 on folded, the sum is
    /// low + 2^52 middle, low < 18 * 2^52 and middle < 2^50 + 2^15. The lower limb is worth less than 2m, twice
    /// the upper one times the ratio misses less than one of the quotient, and so does its fraction: r < 4m.
    [[gnu::always_inline]] Folded foldOneLimb(const ShiftedModulus<limbs>& modulus) const {
        constexpr u64 lower50 = (u64{1} << 50) - 1;
        const Words all = L::add(middle, highByLow);
        const Words above = L::add(L::template shiftRight<50>(all), L::template shiftLeft<2>(high));
        const Words lower = addLow52(low, above, L::splat(modulus.fold));
        const Words upper = addHigh52(L::bitAnd(all, L::splat(lower50)), above, L::splat(modulus.fold));
        const Words top = L::add(upper, L::template shiftRight<52>(lower));
        return {L::add(top, top), L::add(lower, L::template shiftLeft<52>(upper))};
    }

    /// low < 17 * 2^52, middle and its parts together < 49 * 2^52, high < 2^23. With high folded, low <
    /// 18 * 2^52 is worth less than m / 8, and middle < 51 * 2^52 < 2^58 is the quotient's estimate but for its
    /// 7 lowest bits, which are worth less than m / 2. With less than m / 2 for the ratio and m for the
    /// fraction, r < 3m < 2^63.
    [[gnu::always_inline]] Folded foldTwoLimbs(const ShiftedModulus<limbs>& modulus) const {
        const Words cross = L::add(lowByHigh, highByLow);
        const Words lower = addLow52(low, high, L::splat(modulus.fold));
        Words upper = addHigh52(L::add(middle, cross), high, L::splat(modulus.fold));
        upper = addLow52(upper, high, L::splat(modulus.fold >> 52));
        return {L::template shiftRight<7>(upper), L::add(lower, L::template shiftLeft<52>(upper))};
    }
};

/// Two vectors at a time: n is a multiple of 16. The terms whose words have one limb stand first.
template <int limbs, bool accumulate>
void sumConstantProducts52(const rows::ConstantTerm* terms, u64 oneLimb, u64 count, u64 start, u64* out,
                           u64 n, const ShiftedModulus<limbs>& modulus) {
    using L = AVX512Lanes;
    struct Factor {
        u64 low;
        u64 high;
    };
    std::array<Factor, rows::maxTerms> factors;
    for (u64 r = 0; r < count; ++r) {
        const u64 c = terms[r].c << modulus.shift;
        factors[r] = {c, c >> 52};
    }
    const auto shift = L::splat(modulus.shift);
    for (u64 i = 0; i < n; i += 2 * L::width) {
        std::array<IFMASum<limbs>, 2> sums;
        const auto startAt = [&](u64 v) {
            return accumulate ? L::load(out + i + v * L::width) : L::splat(start);
        };
        for (u64 v = 0; v < 2; ++v) sums[v].begin(split(_mm512_sllv_epi64(startAt(v), shift)));
        const auto addTerm = [&]<int wordLimbs>(u64 r) {
            const Limbs c{L::splat(factors[r].low), L::splat(factors[r].high)};
            for (u64 v = 0; v < 2; ++v)
                sums[v].template addProduct<wordLimbs>(L::load(terms[r].row + i + v * L::width), c);
        };
        for (u64 r = 0; r < oneLimb; ++r) addTerm.template operator()<1>(r);
        for (u64 r = oneLimb; r < count; ++r) addTerm.template operator()<2>(r);
        for (u64 v = 0; v < 2; ++v) L::store(out + i + v * L::width, sums[v].reduce(modulus));
    }
}

template <int limbs, bool accumulate>
void sumProducts52(const rows::ProductTerm* terms, u64 count, u64* out1, u64* out2, u64 n,
                   const ShiftedModulus<limbs>& modulus) {
    using L = AVX512Lanes;
    const auto shift = L::splat(modulus.shift);
    for (u64 i = 0; i < n; i += L::width) {
        IFMASum<limbs> first, second;
        if constexpr (accumulate) {
            first.begin(split(_mm512_sllv_epi64(L::load(out1 + i), shift)));
            second.begin(split(_mm512_sllv_epi64(L::load(out2 + i), shift)));
        }
        for (u64 r = 0; r < count; ++r) {
            const Limbs a = split(_mm512_sllv_epi64(L::load(terms[r].a + i), shift));
            first.template addProduct<limbs>(L::load(terms[r].x + i), a);
            second.template addProduct<limbs>(L::load(terms[r].y + i), a);
        }
        L::store(out1 + i, first.reduce(modulus));
        L::store(out2 + i, second.reduce(modulus));
    }
}

/// The sums of RowKernels.
struct IFMASums {
    static void constantProducts(const rows::ConstantTerm* terms, u64 count, bool accumulate, u64 start,
                                 u64* out, u64 n, rows::WideConstant wide) {
        std::array<rows::ConstantTerm, rows::maxTerms> sorted;
        std::copy_n(terms, count, sorted.begin());
        const auto hasOneLimb = [](const rows::ConstantTerm& term) { return term.bound <= oneLimbEnd; };
        std::partition(sorted.data(), sorted.data() + count, hasOneLimb);
        const auto oneLimb = static_cast<u64>(std::count_if(terms, terms + count, hasOneLimb));
        withLimbs(wide.p, [&]<int limbs>() {
            const auto sum =
                accumulate ? sumConstantProducts52<limbs, true> : sumConstantProducts52<limbs, false>;
            sum(sorted.data(), oneLimb, count, start, out, n, ShiftedModulus<limbs>(wide.p));
        });
    }

    static void products(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2,
                         u64 n, rows::WideConstant wide) {
        withLimbs(wide.p, [&]<int limbs>() {
            const auto sum = accumulate ? sumProducts52<limbs, true> : sumProducts52<limbs, false>;
            sum(terms, count, out1, out2, n, ShiftedModulus<limbs>(wide.p));
        });
    }

private:
    /// Calls run.operator()<limbs>() with the limbs that p needs.
    template <class Run>
    static void withLimbs(u64 p, Run run) {
        p < oneLimbEnd ? run.template operator()<1>() : run.template operator()<2>();
    }
};

} // namespace

} // namespace Torvo
