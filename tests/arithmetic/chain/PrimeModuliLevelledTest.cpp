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

#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace Torvo::test {
namespace {

constexpr Device pinned{DeviceType::PinnedHost, 0};
constexpr Device secondHost{DeviceType::CPU, 1};
constexpr Device gpu{DeviceType::GPU, 0};
constexpr u64 dimension = 37; // not a multiple of the width of a vector register

constexpr auto differentLevels = "Operands have different levels.";
constexpr auto differentDevices = "Operands are in different devices.";
constexpr auto notServed =
    "The generated context does not support the operation with current operands; check the device.";

std::string unsupported(const std::string& name) {
    return "Cannot support the function '" + name + "' in the current build configuration";
}

Words wordsOf(const DeviceSpecificArray<u64>& data) {
    return {data.begin(), data.end()};
}

/// Operations on the primes of LWE, which have no transform.
class LevelledOperations : public testing::Test {
protected:
    const PrimeModuli primes{LWE::CustomSizes{dimension, 4, 50, 40}, {pinned}};
    const Context context = makeContext(6, 4, 50, 40, 51, 2, {});
    Seeded random{51};

    LevelledVector vector(u64 level) {
        LevelledVector v(dimension, level);
        for (u64 i = 0; i <= level; ++i) {
            const Words row = random.row(dimension, primes.getPrime(i));
            std::copy(row.begin(), row.end(), v.getRow(i));
        }
        return v;
    }

    LevelledElement element(u64 level) {
        LevelledElement e(0, context, false, level);
        for (u64 i = 0; i <= level; ++i) e[i] = random.below(primes.getPrime(i));
        return e;
    }

    Words row(const LevelledVector& v, u64 i) const { return {v.getRow(i), v.getRow(i) + dimension}; }

    using WordOperation = std::function<u64(u64, u64, u64)>;
    using Member = std::function<void(const LevelledVector&, const LevelledVector&, LevelledVector&)>;

    /// For distinct and for shared objects, with both forms of the kernels.
    void expectRowwise(const Member& member, const WordOperation& expected) {
        for (const u64 feature : {u64{0}, detail::readProcessorFeature()}) {
            const ForcedFeature forced(feature);
            const LevelledVector a = vector(2), b = vector(2);
            LevelledVector out(dimension, 3), overA = a, overB = b, overBoth = a;
            member(a, b, out);
            member(overA, b, overA);
            member(a, overB, overB);
            member(overBoth, overBoth, overBoth);
            EXPECT_EQ(out.getLevel(), 2u);
            EXPECT_EQ(out.getData().size(), 3 * dimension);
            for (u64 i = 0; i <= 2; ++i) {
                const u64 p = primes.getPrime(i);
                const auto op = [&](u64 x, u64 y) { return expected(x, y, p); };
                EXPECT_EQ(row(out, i), wordwise(row(a, i), row(b, i), op)) << "row " << i;
                EXPECT_EQ(row(overA, i), row(out, i)) << "row " << i;
                EXPECT_EQ(row(overB, i), row(out, i)) << "row " << i;
                EXPECT_EQ(row(overBoth, i), wordwise(row(a, i), row(a, i), op)) << "row " << i;
            }
        }
    }

