#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "arithmetic/kernels/ModulusAVX2.hpp"

#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/Seeded.hpp"
#include "support/TransformOracle.hpp"
#include "support/VectorProducts.hpp"

#include <gtest/gtest.h>

#include <algorithm>

/// The scalar and the vector forms, compared word for word: row kernels by the names of their AVX2 form,
/// transforms in every form.
namespace Torvo::test {
namespace {

constexpr u64 primes[] = {68719474049,     1125899904679937, 1125899908022273,
                          0x7fffffc900001, 0x1fffffffd80001, 2305843009213689601};
constexpr u64 lengths[] = {0, 4, 64, 4096};

class KernelForms : public testing::Test {
protected:
    void SetUp() override { SKIP_UNLESS_PROCESSOR_RUNS(KernelForm::AVX2); }

    /// n words of range k, a quarter of them at the ends of the ranges.
    std::vector<u64> row(u64 n, u64 p, u64 k = 1) {
        auto words = random_.row(n, k * p);
        const u64 ends[] = {0, p - 1, std::min(2 * p - 1, k * p - 1), k * p - 1};
        for (u64 i = 0; i < n; i += 4) words[random_.below(n)] = ends[random_.below(4)];
        return words;
    }

    /// body(modulus, p, n) for every prime and length, the modulus of degree n.
    template <class Body>
    void forEveryPrimeAndLength(Body body) {
        SCOPED_TRACE(random_.describe());
        for (u64 p : primes) {
            for (u64 n : lengths) {
                SCOPED_TRACE(testing::Message() << "p=" << p << " n=" << n);
                body(Modulus(n, p, false), p, n);
            }
        }
    }

    Seeded random_{41};
};

/// What `kernel(out)` makes of a row in scalar form.
template <class Kernel>
std::vector<u64> inScalarForm(std::vector<u64> out, Kernel kernel) {
    const ForcedFeature forced(scalarForm);
    kernel(out.data());
    return out;
}

template <class Kernel>
std::vector<u64> onVectors(std::vector<u64> out, Kernel kernel) {
    kernel(out.data());
    return out;
}

TEST_F(KernelForms, TheProductsOfLanesAreTheWideProducts) {
    SCOPED_TRACE(random_.describe());
    const u64 n = 4096;
    auto x = random_.row(n, ~0UL), y = random_.row(n, ~0UL);
    const u64 ends[] = {0, 1, 0xffffffff, 0x100000000, 0xffffffff00000000, 0x8000000000000000, ~0UL};
    for (u64 i = 0; i < 49; ++i) {
        x[i] = ends[i / 7];
        y[i] = ends[i % 7];
    }
    std::vector<u64> high(n), low(n), highAlone(n);
    multiplyByVectors(x.data(), y.data(), high.data(), low.data(), highAlone.data(), n);
    for (u64 i = 0; i < n; ++i) {
        const u128 product = u128{x[i]} * y[i];
        ASSERT_EQ(high[i], static_cast<u64>(product >> 64)) << x[i] << " * " << y[i];
        ASSERT_EQ(highAlone[i], high[i]);
        ASSERT_EQ(low[i], static_cast<u64>(product)) << x[i] << " * " << y[i];
    }
}

TEST_F(KernelForms, SumsAndDifferencesAgree) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        const auto a = row(n, p), b = row(n, p);
        const std::vector<u64> blank(n);
        EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::addVector(out, a.data(), b.data(), p, n); }),
                  inScalarForm(blank, [&](u64* out) { m.addVector(out, a.data(), b.data(), n); }));
        EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::subVector(out, a.data(), b.data(), p, n); }),
                  inScalarForm(blank, [&](u64* out) { m.subVector(out, a.data(), b.data(), n); }));
        EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::negateVector(out, a.data(), p, n); }),
                  inScalarForm(blank, [&](u64* out) { m.negateVector(out, a.data(), n); }));
        for (u64 c : {u64{0}, u64{1}, p - 1})
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::constAdd(a.data(), c, out, n, p); }),
                      inScalarForm(blank, [&](u64* out) { m.constAdd(a.data(), c, out, n); }));
    });
}

TEST_F(KernelForms, ProductsAgree) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        const auto a = row(n, p), b = row(n, p);
        const std::vector<u64> blank(n);
        EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::mulVector(out, a.data(), b.data(), p, n); }),
                  inScalarForm(blank, [&](u64* out) { m.mulVector(out, a.data(), b.data(), n); }));
    });
}

