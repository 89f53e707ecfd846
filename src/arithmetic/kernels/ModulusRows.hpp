#pragma once

#include "core/Integers.hpp"

/// The row kernels of Modulus, each formula once, over a lanes type: ScalarLanes, AVX2Lanes or AVX512Lanes; some
/// over lanes::Estimating or lanes::FloatProducts, see RowKernels.hpp. Sums of products have another formula in
/// IFMASums.hpp.
///
/// All words are 64 bits, p < 2^61 is odd, rows are in range 1 (words in [0, p)) unless a kernel says
/// otherwise, n is a multiple of the lane count. Output rows may be input rows: each index is read from all
/// inputs before it is written. No alignment is required.
///
/// Everything here is a template over the lanes type, or constexpr and always inlined, so that a unit whose
/// lanes type has internal linkage emits no symbol that the linker could choose for other units.
namespace Torvo::rows {

/// A multiplier c < p with its Shoup companion floor(c * 2^64 / p).
struct ShoupConstant {
    u64 value;
    u64 companion;
};

[[gnu::always_inline]] constexpr ShoupConstant makeShoupConstant(u64 c, u64 p) {
    return {c, static_cast<u64>((u128{c} << 64) / p)};
}

/// One-word Barrett reduction of products: shift = floor(log2 p) - 1, ratio = floor(2^(64 + shift) / p).
struct BarrettConstant {
    u64 p;
    u64 shift;
    u64 ratio;
};

[[gnu::always_inline]] constexpr BarrettConstant makeBarrettConstant(u64 p) {
    const u64 shift = 62 - static_cast<u64>(__builtin_clzl(p));
    return {p, shift, static_cast<u64>((u128{1} << (64 + shift)) / p)};
}

/// Centred change of modulus from q to p: a word x above half = floor(q / 2) stands for x - q, so delta, a
/// representative of -q modulo p, is added to it.
struct CentringConstant {
    u64 half;
    u64 delta;
};

/// Two-word Barrett reduction: 2^64 mod p, and the words of floor(2^128 / p).
struct WideConstant {
    u64 p;
    u64 wordRemainder;
    u64 high;
    u64 low;
};

/// A term of a sum of products with constants: row * c, c in range 1. The row's words are below `bound` <= 2^61.
struct ConstantTerm {
    const u64* row;
    u64 c;
    u64 bound;
};

/// A term of two sums of products with one common factor: a * x and a * y.
struct ProductTerm {
    const u64* a;
    const u64* x;
    const u64* y;
};

/// c * x mod p in [0, L::productRange * p), for any word x. Shoup's product.
template <class L>
[[gnu::always_inline]] inline typename L::Words shoupProduct(typename L::Words x, ShoupConstant c, u64 p) {
    const auto quotient = L::shoupQuotient(x, L::splat(c.companion));
    return L::mulLowDifference(x, L::splat(c.value), quotient, L::splat(p));
}

/// x * y mod p in [0, p) for x, y < p. The quotient, estimated from the top bits of the product, is too small
/// by at most one. Lanes may have a product of their own.
template <class L>
[[gnu::always_inline]] inline typename L::Words barrettProduct(typename L::Words x, typename L::Words y,
                                                               BarrettConstant c) {
    if constexpr (L::hasModularProduct) return L::modularProduct(x, y, c.p);
    typename L::Words low;
    const auto top = L::mulShifted(x, y, c.shift, low);
    const auto quotient = L::mulHigh(top, L::splat(c.ratio));
    const auto r = L::sub(low, L::mulLow(quotient, L::splat(c.p)));
    return L::subtractIfNotBelow(r, L::splat(c.p));
}

/// x mod p in [0, p) for any word x, with high = floor(2^64 / p).
template <class L>
[[gnu::always_inline]] inline typename L::Words reduceWord(typename L::Words x, u64 high, u64 p) {
    const auto quotient = L::mulHigh(x, L::splat(high));
    return L::subtractIfNotBelow(L::sub(x, L::mulLow(quotient, L::splat(p))), L::splat(p));
}

/// high * 2^64 + low mod p in [0, p), for any two words. The quotient is too small by at most three.
template <class L>
[[gnu::always_inline]] inline typename L::Words reduceWide(typename L::Words high, typename L::Words low,
                                                           WideConstant c) {
    const auto p = L::splat(c.p);
    const auto twoP = L::splat(2 * c.p);
    const auto quotient = L::add(L::mulHigh(low, L::splat(c.high)), L::mulHigh(high, L::splat(c.low)));
    const auto r = L::add(low, L::mulLowDifference(high, L::splat(c.wordRemainder), quotient, p));
    return L::subtractIfNotBelow(L::subtractIfNotBelow(r, twoP), p);
}

/// x + y mod p in [0, p).
template <class L>
[[gnu::always_inline]] inline typename L::Words addMod(typename L::Words x, typename L::Words y, u64 p) {
    return L::subtractIfNotBelow(L::add(x, y), L::splat(p));
}

/// x - y mod p in [0, p): x + p - y lies in (0, 2p).
template <class L>
[[gnu::always_inline]] inline typename L::Words subMod(typename L::Words x, typename L::Words y, u64 p) {
    return L::subtractIfNotBelow(L::sub(L::add(x, L::splat(p)), y), L::splat(p));
}

/// Reduces r from [0, L::productRange * p) to [0, range * p); with 4 only range 1 is supported.
template <int range, class L>
[[gnu::always_inline]] inline typename L::Words toRange(typename L::Words r, u64 p) {
    static_assert(range == 1 || (range == 2 && L::productRange == 2));
    if constexpr (L::productRange == 4) r = L::subtractIfNotBelow(r, L::splat(2 * p));
    if constexpr (range == 1) return L::subtractIfNotBelow(r, L::splat(p));
    return r;
}

/// out[i] = in[i] + c, c in [0, p).
template <class L>
void constAdd(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width) L::store(out + i, addMod<L>(L::load(in + i), L::splat(c), p));
}

