#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"
#include "support/StatisticsOracle.hpp"

#include <Torvo/Statistics.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Torvo {
namespace {

using namespace test;

TEST(WeightedMean, WeightsAreDividedByTheirSumInTheBlock) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(45);
    SCOPED_TRACE(random.describe());
    for (const u64 count : {1, 3}) {
        for (const u64 length : {0, 1, 8}) {
            const u64 real = length == 0 ? 32 : length;
            const auto x = messagesOf(random, 5, count, false);
            auto weights = messagesOf(random, 5, count, true);
            for (Message& each : weights)
                for (auto& slot : each) slot += 1.5;
            const Message expected =
                expectedOf([](const Numbers& a, const Numbers& w) { return productsOf(a, w) / sumOf(w); }, x,
                           weights, real);
            Ciphertext out(scheme.context);
            Message inTheClear;
            if (count == 1) {
                weightedMean(scheme.evaluator, scheme.encrypt(x[0], 5), weights[0], out, {length});
                weightedMean(scheme.evaluator, x[0], weights[0], inTheClear, {length});
            } else {
                weightedMean(scheme.evaluator, encrypted(scheme, x, 5), weights, out, {length});
                weightedMean(scheme.evaluator, x, weights, inTheClear, {length});
            }
            EXPECT_EQ(out.getLevel(), length == 8 ? 3 : 4);
            EXPECT_LT(maxError(inTheClear, expected), 1e-12);
            EXPECT_LT(maxError(scheme.decrypt(out), expected), 0x1p-24);
        }
    }
}

/// Weights of one sign from 0.5 to 1, but for one 0 in each block of two numbers or more; so with n numbers their sum
/// lies between n / 4 and n.
std::vector<Message> weightsOf(Seeded& random, u64 count, u64 length, double sign) {
    std::vector<Message> weights = messagesOf(random, 5, count, true);
    for (Message& each : weights)
        for (auto& slot : each) slot = sign * (0.75 + slot.real() / 4);
    if (length * count > 1)
        for (u64 i = 0; i < 32; i += length) weights[0][i] = 0;
    return weights;
}

Exact weightedMeanOf(const Numbers& x, const Numbers& w) {
    return productsOf(x, w) / sumOf(w);
}

TEST(WeightedMean, EncryptedWeightsAreDividedByTheirSumInTheBlock) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(50);
    SCOPED_TRACE(random.describe());
    constexpr double error = 1e-4;
    for (const double sign : {1.0, -1.0})
        for (const u64 count : {1, 3})
            for (const u64 length : {1, 8, 32}) {
                SCOPED_TRACE(testing::Message() << count << " in blocks of " << length << ", sign " << sign);
                const auto n = static_cast<double>(length * count);
                const double lowest = std::min(sign * n / 4, sign * n), highest = lowest + 0.75 * n;
                const auto x = messagesOf(random, 5, count, false);
                const auto w = weightsOf(random, count, length, sign);
                const Message expected = expectedOf(weightedMeanOf, x, w, length);
                Message inTheClear;
                weightedMean(scheme.evaluator, x, w, lowest, highest, error, inTheClear, {length});
                EXPECT_LT(maxError(inTheClear, expected), error);

                const Plan plan(scheme.context);
                PlannedCiphertext p;
                weightedMean(plan, planned(plan, x, 12), planned(plan, w, 12), lowest, highest, error, p,
                             {length});
                EXPECT_LT(maxError(p.getMessage(), expected), error);
                Ciphertext out(scheme.context);
                const auto a = encrypted(scheme, x, 12), b = encrypted(scheme, w, 12);
                weightedMean(scheme.evaluator, a, b, lowest, highest, error, out, {length});
                EXPECT_EQ(out.getLevel(), p.getLevel());
                EXPECT_EQ(out.getLevel(), plan.getReport().lowestLevel);
                EXPECT_LE(maxError(scheme.decrypt(out), expected),
                          error + runs * p.getLargestError() + fewErrors);
                EXPECT_LT(p.getLargestError(), 0x1p-20);
                if (count > 1) continue;
                Ciphertext one = a[0];
                weightedMean(scheme.evaluator, one, b[0], lowest, highest, error, one, {length});
                EXPECT_TRUE(sameWords(one, out));
            }
}

TEST(WeightedMean, EncryptedWeightsStartFromAnyLevelWithABootstrappingEvaluator) {
    const Scheme& scheme = toyWithRotations();
    Seeded random(51);
    SCOPED_TRACE(random.describe());
    constexpr double error = 1e-4;
    const auto x = messagesOf(random, 5, 2, false), w = weightsOf(random, 2, 4, 1);
    const Message expected = expectedOf(weightedMeanOf, x, w, 4);
    for (u64 level = 3; level <= scheme.encryptionLevel(); level += 3) {
        SCOPED_TRACE(level);
        const Plan plan(scheme.context, BootstrappingEvaluator::Precision::Standard);
        PlannedCiphertext p;
        weightedMean(plan, planned(plan, x, level), planned(plan, w, level), 2, 8, error, p, {4});
        Ciphertext out(scheme.context);
        weightedMean(toyBootstrapping(), encrypted(scheme, x, level), encrypted(scheme, w, level), 2, 8,
                     error, out, {4});
        EXPECT_EQ(out.getLevel(), p.getLevel());
        // Of 8 products and a sum of 2 or more: numbers and weights that err by d make the result err by 8 * 3 d / 2,
        // products and a sum, bootstrapped as eighths, by 8 * 3 d / 2 more, and an inverse by 8 sqrt(2) d.
        EXPECT_LE(maxError(scheme.decrypt(out), expected),
                  error + runs * p.getLargestError() + 36 * boot().complexBound());
    }
}

TEST(WeightedMeanRealPreset, AMeanOfEncryptedWeightsErrsAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(52);
    SCOPED_TRACE(random.describe());
    constexpr double error = 1e-4;
    const Message x = messagesOf(random, scheme.logFullSlots(), 1, false).front();
    const Message w = test::realMessage(random, scheme.logFullSlots(), 0.25, 1);
    const Plan plan(scheme.context);
    PlannedCiphertext p;
    weightedMean(plan, plan.encrypt(x), plan.encrypt(w), 1, 4, error, p, {4});
    const u64 level = scheme.encryptionLevel();
    Ciphertext y(scheme.context);
    weightedMean(evaluatorFor(plan), scheme.encrypt(x, level), scheme.encrypt(w, level), 1, 4, error, y, {4});
    EXPECT_EQ(y.getLevel(), p.getLevel());
    const double measured = maxError(scheme.decrypt(y), p.getMessage());
    EXPECT_LE(measured, 4 * p.getLargestError());
    EXPECT_GE(measured, p.getLargestError() / 4);
    EXPECT_LE(maxError(scheme.decrypt(y), expectedOf(weightedMeanOf, {x}, {w}, 4)), error + measured);
    test::recordSpending(level - y.getLevel(), plan, p.getLargestError(), measured);
}

} // namespace
} // namespace Torvo