TEST_F(KernelForms, ProductsByConstantsAgreeInEveryRange) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        const auto reduced = row(n, p), other = row(n, p), lazy = row(n, p, 4);
        const std::vector<u64> blank(n);
        for (u64 c : {u64{0}, u64{1}, p / 3, p - 1}) {
            const auto one = inScalarForm(blank, [&](u64* out) { m.constMult<1>(lazy.data(), c, out, n); });
            const auto two = inScalarForm(blank, [&](u64* out) { m.constMult<2>(lazy.data(), c, out, n); });
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::constMult<1>(lazy.data(), c, out, n, p); }),
                      one);
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::constMult<2>(lazy.data(), c, out, n, p); }),
                      two);
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::constMult<4>(lazy.data(), c, out, n, p); }),
                      two);
            const u64 *a = reduced.data(), *b = other.data();
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::subAndConstMult<1>(a, b, c, out, n, p); }),
                      inScalarForm(blank, [&](u64* out) { m.subAndConstMult<1>(a, b, c, out, n); }));
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::subAndConstMult<2>(a, b, c, out, n, p); }),
                      inScalarForm(blank, [&](u64* out) { m.subAndConstMult<2>(a, b, c, out, n); }));
        }
    });
}

TEST_F(KernelForms, ChangesOfModulusAgree) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        for (u64 q : primes) {
            auto in = row(n, q);
            if (n != 0) in[0] = q / 2;
            if (n != 0) in[n - 1] = q / 2 + 1;
            const std::vector<u64> blank(n);
            EXPECT_EQ(onVectors(blank, [&](u64* out) { AVX2::normalizeModVector(out, in.data(), q, p, n); }),
                      inScalarForm(blank, [&](u64* out) { m.normalizeModVector(out, in.data(), q, n); }));
            const u64 c = p / 5, delta = p - q % p;
            const auto before = row(n, p, 2);
            EXPECT_EQ(onVectors(blank,
                                [&](u64* out) {
                                    AVX2::normalizeModAndConstMult<false>(in.data(), c, q, p, out, n, delta);
                                }),
                      inScalarForm(
                          blank, [&](u64* out) { m.normalizeModAndConstMult<false>(in.data(), c, q, out); }));
            EXPECT_EQ(onVectors(before,
                                [&](u64* out) {
                                    AVX2::normalizeModAndConstMult<true>(in.data(), c, q, p, out, n, delta);
                                }),
                      inScalarForm(
                          before, [&](u64* out) { m.normalizeModAndConstMult<true>(in.data(), c, q, out); }));
        }
    });
}

TEST_F(KernelForms, TwoProductsWithOneFactorAgree) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        const auto a = row(n, p), b1 = row(n, p), b2 = row(n, p), start1 = row(n, p), start2 = row(n, p);
        auto scalar1 = start1, scalar2 = start2, vector1 = start1, vector2 = start2;
        {
            const ForcedFeature forced(scalarForm);
            m.mulAddVector(scalar1.data(), scalar2.data(), a.data(), b1.data(), b2.data());
        }
        AVX2::mulModInt<true>(vector1.data(), vector2.data(), a.data(), b1.data(), b2.data(), p, n);
        EXPECT_EQ(vector1, scalar1);
        EXPECT_EQ(vector2, scalar2);
        {
            const ForcedFeature forced(scalarForm);
            m.mulVector(scalar1.data(), scalar2.data(), a.data(), b1.data(), b2.data());
        }
        AVX2::mulModInt<false>(vector1.data(), vector2.data(), a.data(), b1.data(), b2.data(), p, n);
        EXPECT_EQ(vector1, scalar1);
        EXPECT_EQ(vector2, scalar2);
    });
}

TEST_F(KernelForms, TensorProductsAgree) {
    forEveryPrimeAndLength([this](const Modulus& m, u64 p, u64 n) {
        const auto x = row(n, p), y = row(n, p), z = row(n, p), w = row(n, p);
        std::vector<u64> s0(n), s1(n), s2(n), v0(n), v1(n), v2(n);
        {
            const ForcedFeature forced(scalarForm);
            m.tensorVector(s0.data(), s1.data(), s2.data(), x.data(), y.data(), z.data(), w.data());
        }
        AVX2::tensorVector(v0.data(), v1.data(), v2.data(), x.data(), y.data(), z.data(), w.data(), p, n);
        EXPECT_EQ(v0, s0);
        EXPECT_EQ(v1, s1);
        EXPECT_EQ(v2, s2);
    });
}

// ---- transforms

/// `transform` on one row in every form that the processor has.
template <class Transform>
void expectSameWords(const std::vector<u64>& row, Transform transform) {
    auto scalar = row;
    {
        const ForcedFeature forced(scalarForm);
        transform(scalar.data());
    }
    for (const KernelForm form : vectorForms) {
        if (!processorRuns(form)) continue;
        const ForcedFeature forced(form);
        auto vector = row;
        transform(vector.data());
        ASSERT_EQ(vector, scalar) << form;
    }
}

void expectSameTransforms(const NTT& ntt, const std::vector<u64>& rangeFour,
                          const std::vector<u64>& rangeTwo) {
    expectSameWords(rangeFour, [&](u64* a) { ntt.computeForward<1>(a); });
    expectSameWords(rangeFour, [&](u64* a) { ntt.computeForward<2>(a); });
    expectSameWords(rangeFour, [&](u64* a) { ntt.computeForward<4>(a); });
    expectSameWords(rangeTwo, [&](u64* a) { ntt.computeBackward<1>(a); });
    expectSameWords(rangeTwo, [&](u64* a) { ntt.computeBackward<2>(a); });
}