/// out[i] = a[i] + b[i].
template <class L>
void addVector(u64* out, const u64* a, const u64* b, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width) L::store(out + i, addMod<L>(L::load(a + i), L::load(b + i), p));
}

/// out[i] = a[i] - b[i].
template <class L>
void subVector(u64* out, const u64* a, const u64* b, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width) L::store(out + i, subMod<L>(L::load(a + i), L::load(b + i), p));
}

/// out[i] = -in[i]: 0 for 0, p - in[i] else.
template <class L>
void negateVector(u64* out, const u64* in, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width)
        L::store(out + i, L::subtractIfNotBelow(L::sub(L::splat(p), L::load(in + i)), L::splat(p)));
}

/// out[i] = a[i] * b[i].
template <class L>
void mulVector(u64* out, const u64* a, const u64* b, u64 n, BarrettConstant c) {
    for (u64 i = 0; i < n; i += L::width)
        L::store(out + i, barrettProduct<L>(L::load(a + i), L::load(b + i), c));
}

/// out1[i] = a[i] * b1[i], out2[i] = a[i] * b2[i]; with `accumulate` += instead of =.
template <bool accumulate, class L>
void mulTwo(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2, u64 n, BarrettConstant c) {
    for (u64 i = 0; i < n; i += L::width) {
        const auto x = L::load(a + i);
        auto r1 = barrettProduct<L>(x, L::load(b1 + i), c);
        auto r2 = barrettProduct<L>(x, L::load(b2 + i), c);
        if constexpr (accumulate) {
            r1 = addMod<L>(L::load(out1 + i), r1, c.p);
            r2 = addMod<L>(L::load(out2 + i), r2, c.p);
        }
        L::store(out1 + i, r1);
        L::store(out2 + i, r2);
    }
}

/// out1 = y*w, out2 = x*z, out0 = (x+y)*(z+w) - y*w - x*z. Karatsuba's product of x + y*T and z + w*T needs
/// three products instead of four.
template <class L>
void tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z, const u64* w,
                  u64 n, BarrettConstant c) {
    for (u64 i = 0; i < n; i += L::width) {
        const auto xi = L::load(x + i);
        const auto yi = L::load(y + i);
        const auto zi = L::load(z + i);
        const auto wi = L::load(w + i);
        const auto yw = barrettProduct<L>(yi, wi, c);
        const auto xz = barrettProduct<L>(xi, zi, c);
        const auto sums = barrettProduct<L>(addMod<L>(xi, yi, c.p), addMod<L>(zi, wi, c.p), c);
        L::store(out0 + i, subMod<L>(subMod<L>(sums, yw, c.p), xz, c.p));
        L::store(out1 + i, yw);
        L::store(out2 + i, xz);
    }
}

