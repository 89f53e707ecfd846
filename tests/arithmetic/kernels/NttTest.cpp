#include "arithmetic/kernels/NTT.hpp"

#include "arithmetic/kernels/Modulus.hpp"

#include "support/Expect.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/Seeded.hpp"
#include "support/TransformOracle.hpp"
#include "support/WideArithmetic.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cfenv>
#include <ctime>
#include <optional>
#include <thread>

namespace Torvo::test {
namespace {

constexpr u64 prime36 = 68719474049, prime51 = 2251799813684737, prime61 = 2305843009213689601;
constexpr u64 primes[] = {257,    prime36, 1125899906840833, prime51, 1152921504606844417,
                          prime61}; // 1 modulo 128

// ---- construction

TEST(NttConstruction, RefusesInItsOrder) {
    EXPECT_REFUSED(NTT(64, prime36 + 2), "Not an NTT-friendly prime given.");
    // 96 is not a power of two either; the prime is checked first.
    EXPECT_REFUSED(NTT(96, prime36), "Not an NTT-friendly prime given.");
    EXPECT_REFUSED(NTT(96, 193), "[NTT] degree must be a power of two.");
    // 33 is also below 64.
    EXPECT_REFUSED(NTT(33, 67), "[NTT] degree must be a power of two.");
    EXPECT_REFUSED(NTT(0, prime36), "[NTT] degree must be a power of two.");
    EXPECT_REFUSED(NTT(32, prime36), "[NTT] degree should be >= 64.");
    EXPECT_REFUSED(NTT(64, 3 * 43), "Not an NTT-friendly prime given."); // has no root, as no prime it is
    EXPECT_NO_THROW(NTT(64, prime36));
}

// One less than this prime is 2^7 times a prime of 54 bits: whoever looks for that by division needs 2^26 of
// them.
TEST(NttConstruction, TakesNoLongerWhereThePrimeLessOneHasALargeFactor) {
    const std::clock_t start = std::clock();
    const NTT ntt(64, 0x1ffffffffff9c781);
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 0.05);
    EXPECT_EQ(widePower(ntt.getPowerTable()[32], 64, 0x1ffffffffff9c781), 0x1ffffffffff9c780U);
}

TEST(NttConstruction, TheRootIsTheSmallestPrimitiveOne) {
    for (u64 p : primes) {
        const NTT ntt(64, p);
        const u64 psi = ntt.getPowerTable()[32]; // rev(1)
        EXPECT_EQ(widePower(psi, 64, p), p - 1) << p;
        for (u64 exponent = 3; exponent < 128; exponent += 2)
            EXPECT_LT(psi, widePower(psi, exponent, p)) << p << " exponent " << exponent;
    }
}

TEST(NttConstruction, TheTablesHoldThePowersInTheirOrderOfUse) {
    for (u64 p : primes) {
        const u64 n = 64;
        const NTT ntt(n, p);
        const u64 psi = ntt.getPowerTable()[n / 2];
        const u64 psiInverse = widePower(psi, p - 2, p);
        ASSERT_EQ(ntt.getPowerTable().size(), n);
        ASSERT_EQ(ntt.getInversePowerTable().size(), n);
        for (u64 i = 0; i < n; ++i) EXPECT_EQ(ntt.getPowerTable()[reversedBits(i, 6)], widePower(psi, i, p));
        EXPECT_EQ(ntt.getInversePowerTable()[0], 1U);
        u64 at = 1;
        for (u64 m = n / 2; m > 0; m /= 2)
            for (u64 i = m; i < 2 * m; ++i, ++at)
                EXPECT_EQ(ntt.getInversePowerTable()[at], widePower(psiInverse, reversedBits(i, 6), p)) << at;
        EXPECT_EQ(wideMul(ntt.getDegreeInverse(), n, p), 1U);
    }
}

TEST(NttConstruction, TheSameNumbersGiveTheSameTables) {
    const NTT first(128, prime61);
    const NTT other(64, prime61);
    const NTT second(128, prime61);
    EXPECT_TRUE(std::equal(first.getPowerTable().begin(), first.getPowerTable().end(),
                           second.getPowerTable().begin(), second.getPowerTable().end()));
    EXPECT_TRUE(std::equal(first.getInversePowerTable().begin(), first.getInversePowerTable().end(),
                           second.getInversePowerTable().begin(), second.getInversePowerTable().end()));
}

// ---- transforms, in every form

class Ntt : public testing::TestWithParam<KernelForm> {
protected:
    void SetUp() override {
        SKIP_UNLESS_PROCESSOR_RUNS(GetParam());
        forced_.emplace(GetParam());
    }