    void expectRefusals(const Member& member, const std::string& name) {
        LevelledVector a = vector(2), b(dimension - 1, 1), out(dimension, 3);
        b.to(secondHost);
        if (name != "innerProduct") EXPECT_REFUSED(member(a, b, out), differentLevels);
        a.setLevel(1);
        EXPECT_REFUSED(member(a, b, out), differentDevices);
        a.to(secondHost);
        EXPECT_REFUSED(member(a, b, out), notServed);
        a.allocate(pinned);
        b.allocate(pinned);
        EXPECT_REFUSED(member(a, b, out), "Operands have different dimensions.");
        b = LevelledVector(dimension, 1);
        b.allocate(pinned);
        EXPECT_REFUSED(member(a, b, out), unsupported(name));
    }
};

TEST_F(LevelledOperations, OnVectorsEqualTheirDefinitions) {
    expectRowwise([&](const auto& a, const auto& b, auto& out) { primes.add(a, b, out); }, addMod);
    expectRowwise([&](const auto& a, const auto& b, auto& out) { primes.sub(a, b, out); }, subMod);
    expectRowwise([&](const auto& a, const auto&, auto& out) { primes.negate(a, out); },
                  [](u64 x, u64, u64 p) { return subMod(0, x, p); });
}

TEST_F(LevelledOperations, OnVectorsRefuseTheirOperandsInOrder) {
    expectRefusals([&](const auto& a, const auto& b, auto& out) { primes.add(a, b, out); }, "add");
    expectRefusals([&](const auto& a, const auto& b, auto& out) { primes.sub(a, b, out); }, "sub");
    expectRefusals(
        [&](const auto& a, const auto& b, auto&) {
            LevelledElement product = element(3);
            primes.innerProduct(a, b, product);
        },
        "innerProduct");
}

TEST_F(LevelledOperations, OnOneVectorRefuseDevicesWithoutBackend) {
    LevelledVector v = vector(2), out(dimension, 2);
    LevelledElement e = element(2);
    v.to(secondHost);
    EXPECT_REFUSED(primes.negate(v, out), notServed);
    EXPECT_REFUSED(primes.rescale(v), notServed);
    EXPECT_REFUSED(primes.conjugateInvert(v, out, 1), notServed);
    v.allocate(pinned);
    e.allocate(pinned);
    EXPECT_REFUSED(primes.negate(v, out), unsupported("negate"));
    EXPECT_REFUSED(primes.rescale(v), unsupported("rescale"));
    EXPECT_REFUSED(primes.rescale(e), unsupported("rescale"));
    EXPECT_REFUSED(primes.conjugateInvert(v, out, 1), unsupported("conjugateInvert"));
    EXPECT_REFUSED(primes.constMult(v, e, out), unsupported("constMult"));
}

// Vectors without entries need no memory, so that they can be on a GPU.
TEST_F(LevelledOperations, NameTheirFormForTheGPUOnOne) {
    const PrimeModuli served(LWE::CustomSizes{dimension, 4, 50, 40}, {gpu});
    LevelledVector v(0, 2), out(0, 2);
    LevelledElement e = element(2);
    v.allocate(gpu);
    e.getData() = DeviceSpecificArray<u64>(0, gpu, getDefaultStream());
    EXPECT_REFUSED(served.add(v, v, out), unsupported("addCUDA"));
    EXPECT_REFUSED(served.sub(v, v, out), unsupported("subCUDA"));
    EXPECT_REFUSED(served.negate(v, out), unsupported("negateCUDA"));
    EXPECT_REFUSED(served.constMult(v, e, out), unsupported("constMultCUDA"));
    EXPECT_REFUSED(served.conjugateInvert(v, out, 0), unsupported("conjugateInvertCUDA"));
    EXPECT_REFUSED(served.rescale(v), unsupported("rescaleCUDA"));
    EXPECT_REFUSED(served.rescale(e), unsupported("rescaleCUDA"));
}

TEST_F(LevelledOperations, ConstMultTakesOneWordOfTheElementForEachRow) {
    const LevelledVector v = vector(2);
    const LevelledElement e = element(2);
    LevelledVector out(dimension, 3), inPlace = v;
    primes.constMult(v, e, out);
    primes.constMult(inPlace, e, inPlace);
    EXPECT_EQ(out.getLevel(), 2u);
    for (u64 i = 0; i <= 2; ++i) {
        const u64 p = primes.getPrime(i);
        Words expected;
        for (const u64 x : row(v, i)) expected.push_back(mulMod(x, e[i], p));
        EXPECT_EQ(row(out, i), expected) << "row " << i;
        EXPECT_EQ(row(inPlace, i), expected) << "row " << i;
    }
    EXPECT_REFUSED(primes.constMult(v, element(1), out), differentLevels);
}

TEST_F(LevelledOperations, InnerProductSumsTheProductsOfEachRow) {
    const LevelledVector a = vector(3), b = vector(3);
    LevelledElement out = element(1);
    primes.innerProduct(a, b, out);
    ASSERT_EQ(out.getLevel(), 3u);
    ASSERT_EQ(out.getData().size(), 4u);
    for (u64 i = 0; i <= 3; ++i) {
        BigInt sum = 0;
        for (u64 k = 0; k < dimension; ++k) sum += BigInt(a.getRow(i)[k]) * b.getRow(i)[k];
        EXPECT_EQ(out[i], wordResidueOf(sum, primes.getPrime(i))) << "row " << i;
    }
}

TEST_F(LevelledOperations, InnerProductTakesTheLowerLevelAndLeavesTheRowsAboveAlone) {
    LevelledVector a = vector(3), b = vector(1);
    LevelledElement out = element(3), mirrored = element(3), cut = element(3);
    primes.innerProduct(a, b, out);
    primes.innerProduct(b, a, mirrored);
    a.setLevel(1);
    primes.innerProduct(a, b, cut);
    EXPECT_EQ(out.getLevel(), 1u);
    EXPECT_EQ(wordsOf(out.getData()), wordsOf(cut.getData()));
    EXPECT_EQ(wordsOf(mirrored.getData()), wordsOf(cut.getData()));
    EXPECT_EQ(cut.getData().size(), 2u);
}

TEST_F(LevelledOperations, AnOutputOfAnotherDimensionIsMadeAnew) {
    const LevelledVector a = vector(2), b = vector(2);
    LevelledVector out(3, 1), expected(dimension, 2);
    primes.add(a, b, expected);
    primes.add(a, b, out);
    EXPECT_EQ(out.getDimension(), dimension);
    EXPECT_EQ(wordsOf(out.getData()), wordsOf(expected.getData()));
}

TEST_F(LevelledOperations, ConjugateInvertReversesAndNegatesAroundItsIndex) {
    for (const u64 k : {u64{0}, u64{1}, u64{20}, dimension - 1}) {
        const LevelledVector v = vector(2);
        LevelledVector out(dimension, 3), inPlace = v;
        primes.conjugateInvert(v, out, k);
        primes.conjugateInvert(inPlace, inPlace, k);
        for (u64 i = 0; i <= 2; ++i) {
            Words expected(dimension);
            for (u64 j = 0; j < dimension; ++j) {
                const u64 x = v.getRow(i)[j]; // X^k * X^-j is -X^(n + k - j) for j > k
                expected[(dimension + k - j) % dimension] = j <= k ? x : subMod(0, x, primes.getPrime(i));
            }
            EXPECT_EQ(row(out, i), expected) << "k=" << k << " row " << i;
            EXPECT_EQ(row(inPlace, i), expected) << "k=" << k << " row " << i;
        }
    }
}

TEST_F(LevelledOperations, RescaleDividesByTheTopPrimeAndRounds) {
    for (u64 level = 3; level > 0; --level) {
        std::vector<u64> chain;
        for (u64 i = 0; i <= level; ++i) chain.push_back(primes.getPrime(i));
        LevelledVector v = vector(level);
        LevelledElement e = element(level);
        const auto rescaled = [&](const std::vector<u64>& residues) {
            const BigInt x = chineseRemainder(residues, chain);
            return BigInt((x - centredResidueOf(x, chain[level])) / chain[level]);
        };
        std::vector<BigInt> expected;
        for (u64 k = 0; k < dimension; ++k) {
            std::vector<u64> residues;
            for (u64 i = 0; i <= level; ++i) residues.push_back(v.getRow(i)[k]);
            expected.push_back(rescaled(residues));
        }
        const BigInt expectedElement = rescaled(wordsOf(e.getData()));
        primes.rescale(v);
        primes.rescale(e);
        ASSERT_EQ(v.getLevel(), level - 1);
        ASSERT_EQ(v.getData().size(), level * dimension);
        ASSERT_EQ(e.getLevel(), level - 1);
        ASSERT_EQ(e.getData().size(), level);
        for (u64 i = 0; i < level; ++i) {
            EXPECT_EQ(e[i], wordResidueOf(expectedElement, chain[i])) << "row " << i;
            for (u64 k = 0; k < dimension; ++k)
                EXPECT_EQ(v.getRow(i)[k], wordResidueOf(expected[k], chain[i])) << "row " << i;
        }
    }
}

TEST_F(LevelledOperations, RescaleKeepsTheHeightOfAModUpElement) {
    const PrimeModuli& ring = context->primes;
    LevelledElement e(1000, context, true, 3);
    ring.rescale(e);
    EXPECT_EQ(e.getLevel(), 2u);
    EXPECT_EQ(e.getData().size(), 6u);
    for (u64 i = 0; i <= 2; ++i) EXPECT_EQ(e[i], 0u) << "1000 is nearer to 0 than to a prime";
}

TEST_F(LevelledOperations, OnElementsEqualTheirDefinitions) {
    const LevelledElement a = element(2), b = element(2);
    LevelledElement sum = element(3), difference = a, product = b, negative = a;
    negative[1] = 0;
    primes.negate(negative, negative);
    EXPECT_EQ(negative[0], subMod(0, a[0], primes.getPrime(0)));
    EXPECT_EQ(negative[1], 0u) << "minus zero";
    primes.add(a, b, sum);
    primes.sub(difference, b, difference);
    primes.mult(a, product, product);
    EXPECT_EQ(sum.getLevel(), 2u);
    EXPECT_EQ(sum.getData().size(), 3u);
    for (u64 i = 0; i <= 2; ++i) {
        const u64 p = primes.getPrime(i);
        EXPECT_EQ(sum[i], addMod(a[i], b[i], p));
        EXPECT_EQ(difference[i], subMod(a[i], b[i], p));
        EXPECT_EQ(product[i], mulMod(a[i], b[i], p));
    }
}

TEST_F(LevelledOperations, OnModUpElementsTakeEveryRow) {
    const PrimeModuli& ring = context->primes;
    const LevelledElement a(-5, context, true, 1), b(3, context, true, 1);
    LevelledElement modUp(context, true), plain(context, false);
    ring.mult(a, b, modUp);
    ring.mult(a, b, plain);
    const LevelledElement expected(-15, context, true, 1);
    EXPECT_EQ(wordsOf(modUp.getData()), wordsOf(expected.getData()));
    EXPECT_EQ(wordsOf(plain.getData()), (Words{expected[0], expected[1]}));
}

TEST_F(LevelledOperations, OnElementsRefuseTheirOperandsInOrder) {
    using ElementMember =
        std::function<void(const LevelledElement&, const LevelledElement&, LevelledElement&)>;
    const std::vector<std::pair<std::string, ElementMember>> members{
        {"add", [&](const auto& a, const auto& b, auto& out) { primes.add(a, b, out); }},
        {"sub", [&](const auto& a, const auto& b, auto& out) { primes.sub(a, b, out); }},
        {"mult", [&](const auto& a, const auto& b, auto& out) { primes.mult(a, b, out); }}};
    LevelledElement single = element(2), negative = element(3);
    single.to(secondHost);
    EXPECT_REFUSED(primes.negate(single, negative), notServed);
    single.allocate(pinned);
    EXPECT_REFUSED(primes.negate(single, negative), unsupported("negate"));
    for (const auto& [name, member] : members) {
        LevelledElement a = element(2), b = element(1), out = element(3);
        b.to(secondHost);
        EXPECT_REFUSED(member(a, b, out), differentLevels);
        a.setLevel(1);
        EXPECT_REFUSED(member(a, b, out), differentDevices);
        a.to(secondHost);
        EXPECT_REFUSED(member(a, b, out), notServed);
        a.allocate(pinned);
        b.allocate(pinned);
        EXPECT_REFUSED(member(a, b, out), unsupported(name));
    }
}

TEST_F(LevelledOperations, GiveTheSameWordsFromAnyTeam) {
    const LevelledVector v = vector(3);
    const int before = omp_get_max_threads();
    std::vector<Words> results;
    for (const int threads : {1, 2, 7}) {
        omp_set_num_threads(threads);
        LevelledVector out = v;
        primes.conjugateInvert(out, out, 5);
        primes.rescale(out);
        results.push_back(wordsOf(out.getData()));
    }
    omp_set_num_threads(before);
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[0], results[2]);
}