/// out[i] = the residue of the signed word x = in[i]: |x| mod p, and p minus that for x < 0, which is p for a
/// multiple of p. |x| is below p if `isSmall`, else below 2^63; high = floor(2^64 / p).
template <bool isSmall, class L>
void residueVector(const u64* in, u64* out, u64 n, u64 high, u64 p) {
    for (u64 i = 0; i < n; i += L::width) {
        const auto x = L::load(in + i);
        if constexpr (isSmall) {
            L::store(out + i, L::addIfNegative(x, x, L::splat(p)));
        } else {
            const auto magnitude = L::addIfNegative(x, x, L::sub(L::splat(0), L::add(x, x)));
            const auto r = reduceWord<L>(magnitude, high, p);
            L::store(out + i, L::addIfNegative(r, x, L::sub(L::splat(p), L::add(r, r))));
        }
    }
}

/// out[i] = in[i] * c for any words in[i]; out in range `range`.
template <int range, class L>
void constMult(const u64* in, ShoupConstant c, u64* out, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width)
        L::store(out + i, toRange<range, L>(shoupProduct<L>(L::load(in + i), c, p), p));
}

/// out[i] = (a[i] - b[i]) * c; out in range `range`. The difference enters the product unreduced, as
/// a + p - b.
template <int range, class L>
void subAndConstMult(const u64* a, const u64* b, ShoupConstant c, u64* out, u64 n, u64 p) {
    for (u64 i = 0; i < n; i += L::width) {
        const auto x = L::sub(L::add(L::load(a + i), L::splat(p)), L::load(b + i));
        L::store(out + i, toRange<range, L>(shoupProduct<L>(x, c, p), p));
    }
}

/// out[i] = in[i], centred modulo q, as a residue modulo p; `in` is in range 1 for q. For q / 2 <= p no
/// reduction follows: that case relies on q being near p.
template <class L>
void normalizeVector(u64* out, const u64* in, u64 q, u64 n, u64 p) {
    const auto half = L::splat(q >> 1);
    if (q >> 1 <= p) {
        const auto delta = L::splat(p - q);
        for (u64 i = 0; i < n; i += L::width) L::store(out + i, L::addIfAbove(L::load(in + i), half, delta));
    } else {
        const auto delta = L::splat(p - q % p);
        const u64 high = static_cast<u64>((u128{1} << 64) / p);
        for (u64 i = 0; i < n; i += L::width)
            L::store(out + i, reduceWord<L>(L::addIfAbove(L::load(in + i), half, delta), high, p));
    }
}

/// out[i] = in[i], centred modulo q, times c; with `accumulate` out[i] += the same. `in` is in range 1 for q,
/// `out` in range 2, before the call too with `accumulate`.
template <bool accumulate, class L>
void normalizeAndConstMult(const u64* in, ShoupConstant c, CentringConstant centring, u64* out, u64 n,
                           u64 p) {
    for (u64 i = 0; i < n; i += L::width) {
        const auto x = L::addIfAbove(L::load(in + i), L::splat(centring.half), L::splat(centring.delta));
        auto r = shoupProduct<L>(x, c, p);
        if constexpr (accumulate) r = L::subtractIfNotBelow(L::add(L::load(out + i), r), L::splat(2 * p));
        L::store(out + i, r);
    }
}

/// Number of terms that one sum of products may have: with factors below 2^61 the sum stays below 2^126.
inline constexpr u64 maxTerms = 16;

/// A sum of products is kept as low + 2^bits * middle + 2^(2 bits) * high, and its carries are moved up after
/// every few terms. One term adds less than 2^(2 bits) to low, and twice the product of a low and a high limb
/// to middle. The greatest factor therefore decides:
///
///   28 bits, factors below 2^56:  more terms between carries than a sum may have;
///   30 bits, factors below 2^60:  8 terms, 8 * 2 * (2^30 - 1)^2 < 2^64 - 2^34;
///   31 bits, factors below 2^61:  4 terms, 4 * (2^31 - 1)^2 and 4 * 2 * (2^31 - 1) * (2^30 - 1), both below
///                                 2^64 - 2^33.
///
/// The rest up to 2^64 holds the carries from below and the word that the sum begins with.
inline constexpr u64 smallFactors = u64{1} << 56, greatFactors = u64{1} << 60;

template <int bits>
[[gnu::always_inline]] constexpr bool carriesAreDue(u64 terms) {
    if constexpr (bits == 30) return terms % 8 == 0;
    if constexpr (bits == 31) return terms % 4 == 0;
    return false;
}

