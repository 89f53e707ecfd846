#include "arithmetic/kernels/NTTFMA.hpp"

#include "arithmetic/kernels/FMALanes.hpp"
#include "arithmetic/kernels/FloatRows.hpp"

namespace Torvo::FMA {

namespace {

using Reals = __m256d;
using rows::backwardBase;

template <class L>
[[gnu::always_inline]] inline void transpose(Four<L>& x) {
    const Reals a = _mm256_unpacklo_pd(x.v0, x.v1);
    const Reals b = _mm256_unpackhi_pd(x.v0, x.v1);
    const Reals c = _mm256_unpacklo_pd(x.v2, x.v3);
    const Reals d = _mm256_unpackhi_pd(x.v2, x.v3);
    x.v0 = _mm256_permute2f128_pd(a, c, 0x20);
    x.v1 = _mm256_permute2f128_pd(b, d, 0x20);
    x.v2 = _mm256_permute2f128_pd(a, c, 0x31);
    x.v3 = _mm256_permute2f128_pd(b, d, 0x31);
}

/// Sixteen words form a square: the stages of distance 8 and 4 work on its rows, those of 2 and 1, in a loop apart,
/// on its columns.
template <int spareBits>
struct FloatForm : FloatPasses<FMALanes<spareBits>> {
    using L = FMALanes<spareBits>;
    static constexpr int tailStages = 4;

    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        static_assert(range == 1);
        const FloatModulus m = tables.modulus;
        const u64 n = tables.degree;
        const double* twiddles = tables.twiddles;
        FloatPasses<L>::forwardTwoStages(a, 8, rows::groupsWithin(begin, count, 8), tables);
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            auto x = load<L>(a + 16 * g, 4);
            transpose(x);
            forwardSquareReduced<L>(x, L::load(twiddles + n / 4 + 4 * g), L::load(twiddles + n / 2 + 8 * g),
                                    L::load(twiddles + n / 2 + 8 * g + 4), m);
            transpose(x);
            storeWords<L>(a + 16 * g, 4, x, m);
        }
    }

    /// From range 2. The lower words of the first stage are read as y - p, so that its sums stay within 1. Its
    /// differences then reach 2, their products 1.5, and sums of these 3.
    static void backwardHead(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        const FloatModulus m = tables.modulus;
        const u64 p = tables.p;
        const Reals offset = _mm256_setr_pd(0, m.prime, 0, m.prime);
        const double* last = tables.twiddles + backwardBase(tables.degree, 1);
        const double* two = tables.twiddles + backwardBase(tables.degree, 2);
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            u64* words = a + 16 * g;
            const auto row = [&](u64 i) {
                return fromRangeTwo<L>(AVX2Lanes::load(words + 4 * i), p, offset);
            };
            Four<L> x{row(0), row(1), row(2), row(3)};
            transpose(x);
            backwardSquare<L>(x, L::load(last + 8 * g), L::load(last + 8 * g + 4), L::load(two + 4 * g), m);
            reduceGreat<L>(x, m);
            transpose(x);
            store<L>(words, 4, x);
        }
        FloatPasses<L>::backwardTwoStages(a, 4, rows::groupsWithin(begin, count, 8), tables);
    }
};

} // namespace

void forwardTransform(u64* a, const TransformTables& tables) {
    withSpareBits(tables.p,
                  [&]<int spareBits>() { rows::forwardTransform<1, FloatForm<spareBits>>(a, tables); });
}

void backwardTransform(u64* a, const TransformTables& tables) {
    withSpareBits(tables.p,
                  [&]<int spareBits>() { rows::backwardTransform<1, FloatForm<spareBits>>(a, tables); });
}

} // namespace Torvo::FMA
