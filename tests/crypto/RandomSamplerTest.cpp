#include "crypto/RandomSampler.hpp"

#include "context/ContextContent.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/ChiSquare.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/NewThread.hpp"
#include "support/Sanitizer.hpp"
#include "support/ScriptedEntropy.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <new>
#include <numbers>
#include <omp.h>
#include <set>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using Seed = std::array<unsigned long, 4>;
constexpr Seed pinnedSeed{0x0123456789abcdef, 0xfedcba9876543210, 0x0f1e2d3c4b5a6978, 0x8796a5b4c3d2e1f0};
/// Not a residue: marks a row that was not written.
constexpr u64 untouched = ~u64{0};

const Context& toy() {
    static const Context context = makeContext(ParameterPreset::FX);
    return context;
}

/// Dimension 1000; three primes.
const LWE::Context& plain() {
    static const LWE::Context context = LWE::makeContext(1000, 3, 50, 40);
    return context;
}

/// A polynomial whose rows are all marked.
Polynomial marked(bool modUp, u64 level, bool isNTT = true) {
    Polynomial poly(toy(), modUp, isNTT);
    poly.setLevel(level);
    std::fill(poly.getData().begin(), poly.getData().end(), untouched);
    return poly;
}

/// The next words of a generator of the pinned seed, which the samplers are expected to have used.
std::vector<u64> pinnedWords(u64 count) {
    std::vector<u64> words(count);
    setSeed(pinnedSeed);
    threadGenerator().getRandomNumbers(words.data(), count);
    setSeed(pinnedSeed);
    return words;
}

/// The signed integer of which `residue` is the residue, if it is a small one.
long centred(u64 residue, u64 prime) {
    return residue > prime / 2 ? -static_cast<long>(prime - residue) : static_cast<long>(residue);
}

std::vector<long> smallCoefficients(const Polynomial& poly) {
    std::vector<long> values;
    for (u64 k = 0; k < poly.getDegree(); ++k)
        values.push_back(centred(poly.getRow(0)[k], poly.getPrimes()[0]));
    return values;
}

void expectSameInAllRows(const Polynomial& poly) {
    const auto values = smallCoefficients(poly);
    for (u64 i = 0; i < poly.rowEnd(); ++i) {
        for (u64 k = 0; k < poly.getDegree(); ++k) {
            ASSERT_LT(poly.getRow(i)[k], poly.getPrimes()[i]) << "row " << i;
            ASSERT_EQ(centred(poly.getRow(i)[k], poly.getPrimes()[i]), values[k]) << "row " << i;
        }
    }
}

class OneThread {
public:
    OneThread() { omp_set_num_threads(1); }
    ~OneThread() { omp_set_num_threads(omp_get_num_procs()); }
};

TEST(SampleUniform, FillsTheLiveRowsWithResiduesAndLeavesTheFlags) {
    for (const bool isNTT : {false, true}) {
        Polynomial poly = marked(false, 3, isNTT);
        RandomSampler().sampleUniform(poly, toy());
        EXPECT_EQ(poly.isNTT(), isNTT);
        EXPECT_EQ(poly.getLevel(), 3U);
        EXPECT_EQ(poly.getData().size(), 4 * poly.getDegree());
        for (u64 i = 0; i <= 3; ++i)
            for (u64 k = 0; k < poly.getDegree(); ++k) ASSERT_LT(poly.getRow(i)[k], poly.getPrimes()[i]);
    }
}

TEST(SampleUniform, FillsAllRowsOfAModUpPolynomial) {
    Polynomial poly = marked(true, 3);
    RandomSampler().sampleUniform(poly, toy());
    for (u64 i = 0; i < poly.getNumRows(); ++i)
        for (u64 k = 0; k < poly.getDegree(); ++k)
            ASSERT_LT(poly.getRow(i)[k], poly.getPrimes()[i]) << "row " << i;
}