/// out = start + sum of row * c over `count` <= maxTerms terms, with `accumulate` out += that sum; start <
/// 2^61. Two vectors at a time: n is a multiple of 2 * L::width.
template <int bits, bool accumulate, class L>
void sumConstantProducts(const ConstantTerm* terms, u64 count, u64 start, u64* out, u64 n,
                         WideConstant wide) {
    using Sum = typename L::template Sum<bits>;
    typename Sum::Factor factors[maxTerms];
    for (u64 r = 0; r < count; ++r) factors[r] = Sum::factor(terms[r].c);
    for (u64 i = 0; i < n; i += 2 * L::width) {
        Sum first, second;
        first.add(Sum::split(accumulate ? L::load(out + i) : L::splat(start)));
        second.add(Sum::split(accumulate ? L::load(out + i + L::width) : L::splat(start)));
        for (u64 r = 0; r < count; ++r) {
            const u64* row = terms[r].row + i;
            const auto c = Sum::splat(factors[r]);
            first.addProduct(Sum::split(L::load(row)), c);
            second.addProduct(Sum::split(L::load(row + L::width)), c);
            if (carriesAreDue<bits>(r + 1)) {
                first.carry();
                second.carry();
            }
        }
        first.carry();
        second.carry();
        L::store(out + i, reduceWide<L>(first.highWord(), first.lowWord(), wide));
        L::store(out + i + L::width, reduceWide<L>(second.highWord(), second.lowWord(), wide));
    }
}

/// How vectors take a sum of products with constants modulo p, 2^(b - 1) < p < 2^b, where the words leave room. A
/// word is cut, and the constant of its upper part is reduced beforehand; constants have limbs of k = ceil(b / 2)
/// bits:
///
///   w = w0 + 2^cut w1,  c = c0 + 2^k c1,  2^cut c mod p = d0 + 2^k d1,
///   sum = low + 2^k high,  low = start + sum of w0 c0 + w1 d0,  high = sum of w0 c1 + w1 d1.
///
/// Two limbs of the sum instead of three, and a quotient of one word. With cut 32 a word is its own lower part,
/// since products read no more of it, but fewer terms fit.
struct CutConstants {
    u64 p;
    u64 k;
    u64 ratio; // floor(2^(64 + k) / p), below 2^64 because 2^k < p

    [[gnu::always_inline]] constexpr explicit CutConstants(u64 prime)
        : p(prime), k((65 - static_cast<u64>(__builtin_clzl(prime))) / 2),
          ratio(static_cast<u64>((u128{1} << (64 + k)) / prime)) {}

    /// Whether low and high + low / 2^k stay below 2^64: the greatest w0 + w1 of all terms must add up to at most
    /// 2^(64 - k) - 2^(b - k). Then low < 2^64 - 2^b + start, and high + low / 2^k < 2^64 - 2^b + 2^(b - k).
    template <int cut>
    [[gnu::always_inline]] constexpr bool fit(const ConstantTerm* terms, u64 count) const {
        const u64 bits = 64 - static_cast<u64>(__builtin_clzl(p));
        u64 parts = 0;
        for (u64 r = 0; r < count; ++r) parts += ((u64{1} << cut) - 1) + (terms[r].bound >> cut);
        return parts <= (u64{1} << (64 - k)) - (u64{1} << (bits - k));
    }
};

