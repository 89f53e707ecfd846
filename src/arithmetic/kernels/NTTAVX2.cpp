#include "arithmetic/kernels/NTTAVX2.hpp"

#include "arithmetic/kernels/AVX2Lanes.hpp"
#include "arithmetic/kernels/Twice.hpp"

namespace Torvo::AVX2 {

namespace {

using rows::backwardButterfly, rows::forwardButterfly, rows::splat, rows::TransformTables;
using Words = AVX2Lanes::Words;

/// Twiddles of four consecutive groups.
template <class Lanes>
[[gnu::always_inline]] inline rows::Twiddle<Lanes> loadTwiddles(const TransformTables& tables, u64 i) {
    return {Lanes::load(tables.powers + i), Lanes::load(tables.companions + i)};
}

/// Separates eight words 0 2 1 3 | 4 6 5 7 of a last-stage table into the even and the odd ones.
struct EvenOdd {
    Words even;
    Words odd;
};

[[gnu::always_inline]] inline EvenOdd loadEvenOdd(const u64* table) {
    const Words low = AVX2Lanes::load(table);
    const Words high = AVX2Lanes::load(table + 4);
    return {_mm256_permute2x128_si256(low, high, 0x20), _mm256_permute2x128_si256(low, high, 0x31)};
}

/// Sixteen words. Row r holds words 4r to 4r + 3; after transposition, column c holds words c, 4 + c, 8 + c,
/// 12 + c.
struct Square {
    Words v0, v1, v2, v3;
};

[[gnu::always_inline]] inline Square loadSquare(const u64* x) {
    return {AVX2Lanes::load(x), AVX2Lanes::load(x + 4), AVX2Lanes::load(x + 8), AVX2Lanes::load(x + 12)};
}

[[gnu::always_inline]] inline void storeSquare(u64* x, const Square& s) {
    AVX2Lanes::store(x, s.v0);
    AVX2Lanes::store(x + 4, s.v1);
    AVX2Lanes::store(x + 8, s.v2);
    AVX2Lanes::store(x + 12, s.v3);
}

[[gnu::always_inline]] inline void transpose(Square& s) {
    const Words a = _mm256_unpacklo_epi64(s.v0, s.v1);
    const Words b = _mm256_unpackhi_epi64(s.v0, s.v1);
    const Words c = _mm256_unpacklo_epi64(s.v2, s.v3);
    const Words d = _mm256_unpackhi_epi64(s.v2, s.v3);
    s.v0 = _mm256_permute2x128_si256(a, c, 0x20);
    s.v1 = _mm256_permute2x128_si256(b, d, 0x20);
    s.v2 = _mm256_permute2x128_si256(a, c, 0x31);
    s.v3 = _mm256_permute2x128_si256(b, d, 0x31);
}

template <int range, class Lanes>
[[gnu::always_inline]] inline void fromForwardRange(Square& s, u64 p) {
    s.v0 = rows::fromForwardRange<range, Lanes>(s.v0, p);
    s.v1 = rows::fromForwardRange<range, Lanes>(s.v1, p);
    s.v2 = rows::fromForwardRange<range, Lanes>(s.v2, p);
    s.v3 = rows::fromForwardRange<range, Lanes>(s.v3, p);
}

/// The vector form of the transform. The stages of distance 2 and 1 are done on the columns of sixteen words. They
/// are a loop apart from those of distance 8 and 4, on the rows: one chain of all four would be too long for the
/// processor to overlap it with the next.
template <class Lanes>
struct VectorForm : rows::WordPasses<lanes::Twice<Lanes>> {
    static constexpr int tailStages = 4;

    template <int range>
    static void forwardTail(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        const u64 n = tables.degree;
        const u64 p = tables.p;
        rows::forwardTwoStages<Lanes>(a, 8, rows::groupsWithin(begin, count, 8), tables);
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            Square s = loadSquare(a + 16 * g);
            transpose(s);
            rows::settleForward<Lanes>(s.v0, p);
            const auto w2 = loadTwiddles<Lanes>(tables, n / 4 + 4 * g);
            forwardButterfly<Lanes>(s.v0, s.v2, w2, p);
            forwardButterfly<Lanes>(s.v1, s.v3, w2, p);
            const EvenOdd w1 = loadEvenOdd(tables.lastStagePowers + 8 * g);
            const EvenOdd w1Companion = loadEvenOdd(tables.lastStageCompanions + 8 * g);
            forwardButterfly<Lanes>(s.v0, s.v1, {w1.even, w1Companion.even}, p);
            forwardButterfly<Lanes>(s.v2, s.v3, {w1.odd, w1Companion.odd}, p);
            fromForwardRange<range, Lanes>(s, p);
            transpose(s);
            storeSquare(a + 16 * g, s);
        }
    }