// One row: the row's words first, then the replacements in the order in which they are needed, if any are.
TEST(SampleUniform, OneThreadFollowsTheWordsOfItsGenerator) {
    const OneThread oneThread;
    Polynomial poly = marked(false, 0);
    const u64 degree = poly.getDegree(), prime = poly.getPrimes()[0];
    const u64 bias = static_cast<u64>((static_cast<u128>(1) << 64) % prime);
    const auto words = pinnedWords(100 * degree + 1000);
    u64 next = 0;
    for (int round = 0; round < 50; ++round) {
        RandomSampler().sampleUniform(poly, toy());
        const u64 first = next;
        next += degree;
        for (u64 k = 0; k < degree; ++k) {
            u64 word = words[first + k];
            while (word < bias) word = words[next++];
            ASSERT_EQ(poly.getRow(0)[k], word % prime) << round << ":" << k;
        }
    }
}

// 64 equal ranges of the residues of the first prime; the seed is fixed, the bound 6 deviations. (The ranges
// differ from p / 64 by less than one in 2^50.)
TEST(SampleUniform, ResiduesAreUniform) {
    const OneThread oneThread;
    setSeed(pinnedSeed);
    Polynomial poly = marked(false, 0);
    std::vector<double> counts(64);
    for (int round = 0; round < 1000; ++round) {
        RandomSampler().sampleUniform(poly, toy());
        for (u64 k = 0; k < poly.getDegree(); ++k)
            counts[static_cast<u64>(static_cast<u128>(poly.getRow(0)[k]) * 64 / poly.getPrimes()[0])] += 1.0;
    }
    EXPECT_LT(std::abs(test::chiSquareDeviation(counts)), 6.0);
}

/// Runs body() on a new thread whose team of four, new too, has no generators yet.
template <class Body>
void withNewTeam(Body&& body) {
    test::onNewThread([&] {
        omp_set_num_threads(4);
        body();
    });
}

void expectUntouched(const Polynomial& poly) {
    for (const u64 word : poly.getData()) ASSERT_EQ(word, untouched);
}

TEST(SampleUniform, DrawsNothingWhereAWorkerCannotSeedItsGenerator) {
    withNewTeam([] {
        setSeed(pinnedSeed);
        const std::string state = threadGenerator().getState();
        Polynomial poly = marked(false, 5);
        {
            const test::ScriptedEntropy entropy(
                {.kernelError = EPERM, .whose = test::ScriptedEntropy::Thread::Others});
            EXPECT_REFUSED(
                RandomSampler().sampleUniform(poly, toy()),
                "Cannot seed the random generator: getrandom failed (Operation not permitted). Let "
                "the process use this source, which a sandbox may forbid, and try again.");
            expectUntouched(poly);
            EXPECT_EQ(threadGenerator().getState(), state);
            LevelledVector vector(plain());
            EXPECT_THROW(RandomSampler().sampleUniform(vector, plain()), RuntimeException);
            EXPECT_EQ(threadGenerator().getState(), state);
        }
        RandomSampler().sampleUniform(poly, toy());
        for (u64 i = 0; i <= 5; ++i) EXPECT_LT(poly.getRow(i)[0], poly.getPrimes()[i]);
    });
}

TEST(SampleUniform, DrawsNothingWhereAWorkerHasNoMemoryForItsWords) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    u64 failures = 0;
    for (bool hasFailed = true; hasFailed;) {
        withNewTeam([&] {
            setSeed(pinnedSeed);
            const std::string state = threadGenerator().getState();
            Polynomial poly = marked(false, 5);
            {
                const test::FailingAllocation failing(failures, test::FailingAllocation::Thread::Others);
                try {
                    RandomSampler().sampleUniform(poly, toy());
                } catch (const std::bad_alloc&) {
                    ++failures;
                    EXPECT_EQ(threadGenerator().getState(), state);
                    expectUntouched(poly);
                }
                hasFailed = failing.hasFailed();
            }
            RandomSampler().sampleUniform(poly, toy());
            for (u64 i = 0; i <= 5; ++i) EXPECT_LT(poly.getRow(i)[0], poly.getPrimes()[i]);
        });
        ASSERT_LT(failures, 100U);
    }
    EXPECT_EQ(failures, 3U) << "one for each worker";
}