/// out = start + sum of row * c, or with `accumulate` out += that sum, in range 1; start < p, and the terms fit.
/// Lanes of productRange 4. The quotient is too small by less than one each for the lower bits of `low`, for the
/// ratio, and for what the estimate leaves out thrice: r < 5p. Two vectors at a time, as below.
template <int cut, bool accumulate, class L>
void sumCutProducts(const ConstantTerm* terms, u64 count, u64 start, u64* out, u64 n,
                    CutConstants constants) {
    using Words = typename L::Words;
    const u64 p = constants.p, k = constants.k;
    struct Limbs {
        u64 c0, c1, d0, d1;
    };
    Limbs limbs[maxTerms];
    for (u64 r = 0; r < count; ++r) {
        const u64 c = terms[r].c, d = static_cast<u64>((u128{c} << cut) % p);
        const u64 lower = (u64{1} << k) - 1;
        limbs[r] = {c & lower, c >> k, d & lower, d >> k};
    }
    struct Sum {
        Words low;
        Words high;

        [[gnu::always_inline]] void add(Words w, const Limbs& x) {
            const Words w0 = cut == 32 ? w : L::bitAnd(w, L::splat((u64{1} << cut) - 1));
            const Words w1 = L::template shiftRight<cut>(w);
            low = L::add(low, L::mul32(w0, L::splat(x.c0)));
            high = L::add(high, L::mul32(w0, L::splat(x.c1)));
            low = L::add(low, L::mul32(w1, L::splat(x.d0)));
            high = L::add(high, L::mul32(w1, L::splat(x.d1)));
        }
        [[gnu::always_inline]] Words reduce(const CutConstants& constants) const {
            const u64 p = constants.p;
            const Words top = L::add(high, L::shiftRightBy(low, constants.k));
            const Words quotient = L::shoupQuotient(top, L::splat(constants.ratio));
            const Words word = L::add(low, L::shiftLeftBy(high, constants.k));
            const Words r = L::sub(word, L::mulLow(quotient, L::splat(p)));
            return toRange<1, L>(L::subtractIfNotBelow(r, L::splat(4 * p)), p);
        }
    };
    for (u64 i = 0; i < n; i += 2 * L::width) {
        Sum first{accumulate ? L::load(out + i) : L::splat(start), L::splat(0)};
        Sum second{accumulate ? L::load(out + i + L::width) : L::splat(start), L::splat(0)};
        for (u64 r = 0; r < count; ++r) {
            const u64* row = terms[r].row + i;
            first.add(L::load(row), limbs[r]);
            second.add(L::load(row + L::width), limbs[r]);
        }
        L::store(out + i, first.reduce(constants));
        L::store(out + i + L::width, second.reduce(constants));
    }
}

/// out1 = sum of a * x, out2 = sum of a * y over `count` <= maxTerms terms; with `accumulate` the sums are
/// added to out1 and out2. The outputs may be rows of terms.
template <int bits, bool accumulate, class L>
void sumProducts(const ProductTerm* terms, u64 count, u64* out1, u64* out2, u64 n, WideConstant wide) {
    using Sum = typename L::template Sum<bits>;
    for (u64 i = 0; i < n; i += L::width) {
        Sum first, second;
        if constexpr (accumulate) {
            first.add(Sum::split(L::load(out1 + i)));
            second.add(Sum::split(L::load(out2 + i)));
        }
        for (u64 r = 0; r < count; ++r) {
            const auto a = Sum::split(L::load(terms[r].a + i));
            first.addProduct(Sum::split(L::load(terms[r].x + i)), a);
            second.addProduct(Sum::split(L::load(terms[r].y + i)), a);
            if (carriesAreDue<bits>(r + 1)) {
                first.carry();
                second.carry();
            }
        }
        first.carry();
        second.carry();
        L::store(out1 + i, reduceWide<L>(first.highWord(), first.lowWord(), wide));
        L::store(out2 + i, reduceWide<L>(second.highWord(), second.lowWord(), wide));
    }
}

/// Calls choose.operator()<bits>() with the size of the limbs for factors that are at most `greatest`.
template <class Choose>
[[gnu::always_inline]] inline auto withLimbs(u64 greatest, Choose choose) {
    if (greatest < smallFactors) return choose.template operator()<28>();
    if (greatest < greatFactors) return choose.template operator()<30>();
    return choose.template operator()<31>();
}

template <class L>
void sumConstantProducts(const ConstantTerm* terms, u64 count, bool accumulate, u64 start, u64* out, u64 n,
                         WideConstant wide) {
    if constexpr (L::width > 1) {
        const CutConstants constants(wide.p);
        if (constants.fit<32>(terms, count)) {
            const auto sum = accumulate ? sumCutProducts<32, true, L> : sumCutProducts<32, false, L>;
            return sum(terms, count, start, out, n, constants);
        }
        if (constants.fit<30>(terms, count)) {
            const auto sum = accumulate ? sumCutProducts<30, true, L> : sumCutProducts<30, false, L>;
            return sum(terms, count, start, out, n, constants);
        }
    }
    u64 greatest = wide.p;
    for (u64 r = 0; r < count; ++r) greatest = greatest < terms[r].bound ? terms[r].bound : greatest;
    const auto sum = withLimbs(greatest, [accumulate]<int bits>() {
        return accumulate ? sumConstantProducts<bits, true, L> : sumConstantProducts<bits, false, L>;
    });
    sum(terms, count, start, out, n, wide);
}

template <class L>
void sumProducts(const ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2, u64 n,
                 WideConstant wide) {
    const auto sum = withLimbs(wide.p, [accumulate]<int bits>() {
        return accumulate ? sumProducts<bits, true, L> : sumProducts<bits, false, L>;
    });
    sum(terms, count, out1, out2, n, wide);
}

} // namespace Torvo::rows