    std::optional<ForcedFeature> forced_;
    Seeded random_{31};
};

INSTANTIATE_TEST_SUITE_P(EveryForm, Ntt, testing::ValuesIn(everyForm), formName);

TEST_P(Ntt, GivesTheValuesAtTheOddPowersInBitReversedOrder) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : primes) {
        const u64 n = 64;
        const NTT ntt(n, p);
        const u64 psi = ntt.getPowerTable()[n / 2];
        const auto coefficients = random_.row(n, p);
        auto values = coefficients;
        ntt.computeForward<1>(values.data());
        for (u64 i = 0; i < n; ++i) {
            const u64 x = widePower(psi, 2 * i + 1, p);
            u64 value = 0; // Horner
            for (u64 j = n; j-- > 0;) value = wideAdd(wideMul(value, x, p), coefficients[j], p);
            ASSERT_EQ(values[reversedBits(i, 6)], value) << "p=" << p << " i=" << i;
        }
    }
}

TEST_P(Ntt, WordwiseProductsOfTransformsAreNegacyclicProducts) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : primes) {
        for (u64 n : {64UL, 128UL}) {
            if ((p - 1) % (2 * n) != 0) continue;
            const NTT ntt(n, p);
            auto a = random_.row(n, p), b = random_.row(n, p);
            const auto expected = negacyclicProduct(a, b, p);
            ntt.computeForward<1>(a.data());
            ntt.computeForward<1>(b.data());
            for (u64 i = 0; i < n; ++i) a[i] = wideMul(a[i], b[i], p);
            ntt.computeBackward<1>(a.data());
            ASSERT_EQ(a, expected) << "p=" << p << " n=" << n;
        }
    }
}

TEST_P(Ntt, TheHighestMonomialTimesXIsMinusOne) {
    const u64 n = 64;
    const NTT ntt(n, prime61);
    std::vector<u64> a(n, 0), b(n, 0), minusOne(n, 0);
    a[n - 1] = b[1] = 1;
    minusOne[0] = prime61 - 1;
    ntt.computeForward<1>(a.data());
    ntt.computeForward<1>(b.data());
    for (u64 i = 0; i < n; ++i) a[i] = wideMul(a[i], b[i], prime61);
    ntt.computeBackward<1>(a.data());
    EXPECT_EQ(a, minusOne);
}

TEST_P(Ntt, BackwardAfterForwardGivesTheRowBack) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : primes) {
        const NTT ntt(64, p);
        for (int trial = 0; trial < 1000; ++trial) {
            const auto row = random_.row(64, p);
            auto transformed = row;
            ntt.computeForward<1>(transformed.data());
            ntt.computeBackward<1>(transformed.data());
            ASSERT_EQ(transformed, row) << "p=" << p << " trial " << trial;
        }
    }
}

TEST_P(Ntt, ForwardAfterBackwardGivesTheRowBackAtEveryDegree) {
    SCOPED_TRACE(random_.describe());
    const u64 p = 0x7fffffc900001; // 1 modulo 2^18
    for (u64 n = 64; n <= 1UL << 17; n *= 2) {
        const NTT ntt(n, p);
        const auto row = random_.row(n, p);
        auto transformed = row;
        ntt.computeBackward<1>(transformed.data());
        ntt.computeForward<1>(transformed.data());
        ASSERT_EQ(transformed, row) << n;
    }
}

/// Rows at the ends of range k and at random in it.
std::vector<std::vector<u64>> rowsInRange(u64 k, u64 n, u64 p, Seeded& random) {
    std::vector<u64> ends(n);
    const u64 choice[] = {0, 1, p - 1, p, 2 * p - 1, k * p - 1, k * p - p, k * p - 2};
    for (u64 i = 0; i < n; ++i) ends[i] = choice[random.below(8)] % (k * p);
    return {random.row(n, k * p), random.row(n, p), ends, std::vector<u64>(n, k * p - 1),
            std::vector<u64>(n, 0)};
}