    static void backwardHead(u64* a, u64 begin, u64 count, const TransformTables& tables) {
        const u64 p = tables.p;
        const u64 base2 = rows::backwardBase(tables.degree, 2);
        for (u64 g = begin / 16; g < (begin + count) / 16; ++g) {
            Square s = loadSquare(a + 16 * g);
            transpose(s);
            const EvenOdd w1 = loadEvenOdd(tables.lastStagePowers + 8 * g);
            const EvenOdd w1Companion = loadEvenOdd(tables.lastStageCompanions + 8 * g);
            backwardButterfly<Lanes>(s.v0, s.v1, {w1.even, w1Companion.even}, p);
            backwardButterfly<Lanes>(s.v2, s.v3, {w1.odd, w1Companion.odd}, p);
            const auto w2 = loadTwiddles<Lanes>(tables, base2 + 4 * g);
            backwardButterfly<Lanes>(s.v0, s.v2, w2, p);
            backwardButterfly<Lanes>(s.v1, s.v3, w2, p);
            rows::settleBackward<Lanes>(s.v0, p);
            transpose(s);
            storeSquare(a + 16 * g, s);
        }
        rows::backwardTwoStages<Lanes>(a, 4, rows::groupsWithin(begin, count, 8), tables);
    }
};

/// Butterflies of distance 1 on eight words: partners are separated, in the lane order 0 2 1 3 of the table.
template <class Butterfly>
[[gnu::always_inline]] inline void stageOne(u64* a, const TransformTables& tables, Butterfly butterfly) {
    for (u64 i = 0; i < tables.degree; i += 8) {
        const Words low = AVX2Lanes::load(a + i);
        const Words high = AVX2Lanes::load(a + i + 4);
        Words x = _mm256_unpacklo_epi64(low, high);
        Words y = _mm256_unpackhi_epi64(low, high);
        const rows::Twiddle<AVX2Lanes> w{AVX2Lanes::load(tables.lastStagePowers + i / 2),
                                         AVX2Lanes::load(tables.lastStageCompanions + i / 2)};
        butterfly(x, y, w, tables.p);
        AVX2Lanes::store(a + i, _mm256_unpacklo_epi64(x, y));
        AVX2Lanes::store(a + i + 4, _mm256_unpackhi_epi64(x, y));
    }
}

/// Butterflies of distance 2 on eight words; `base` is the first twiddle of the stage.
template <class Butterfly>
[[gnu::always_inline]] inline void stageTwo(u64* a, u64 base, const TransformTables& tables,
                                            Butterfly butterfly) {
    for (u64 i = 0; i < tables.degree; i += 8) {
        const Words low = AVX2Lanes::load(a + i);
        const Words high = AVX2Lanes::load(a + i + 4);
        Words x = _mm256_permute2x128_si256(low, high, 0x20);
        Words y = _mm256_permute2x128_si256(low, high, 0x31);
        const auto first = splat<AVX2Lanes>(tables.twiddle(base + i / 4));
        const auto second = splat<AVX2Lanes>(tables.twiddle(base + i / 4 + 1));
        const rows::Twiddle<AVX2Lanes> w{_mm256_blend_epi32(first.value, second.value, 0b11110000),
                                         _mm256_blend_epi32(first.companion, second.companion, 0b11110000)};
        butterfly(x, y, w, tables.p);
        AVX2Lanes::store(a + i, _mm256_permute2x128_si256(x, y, 0x20));
        AVX2Lanes::store(a + i + 4, _mm256_permute2x128_si256(x, y, 0x31));
    }
}

} // namespace

// These are specializations, because instances of a template would be weak symbols.

template <>
void forwardTransform<1>(u64* a, const TransformTables& tables) {
    if (tables.p < lanes::roomyPrimes)
        rows::forwardTransform<1, VectorForm<lanes::Roomy<AVX2Lanes>>>(a, tables);
    else
        rows::forwardTransform<1, VectorForm<lanes::Estimating<AVX2Lanes>>>(a, tables);
}

template <>
void forwardTransform<2>(u64* a, const TransformTables& tables) {
    rows::forwardTransform<2, VectorForm<AVX2Lanes>>(a, tables);
}

template <>
void forwardTransform<4>(u64* a, const TransformTables& tables) {
    rows::forwardTransform<4, VectorForm<AVX2Lanes>>(a, tables);
}

template <>
void backwardTransform<1>(u64* a, const TransformTables& tables) {
    if (tables.p < lanes::roomyPrimes)
        rows::backwardTransform<1, VectorForm<lanes::Roomy<AVX2Lanes>>>(a, tables);
    else
        rows::backwardTransform<1, VectorForm<lanes::Estimating<AVX2Lanes>>>(a, tables);
}

template <>
void backwardTransform<2>(u64* a, const TransformTables& tables) {
    rows::backwardTransform<2, VectorForm<AVX2Lanes>>(a, tables);
}

void forwardStage(u64* a, u64 t, const TransformTables& tables) {
    rows::forwardStage<AVX2Lanes>(a, t, rows::groupsWithin(0, tables.degree, t), tables);
}

void forwardStageTwo(u64* a, const TransformTables& tables) {
    stageTwo(a, tables.degree / 4, tables, forwardButterfly<AVX2Lanes>);
}

void forwardStageOne(u64* a, const TransformTables& tables) {
    stageOne(a, tables, forwardButterfly<AVX2Lanes>);
}

void backwardStage(u64* a, u64 t, const TransformTables& tables) {
    rows::backwardStage<AVX2Lanes>(a, t, rows::groupsWithin(0, tables.degree, t), tables);
}

void backwardStageTwo(u64* a, const TransformTables& tables) {
    stageTwo(a, rows::backwardBase(tables.degree, 2), tables, backwardButterfly<AVX2Lanes>);
}

void backwardStageOne(u64* a, const TransformTables& tables) {
    stageOne(a, tables, backwardButterfly<AVX2Lanes>);
}

void backwardLastStage(u64* a, const TransformTables& tables) {
    rows::backwardLastStage<2, AVX2Lanes>(a, tables);
}

} // namespace Torvo::AVX2
