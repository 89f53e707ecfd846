#pragma once

#include "arithmetic/kernels/FloatModulus.hpp"
#include "core/Integers.hpp"

/// Two vectors wherever lanes have one: a pass over a row takes each step for both before the next one, so that
/// its long chains of operations overlap. A processor does not look far enough ahead to find that by itself.
/// As in ModulusRows.hpp, internal linkage of the lanes keeps every instantiation within its unit.
namespace Torvo::lanes {

/// The members of lanes L that rows::WordPasses uses.
template <class L>
struct Twice {
    struct Words {
        typename L::Words first;
        typename L::Words second;
    };
    static constexpr u64 width = 2 * L::width;
    static constexpr u64 productRange = L::productRange;
    static constexpr bool isRoomy = L::isRoomy;

    [[gnu::always_inline]] static Words load(const u64* from) {
        return {L::load(from), L::load(from + L::width)};
    }
    [[gnu::always_inline]] static void store(u64* to, Words x) {
        L::store(to, x.first);
        L::store(to + L::width, x.second);
    }
    [[gnu::always_inline]] static Words splat(u64 x) { return {L::splat(x), L::splat(x)}; }
    [[gnu::always_inline]] static Words add(Words x, Words y) {
        return {L::add(x.first, y.first), L::add(x.second, y.second)};
    }
    [[gnu::always_inline]] static Words sub(Words x, Words y) {
        return {L::sub(x.first, y.first), L::sub(x.second, y.second)};
    }
    [[gnu::always_inline]] static Words shoupQuotient(Words x, Words companion) {
        return {L::shoupQuotient(x.first, companion.first), L::shoupQuotient(x.second, companion.second)};
    }
    [[gnu::always_inline]] static Words mulLowDifference(Words v, Words w, Words x, Words y) {
        return {L::mulLowDifference(v.first, w.first, x.first, y.first),
                L::mulLowDifference(v.second, w.second, x.second, y.second)};
    }
    [[gnu::always_inline]] static Words subtractIfNotBelow(Words x, Words m) {
        return {L::subtractIfNotBelow(x.first, m.first), L::subtractIfNotBelow(x.second, m.second)};
    }
};

/// The members of lanes L that FMA::FloatPasses uses.
template <class L>
struct TwiceReals {
    struct Reals {
        typename L::Reals first;
        typename L::Reals second;
    };
    using WordLanes = Twice<typename L::WordLanes>;
    static constexpr u64 width = 2 * L::width;
    static constexpr int spareBits = L::spareBits;

    [[gnu::always_inline]] static Reals load(const u64* from) {
        return {L::load(from), L::load(from + L::width)};
    }
    [[gnu::always_inline]] static void store(u64* to, Reals x) {
        L::store(to, x.first);
        L::store(to + L::width, x.second);
    }
    [[gnu::always_inline]] static Reals splat(double x) { return {L::splat(x), L::splat(x)}; }
    [[gnu::always_inline]] static Reals add(Reals x, Reals y) {
        return {L::add(x.first, y.first), L::add(x.second, y.second)};
    }
    [[gnu::always_inline]] static Reals sub(Reals x, Reals y) {
        return {L::sub(x.first, y.first), L::sub(x.second, y.second)};
    }
    [[gnu::always_inline]] static Reals reduce(Reals x, FloatModulus m) {
        return {L::reduce(x.first, m), L::reduce(x.second, m)};
    }
    [[gnu::always_inline]] static Reals product(Reals y, Reals w, FloatModulus m) {
        return {L::product(y.first, w.first, m), L::product(y.second, w.second, m)};
    }
    [[gnu::always_inline]] static Reals looseProduct(Reals y, Reals w, FloatModulus m) {
        return {L::looseProduct(y.first, w.first, m), L::looseProduct(y.second, w.second, m)};
    }
    [[gnu::always_inline]] static Reals fromWords(typename WordLanes::Words x, Reals offset) {
        return {L::fromWords(x.first, offset.first), L::fromWords(x.second, offset.second)};
    }
    [[gnu::always_inline]] static typename WordLanes::Words toWords(Reals x, FloatModulus m) {
        return {L::toWords(x.first, m), L::toWords(x.second, m)};
    }
};

} // namespace Torvo::lanes
