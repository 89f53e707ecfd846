#include <Torvo/Statistics.hpp>

#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"
#include "support/Sanitizer.hpp"
#include "support/StatisticsOracle.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using namespace test;

template <class Value>
using Apply = std::function<void(const FunctionEvaluator<Value>&, const std::vector<Value>&,
                                 const std::vector<Value>&, Value&, const SlotBlocks&)>;

/// A statistic, and what it should be of the numbers of a block.
struct Case {
    std::string name;
    bool isReal;
    std::function<Exact(const Numbers&, const Numbers&)> exact;
    u64 levels, levelsOfBlocks; ///< for blocks that are one slot or all slots, and for others
    Apply<Ciphertext> onCiphertexts;
    Apply<Message> onMessages;
    Apply<PlannedCiphertext> onPlans;
};

template <class Function>
Case made(const std::string& name, bool isReal, u64 levels, u64 levelsOfBlocks,
          std::function<Exact(const Numbers&, const Numbers&)> exact, Function apply) {
    return {name, isReal, std::move(exact), levels, levelsOfBlocks, apply, apply, apply};
}

void PrintTo(const Case& test, std::ostream* stream) {
    *stream << test.name;
}

#define OPERANDS [](const auto& on, const auto& x, const auto& y, auto& out, const SlotBlocks& blocks)

std::vector<Case> cases() {
    const auto size = [](const Numbers& x) { return static_cast<long double>(x.size()); };
    return {
        made(
            "sum", false, 0, 1, [](const Numbers& x, const Numbers&) { return sumOf(x); },
            OPERANDS {
                static_cast<void>(y);
                x.size() == 1 ? sum(on, x[0], out, blocks) : sum(on, x, out, blocks);
            }),
        made(
            "mean", false, 1, 1, [](const Numbers& x, const Numbers&) { return meanOf(x); },
            OPERANDS {
                static_cast<void>(y);
                x.size() == 1 ? mean(on, x[0], out, blocks) : mean(on, x, out, blocks);
            }),
        made(
            "innerProduct", false, 1, 2, productsOf,
            OPERANDS {
                x.size() == 1 ? innerProduct(on, x[0], y[0], out, blocks)
                              : innerProduct(on, x, y, out, blocks);
            }),
        made(
            "squaredDistance", true, 1, 2, squaredDistanceOf,
            OPERANDS {
                x.size() == 1 ? squaredDistance(on, x[0], y[0], out, blocks)
                              : squaredDistance(on, x, y, out, blocks);
            }),
        made(
            "variance", true, 2, 3,
            [size](const Numbers& x, const Numbers&) { return covarianceOf(x, x, size(x)); },
            OPERANDS {
                static_cast<void>(y);
                x.size() == 1 ? variance(on, x[0], Variance::Population, out, blocks)
                              : variance(on, x, Variance::Population, out, blocks);
            }),
        made(
            "sampleVariance", true, 2, 3,
            [size](const Numbers& x, const Numbers&) { return covarianceOf(x, x, size(x) - 1); },
            OPERANDS {
                static_cast<void>(y);
                x.size() == 1 ? variance(on, x[0], Variance::Sample, out, blocks)
                              : variance(on, x, Variance::Sample, out, blocks);
            }),
        made(
            "covariance", true, 2, 3,
            [size](const Numbers& x, const Numbers& y) { return covarianceOf(x, y, size(x)); },
            OPERANDS {
                x.size() == 1 ? covariance(on, x[0], y[0], Variance::Population, out, blocks)
                              : covariance(on, x, y, Variance::Population, out, blocks);
            }),
    };
}

class EveryStatistic : public testing::TestWithParam<Case> {};

