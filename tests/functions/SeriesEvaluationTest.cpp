#include "functions/SeriesEvaluation.hpp"
#include "functions/CipherOperations.hpp"
#include "functions/MessageOperations.hpp"
#include "functions/PlanOperations.hpp"

#include "support/Expect.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using LongComplex = std::complex<long double>;
using test::Scheme;
using test::Seeded;

/// By the definition T_k(cos t) = cos(k t), which no recurrence is needed for.
LongComplex chebyshevSum(const std::vector<Complex>& c, long double y) {
    const long double angle = std::acos(y);
    LongComplex sum = 0;
    for (u64 k = 0; k < c.size(); ++k)
        sum += LongComplex(c[k]) * std::cos(static_cast<long double>(k) * angle);
    return sum;
}

std::vector<Coefficient> uniform(const std::vector<Complex>& c) {
    return {c.begin(), c.end()};
}

/// Coefficients whose moduli have the sum 1.
std::vector<Complex> coefficients(Seeded& random, u64 degree, u64 step = 1, u64 first = 0) {
    std::vector<Complex> c(degree + 1);
    double sum = 0;
    for (u64 k = first; k <= degree; k += step)
        sum += std::abs(c[k] = {random.real(-1, 1), random.real(-1, 1)});
    for (Complex& each : c) each /= sum;
    return c;
}

class SeriesEvaluationTest : public testing::Test {
protected:
    /// Slots in [lower, upper].
    Message points(double lower, double upper) {
        Message m(scheme.logFullSlots());
        for (auto& slot : m) slot = random.real(lower, upper);
        m[0] = lower;
        m[1] = upper;
        return m;
    }

    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const CipherOperations operations{scheme.evaluator};
    Seeded random{20261122};
};

TEST_F(SeriesEvaluationTest, MessagesGoThroughTheSameRecurrences) {
    SCOPED_TRACE(random.describe());
    const MessageOperations inTheClear(scheme.evaluator);
    const Message x = points(-3, 1);
    for (const u64 degree : {0, 1, 2, 3, 8, 63, 255}) {
        SCOPED_TRACE(degree);
        const std::vector<Complex> c = coefficients(random, degree);
        const SeriesTerms terms(SeriesBasis::Chebyshev, uniform(c));
        SeriesEvaluation<Message> evaluation(inTheClear, {&terms, 1}, {-1, 2});
        const Message got = evaluation.evaluate(x).front();
        for (u64 i = 0; i < x.getSize(); ++i) {
            const LongComplex expected =
                chebyshevSum(c, std::clamp<long double>((x[i].real() + 1) / 2, -1, 1));
            EXPECT_LT(std::abs(LongComplex(got[i]) - expected), 1e-12L) << i;
        }
    }
}

/// The deviations of the slots' errors that a plan predicts, from several draws of the errors.
class PredictedErrors {
public:
    explicit PredictedErrors(u64 slots) : squares_(slots) {}

    void take(const PlannedCiphertext& drawn) {
        for (u64 i = 0; i < squares_.size(); ++i)
            squares_[i] += std::norm(drawn.getNoisyMessage()[i] - drawn.getMessage()[i]);
        ++draws_;
    }
    double of(u64 slot) const { return std::sqrt(squares_[slot] / draws_); }

private:
    std::vector<double> squares_;
    double draws_ = 0;
};

/// Every error within 10 deviations, and their root mean square in units of the deviations within 1.5 bits of 1.
void expectPredicted(const Message& got, const std::vector<LongComplex>& expected,
                     const PredictedErrors& predicted) {
    double sum = 0;
    for (u64 i = 0; i < got.getSize(); ++i) {
        const double error =
            static_cast<double>(std::abs(LongComplex(got[i]) - expected[i])) / predicted.of(i);
        EXPECT_LT(error, 10) << "slot " << i;
        sum += error * error;
    }
    EXPECT_LT(std::abs(std::log2(sum / static_cast<double>(got.getSize())) / 2), 1.5);
}

struct Interval {
    double lower, upper;
    u64 step; ///< of the degrees to try
};