template <int k>
void expectForwardWords(const NTT& ntt, const std::vector<u64>& row) {
    auto got = row;
    ntt.computeForward<k>(got.data());
    ASSERT_EQ(got, forwardByRule(ntt.getPowerTable(), row, ntt.getPrime(), k))
        << "p=" << ntt.getPrime() << " n=" << row.size() << " k=" << k;
}

template <int k>
void expectBackwardWords(const NTT& ntt, const std::vector<u64>& row) {
    auto got = row;
    ntt.computeBackward<k>(got.data());
    ASSERT_EQ(got, backwardByRule(ntt.getInversePowerTable(), row, ntt.getPrime(), k))
        << "p=" << ntt.getPrime() << " n=" << row.size() << " k=" << k;
}

TEST_P(Ntt, TakesRangeFourForwardAndLeavesTheLazyWordsOfEachRange) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : {prime36, u64{0x7fffffc900001}, u64{0x1fffffffd80001}, u64{0x1ffffffffc000001}}) {
        for (u64 n = 64; n <= 16384 && (p - 1) % (2 * n) == 0; n *= 2) {
            const NTT ntt(n, p);
            for (const auto& row : rowsInRange(4, n, p, random_)) {
                expectForwardWords<1>(ntt, row);
                expectForwardWords<2>(ntt, row);
                expectForwardWords<4>(ntt, row);
            }
        }
    }
}

TEST_P(Ntt, TakesRangeTwoBackwardAndLeavesTheLazyWordsOfEachRange) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : {prime36, u64{0x7fffffc900001}, u64{0x1fffffffd80001}, u64{0x1ffffffffc000001}}) {
        for (u64 n = 64; n <= 16384 && (p - 1) % (2 * n) == 0; n *= 2) {
            const NTT ntt(n, p);
            for (const auto& row : rowsInRange(2, n, p, random_)) {
                expectBackwardWords<1>(ntt, row);
                expectBackwardWords<2>(ntt, row);
            }
        }
    }
}

/// The greatest prime for which the transform runs in floating point, if the processor lets it, and the next.
constexpr u64 greatestInFloat = 2253998836531201, nextAboveFloat = 2253998836940801; // 1 modulo 2^14
/// Those next to 2^50, where some forms need fewer reductions.
constexpr u64 belowTwoTo50 = 1125899904679937, aboveTwoTo50 = 1125899908022273;

TEST_P(Ntt, FloatingPointEndsAtItsGreatestPrime) {
    EXPECT_FALSE(NTT(64, nextAboveFloat).runsInFloatingPoint());
    EXPECT_EQ(NTT(64, greatestInFloat).runsInFloatingPoint(), GetParam() >= KernelForm::FMA);
}

TEST_P(Ntt, RowsThatStretchTheBoundsOfFloatingPointTransformExactly) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : {greatestInFloat, nextAboveFloat, belowTwoTo50, aboveTwoTo50, u64{65537}}) {
        for (u64 n : {64UL, 128UL, 256UL, 512UL, 4096UL, 8192UL}) {
            const NTT ntt(n, p);
            for (u64 word : {p / 2, p / 2 + 1, p - 1, p, 2 * p - 1, 4 * p - 1}) {
                expectForwardWords<1>(ntt, std::vector<u64>(n, word));
                expectBackwardWords<1>(ntt, std::vector<u64>(n, word % (2 * p)));
            }
            for (int trial = 0; trial < 20; ++trial) {
                std::vector<u64> middles(n); // both sides of p / 2, where magnitudes are greatest
                for (u64& word : middles) word = p / 2 + random_.below(2) + random_.below(2) * p;
                expectForwardWords<1>(ntt, middles);
                expectBackwardWords<1>(ntt, middles);
                ntt.computeForward<1>(middles.data()); // so that the way back meets it in coefficients
                expectBackwardWords<1>(ntt, middles);
            }
        }
    }
}

/// Next to 2^59, below which integer forms reduce words in every second stage only.
constexpr u64 belowTwoTo59 = 576460752302473217, aboveTwoTo59 = 576460752304439297; // 1 modulo 2^15

