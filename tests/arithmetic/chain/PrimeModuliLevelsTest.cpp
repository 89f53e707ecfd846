#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/Feature.hpp"
#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/Expect.hpp"
#include "support/ForcedFeature.hpp"
#include "support/NaiveRing.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <string>
#include <vector>

namespace Torvo::test {
namespace {

constexpr Device secondHost{DeviceType::CPU, 1};
constexpr Device pinned{DeviceType::PinnedHost, 0};

/// The nearest integer to x / p; no quotient lies half-way, p being odd.
BigInt roundedQuotient(const BigInt& x, u64 p) {
    return (x - centredResidueOf(x, p)) / p;
}

std::vector<u64> column(const Polynomial& poly, u64 k) {
    std::vector<u64> residues;
    for (u64 i = 0; i <= poly.getLevel(); ++i) residues.push_back(poly.getRow(i)[k]);
    return residues;
}

class Levels : public testing::TestWithParam<u64> {
protected:
    Levels() : forced(GetParam()) {}

    const ForcedFeature forced;
    const std::vector<Context> contexts{makeContext(ParameterPreset::FX),
                                        makeContext(6, 4, 50, 40, 51, 2, {}),
                                        makeContext(6, 3, 61, 61, 61, 1, {})};
};

TEST_P(Levels, RescaleDividesByTheTopPrimeAndRounds) {
    for (const Context& context : contexts) {
        const Ring ring = ringOf(context);
        Seeded random(31);
        SCOPED_TRACE(random.describe());
        for (u64 level = ring.numBase - 1; level > 0; --level) {
            const auto chain = slice(getPrimeList(context), 0, level + 1);
            Polynomial p = randomPolynomial(context, false, false, level, random);
            std::vector<BigInt> expected;
            for (u64 k = 0; k < ring.degree; ++k)
                expected.push_back(roundedQuotient(chineseRemainder(column(p, k), chain), chain[level]));
            context->primes.rescale(p);
            ASSERT_EQ(p.getLevel(), level - 1);
            ASSERT_EQ(p.getData().size(), level * ring.degree);
            EXPECT_FALSE(p.isNTT());
            for (u64 i = 0; i < level; ++i)
                for (u64 k = 0; k < ring.degree; ++k)
                    ASSERT_EQ(p.getRow(i)[k], wordResidueOf(expected[k], chain[i])) << i << ", " << k;
        }
    }
}

TEST_P(Levels, RescaleOfATransformedPolynomialIsTheTransformOfTheRescaledOne) {
    for (const Context& context : contexts) {
        const Ring ring = ringOf(context);
        Seeded random(32);
        SCOPED_TRACE(random.describe());
        Polynomial coefficients = randomPolynomial(context, false, false, ring.numBase - 1, random);
        Polynomial values(context, false, true);
        context->primes.forwardNTT(coefficients, values);
        while (coefficients.getLevel() > 0) {
            context->primes.rescale(coefficients);
            context->primes.rescale(values);
            ASSERT_TRUE(values.isNTT());
            ASSERT_EQ(values.getLevel(), coefficients.getLevel());
            for (u64 i = 0; i <= values.getLevel(); ++i) {
                const Words expected =
                    naiveTransform(ring.degree, context->primes.getPrime(i)).forward(rowOf(coefficients, i));
                ASSERT_EQ(rowOf(values, i), expected) << "row " << i;
            }
        }
    }
}

TEST_P(Levels, RescaleIsNormalizeModThenSubAndConstMult) {
    const Context& context = contexts[0];
    Seeded random(33);
    SCOPED_TRACE(random.describe());
    const u64 level = 4;
    const u64* inverses =
        context->primes.getInvPrimeData(Device{}).getData() + level * context->primes.size();
    Polynomial p = randomPolynomial(context, false, true, level, random);
    Polynomial top = p, scratch(context, false, false), expected(context, false, false);
    context->primes.backwardNTT(top, top, OutputModulusBoundValidator(level, level + 1));
    context->primes.normalizeMod(scratch, top, level, level - 1);
    EXPECT_FALSE(scratch.isNTT());
    context->primes.forwardNTTWithSubAndConstMult(scratch, p, inverses, expected,
                                                  OutputModulusBoundValidator(0, level));
    context->primes.rescale(p);
    EXPECT_EQ(p.getLevel(), expected.getLevel());
    for (u64 i = 0; i < level; ++i) EXPECT_EQ(rowOf(p, i), rowOf(expected, i)) << "row " << i;
}

TEST_P(Levels, RescaleGivesTheSameWordsFromAnyTeam) {
    const Context& context = contexts[0];
    Seeded random(34);
    const Polynomial p = randomPolynomial(context, false, true, 5, random);
    const int before = omp_get_max_threads();
    std::vector<Polynomial> results;
    for (const int threads : {1, 2, 7}) {
        omp_set_num_threads(threads);
        results.push_back(p);
        context->primes.rescale(results.back());
    }
    omp_set_num_threads(before);
    for (u64 i = 0; i <= 4; ++i) {
        EXPECT_EQ(rowOf(results[0], i), rowOf(results[1], i));
        EXPECT_EQ(rowOf(results[0], i), rowOf(results[2], i));
    }
}

TEST_P(Levels, RescaleAtLevelZeroLeavesNoRow) {
    Seeded random(35);
    for (const bool isNTT : {false, true}) {
        Polynomial p = randomPolynomial(contexts[0], false, isNTT, 0, random);
        contexts[0]->primes.rescale(p);
        EXPECT_EQ(p.getData().size(), 0u);
    }
}

TEST_P(Levels, NormalizeModSpreadsTheCentredWordsOfOneRow) {
    for (const Context& context : contexts) {
        const Ring ring = ringOf(context);
        Seeded random(36);
        SCOPED_TRACE(random.describe());
        const u64 top = ring.numBase - 1;
        for (const u64 row : {u64{0}, top}) {
            const Polynomial in = randomPolynomial(context, false, false, top, random);
            Polynomial out = untouchedPolynomial(context, false, true, 0);
            context->primes.normalizeMod(out, in, row, top);
            ASSERT_EQ(out.getLevel(), top);
            ASSERT_FALSE(out.isNTT());
            for (u64 i = 0; i <= top; ++i) {
                for (u64 k = 0; k < ring.degree; ++k) {
                    const BigInt centred = centredResidueOf(in.getRow(row)[k], context->primes.getPrime(row));
                    ASSERT_EQ(out.getRow(i)[k], wordResidueOf(centred, context->primes.getPrime(i)));
                }
            }
            Polynomial inPlace = in;
            context->primes.normalizeMod(inPlace, inPlace, row, top);
            for (u64 i = 0; i <= top; ++i) EXPECT_EQ(rowOf(inPlace, i), rowOf(out, i)) << "row " << i;
        }
    }
}

TEST_P(Levels, NormalizeModRaisesALevelZeroPolynomialToTheWholeChain) {
    const Context& context = contexts[1];
    const Ring ring = ringOf(context);
    Seeded random(37);
    const Polynomial in = randomPolynomial(context, false, false, 0, random);
    Polynomial raised(context, false, false), inPlace = in;
    context->primes.normalizeMod(raised, in, 0, ring.numBase - 1);
    context->primes.normalizeMod(inPlace, inPlace, 0, ring.numBase - 1);
    EXPECT_EQ(rowOf(raised, 0), rowOf(in, 0));
    for (u64 i = 0; i < ring.numBase; ++i) EXPECT_EQ(rowOf(inPlace, i), rowOf(raised, i)) << "row " << i;
}

TEST_P(Levels, InverseRescaleMultipliesByThePrimeOfTheNewLevel) {
    for (const bool modUp : {false, true}) {
        const Context& context = contexts[0];
        const Ring ring = ringOf(context);
        Seeded random(38);
        const u64 level = 3;
        const Polynomial p = randomPolynomial(context, modUp, true, level, random);
        Polynomial raised = p;
        context->primes.inverseRescale(raised);
        ASSERT_EQ(raised.getLevel(), level + 1);
        EXPECT_TRUE(raised.isNTT());
        ASSERT_EQ(raised.getData().size(), raised.rowEnd() * ring.degree);
        for (u64 i = 0; i < raised.rowEnd(); ++i) {
            if (!raised.isLiveRow(i)) continue;
            const u64 prime = context->primes.getPrime(i),
                      factor = context->primes.getPrime(level + 1) % prime;
            Words expected(ring.degree); // a multiple of the new prime is 0 in its own row
            if (i != level + 1)
                for (u64 k = 0; k < ring.degree; ++k) expected[k] = mulMod(p.getRow(i)[k], factor, prime);
            EXPECT_EQ(rowOf(raised, i), expected) << "row " << i;
        }
        context->primes.rescale(raised);
        for (u64 i = 0; i <= level; ++i) EXPECT_EQ(rowOf(raised, i), rowOf(p, i)) << "row " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryForm, Levels, testing::Values(u64{0}, detail::readProcessorFeature()),
                         [](const auto& tested) { return tested.index == 0 ? "scalar" : "detected"; });

TEST(Rescale, NamesTheMembersItStandsOnWhereThereIsNoBackend) {
    const Context context = makeContext(ParameterPreset::FX);
    const Ring ring = ringOf(context);
    const PrimeModuli served(ParameterPreset::FX, ring.total(), 64, {pinned, secondHost});
    Seeded random(39);
    Polynomial p = randomPolynomial(context, false, true, 3, random);
    const Polynomial values = p, coefficients = randomPolynomial(context, false, false, 3, random);
    p.allocate(pinned);
    EXPECT_REFUSED(context->primes.rescale(p),
                   "The generated context does not support the operation with current "
                   "operands; check the device.");
    EXPECT_REFUSED(served.rescale(p),
                   "Cannot support the function 'backwardNTT' in the current build configuration");
    p = coefficients;
    p.allocate(pinned);
    EXPECT_REFUSED(served.rescale(p),
                   "Cannot support the function 'normalizeMod' in the current build configuration");
    EXPECT_REFUSED(served.inverseRescale(p),
                   "Cannot support the function 'constMult' in the current build configuration");
    Polynomial out(context, false, false);
    EXPECT_REFUSED(served.normalizeMod(out, p, 0, 1),
                   "Cannot support the function 'normalizeMod' in the current build configuration");
    p = values;
    p.to(secondHost);
    EXPECT_THROW_TEXT(served.rescale(p), std::out_of_range, "map::at");
}

TEST(Rescale, NamesTheMembersItStandsOnOnAGPU) {
    const Context context = makeContext(ParameterPreset::FX);
    const Device gpu{DeviceType::GPU, 0};
    const PrimeModuli served(ParameterPreset::FX, ringOf(context).total(), 64, {gpu});
    const auto refuse = [&](bool isNTT, const auto& member, const char* name) {
        Polynomial p(context, true, isNTT, 3); // mod-up: without words its level asks for no memory
        p.setData(DeviceSpecificArray<u64>(0, gpu, getDefaultStream()));
        EXPECT_REFUSED(member(p), "Cannot support the function '" + std::string(name) +
                                      "' in the current build configuration");
    };
    refuse(
        true, [&](Polynomial& p) { served.rescale(p); }, "execinttBatch");
    refuse(
        false, [&](Polynomial& p) { served.rescale(p); }, "normalizeModCUDA");
    refuse(
        true, [&](Polynomial& p) { served.inverseRescale(p); }, "constMultBatchCUDA");
    refuse(
        true, [&](Polynomial& p) { served.normalizeMod(p, p, 0, 1); }, "normalizeModCUDA");
}

// With one prime more than the chain, the row that goes is the one without a prime; the rows of temporary
// primes are no part of it either.
TEST(Rescale, RefusesAPolynomialThatReachesBeyondTheChain) {
    const Context context = makeContext(6, 3, 50, 40, 51, 1), longer = makeContext(6, 7, 50, 40, 51, 7);
    const PrimeModuli& primes = context->primes;
    ASSERT_EQ(primes.size(), 6u);
    for (const bool isNTT : {false, true}) {
        for (const u64 level : {6, 5, 3, 2}) {
            Polynomial p(longer, false, isNTT, level);
            std::fill(p.getData().begin(), p.getData().end(), 0);
            if (level < 3)
                EXPECT_NO_THROW(primes.rescale(p));
            else
                EXPECT_REFUSED(primes.rescale(p), "Operands are not of the ring of the generated context.");
        }
    }
}

TEST(NormalizeMod, RefusesARowOfAnotherLength) {
    const Context context = makeContext(7, 3, 50, 40, 51, 1), shorter = makeContext(6, 3, 50, 40, 51, 1);
    const Polynomial in(shorter, false, false, 0);
    Polynomial out(context, false, false);
    EXPECT_REFUSED(context->primes.normalizeMod(out, in, 0, 2),
                   "Operands are not of the ring of the generated context.");
}

} // namespace
} // namespace Torvo::test