TEST_F(LevelledOperations, CoefficientsBecomeResidues) {
    DeviceSpecificArray<int> ints(dimension);
    for (u64 k = 0; k < dimension; ++k) ints[k] = static_cast<int>(k % 3) - 1;
    ints[5] = std::numeric_limits<int>::min();
    ints[6] = std::numeric_limits<int>::max();
    LevelledVector v(dimension, 2);
    primes.coefficientsToLevelledVector(ints, v);
    for (u64 i = 0; i <= 2; ++i)
        for (u64 k = 0; k < dimension; ++k)
            EXPECT_EQ(v.getRow(i)[k], wordResidueOf(ints[k], primes.getPrime(i))) << i << ", " << k;
}

TEST_F(LevelledOperations, CoefficientsOfAnotherCountOrDeviceAreRefused) {
    LevelledVector v(dimension, 2);
    DeviceSpecificArray<int> short_(dimension - 1, secondHost, getDefaultStream());
    EXPECT_REFUSED(primes.coefficientsToLevelledVector(short_, v),
                   "[coefficientsToLevelledVector] Input slot size should be equal to the dimension of "
                   "levelled vector.");
    DeviceSpecificArray<int> ints(dimension, secondHost, getDefaultStream());
    EXPECT_REFUSED(primes.coefficientsToLevelledVector(ints, v), differentDevices);
    v.to(secondHost);
    EXPECT_REFUSED(primes.coefficientsToLevelledVector(ints, v), notServed);
    v.allocate(pinned);
    ints = DeviceSpecificArray<int>(dimension, pinned, getDefaultStream());
    EXPECT_REFUSED(primes.coefficientsToLevelledVector(ints, v), unsupported("coefficientsToLevelledVector"));
}

TEST_F(LevelledOperations, CoefficientsForALevelThatTheChainDoesNotHaveAreRefused) {
    LevelledVector v(dimension, primes.size());
    EXPECT_REFUSED(primes.coefficientsToLevelledVector(DeviceSpecificArray<int>(dimension), v),
                   "Operands are not of the ring of the generated context.");
}

} // namespace
} // namespace Torvo::test