TEST_P(EveryStatistic, IsThatOfEachBlockInAllCiphertexts) {
    const Case& test = GetParam();
    const Scheme& scheme = toyWithRotations();
    Seeded random(41);
    SCOPED_TRACE(random.describe());
    for (const u64 logSlots : {5, 3}) {
        const u64 slots = u64{1} << logSlots;
        for (const u64 length : {u64{0}, u64{1}, u64{2}, u64{4}, slots}) {
            for (const u64 count : {2, 1, 3}) {
                const u64 real = length == 0 ? slots : length;
                if (real * count == 1) continue; // a test of its own
                SCOPED_TRACE(testing::Message()
                             << count << " times 2^" << logSlots << " slots in blocks of " << length);
                const auto x = messagesOf(random, logSlots, count, test.isReal);
                const auto y = messagesOf(random, logSlots, count, test.isReal);
                const Message expected = expectedOf(test.exact, x, y, real);
                Message inTheClear;
                test.onMessages(scheme.evaluator, x, y, inTheClear, {length});
                EXPECT_LT(maxError(inTheClear, expected), 1e-12);

                const Plan plan(scheme.context);
                PlannedCiphertext p;
                test.onPlans(plan, planned(plan, x, 6), planned(plan, y, 6), p, {length});
                EXPECT_LT(maxError(p.getMessage(), expected), 1e-12);
                Ciphertext out(scheme.context);
                test.onCiphertexts(scheme.evaluator, encrypted(scheme, x, 6), encrypted(scheme, y, 6), out,
                                   {length});
                EXPECT_EQ(out.getLevel(),
                          6 - (real == 1 || real == slots ? test.levels : test.levelsOfBlocks));
                EXPECT_EQ(p.getLevel(), out.getLevel());
                EXPECT_EQ(out.getNumPoly(), 2);
                EXPECT_EQ(out.getRescaleCounter(), 0);
                EXPECT_LE(maxError(scheme.decrypt(out), expected), runs * p.getLargestError() + fewErrors);
                EXPECT_LT(p.getLargestError(), 0x1p-20);
                EXPECT_LE(plan.getReport().relinearizations, 1);
            }
        }
    }
}

TEST_P(EveryStatistic, TakesValuesOfDifferentLevelsAndMayReplaceOne) {
    const Case& test = GetParam();
    const Scheme& scheme = toyWithRotations();
    Seeded random(42);
    SCOPED_TRACE(random.describe());
    const auto x = messagesOf(random, 5, 2, test.isReal), y = messagesOf(random, 5, 2, test.isReal);
    std::vector<Ciphertext> first = encrypted(scheme, x, 7), second = encrypted(scheme, y, 8);
    first[1] = scheme.encrypt(x[1], 5);
    test.onCiphertexts(scheme.evaluator, first, second, first[0], {4});
    EXPECT_EQ(first[0].getLevel(), 5 - test.levelsOfBlocks);
    EXPECT_LT(maxError(scheme.decrypt(first[0]), expectedOf(test.exact, x, y, 4)), 0x1p-20);
}

INSTANTIATE_TEST_SUITE_P(Statistics, EveryStatistic, testing::ValuesIn(cases()),
                         [](const auto& each) { return each.param.name; });

TEST(Statistics, OneNumberIsItsOwnMeanAndHasNoVariance) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(43);
    const Message x = messagesOf(random, 5, 1, true).front();
    const Ciphertext in = scheme.encrypt(x, 4);
    Ciphertext out(scheme.context);
    mean(scheme.evaluator, in, out, {1});
    EXPECT_TRUE(sameWords(out, in));
    variance(scheme.evaluator, in, Variance::Population, out, {1});
    EXPECT_EQ(out.getLevel(), 3);
    EXPECT_LT(maxError(scheme.decrypt(out), Message(5)), 0x1p-20);
    EXPECT_REFUSED(
        variance(scheme.evaluator, in, Variance::Sample, out, {1}),
        "variance of a sample takes two numbers or more, but this sample has one; give more slots or "
        "ciphertexts, or take it for the population");
}

