#include "arithmetic/kernels/NTTAVX512.hpp"

#include "arithmetic/kernels/AVX512Lanes.hpp"
#include "arithmetic/kernels/SixStages.hpp"
#include "arithmetic/kernels/Twice.hpp"

namespace Torvo::AVX512 {

namespace {

using rows::TransformTables;

/// What the six stages are on words.
template <class Lanes>
struct WordSteps {
    const TransformTables& tables;

    using Twiddle = rows::Twiddle<Lanes>;

    [[gnu::always_inline]] Twiddle splat(u64 i) const { return rows::splat<Lanes>(tables.twiddle(i)); }
    [[gnu::always_inline]] Twiddle fours(u64 i) const {
        return {twiddlesOfFours(tables.powers + i), twiddlesOfFours(tables.companions + i)};
    }
    [[gnu::always_inline]] Twiddle twos(u64 i) const {
        return {twiddlesOfTwos(tables.powers + i), twiddlesOfTwos(tables.companions + i)};
    }
    [[gnu::always_inline]] Twiddle ones(u64 i) const {
        return {twiddlesOfOnes(tables.powers + i), twiddlesOfOnes(tables.companions + i)};
    }
    template <int>
    [[gnu::always_inline]] void forward(Words& x, Words& y, const Twiddle& w) const {
        rows::forwardButterfly<Lanes>(x, y, w, tables.p);
    }
    [[gnu::always_inline]] void backward(Words& x, Words& y, const Twiddle& w) const {
        rows::backwardButterfly<Lanes>(x, y, w, tables.p);
    }
    template <int>
    [[gnu::always_inline]] void before(TwoBlocks&) const {}
    template <int>
    [[gnu::always_inline]] void after(TwoBlocks&) const {}
};

/// The form of the transform on eight lanes.
template <class Lanes>
struct VectorForm : rows::WordPasses<lanes::Twice<Lanes>> {
    static constexpr int tailStages = 6;

    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        for (u64 g = begin / 128; g < (begin + count) / 128; ++g) {
            TwoBlocks s;
            s.load(a + 128 * g);
            forwardSixStages(s, WordSteps<Lanes>{tables}, tables.degree, g);
            s.each([&](Partners& p, u64) {
                p.x = rows::fromForwardRange<range, Lanes>(p.x, tables.p);
                p.y = rows::fromForwardRange<range, Lanes>(p.y, tables.p);
                p.onesToWords();
            });
            s.store(a + 128 * g);
        }
    }

    static void backwardHead(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        for (u64 g = begin / 128; g < (begin + count) / 128; ++g) {
            TwoBlocks s;
            s.load(a + 128 * g);
            backwardSixStages(s, WordSteps<Lanes>{tables}, tables.degree, g);
            s.store(a + 128 * g);
        }
    }
};

using Estimating = lanes::Estimating<AVX512Lanes>;

} // namespace

// These are specializations, because instances of a template would be weak symbols.

template <>
void forwardTransform<1>(u64* a, const TransformTables& tables) {
    rows::forwardTransform<1, VectorForm<Estimating>>(a, tables);
}

template <>
void forwardTransform<2>(u64* a, const TransformTables& tables) {
    rows::forwardTransform<2, VectorForm<AVX512Lanes>>(a, tables);
}

template <>
void forwardTransform<4>(u64* a, const TransformTables& tables) {
    rows::forwardTransform<4, VectorForm<AVX512Lanes>>(a, tables);
}

template <>
void backwardTransform<1>(u64* a, const TransformTables& tables) {
    rows::backwardTransform<1, VectorForm<Estimating>>(a, tables);
}

template <>
void backwardTransform<2>(u64* a, const TransformTables& tables) {
    rows::backwardTransform<2, VectorForm<AVX512Lanes>>(a, tables);
}

} // namespace Torvo::AVX512