/// Under the sanitizers every degree takes half a minute.
constexpr u64 everyDegree = test::underSanitizer ? 7 : 1;

class SeriesOnIntervals : public SeriesEvaluationTest, public testing::WithParamInterface<Interval> {
protected:
    // Thousands of steps on rows of 64 words: a second thread would only be waited for.
    void SetUp() override { omp_set_num_threads(1); }
    void TearDown() override { omp_set_num_threads(threads); }
    const int threads = omp_get_max_threads();

    /// The levels that a degree spends if it needs none to map the interval.
    static u64 leastLevels(u64 degree) { return static_cast<u64>(std::bit_width(degree)); }

    /// Evaluates one random series of each degree and holds its errors to the predicted ones.
    template <class ExpectLevels>
    void evaluateAllDegrees(ExpectLevels expectLevels) {
        SCOPED_TRACE(random.describe());
        const auto [lower, upper, step] = GetParam();
        const IntervalMap map{(lower + upper) / 2, (upper - lower) / 2};
        const u64 level = scheme.encryptionLevel();
        const Message x = points(lower, upper);
        const Ciphertext encrypted = scheme.encrypt(x, level);
        const Plan plan(scheme.context);
        const PlanOperations planned(plan);
        for (u64 degree = 1; degree <= 255; degree += step) {
            SCOPED_TRACE(degree);
            const std::vector<Complex> c = coefficients(random, degree);
            const SeriesTerms terms(SeriesBasis::Chebyshev, uniform(c));
            std::vector<LongComplex> expected;
            for (const Complex& slot : x)
                expected.push_back(
                    chebyshevSum(c, std::clamp<long double>((slot.real() - map.middle) / map.half, -1, 1)));
            SeriesEvaluation<Ciphertext> evaluation(operations, {&terms, 1}, map);
            expectLevels(degree, evaluation.levels());
            const Ciphertext got = evaluation.evaluate(encrypted).front();
            ASSERT_EQ(got.getLevel(), level - evaluation.levels());
            EXPECT_EQ(got.getRescaleCounter(), 0);

            PredictedErrors predicted(x.getSize());
            for (int draw = 0; draw < 8; ++draw) {
                SeriesEvaluation<PlannedCiphertext> dryRun(planned, {&terms, 1}, map);
                const PlannedCiphertext drawn = dryRun.evaluate(plan.encrypt(x, level)).front();
                EXPECT_EQ(drawn.getLevel(), got.getLevel());
                predicted.take(drawn);
            }
            expectPredicted(scheme.decrypt(got), expected, predicted);
        }
    }
};

class SeriesOnShortIntervals : public SeriesOnIntervals {};
class SeriesOnLongIntervals : public SeriesOnIntervals {};

TEST_P(SeriesOnShortIntervals, EveryDegreeSpendsTheLeastLevelsAndErrsAsPredicted) {
    evaluateAllDegrees([](u64 degree, u64 levels) { EXPECT_EQ(levels, leastLevels(degree)); });
}
// 2 / (b - a) is an integer for the first three, and none for the others.
INSTANTIATE_TEST_SUITE_P(UpToFourWide, SeriesOnShortIntervals,
                         testing::Values(Interval{-1, 1, everyDegree}, Interval{0.25, 0.75, 31},
                                         Interval{3, 5, 31}, Interval{0.5, 3.7, 7}, Interval{-2, 2, 31}));

TEST_P(SeriesOnLongIntervals, SomeDegreesSpendOneLevelMoreAndAllErrAsPredicted) {
    evaluateAllDegrees([](u64 degree, u64 levels) {
        EXPECT_LE(levels, leastLevels(degree) + 1);
        if (degree <= 4) {
            EXPECT_EQ(levels, leastLevels(degree));
        }
    });
}
INSTANTIATE_TEST_SUITE_P(MoreThanFourWide, SeriesOnLongIntervals,
                         testing::Values(Interval{-2.5, 2.5, 31}, Interval{-4, 5, 7}));

} // namespace
} // namespace Torvo