TEST(Statistics, TheVarianceOfNumbersFarFromZeroLosesNoBits) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(44);
    SCOPED_TRACE(random.describe());
    Message x(5);
    for (auto& slot : x) slot = 64 + random.real(-0.01, 0.01);
    Ciphertext out(scheme.context);
    variance(scheme.evaluator, scheme.encrypt(x, 5), Variance::Population, out);
    const Message expected =
        expectedOf([](const Numbers& a, const Numbers&) { return covarianceOf(a, a, 32); }, {x}, {x}, 32);
    // A product at the toy's scale of 2^40 or so errs by 2^-33; the square of 64 would take 12 bits more than that.
    EXPECT_LT(maxError(scheme.decrypt(out), expected), 0x1p-28);
}

TEST(Statistics, MissingLevelsAndKeysAreNamedTogetherBeforeAnythingIsComputed) {
    const Scheme& scheme = toy();
    const HomEvaluator withoutKeys(scheme.context, KeyPack(scheme.context));
    using Call = std::function<void(const FunctionEvaluator<Ciphertext>&, const Ciphertext&,
                                    const Ciphertext&, Ciphertext&)>;
    using PlannedCall = std::function<void(const Plan&, PlannedCiphertext&)>;
    struct Stages {
        std::string name;
        Call call;
        PlannedCall planned;
    };
#define STAGES(name, ...)                                                                                    \
    Stages {                                                                                                 \
#name, [](const auto& on, const auto& x, const auto& y, auto& out) { name(on, x, y, __VA_ARGS__); }, \
            [](const Plan& on, PlannedCiphertext& out) {                                                     \
                const PlannedCiphertext x = out, y = out;                                                    \
                name(on, x, y, __VA_ARGS__);                                                                 \
            }       \
    }
    for (const Stages& each :
         {STAGES(correlation, 0.25, 1, 1e-2, out, {8}), STAGES(distance, 0.25, 1, 1e-2, out, {8}),
          STAGES(weightedMean, 0.25, 1, 1e-2, out, {8})}) {
        const Plan plan(scheme.context);
        PlannedCiphertext p = plan.encrypt(Message(5, 0.5));
        each.planned(plan, p);
        const u64 levels = scheme.encryptionLevel() - p.getLevel();
        const Ciphertext enough = scheme.encrypt(Message(5, 0.5), levels),
                         low = scheme.encrypt(Message(5, 0.5), levels - 1);
        Ciphertext out = low;
        EXPECT_REFUSED(
            each.call(withoutKeys, enough, low, out),
            each.name + " needs " + std::to_string(levels) + " levels, but the ciphertext has " +
                std::to_string(levels - 1) +
                ". Bootstrap it first, or give a BootstrappingEvaluator in place of the evaluator.");
        EXPECT_REFUSED(each.call(withoutKeys, enough, enough, out),
                       "Failed to load the left rotation keys for indices 1, 2, 4, 28, 30, 31");
        EXPECT_TRUE(sameWords(out, low));
    }
#undef STAGES
}

/// x, and y = 0.8 x + noise, so that both have variances in [0.05, 1].
std::pair<Message, Message> correlated(Seeded& random, u64 logSlots = 5) {
    Message x(logSlots), y(logSlots);
    for (u64 i = 0; i < x.getSize(); ++i) {
        x[i] = (i % 2 == 0 ? 0.4 : -0.4) + random.real(-0.4, 0.4);
        y[i] = 0.8 * x[i] + random.real(-0.2, 0.2);
    }
    return {x, y};
}

Exact correlationOf(const Numbers& x, const Numbers& y) {
    return covarianceOf(x, y, 1) / std::sqrt(covarianceOf(x, x, 1) * covarianceOf(y, y, 1));
}