TEST(SampleUniform, WorksInsideAParallelRegion) {
    std::array<Polynomial, 4> polys;
    for (auto& poly : polys) poly = marked(true, 5);
#pragma omp parallel for num_threads(4)
    for (u64 i = 0; i < polys.size(); ++i) RandomSampler().sampleUniform(polys[i], toy());
    std::set<u64> firstWords;
    for (const auto& poly : polys) {
        for (u64 i = 0; i < poly.getNumRows(); ++i) ASSERT_LT(poly.getRow(i)[0], poly.getPrimes()[i]);
        firstWords.insert(poly.getRow(0)[0]);
    }
    EXPECT_EQ(firstWords.size(), polys.size());
}

// From the generator's words as b3sum gives them, by Python's math functions; none lies within 1e-6 of a
// half.
TEST(SampleGaussian, DrawsThePinnedCoefficients) {
    const std::vector<long> known{-1, 0, -4, -4, 1, 6, 0, 4, 5,  1, -3, -4,
                                  -5, 0, 2,  -3, 1, 0, 2, 2, -4, 0, 0,  -6};
    setSeed(pinnedSeed);
    Polynomial poly = marked(false, 1);
    RandomSampler().sampleGaussian(poly, toy());
    auto values = smallCoefficients(poly);
    values.resize(known.size());
    EXPECT_EQ(values, known);
}

// Half a unit from rounding, and the error of six double operations on a value below 22: far below 1e-12.
TEST(SampleGaussian, RoundsTheBoxMullerPairOfEveryWord) {
    Polynomial poly = marked(false, 0);
    const u64 degree = poly.getDegree();
    const auto words = pinnedWords(100 * degree / 2);
    const long double unit = 0x1p-32L, turn = 2 * std::numbers::pi_v<long double>;
    for (u64 round = 0; round < 100; ++round) {
        RandomSampler().sampleGaussian(poly, toy());
        const auto values = smallCoefficients(poly);
        for (u64 k = 0; k < degree; k += 2) {
            const u64 word = words[(round * degree + k) / 2];
            const long double theta = static_cast<long double>(word >> 32) * unit * turn;
            const long double r =
                std::sqrt(-2.0L * std::log((static_cast<long double>(word & 0xffffffff) + 1) * unit));
            ASSERT_NEAR(static_cast<double>(3.2L * r * std::cos(theta)), values[k], 0.5 + 1e-12);
            ASSERT_NEAR(static_cast<double>(3.2L * r * std::sin(theta)), values[k + 1], 0.5 + 1e-12);
        }
    }
}

// n = 64000 draws of a rounded normal of deviation 3.2, whose variance is v = 3.2^2 + 1/12 to within 1e-40.
// The mean deviates by sqrt(v / n), the variance by v * sqrt(2 / n): the bounds are 6 of them.
TEST(SampleGaussian, MeanAndVarianceAreThoseOfTheRoundedNormal) {
    setSeed(pinnedSeed);
    Polynomial poly = marked(false, 0);
    double sum = 0.0, squares = 0.0, n = 0.0;
    for (int round = 0; round < 1000; ++round) {
        RandomSampler().sampleGaussian(poly, toy());
        for (const long value : smallCoefficients(poly)) {
            sum += static_cast<double>(value);
            squares += static_cast<double>(value * value);
            n += 1.0;
        }
    }
    const double variance = 3.2 * 3.2 + 1.0 / 12.0;
    EXPECT_NEAR(sum / n, 0.0, 6 * std::sqrt(variance / n));
    EXPECT_NEAR(squares / n, variance, 6 * variance * std::sqrt(2.0 / n));
}

TEST(SampleGaussian, AllLiveRowsHoldTheSamePolynomialInCoefficientForm) {
    for (const bool modUp : {false, true}) {
        Polynomial poly = marked(modUp, 4);
        RandomSampler().sampleGaussian(poly, toy());
        EXPECT_FALSE(poly.isNTT());
        EXPECT_EQ(poly.getLevel(), 4U);
        expectSameInAllRows(poly);
    }
}

