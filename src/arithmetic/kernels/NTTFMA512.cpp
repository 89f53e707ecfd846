#include "arithmetic/kernels/FMA512Lanes.hpp"
#include "arithmetic/kernels/FloatRows.hpp"
#include "arithmetic/kernels/NTTAVX512.hpp"
#include "arithmetic/kernels/SixStages.hpp"
#include "arithmetic/kernels/Twice.hpp"

namespace Torvo::AVX512 {

namespace {

using FMA::TransformTables;

/// What the six stages are on reals. Bounds as in FloatRows.hpp.
template <class L>
struct FloatSteps {
    const TransformTables& tables;

    using Twiddle = typename L::Reals;

    [[gnu::always_inline]] Twiddle splat(u64 i) const { return L::splat(tables.twiddles[i]); }
    [[gnu::always_inline]] Twiddle fours(u64 i) const {
        return toReals(twiddlesOfFours(tables.twiddles + i));
    }
    [[gnu::always_inline]] Twiddle twos(u64 i) const { return toReals(twiddlesOfTwos(tables.twiddles + i)); }
    [[gnu::always_inline]] Twiddle ones(u64 i) const {
        return toReals(twiddlesOfOnesEvenFirst(tables.twiddles + i));
    }
    template <int distance>
    [[gnu::always_inline]] void forward(Words& x, Words& y, const Twiddle& w) const {
        constexpr bool loose = distance == 32 || distance == 8 || distance == 2;
        auto u = toReals(x), v = toReals(y);
        FMA::forwardButterfly<L, loose ? FMA::Product::Loose : FMA::Product::Tight>(u, v, w, tables.modulus);
        x = fromReals(u);
        y = fromReals(v);
    }
    [[gnu::always_inline]] void backward(Words& x, Words& y, const Twiddle& w) const {
        auto u = toReals(x), v = toReals(y);
        FMA::backwardButterfly<L>(u, v, w, tables.modulus);
        x = fromReals(u);
        y = fromReals(v);
    }
    /// First partners are reduced before every second stage, whose products are loose, as in
    /// FMA::forwardSquareReduced. With one spare bit half of them are reduced before the stage of distance 32,
    /// which leaves values within 3.73 after three stages, and all before that of distance 4, which leaves them
    /// within 3.52 after the last. With four none are.
    template <int distance>
    [[gnu::always_inline]] void before(TwoBlocks& s) const {
        if constexpr (L::spareBits < 4 && distance == 32) {
            s.eachBlock([this](TwoBlocks::Block& b, u64) {
                reduce(b.p0.x);
                reduce(b.p0.y);
                if constexpr (L::spareBits < 1) reduce(b.p1.x);
                if constexpr (L::spareBits < 1) reduce(b.p1.y);
            });
        } else if constexpr (L::spareBits < 1 ? distance != 4 : L::spareBits < 4 && distance == 4) {
            s.each([this](Partners& p, u64) { reduce(p.x); });
        }
    }
    /// All values are reduced after every second stage, as in FMA::backwardTwoStages. With one spare bit the
    /// products of the stage of distance 2, within 0.88, may stay, and those of two products after the last,
    /// within 0.77. With four all products may stay after the stages of distance 2 and 8, within 0.56, and after
    /// the last all but the sums of sums, within 1.08.
    template <int distance>
    [[gnu::always_inline]] void after(TwoBlocks& s) const {
        s.each([this](Partners& p, u64 i) {
            if (isDue<distance>(i % 4, true)) reduce(p.x);
            if (isDue<distance>(i % 4, false)) reduce(p.y);
        });
    }
    [[gnu::always_inline]] static typename L::Reals toReals(Words x) { return _mm512_castsi512_pd(x); }
    [[gnu::always_inline]] static Words fromReals(typename L::Reals x) { return _mm512_castpd_si512(x); }

private:
    /// Whether the first or the second vector of a pair of its block is reduced.
    template <int distance>
    [[gnu::always_inline]] static constexpr bool isDue(u64 pair, bool isFirst) {
        if (L::spareBits < 1) return true;
        if (L::spareBits < 4) return distance == 32 ? pair != 3 : distance == 8 || isFirst;
        return distance == 32 ? pair == 0 : isFirst;
    }
    [[gnu::always_inline]] void reduce(Words& x) const {
        x = fromReals(L::reduce(toReals(x), tables.modulus));
    }
};

template <class L>
struct FloatForm : FMA::FloatPasses<lanes::TwiceReals<L>> {
    static constexpr int tailStages = 6;

    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        static_assert(range == 1);
        using Steps = FloatSteps<L>;
        for (u64 g = begin / 128; g < (begin + count) / 128; ++g) {
            TwoBlocks s;
            s.load(a + 128 * g);
            forwardSixStages(s, Steps{tables}, tables.degree, g);
            s.each([&](Partners& p, u64) {
                p.x = L::toWords(Steps::toReals(p.x), tables.modulus);
                p.y = L::toWords(Steps::toReals(p.y), tables.modulus);
                p.onesToWords();
            });
            s.store(a + 128 * g);
        }
    }

    /// From range 2. The lower words of the first stage are read as y - p, as they are on four lanes: sums stay
    /// within 1, differences within 2.
    static void backwardHead(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        using Steps = FloatSteps<L>;
        const double prime = tables.modulus.prime;
        const auto offset = _mm512_setr_pd(0, prime, 0, prime, 0, prime, 0, prime);
        for (u64 g = begin / 128; g < (begin + count) / 128; ++g) {
            TwoBlocks s;
            s.load(a + 128 * g);
            s.each([&](Partners& pair, u64) {
                pair.x = Steps::fromReals(FMA::fromRangeTwo<L>(pair.x, tables.p, offset));
                pair.y = Steps::fromReals(FMA::fromRangeTwo<L>(pair.y, tables.p, offset));
            });
            backwardSixStages(s, Steps{tables}, tables.degree, g);
            s.store(a + 128 * g);
        }
    }
};

} // namespace

void forwardFloatTransform(u64* a, const TransformTables& tables) {
    withSpareBits(tables.p, [&]<int spareBits>() {
        rows::forwardTransform<1, FloatForm<FMA512Lanes<spareBits>>>(a, tables);
    });
}

void backwardFloatTransform(u64* a, const TransformTables& tables) {
    withSpareBits(tables.p, [&]<int spareBits>() {
        rows::backwardTransform<1, FloatForm<FMA512Lanes<spareBits>>>(a, tables);
    });
}

} // namespace Torvo::AVX512