TEST(Statistics, CorrelationsAndDistancesAreWithinTheirError) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(46);
    SCOPED_TRACE(random.describe());
    const auto [x, y] = correlated(random);
    constexpr double error = 1e-3;
    for (const u64 length : {0, 8}) {
        SCOPED_TRACE(length);
        const u64 real = length == 0 ? 32 : length;
        const Message r = expectedOf(correlationOf, {x}, {y}, real);
        const Message d =
            expectedOf([](const Numbers& a, const Numbers& b) { return std::sqrt(squaredDistanceOf(a, b)); },
                       {x}, {y}, real);
        const u64 level = scheme.encryptionLevel();
        const Plan plan(scheme.context);
        PlannedCiphertext plannedR, plannedD;
        correlation(plan, plan.encrypt(x), plan.encrypt(y), 0.05, 1, error, plannedR, {length});
        distance(plan, plan.encrypt(x), plan.encrypt(y), 0.001, 4, error, plannedD, {length});
        EXPECT_LE(maxError(plannedR.getMessage(), r), error);
        EXPECT_LE(maxError(plannedD.getMessage(), d), error);
        Ciphertext gotR(scheme.context), gotD(scheme.context);
        const Ciphertext a = scheme.encrypt(x, level), b = scheme.encrypt(y, level);
        correlation(scheme.evaluator, a, b, 0.05, 1, error, gotR, {length});
        distance(scheme.evaluator, a, b, 0.001, 4, error, gotD, {length});
        EXPECT_EQ(gotR.getLevel(), plannedR.getLevel());
        EXPECT_EQ(gotD.getLevel(), plannedD.getLevel());
        EXPECT_LE(maxError(scheme.decrypt(gotR), r), error + runs * plannedR.getLargestError());
        EXPECT_LE(maxError(scheme.decrypt(gotD), d), error + runs * plannedD.getLargestError());
        Ciphertext manyR(scheme.context), manyD(scheme.context);
        correlation(scheme.evaluator, std::vector{a}, std::vector{b}, 0.05, 1, error, manyR, {length});
        distance(scheme.evaluator, std::vector{a}, std::vector{b}, 0.001, 4, error, manyD, {length});
        EXPECT_TRUE(sameWords(manyR, gotR));
        EXPECT_TRUE(sameWords(manyD, gotD));
    }
}

TEST(Statistics, ACorrelationStartsFromAnyLevelWithABootstrappingEvaluator) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(47);
    SCOPED_TRACE(random.describe());
    const auto [x, y] = correlated(random);
    const Message expected = expectedOf(correlationOf, {x}, {y}, 32);
    constexpr double error = 1e-3;
    for (u64 level = 3; level <= scheme.encryptionLevel(); level += 3) {
        SCOPED_TRACE(level);
        const Plan plan(scheme.context, BootstrappingEvaluator::Precision::Standard);
        PlannedCiphertext p;
        correlation(plan, plan.encrypt(x, level), plan.encrypt(y, level), 0.05, 1, error, p);
        Ciphertext out(scheme.context);
        correlation(toyBootstrapping(), scheme.encrypt(x, level), scheme.encrypt(y, level), 0.05, 1, error,
                    out);
        EXPECT_EQ(out.getLevel(), p.getLevel());
        EXPECT_EQ(plan.getReport().bootstraps == 0, level == scheme.encryptionLevel());
        // Numbers that err by d make a root of a variance v err by 2 d / sqrt(v) at most; each of the factors 1 /
        // sqrt(v), at most 4.5, is bootstrapped as a seventh, and makes the result err by 7 d.
        EXPECT_LE(maxError(scheme.decrypt(out), expected),
                  error + runs * p.getLargestError() + 32 * boot().realBound());
    }
}

