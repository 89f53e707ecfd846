#pragma once

#include "arithmetic/kernels/AVX512Lanes.hpp"
#include "arithmetic/kernels/TransformRows.hpp"
#include "core/Integers.hpp"

// The stages of a transform of distance 32 to 1, in registers. Only for units compiled for AVX-512 F, DQ and VL;
// internal linkage as in AVX2Lanes.hpp.
namespace Torvo {

namespace {

using Words = AVX512Lanes::Words;

/// Sixteen words as two vectors. For the stages within eight words, `x` holds the first partners of a stage and
/// `y` the second. Vectors a and b hold the words a0 to a7 and b0 to b7 before the stage of distance 4; the
/// comments give the words of each quarter.
struct Partners {
    Words x;
    Words y;

    /// From a and b to partners of distance 4: x = a01 a23 b01 b23, y = a45 a67 b45 b67; and back.
    [[gnu::always_inline]] void exchangeFours() {
        const Words a = x;
        x = _mm512_shuffle_i64x2(a, y, 0b01000100);
        y = _mm512_shuffle_i64x2(a, y, 0b11101110);
    }
    /// On to distance 2: x = a01 b01 a45 b45, y = a23 b23 a67 b67.
    [[gnu::always_inline]] void foursToTwos() {
        const Words fours = x;
        x = _mm512_shuffle_i64x2(fours, y, 0b10001000);
        y = _mm512_shuffle_i64x2(fours, y, 0b11011101);
    }
    [[gnu::always_inline]] void twosToFours() {
        const Words twos = x;
        x = _mm512_permutex2var_epi64(twos, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), y);
        y = _mm512_permutex2var_epi64(twos, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), y);
    }
    /// On to distance 1: x = a02 b02 a46 b46, y = a13 b13 a57 b57; and back.
    [[gnu::always_inline]] void exchangeOnes() {
        const Words even = x;
        x = _mm512_unpacklo_epi64(even, y);
        y = _mm512_unpackhi_epi64(even, y);
    }
    /// From partners of distance 1 to a and b.
    [[gnu::always_inline]] void onesToWords() {
        const Words even = x;
        x = _mm512_permutex2var_epi64(even, _mm512_setr_epi64(0, 8, 1, 9, 4, 12, 5, 13), y);
        y = _mm512_permutex2var_epi64(even, _mm512_setr_epi64(2, 10, 3, 11, 6, 14, 7, 15), y);
    }
    [[gnu::always_inline]] void wordsToOnes() {
        const Words a = x;
        x = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(0, 2, 8, 10, 4, 6, 12, 14), y);
        y = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(1, 3, 9, 11, 5, 7, 13, 15), y);
    }
};

/// The twiddles of the stages of distance 4, 2 and 1 in the order of Partners, from those of two, four and
/// eight consecutive groups.
[[gnu::always_inline]] inline Words twiddlesOfFours(const void* w) {
    const auto two = _mm_loadu_si128(static_cast<const __m128i*>(w));
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 0, 0, 0, 1, 1, 1, 1), _mm512_castsi128_si512(two));
}

[[gnu::always_inline]] inline Words twiddlesOfTwos(const void* w) {
    const auto four = _mm256_loadu_si256(static_cast<const __m256i*>(w));
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 0, 2, 2, 1, 1, 3, 3), _mm512_castsi256_si512(four));
}

[[gnu::always_inline]] inline Words twiddlesOfOnes(const void* w) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 1, 4, 5, 2, 3, 6, 7), _mm512_loadu_si512(w));
}

/// The same where the eight are stored as the four even ones, then the four odd ones.
[[gnu::always_inline]] inline Words twiddlesOfOnesEvenFirst(const void* w) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 2, 6, 1, 5, 3, 7), _mm512_loadu_si512(w));
}

/// Two groups of 64 words, which the six stages keep apart. All pairs take each step before the next one, so
/// that their long chains of operations overlap: see lanes::Twice.
struct TwoBlocks {
    struct Block {
        Partners p0, p1, p2, p3;
    };
    Block b0, b1;

    /// step(block, index)
    template <class Step>
    [[gnu::always_inline]] void eachBlock(Step step) {
        step(b0, u64{0});
        step(b1, u64{1});
    }
    /// step(pair, index)
    template <class Step>
    [[gnu::always_inline]] void each(Step step) {
        eachBlock([&](Block& b, u64 i) {
            step(b.p0, 4 * i);
            step(b.p1, 4 * i + 1);
            step(b.p2, 4 * i + 2);
            step(b.p3, 4 * i + 3);
        });
    }
    [[gnu::always_inline]] void load(const u64* from) {
        each([from](Partners& p, u64 i) {
            p.x = AVX512Lanes::load(from + 16 * i);
            p.y = AVX512Lanes::load(from + 16 * i + 8);
        });
    }
    [[gnu::always_inline]] void store(u64* to) {
        each([to](const Partners& p, u64 i) {
            AVX512Lanes::store(to + 16 * i, p.x);
            AVX512Lanes::store(to + 16 * i + 8, p.y);
        });
    }
};

