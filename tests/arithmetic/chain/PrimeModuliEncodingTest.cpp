#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/Expect.hpp"
#include "support/NaiveRing.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Message.hpp>

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <vector>

namespace Torvo::test {
namespace {

constexpr Device pinned{DeviceType::PinnedHost, 0};
constexpr Device gpu{DeviceType::GPU, 0};
constexpr Device secondHost{DeviceType::CPU, 1};

constexpr auto differentDevices = "Operands are in different devices.";
constexpr auto notServed =
    "The generated context does not support the operation with current operands; check the device.";
constexpr auto doesNotDivide =
    "[embeddingToN] The degree of polynomial should be divided by the size of message.";
constexpr auto missesPolyVector =
    "[coefficientsToPolyVector] Input slot size should be equal to the dimension of the polynomial vector.";

class Embedding : public testing::Test {
protected:
    const Context context = makeContext(6, 4, 50, 40, 51, 2, {});
    const Ring ring = ringOf(context);
    const PrimeModuli& primes = context->primes;
    Seeded random{61};

    /// The integer that a value becomes: the product and the half added to it are rounded to doubles, and
    /// what follows is exact.
    static BigInt rounded(double value, double scale) {
        const double product = scale * value;
        return BigInt(std::trunc(product > 0.0 ? product + 0.5 : product - 0.5));
    }