TEST(SampleGaussian, IsReproducibleWithAnyNumberOfThreads) {
    Polynomial one = marked(true, 4), many = marked(true, 4);
    {
        const OneThread oneThread;
        setSeed(pinnedSeed);
        RandomSampler().sampleGaussian(one, toy());
    }
    omp_set_num_threads(5);
    setSeed(pinnedSeed);
    RandomSampler().sampleGaussian(many, toy());
    omp_set_num_threads(omp_get_num_procs());
    EXPECT_TRUE(std::equal(one.getData().begin(), one.getData().end(), many.getData().begin()));
}

// The first 32 coefficients come from word 0 of the generator, as b3sum gives it, by a script of two lines.
TEST(SampleZO, DrawsThePinnedCoefficients) {
    const std::vector<long> known{-1, 1, -1, -1, -1, -1, 1,  1, 0,  0, 0, -1, 1,  0, 1, 1,
                                  -1, 0, -1, 1,  -1, 1,  -1, 0, -1, 1, 0, 0,  -1, 0, 1, 0};
    setSeed(pinnedSeed);
    Polynomial poly = marked(false, 1);
    RandomSampler().sampleZO(poly, toy());
    auto values = smallCoefficients(poly);
    values.resize(known.size());
    EXPECT_EQ(values, known);
    EXPECT_EQ(threadGenerator().getIndex(), poly.getDegree() / 32);
}

TEST(SampleZO, AllLiveRowsHoldTheSamePolynomialInCoefficientForm) {
    for (const bool modUp : {false, true}) {
        Polynomial poly = marked(modUp, 4);
        RandomSampler().sampleZO(poly, toy());
        EXPECT_FALSE(poly.isNTT());
        expectSameInAllRows(poly);
    }
}

TEST(SampleZO, HalfOfTheCoefficientsAreZeroAndAQuarterEachSign) {
    setSeed(pinnedSeed);
    Polynomial poly = marked(false, 0);
    std::array<double, 3> counts{};
    double n = 0.0;
    for (int round = 0; round < 1000; ++round) {
        RandomSampler().sampleZO(poly, toy());
        for (const long value : smallCoefficients(poly)) {
            ASSERT_LE(std::abs(value), 1);
            counts[static_cast<u64>(value + 1)] += 1.0;
            n += 1.0;
        }
    }
    EXPECT_LT(std::abs(test::binomialDeviation(counts[0], n, 0.25)), 6.0);
    EXPECT_LT(std::abs(test::binomialDeviation(counts[1], n, 0.5)), 6.0);
    EXPECT_LT(std::abs(test::binomialDeviation(counts[2], n, 0.25)), 6.0);
}

/// Positions and signs, by the plain reading of the words.
std::vector<int> weightFromWords(const std::vector<u64>& words, u64 size, u64 weight) {
    std::vector<int> out(size);
    const u64 bias = static_cast<u64>((static_cast<u128>(1) << 64) % size);
    u64 next = 0;
    while (weight > 0) {
        u64 word = words.at(next++);
        while (word < bias) word = words.at(next++);
        if (out[word % size] != 0) continue;
        out[word % size] = words.at(next++) % 2 == 1 ? 1 : -1;
        --weight;
    }
    return out;
}

TEST(SampleHWT, DrawsThePinnedPositionsAndSigns) {
    const std::vector<std::pair<u64, int>> known{{0, 1},   {6, -1},  {10, 1},  {14, 1}, {25, -1}, {32, -1},
                                                 {36, -1}, {37, -1}, {38, -1}, {44, 1}, {45, -1}, {46, 1},
                                                 {50, 1},  {59, -1}, {61, 1},  {62, -1}};
    std::vector<int> expected(64);
    for (const auto& [position, sign] : known) expected[position] = sign;
    setSeed(pinnedSeed);
    DeviceSpecificArray<int> out(0);
    RandomSampler().sampleHWT(out, 64, 16);
    ASSERT_EQ(out.size(), 64U);
    EXPECT_EQ(std::vector<int>(out.begin(), out.end()), expected);
}