/// The forward stages on words [128 g, 128 g + 128) of n. `Steps` supplies the twiddles by index, `splat`, `fours`,
/// `twos` and `ones`, the butterfly `forward(x, y, w)`, and what is due to bounds, `before<distance>(words)`.
template <class Steps>
[[gnu::always_inline]] inline void forwardSixStages(TwoBlocks& s, const Steps& steps, u64 n, u64 g) {
    steps.template before<32>(s);
    s.eachBlock([&](TwoBlocks::Block& b, u64 i) {
        const auto w = steps.splat(n / 64 + 2 * g + i);
        steps.template forward<32>(b.p0.x, b.p2.x, w);
        steps.template forward<32>(b.p0.y, b.p2.y, w);
        steps.template forward<32>(b.p1.x, b.p3.x, w);
        steps.template forward<32>(b.p1.y, b.p3.y, w);
    });
    s.eachBlock([&](TwoBlocks::Block& b, u64 i) {
        const auto low = steps.splat(n / 32 + 4 * g + 2 * i);
        const auto high = steps.splat(n / 32 + 4 * g + 2 * i + 1);
        steps.template forward<16>(b.p0.x, b.p1.x, low);
        steps.template forward<16>(b.p0.y, b.p1.y, low);
        steps.template forward<16>(b.p2.x, b.p3.x, high);
        steps.template forward<16>(b.p2.y, b.p3.y, high);
    });
    steps.template before<8>(s);
    s.each([&](Partners& p, u64 i) { steps.template forward<8>(p.x, p.y, steps.splat(n / 16 + 8 * g + i)); });
    s.each([](Partners& p, u64) { p.exchangeFours(); });
    steps.template before<4>(s);
    s.each([&](Partners& p, u64 i) {
        steps.template forward<4>(p.x, p.y, steps.fours(n / 8 + 16 * g + 2 * i));
    });
    s.each([](Partners& p, u64) { p.foursToTwos(); });
    steps.template before<2>(s);
    s.each(
        [&](Partners& p, u64 i) { steps.template forward<2>(p.x, p.y, steps.twos(n / 4 + 32 * g + 4 * i)); });
    s.each([](Partners& p, u64) { p.exchangeOnes(); });
    s.each(
        [&](Partners& p, u64 i) { steps.template forward<1>(p.x, p.y, steps.ones(n / 2 + 64 * g + 8 * i)); });
}

/// The backward stages, with the butterfly `backward(x, y, w)` and `after<distance>(words)`.
template <class Steps>
[[gnu::always_inline]] inline void backwardSixStages(TwoBlocks& s, const Steps& steps, u64 n, u64 g) {
    using rows::backwardBase;
    s.each([](Partners& p, u64) { p.wordsToOnes(); });
    s.each([&](Partners& p, u64 i) {
        steps.backward(p.x, p.y, steps.ones(backwardBase(n, 1) + 64 * g + 8 * i));
    });
    s.each([](Partners& p, u64) { p.exchangeOnes(); });
    s.each([&](Partners& p, u64 i) {
        steps.backward(p.x, p.y, steps.twos(backwardBase(n, 2) + 32 * g + 4 * i));
    });
    steps.template after<2>(s);
    s.each([](Partners& p, u64) { p.twosToFours(); });
    s.each([&](Partners& p, u64 i) {
        steps.backward(p.x, p.y, steps.fours(backwardBase(n, 4) + 16 * g + 2 * i));
    });
    s.each([](Partners& p, u64) { p.exchangeFours(); });
    s.each(
        [&](Partners& p, u64 i) { steps.backward(p.x, p.y, steps.splat(backwardBase(n, 8) + 8 * g + i)); });
    steps.template after<8>(s);
    s.eachBlock([&](TwoBlocks::Block& b, u64 i) {
        const auto low = steps.splat(backwardBase(n, 16) + 4 * g + 2 * i);
        const auto high = steps.splat(backwardBase(n, 16) + 4 * g + 2 * i + 1);
        steps.backward(b.p0.x, b.p1.x, low);
        steps.backward(b.p0.y, b.p1.y, low);
        steps.backward(b.p2.x, b.p3.x, high);
        steps.backward(b.p2.y, b.p3.y, high);
    });
    s.eachBlock([&](TwoBlocks::Block& b, u64 i) {
        const auto w = steps.splat(backwardBase(n, 32) + 2 * g + i);
        steps.backward(b.p0.x, b.p2.x, w);
        steps.backward(b.p0.y, b.p2.y, w);
        steps.backward(b.p1.x, b.p3.x, w);
        steps.backward(b.p1.y, b.p3.y, w);
    });
    steps.template after<32>(s);
}

} // namespace

} // namespace Torvo