TEST(Statistics, APlanNamesTheRotationsThatASumNeeds) {
    const Scheme& scheme = toy();
    Plan plan(scheme.context);
    const auto rotationsOf = [&](unsigned long length) {
        plan.reset();
        PlannedCiphertext p = plan.encrypt(Message(5, 0.5));
        variance(plan, p, Variance::Population, p, {length});
        return plan.getReport().leftRotations;
    };
    using Indices = std::set<unsigned long>;
    EXPECT_EQ(rotationsOf(0), (Indices{1, 2, 4, 8, 16}));
    EXPECT_EQ(rotationsOf(8), (Indices{1, 2, 4, 28, 30, 31}));
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    for (const unsigned long index : rotationsOf(8)) generator.genLeftRotKey(index);
    Ciphertext out = scheme.encrypt(Message(5, 0.5), 5);
    variance(HomEvaluator(scheme.context, pack), out, Variance::Population, out, {8});
    EXPECT_LT(maxError(scheme.decrypt(out), Message(5)), 0x1p-20);
}

TEST(Statistics, RefusalsComeInOrderAndLeaveTheOutputAlone) {
    const HomEvaluator& on = toyWithRotations().evaluator;
    const Ciphertext x = toy().encrypt(Message(5, 0.5), 1);
    Ciphertext out = x, three = x;
    three.setNumPoly(3);
    const Ciphertext before = out;
    const std::vector<Ciphertext> none, one{three}, two{three, three};
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_REFUSED(sum(on, none, out, {3, nan}), "sum is given no ciphertext; give at least one");
    EXPECT_REFUSED(innerProduct(on, none, two, out, {3, nan}),
                   "innerProduct is given no ciphertext; give at least one");
    EXPECT_REFUSED(innerProduct(on, two, one, out, {3, nan}),
                   "innerProduct is given 2 ciphertexts, and 1 to go with them; give as many of both");
    EXPECT_REFUSED(covariance(on, two, none, Variance::Sample, out, {3, nan}),
                   "covariance is given 2 ciphertexts, and 0 to go with them; give as many of both");
    EXPECT_REFUSED(weightedMean(on, two, std::vector<Message>(1), out, {3, nan}),
                   "weightedMean is given 2 ciphertexts, and 1 to go with them; give as many of both");
    EXPECT_REFUSED(mean(on, three, out, {3, nan}), "Size should be 2");
    EXPECT_REFUSED(
        mean(on, x, out, {3, nan}),
        "mean is given blocks of 3 slots; give a power of two up to the 32 slots of the ciphertext, or "
        "0 for one block of all");
    EXPECT_REFUSED(variance(on, x, Variance::Sample, out, {64, nan}),
                   "variance is given blocks of 64 slots; give a power of two up to the 32 slots of the "
                   "ciphertext, or 0 for one block of all");
    EXPECT_REFUSED(variance(on, x, Variance::Sample, out, {1, nan}),
                   "variance is given the bound nan; give a positive, finite one");
    EXPECT_REFUSED(weightedMean(on, x, Message(4), out), "Two operands have different logSlots");
    Message weights(5, 1.0);
    weights[9] = -7;
    EXPECT_REFUSED(
        weightedMean(on, x, weights, out, {8}),
        "weightedMean is given weights whose sum in block 1 is 0; give finite ones with a sum that is not 0");
    weights[9] = nan;
    EXPECT_THROW(weightedMean(on, x, weights, out, {8}), RuntimeException);
    EXPECT_REFUSED(weightedMean(on, two, none, -1, 1, -1, out, {3, nan}),
                   "weightedMean is given 2 ciphertexts, and 0 to go with them; give as many of both");
    EXPECT_REFUSED(weightedMean(on, x, x, -1, 1, -1, out),
                   "weightedMean is given the interval from -1 to 1; give bounds of one sign, the lower one "
                   "first, and both finite and not 0");
    EXPECT_REFUSED(weightedMean(on, x, x, 0x1p-40, 1, nan, out),
                   "weightedMean is given the error nan; give a positive, finite one");
    EXPECT_REFUSED(
        weightedMean(on, x, x, 0.125, 0x1p30, 1, out),
        "weightedMean is given the interval from 0.125 to 1073741824; give bounds with a ratio of 2^32 "
        "at most, or allow a larger error for a square root near 0");
    EXPECT_REFUSED(
        correlation(on, x, x, 0, 1, -1, out),
        "correlation is given the interval from 0 to 1; give positive, finite bounds, the lower one first");
    EXPECT_REFUSED(correlation(on, x, x, 0.5, 1, -1, out),
                   "correlation is given the error -1; give a positive, finite one");
    EXPECT_REFUSED(
        distance(on, x, x, -1, 1, -1, out),
        "distance is given the interval from -1 to 1; give finite bounds of 0 or more, the lower one first");
    EXPECT_REFUSED(distance(on, x, x, 0, 1, -1, out),
                   "distance is given the error -1; give a positive, finite one");
    EXPECT_REFUSED(variance(on, x, Variance::Sample, out),
                   "variance needs 2 levels, but the ciphertext has 1. Bootstrap it first, or give a "
                   "BootstrappingEvaluator in place of the evaluator.");
    EXPECT_REFUSED(sum(on, std::vector{x, toy().encrypt(Message(4, 0.5), 1)}, out),
                   "Two operands have different logSlots");
    const Ciphertext foreign = Scheme::of(ParameterPreset::SD3).encrypt(Message(5, 0.5), 1);
    EXPECT_REFUSED(covariance(on, x, foreign, Variance::Sample, out),
                   "Operands are not of the ring of the generated context.");
    EXPECT_TRUE(sameWords(out, before));
    Message empty;
    EXPECT_REFUSED(sum(on, empty, empty), "The message has no slots. Give one with at least one slot.");
    Message six;
    six.resize(6);
    const char* const notSix =
        "The message has 6 slots, but functions take a power of two. Resize it to one.";
    EXPECT_REFUSED(sum(on, six, six), notSix);
    EXPECT_REFUSED(weightedMean(on, x, six, out), notSix);
    EXPECT_REFUSED(weightedMean(on, x, empty, out),
                   "The message has no slots. Give one with at least one slot.");
    EXPECT_TRUE(sameWords(out, before));
}