TEST(SampleHWT, FollowsTheWordsForEverySizeAndWeight) {
    DeviceSpecificArray<int> out(1000);
    std::fill(out.begin(), out.end(), 7);
    for (const u64 size : {1UL, 2UL, 3UL, 64UL, 192UL, 1000UL, 4096UL}) {
        for (const u64 weight : {u64{0}, u64{1}, size / 2, size}) {
            const auto words = pinnedWords(200000);
            RandomSampler().sampleHWT(out, size, weight);
            ASSERT_EQ(out.size(), size);
            EXPECT_EQ(std::vector<int>(out.begin(), out.end()), weightFromWords(words, size, weight))
                << size << ", " << weight;
        }
    }
}

TEST(SampleHWT, OfNothingDrawsNothing) {
    setSeed(pinnedSeed);
    DeviceSpecificArray<int> out(5);
    RandomSampler().sampleHWT(out, 0, 0);
    EXPECT_EQ(out.size(), 0U);
    EXPECT_EQ(threadGenerator().getIndex(), 0U);
}

TEST(SampleHWT, ExactlyWeightEntriesAreSet) {
    DeviceSpecificArray<int> out(0);
    for (u64 weight = 0; weight <= 64; ++weight) {
        RandomSampler().sampleHWT(out, 64, weight);
        u64 set = 0;
        for (const int value : out) {
            ASSERT_LE(std::abs(value), 1);
            set += value != 0 ? 1 : 0;
        }
        EXPECT_EQ(set, weight);
    }
}

// One position out of 64, 64000 times; and its sign.
TEST(SampleHWT, PositionsAndSignsAreUniform) {
    setSeed(pinnedSeed);
    DeviceSpecificArray<int> out(0);
    std::vector<double> positions(64);
    double positive = 0.0;
    for (int round = 0; round < 64000; ++round) {
        RandomSampler().sampleHWT(out, 64, 1);
        const auto* set = std::find_if(out.begin(), out.end(), [](int value) { return value != 0; });
        positions[static_cast<u64>(set - out.begin())] += 1.0;
        if (*set == 1) positive += 1.0;
    }
    EXPECT_LT(std::abs(test::chiSquareDeviation(positions)), 6.0);
    EXPECT_LT(std::abs(test::binomialDeviation(positive, 64000, 0.5)), 6.0);
}

TEST(SampleUniform, OfAVectorFollowsTheWordsRowByRow) {
    const auto primes = LWE::getPrimeList(plain());
    LevelledVector vector(plain());
    vector.setLevel(1);
    const auto words = pinnedWords(3000);
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    RandomSampler().sampleUniform(vector, plain());
    omp_set_num_threads(before);
    u64 used = 0;
    for (u64 i = 0; i <= 1; ++i) {
        // A row is filled as a whole first; what is rejected is drawn again after it.
        const u64 rejected = (0 - primes[i]) % primes[i];
        const u64 row = used;
        used += 1000;
        for (u64 k = 0; k < 1000; ++k) {
            u64 word = words[row + k];
            while (word < rejected) word = words[used++];
            ASSERT_EQ(vector.getRow(i)[k], word % primes[i]) << i << ", " << k;
        }
    }
    EXPECT_EQ(threadGenerator().getIndex(), used);
}

TEST(SampleGaussian, OfAnIntegerIsTheFirstOfThePairOfOneWord) {
    const auto primes = LWE::getPrimeList(plain());
    const auto words = pinnedWords(200);
    setSeed(pinnedSeed);
    for (u64 n = 0; n < 200; ++n) {
        LevelledElement element(plain());
        element.setLevel(n % 3);
        RandomSampler().sampleGaussian(element, plain());
        const double theta = static_cast<double>(words[n] >> 32) * 0x1p-32 * (2 * std::numbers::pi);
        const double r =
            std::sqrt(-2.0 * std::log(static_cast<double>((words[n] & 0xffffffff) + 1) * 0x1p-32));
        const long expected = std::lround(3.2 * r * std::cos(theta));
        ASSERT_EQ(element.getLevel(), n % 3);
        for (u64 i = 0; i <= n % 3; ++i) ASSERT_EQ(centred(element[i], primes[i]), expected) << n;
    }
    EXPECT_EQ(threadGenerator().getIndex(), 200U) << "one word for each integer";
}

} // namespace
} // namespace Torvo
