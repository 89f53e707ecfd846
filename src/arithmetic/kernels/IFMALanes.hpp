#pragma once

#include "arithmetic/kernels/AVX512Lanes.hpp"
#include "core/Integers.hpp"

// Only for units compiled for AVX-512 F, DQ, VL and IFMA; internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

/// The lower 52 bits of a word, all that the operands of these instructions are.
inline constexpr u64 lower52 = (u64{1} << 52) - 1;

/// sum + the lower or the upper 52 bits of the product of the lower 52 bits of x and y.
[[gnu::always_inline]] inline __m512i addLow52(__m512i sum, __m512i x, __m512i y) {
    return _mm512_madd52lo_epu64(sum, x, y);
}

[[gnu::always_inline]] inline __m512i addHigh52(__m512i sum, __m512i x, __m512i y) {
    return _mm512_madd52hi_epu64(sum, x, y);
}

/// AVX512Lanes with sums of products in limbs of 52 bits. No sum of at most rows::maxTerms terms overflows, so
/// that carries are moved up only once.
struct IFMALanes : AVX512Lanes {
    static constexpr bool hasWideLimbs = true;

    template <int bits>
    struct Sum;
};

/// Factors below 2^52: one limb each.
template <>
struct IFMALanes::Sum<52> {
    using Factor = u64;

    Words low = AVX512Lanes::splat(0);
    Words high = AVX512Lanes::splat(0);

    [[gnu::always_inline]] static Words split(Words x) { return x; }
    [[gnu::always_inline]] static Factor factor(u64 x) { return x; }
    [[gnu::always_inline]] static Words splat(Factor x) { return AVX512Lanes::splat(x); }
    [[gnu::always_inline]] void add(Words x) { low = AVX512Lanes::add(low, x); }
    [[gnu::always_inline]] void addProduct(Words x, Words y) {
        low = addLow52(low, x, y);
        high = addHigh52(high, x, y);
    }
    [[gnu::always_inline]] void carry() {
        high = AVX512Lanes::add(high, shiftRight<52>(low));
        low = bitAnd(low, AVX512Lanes::splat(lower52));
    }
    /// Valid after `carry`.
    [[gnu::always_inline]] Words highWord() const { return shiftRight<12>(high); }
    [[gnu::always_inline]] Words lowWord() const { return AVX512Lanes::add(low, shiftLeft<52>(high)); }
};

/// Any factors: two limbs each. The middle is kept as three sums, which do not wait for each other.
template <>
struct IFMALanes::Sum<104> {
    struct Limbs {
        Words low; // with the upper limb above it
        Words high;
    };
    using Factor = u64;

    Words low = AVX512Lanes::splat(0);
    Words middle = AVX512Lanes::splat(0);
    Words lowByHigh = AVX512Lanes::splat(0);
    Words highByLow = AVX512Lanes::splat(0);
    Words high = AVX512Lanes::splat(0);

    [[gnu::always_inline]] static Limbs split(Words x) { return {x, shiftRight<52>(x)}; }
    [[gnu::always_inline]] static Factor factor(u64 x) { return x; }
    [[gnu::always_inline]] static Limbs splat(Factor x) {
        return {AVX512Lanes::splat(x), AVX512Lanes::splat(x >> 52)};
    }
    [[gnu::always_inline]] void add(const Limbs& x) { low = AVX512Lanes::add(low, x.low); }
    [[gnu::always_inline]] void addProduct(const Limbs& x, const Limbs& y) {
        low = addLow52(low, x.low, y.low);
        middle = addHigh52(middle, x.low, y.low);
        lowByHigh = addLow52(lowByHigh, x.low, y.high);
        highByLow = addLow52(highByLow, x.high, y.low);
        high = addHigh52(high, x.low, y.high);
        high = addHigh52(high, x.high, y.low);
        high = addLow52(high, x.high, y.high);
    }
    [[gnu::always_inline]] void carry() {
        const Words cross = AVX512Lanes::add(lowByHigh, highByLow);
        middle = AVX512Lanes::add(AVX512Lanes::add(middle, cross), shiftRight<52>(low));
        low = bitAnd(low, AVX512Lanes::splat(lower52));
        high = AVX512Lanes::add(high, shiftRight<52>(middle));
        middle = bitAnd(middle, AVX512Lanes::splat(lower52));
    }
    /// Valid after `carry`.
    [[gnu::always_inline]] Words highWord() const {
        return AVX512Lanes::add(shiftRight<12>(middle), shiftLeft<40>(high));
    }
    [[gnu::always_inline]] Words lowWord() const { return AVX512Lanes::add(low, shiftLeft<52>(middle)); }
};

} // namespace

} // namespace Torvo