using KernelFormsOnRealPreset = KernelForms;

TEST_F(KernelFormsOnRealPreset, TransformsAgreeForEveryPrimeOfThreeChains) {
    SCOPED_TRACE(random_.describe());
    for (ParameterPreset preset : {ParameterPreset::FVa, ParameterPreset::FGb, ParameterPreset::FTa}) {
        for (u64 p : getPrimeList(preset)) {
            const u64 n = std::min<u64>(((p - 1) & -(p - 1)) / 2, 1UL << 15);
            SCOPED_TRACE(testing::Message() << "p=" << p << " n=" << n);
            expectSameTransforms(NTT(n, p), row(n, p, 4), row(n, p, 2));
        }
    }
}

TEST_F(KernelFormsOnRealPreset, TransformsAgreeAtEveryDegreeOfAPreset) {
    SCOPED_TRACE(random_.describe());
    const auto& chain = getPrimeList(ParameterPreset::FVa);
    for (u64 p : {chain.front(), chain[1], chain.back()}) {
        for (u64 logDegree : {6, 7, 8, 9, 12, 13, 14, 15, 16, 17}) {
            const u64 n = 1UL << logDegree;
            SCOPED_TRACE(testing::Message() << "p=" << p << " n=" << n);
            expectSameTransforms(NTT(n, p), row(n, p, 4), row(n, p, 2));
        }
    }
}

TEST_F(KernelForms, RowsAtTheEndsOfTheirRangeTransformToTheSameWords) {
    for (u64 p : primes) {
        for (u64 n : {64UL, 128UL, 256UL, 512UL}) {
            if ((p - 1) % (2 * n) != 0) continue;
            const NTT ntt(n, p);
            for (u64 word : {u64{0}, p - 1, p, 2 * p - 1, 2 * p, 4 * p - 1})
                expectSameTransforms(ntt, std::vector<u64>(n, word), std::vector<u64>(n, word % (2 * p)));
        }
    }
}

TEST_F(KernelForms, TheVectorStagesMakeUpTheForwardTransform) {
    SCOPED_TRACE(random_.describe());
    for (u64 n : {64UL, 128UL, 512UL}) {
        const NTT ntt(n, 0x1ffffffffc000001);
        const auto in = row(n, ntt.getPrime(), 4);
        const auto expected = forwardByRule(ntt.getPowerTable(), in, ntt.getPrime(), 4);
        auto staged = in, mixed = in;
        for (u64 t = n / 2; t >= 4; t /= 2) ntt.computeForwardAVX256Tn(staged.data(), t);
        mixed = staged;
        ntt.computeForwardAVX256T2(staged.data());
        ntt.computeForwardNativeSingleStep(mixed.data(), 2);
        EXPECT_EQ(staged, mixed);
        ntt.computeForwardAVX256T1(staged.data());
        EXPECT_EQ(staged, expected);
        auto whole = in;
        ntt.computeForwardAVX256<4>(whole.data());
        EXPECT_EQ(whole, expected);
    }
}

TEST_F(KernelForms, TheVectorStagesMakeUpTheBackwardTransform) {
    SCOPED_TRACE(random_.describe());
    for (u64 n : {64UL, 128UL, 512UL}) {
        const NTT ntt(n, 0x1ffffffffc000001);
        const auto in = row(n, ntt.getPrime(), 2);
        const auto expected = backwardByRule(ntt.getInversePowerTable(), in, ntt.getPrime(), 2);
        auto staged = in;
        ntt.computeBackwardAVX256T1(staged.data());
        auto mixed = staged;
        ntt.computeBackwardAVX256T2(staged.data());
        ntt.computeBackwardNativeSingleStep(mixed.data(), 2);
        EXPECT_EQ(staged, mixed);
        for (u64 t = 4; t < n / 2; t *= 2) ntt.computeBackwardAVX256Tn(staged.data(), t);
        ntt.computeBackwardAVX256Last(staged.data());
        EXPECT_EQ(staged, expected);
        auto whole = in;
        ntt.computeBackwardAVX256<2>(whole.data());
        EXPECT_EQ(whole, expected);
    }
}

TEST_F(KernelForms, ATransformBuiltWithoutVectorsServesAllTheSame) {
    std::optional<NTT> ntt;
    {
        const ForcedFeature forced(scalarForm);
        ntt.emplace(64, primes[0]);
    }
    const ForcedFeature forced(KernelForm::AVX2);
    const auto in = row(64, primes[0]);
    auto out = in;
    ntt->computeForward<1>(out.data());
    EXPECT_EQ(out, forwardByRule(ntt->getPowerTable(), in, primes[0], 1));
    ntt->computeBackward<1>(out.data());
    EXPECT_EQ(out, in);
}

} // namespace
} // namespace Torvo::test