TEST(Statistics, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(48);
    const Ciphertext x = scheme.encrypt(random.message(5), 6);
    expectSameWordsInEach(anyOutputs(), [&](Ciphertext& out) {
        variance(scheme.evaluator, x, Variance::Population, out, {4});
    });
}

TEST(Statistics, AFailedAllocationLeavesTheOutputAlone) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Scheme& scheme = toyWithRotations();
    const Ciphertext x = scheme.encrypt(Message(5, 0.75), 5), before = scheme.encrypt(Message(5, 0.5), 2);
    // Every third allocation: there are hundreds.
    expectUnchangedByFailedAllocations(
        before, 3, [&](Ciphertext& out) { variance(scheme.evaluator, x, Variance::Population, out, {4}); });
}

class EveryStatisticRealPreset : public testing::TestWithParam<Case> {};

TEST_P(EveryStatisticRealPreset, OfShortBlocksOfTwoCiphertextsErrsAsThePlanPredicts) {
    const Case& test = GetParam();
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(50);
    SCOPED_TRACE(random.describe());
    const auto x = messagesOf(random, scheme.logFullSlots(), 2, test.isReal),
               y = messagesOf(random, scheme.logFullSlots(), 2, test.isReal);
    const Plan plan(scheme.context);
    PlannedCiphertext p;
    test.onPlans(plan, planned(plan, x, 4), planned(plan, y, 4), p, {4});
    Ciphertext out(scheme.context);
    test.onCiphertexts(evaluatorFor(plan), encrypted(scheme, x, 4), encrypted(scheme, y, 4), out, {4});
    EXPECT_EQ(out.getLevel(), 4 - test.levelsOfBlocks);
    EXPECT_EQ(out.getLevel(), p.getLevel());
    EXPECT_LE(maxError(scheme.decrypt(out), expectedOf(test.exact, x, y, 4)), runs * p.getLargestError());
    EXPECT_LT(p.getLargestError(), 0x1p-20);
}