    void expectEmbedded(const Polynomial& out, const std::vector<double>& values, double scale) const {
        const u64 gap = ring.degree / values.size();
        for (u64 i = 0; i <= out.getLevel(); ++i) {
            for (u64 k = 0; k < ring.degree; ++k) {
                const BigInt expected = k % gap == 0 ? rounded(values[k / gap], scale) : BigInt(0);
                ASSERT_EQ(out.getRow(i)[k], wordResidueOf(expected, primes.getPrime(i))) << i << ", " << k;
            }
        }
    }
};

TEST_F(Embedding, RoundsHalfAwayFromZero) {
    Polynomial out(context, false, true);
    const std::vector<double> values{0.5, -0.5, 0.49, -0.49, 1.5, -1.5, 0.0, -0.0};
    primes.embeddingToN(values.data(), values.size(), 1.0, out);
    EXPECT_FALSE(out.isNTT());
    for (u64 i = 0; i < ring.numBase; ++i) {
        const u64 p = primes.getPrime(i);
        const Words expected{1, p - 1, 0, 0, 2, p - 2, 0, 0};
        for (u64 j = 0; j < values.size(); ++j) EXPECT_EQ(out.getRow(i)[8 * j], expected[j]) << values[j];
    }
}

TEST_F(Embedding, EqualsTheExactReductionAtEveryStrideAndMagnitude) {
    SCOPED_TRACE(random.describe());
    for (u64 n = 1; n <= ring.degree; n *= 2) {
        for (const double scale : {1.0, 0x1p40, 0x1.23456789abcdp90, 0x1p120}) {
            std::vector<double> values;
            for (u64 j = 0; j < n; ++j) values.push_back(random.real(-100.0, 100.0));
            Polynomial out = untouchedPolynomial(context, false, true, 2);
            primes.embeddingToN(values.data(), n, scale, out);
            EXPECT_EQ(out.getLevel(), 2u);
            expectEmbedded(out, values, scale);
        }
    }
}

/// Where the numbers stop to be words, and where words reach the primes.
TEST_F(Embedding, EqualsTheExactReductionOnBothSidesOfAWord) {
    const std::vector<std::vector<double>> lists{{0x1.fffffffffffffp62, -0x1.fffffffffffffp62},
                                                 {0x1p63, 1.0},
                                                 {-0x1p63, 1.0},
                                                 {0x1p62, -0x1p62},
                                                 {static_cast<double>(primes.getPrime(1)), -0.3},
                                                 {0.3, static_cast<double>(primes.getPrime(1) - 1)}};
    for (const auto& values : lists) {
        Polynomial out = untouchedPolynomial(context, false, true, 3);
        primes.embeddingToN(values.data(), values.size(), 1.0, out);
        expectEmbedded(out, values, 1.0);
    }
}

TEST_F(Embedding, InTheNTTDomainIsTheTransformOfTheProductsWithTheFactors) {
    SCOPED_TRACE(random.describe());
    for (const u64 n : {u64{1}, u64{8}, ring.degree}) {
        for (const double scale : {0x1p30, 0x1p90}) {
            std::vector<double> values;
            for (u64 j = 0; j < n; ++j) values.push_back(random.real(-100.0, 100.0));
            Polynomial plain(context, false, false), out = untouchedPolynomial(context, false, false, 3);
            plain.setLevel(3);
            DeviceSpecificArray<u64> factors(4);
            for (u64 i = 0; i < 4; ++i) factors[i] = random.below(primes.getPrime(i));
            primes.embeddingToN(values.data(), n, scale, plain);
            const RoundedNumbers numbers = primes.roundToN(values.data(), n, scale, out);
            primes.spreadToN(numbers, factors, true, out);
            EXPECT_TRUE(out.isNTT());
            for (u64 i = 0; i < 4; ++i) {
                const u64 p = primes.getPrime(i);
                Words expected = rowOf(plain, i);
                for (u64& word : expected) word = mulMod(word, factors[i], p);
                EXPECT_EQ(rowOf(out, i), naiveTransform(ring.degree, p).forward(expected)) << i;
            }
        }
    }
}

TEST_F(Embedding, GivesTheNearestOf128BitsToWhatTheyCannotHold) {
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> values{0x1p127, -0x1p127, 0x1p200, -0x1p200, infinity, -infinity, 0x1p126, 1.0};
    Polynomial out(context, false, false);
    primes.embeddingToN(values.data(), values.size(), 1.0, out);
    const BigInt limit = BigInt(1) << 127, most = limit - 1;
    const std::vector<BigInt> expected{most, -limit, most, -limit, most, -limit, limit / 2, 1};
    for (u64 i = 0; i < ring.numBase; ++i)
        for (u64 j = 0; j < values.size(); ++j)
            EXPECT_EQ(out.getRow(i)[8 * j], wordResidueOf(expected[j], primes.getPrime(i))) << values[j];
}

TEST_F(Embedding, OfAMessagePutsTheRealPartsBeforeTheImaginaryParts) {
    SCOPED_TRACE(random.describe());
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
        const Message message = random.message(logSlots, 10.0);
        std::vector<double> values;
        for (const auto& slot : message) values.push_back(slot.real());
        for (const auto& slot : message) values.push_back(slot.imag());
        Polynomial out = untouchedPolynomial(context, false, true, 3);
        primes.embeddingToN(message, 0x1p45, out);
        EXPECT_FALSE(out.isNTT());
        expectEmbedded(out, values, 0x1p45);
    }
}

TEST_F(Embedding, GivesTheSameWordsFromAnyTeam) {
    const Message message = random.message(5, 10.0);
    const int before = omp_get_max_threads();
    std::vector<Polynomial> results;
    for (const int threads : {1, 2, 7}) {
        omp_set_num_threads(threads);
        results.emplace_back(context, false, false);
        primes.embeddingToN(message, 0x1p100, results.back());
    }
    omp_set_num_threads(before);
    for (u64 i = 0; i < ring.numBase; ++i) {
        EXPECT_EQ(rowOf(results[0], i), rowOf(results[1], i));
        EXPECT_EQ(rowOf(results[0], i), rowOf(results[2], i));
    }
}

TEST_F(Embedding, RefusesACountThatDoesNotDivideTheDegree) {
    const std::vector<double> values(128);
    Polynomial out(context, false, true);
    for (const u64 n : {0, 3, 65, 128})
        EXPECT_REFUSED(primes.embeddingToN(values.data(), n, 1.0, out), doesNotDivide);
    EXPECT_FALSE(out.isNTT());
    EXPECT_REFUSED(primes.embeddingToN(Message(6, 1.0), 1.0, out), doesNotDivide);
    EXPECT_REFUSED(primes.embeddingToN(Message(), 1.0, out), doesNotDivide);
}

TEST_F(Embedding, RefusesDevicesBeforeCounts) {
    const PrimeModuli served(CustomSizes{6, 4, 50, 40, 51, 2}, {pinned});
    const std::vector<double> values(3);
    Polynomial out(context, false, true);
    out.setData(DeviceSpecificArray<u64>(0, gpu, getDefaultStream()));
    EXPECT_REFUSED(primes.embeddingToN(values.data(), 3, 1.0, out),
                   "[embeddingToN] not yet implemented on GPU");
    EXPECT_FALSE(out.isNTT());
    out = Polynomial(context, false, true);
    out.allocate(pinned);
    EXPECT_REFUSED(primes.embeddingToN(values.data(), 3, 1.0, out), notServed);
    EXPECT_REFUSED(served.embeddingToN(values.data(), 3, 1.0, out),
                   "Cannot support the function 'embeddingToN' in the current build configuration");

    Polynomial host(context, false, true);
    Message message(6, 1.0);
    message.to(secondHost);
    EXPECT_REFUSED(primes.embeddingToN(message, 1.0, host), notServed);
    message.allocate(pinned);
    EXPECT_REFUSED(served.embeddingToN(message, 1.0, host),
                   "Cannot support the function 'embeddingToN' in the current build configuration");
}

TEST_F(Embedding, CoefficientsBecomeTransformedPolynomials) {
    for (const bool modUp : {false, true}) {
        DeviceSpecificArray<int> ints(2 * ring.degree);
        for (int& x : ints) x = static_cast<int>(random.below(3)) - 1;
        ints[0] = std::numeric_limits<int>::min();
        ints[ring.degree] = std::numeric_limits<int>::max();
        PolynomialVector polys(context, 2, modUp, false);
        polys.setLevel(2);
        primes.coefficientsToPolyVector(ints, polys);
        EXPECT_TRUE(polys.isNTT());
        EXPECT_EQ(polys.getLevel(), 2u);
        for (u64 j = 0; j < 2; ++j) {
            for (u64 i = 0; i < polys.getPoly(j).rowEnd(); ++i) {
                if (!polys.getPoly(j).isLiveRow(i)) continue;
                const u64 p = primes.getPrime(i);
                Words coefficients;
                for (u64 k = 0; k < ring.degree; ++k)
                    coefficients.push_back(wordResidueOf(ints[j * ring.degree + k], p));
                EXPECT_EQ(rowOf(polys.getPoly(j), i), naiveTransform(ring.degree, p).forward(coefficients));
            }
        }
    }
}

TEST_F(Embedding, CoefficientsOfAnotherCountOrDeviceAreRefused) {
    PolynomialVector polys(context, 2, false, false);
    DeviceSpecificArray<int> ints(2 * ring.degree - 1, secondHost, getDefaultStream());
    EXPECT_REFUSED(primes.coefficientsToPolyVector(ints, polys), missesPolyVector);
    PolynomialVector none(context, 0, false, false);
    EXPECT_REFUSED(primes.coefficientsToPolyVector(ints, none), missesPolyVector);
    EXPECT_NO_THROW(primes.coefficientsToPolyVector(DeviceSpecificArray<int>(), none));
    ints = DeviceSpecificArray<int>(2 * ring.degree, secondHost, getDefaultStream());
    EXPECT_REFUSED(primes.coefficientsToPolyVector(ints, polys), differentDevices);
    polys.to(secondHost);
    EXPECT_REFUSED(primes.coefficientsToPolyVector(ints, polys), notServed);
    const PrimeModuli served(CustomSizes{6, 4, 50, 40, 51, 2}, {pinned});
    polys.allocate(pinned);
    ints = DeviceSpecificArray<int>(2 * ring.degree, pinned, getDefaultStream());
    EXPECT_REFUSED(served.coefficientsToPolyVector(ints, polys),
                   "Cannot support the function 'coefficientsToPolyVector' in the current build "
                   "configuration");
}

} // namespace
} // namespace Torvo::test
