#include "functions/SeriesStage.hpp"

#include "functions/SignEvaluation.hpp"
#include "support/FunctionRuns.hpp"

#include <Torvo/Polynomials.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

namespace Torvo {
namespace {

using test::realMessage;
using test::sameWords;
using test::Seeded;
using test::toy;
using test::toyBootstrapping;

ChebyshevSeries sine() {
    return ChebyshevSeries::interpolate([](double x) { return std::sin(x); }, 31, -3, 3);
}

TEST(SeriesStageTest, GivesTheWordsOfEvaluateAsOftenAsOneLikes) {
    Seeded random(701);
    for (const FunctionEvaluator<Ciphertext>& on : {FunctionEvaluator<Ciphertext>(toy().evaluator),
                                                    FunctionEvaluator<Ciphertext>(toyBootstrapping())}) {
        SeriesStage<Ciphertext> stage(on.operations(), sine(), 1);
        EXPECT_EQ(stage.levels(), 6); // one of them for the interval
        for (const u64 level : {12, 9}) {
            const Ciphertext x = toy().encrypt(realMessage(random, 5, -3, 3), level);
            Ciphertext expected(toy().context);
            evaluate(on, x, sine(), expected);
            EXPECT_TRUE(sameWords(stage.evaluate("f", x), expected));
            EXPECT_TRUE(sameWords(stage.evaluate("f", x), expected));
        }
    }
}

TEST(SeriesStageTest, KeepsTheLevelOfABootstrapWhereTheSeriesItselfLeavesTheUnitSquare) {
    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    const FunctionEvaluator<PlannedCiphertext> on = plan;
    const ChebyshevSeries within({0, 0.5}), beyond({0, 1.5});
    const auto levelFrom = [&](const ChebyshevSeries& f, double resultBound) {
        return SeriesStage<PlannedCiphertext>(on.operations(), f, resultBound)
            .evaluate("f", plan.encrypt(Message(5, 0.5), 4))
            .getLevel();
    };
    EXPECT_EQ(levelFrom(within, 0.5), 3);
    EXPECT_EQ(levelFrom(within, 1.5), 11); // a bootstrap first
    EXPECT_EQ(levelFrom(beyond, 0.5), 11);
}

TEST(SeriesStageTest, ASignIsTheSameAsOftenAsItIsTaken) {
    Seeded random(702);
    const FunctionEvaluator<Ciphertext> on = toy().evaluator;
    const Ciphertext x = toy().encrypt(realMessage(random, 5, -1, 1), 12);
    const SignEvaluation<Ciphertext> sign(on.operations(), "f", x, {4, 4}, 1);
    const Ciphertext half = sign.evaluate(x, 0.5), whole = sign.evaluate(x, 1);
    EXPECT_FALSE(sameWords(half, whole));
    EXPECT_TRUE(sameWords(sign.evaluate(x, 0.5), half));
    EXPECT_TRUE(sameWords(sign.evaluate(x, 1), whole));
}

} // namespace
} // namespace Torvo