INSTANTIATE_TEST_SUITE_P(Statistics, EveryStatisticRealPreset, testing::ValuesIn(cases()),
                         [](const auto& each) { return each.param.name; });

TEST(StatisticsRealPreset, CorrelationsDistancesAndWeightedMeansAreWithinTheirError) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(51);
    SCOPED_TRACE(random.describe());
    const auto [x, y] = correlated(random, scheme.logFullSlots());
    Message weights = x;
    for (auto& slot : weights) slot = random.real(0.1, 2);
    constexpr double error = 1e-2;
    constexpr u64 length = 64; // of fewer numbers the variances may leave [0.05, 1]
    const Plan plan(scheme.context);
    PlannedCiphertext plannedR, plannedD, plannedW;
    const PlannedCiphertext plannedX = plan.encrypt(x), plannedY = plan.encrypt(y);
    correlation(plan, plannedX, plannedY, 0.05, 1, error, plannedR, {length});
    distance(plan, plannedX, plannedY, 0.01, 8, error, plannedD, {length});
    weightedMean(plan, plannedX, weights, plannedW, {length});
    const HomEvaluator evaluator = evaluatorFor(plan);
    const Ciphertext a = scheme.encrypt(x, scheme.encryptionLevel()),
                     b = scheme.encrypt(y, scheme.encryptionLevel());
    Ciphertext gotR(scheme.context), gotD(scheme.context), gotW(scheme.context);
    correlation(evaluator, a, b, 0.05, 1, error, gotR, {length});
    distance(evaluator, a, b, 0.01, 8, error, gotD, {length});
    weightedMean(evaluator, a, weights, gotW, {length});
    EXPECT_EQ(gotR.getLevel(), plannedR.getLevel());
    EXPECT_EQ(gotD.getLevel(), plannedD.getLevel());
    EXPECT_EQ(gotW.getLevel(), plannedW.getLevel());
    EXPECT_LE(maxError(scheme.decrypt(gotR), expectedOf(correlationOf, {x}, {y}, length)),
              error + runs * plannedR.getLargestError());
    const auto distanceOf = [](const Numbers& p, const Numbers& q) {
        return std::sqrt(squaredDistanceOf(p, q));
    };
    EXPECT_LE(maxError(scheme.decrypt(gotD), expectedOf(distanceOf, {x}, {y}, length)),
              error + runs * plannedD.getLargestError());
    const auto meanOfWeighted = [](const Numbers& p, const Numbers& w) {
        return productsOf(p, w) / sumOf(w);
    };
    EXPECT_LE(maxError(scheme.decrypt(gotW), expectedOf(meanOfWeighted, {x}, {weights}, length)),
              runs * plannedW.getLargestError());
}

TEST(StatisticsRealPreset, AVarianceOfManySlotsErrsAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(49);
    SCOPED_TRACE(random.describe());
    const Message x = messagesOf(random, scheme.logFullSlots(), 1, true).front();
    const Plan plan(scheme.context);
    PlannedCiphertext p = plan.encrypt(x, 4);
    variance(plan, p, Variance::Sample, p);
    Ciphertext y = scheme.encrypt(x, 4);
    variance(evaluatorFor(plan), y, Variance::Sample, y);
    EXPECT_EQ(y.getLevel(), p.getLevel());
    const auto n = static_cast<long double>(x.getSize());
    const Message expected = expectedOf(
        [n](const Numbers& a, const Numbers&) { return covarianceOf(a, a, n - 1); }, {x}, {x}, x.getSize());
    // All slots have one error, and the predicted one may be small by chance: some key switches at this scale.
    const double measured = maxError(scheme.decrypt(y), expected);
    EXPECT_LE(measured, runs * p.getLargestError() + 0x1p-16);
    recordSpending(4 - y.getLevel(), plan, p.getLargestError(), measured);
}

} // namespace
} // namespace Torvo