TEST_P(Ntt, WordsThatGrowOverTwoStagesTransformExactly) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : {belowTwoTo59, aboveTwoTo59}) {
        for (u64 n : {64UL, 128UL, 256UL, 512UL, 4096UL, 8192UL, 16384UL}) {
            const NTT ntt(n, p);
            for (const auto& row : rowsInRange(4, n, p, random_)) expectForwardWords<1>(ntt, row);
            for (const auto& row : rowsInRange(2, n, p, random_)) expectBackwardWords<1>(ntt, row);
            // The images of monomials are powers of the root: no word stays small for long.
            for (u64 i = 0; i < n; i += n / 8 + 1) {
                std::vector<u64> monomial(n);
                monomial[i] = p - 1;
                expectForwardWords<1>(ntt, monomial);
                expectBackwardWords<1>(ntt, monomial);
            }
        }
    }
}

TEST_P(Ntt, TheRoundingModeOfTheCallerChangesNoWord) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : {greatestInFloat, belowTwoTo50}) {
        for (u64 n : {64UL, 1024UL}) {
            const NTT ntt(n, p);
            for (int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
                const auto row = random_.row(n, 2 * p);
                auto forward = row, backward = row;
                ASSERT_EQ(std::fesetround(mode), 0);
                ntt.computeForward<1>(forward.data());
                ntt.computeBackward<1>(backward.data());
                std::fesetround(FE_TONEAREST);
                EXPECT_EQ(forward, forwardByRule(ntt.getPowerTable(), row, p, 1)) << p << " " << n;
                EXPECT_EQ(backward, backwardByRule(ntt.getInversePowerTable(), row, p, 1)) << p << " " << n;
            }
        }
    }
}

TEST_P(Ntt, ARowCloseToTheSignBitComparesCorrectly) {
    const u64 p = prime61; // 4p - 1 is a little below 2^63
    const NTT ntt(64, p);
    for (u64 distance = 0; distance < 4; ++distance) {
        const std::vector<u64> row(64, 4 * p - 1 - distance);
        expectForwardWords<1>(ntt, row);
        expectForwardWords<4>(ntt, row);
    }
}

TEST_P(Ntt, IsLinear) {
    SCOPED_TRACE(random_.describe());
    const u64 p = 0x7fffffc900001, n = 8192;
    const NTT ntt(n, p);
    auto a = random_.row(n, p), b = random_.row(n, p);
    std::vector<u64> sum(n);
    for (u64 i = 0; i < n; ++i) sum[i] = wideAdd(a[i], b[i], p);
    ntt.computeForward<1>(a.data());
    ntt.computeForward<1>(b.data());
    ntt.computeForward<1>(sum.data());
    for (u64 i = 0; i < n; ++i) ASSERT_EQ(sum[i], wideAdd(a[i], b[i], p)) << i;
}

TEST_P(Ntt, ServesManyThreadsAtOnce) {
    SCOPED_TRACE(random_.describe());
    const u64 n = 4096;
    const NTT ntt(n, 0x7fffffc900001);
    std::vector<std::vector<u64>> rows, expected;
    for (int i = 0; i < 8; ++i) {
        rows.push_back(random_.row(n, ntt.getPrime()));
        expected.push_back(forwardByRule(ntt.getPowerTable(), rows.back(), ntt.getPrime(), 1));
    }
    std::vector<std::thread> threads;
    for (auto& row : rows) threads.emplace_back([&] { ntt.computeForward<1>(row.data()); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(rows, expected);
}

// ---- single stages

TEST(NttStages, TheForwardStagesMakeUpTheTransform) {
    Seeded random(32);
    SCOPED_TRACE(random.describe());
    const u64 n = 256;
    const NTT ntt(n, 0x1ffffffffc000001);
    const auto row = random.row(n, 4 * ntt.getPrime());
    auto staged = row;
    for (u64 t = n / 2; t > 0; t /= 2) ntt.computeForwardNativeSingleStep(staged.data(), t);
    EXPECT_EQ(staged, forwardByRule(ntt.getPowerTable(), row, ntt.getPrime(), 4));
}

TEST(NttStages, TheBackwardStagesMakeUpTheTransform) {
    Seeded random(33);
    SCOPED_TRACE(random.describe());
    const u64 n = 256;
    const NTT ntt(n, 0x1ffffffffc000001);
    const auto row = random.row(n, 2 * ntt.getPrime());
    auto staged = row;
    for (u64 t = 1; t < n / 2; t *= 2) ntt.computeBackwardNativeSingleStep(staged.data(), t);
    ntt.computeBackwardNativeLast(staged.data());
    EXPECT_EQ(staged, backwardByRule(ntt.getInversePowerTable(), row, ntt.getPrime(), 2));
}

} // namespace
} // namespace Torvo::test
