#include <Torvo/Comparisons.hpp>

#include "functions/PlannedCiphertextImpl.hpp"
#include "functions/SignComposite.hpp"
#include "functions/SignEvaluation.hpp"
#include "functions/SignTables.hpp"
#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/Polynomials.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::maxError;
using test::powerOfHalf;
using test::realMessage;
using test::sameWords;
using test::Scheme;
using test::Seeded;
using test::toy;
using test::toyBootstrapping;

constexpr u64 least = test::leastToBootstrap, after = test::afterBootstrap;

/// Numbers of [-bound, bound]: evenly, and evenly in the logarithm of their magnitude, with 0, both ends and both
/// sides of the margin.
Message denseMessage(double bound, u64 margin) {
    Message m(12);
    const double edge = bound * powerOfHalf(margin);
    for (u64 i = 0; i < m.getSize(); ++i) {
        const double part = static_cast<double>(i / 2) / 2047;
        m[i] = i % 2 == 0
                   ? bound * (2 * part - 1)
                   : (i % 4 == 1 ? 1 : -1) * std::min(bound, edge / 4 * std::exp2(part * (margin + 2)));
    }
    m[0] = 0;
    m[1] = edge;
    m[2] = -edge;
    m[3] = bound;
    m[4] = -bound;
    return m;
}

/// One function with two inputs, of which it may pass over the second, for each kind of value.
struct Function {
    const char* name;
    u64 more; ///< levels beside those of the sign
    bool isOfBoth;
    double widest; ///< the largest number whose sign is taken, for numbers in [-1, 1]
    std::function<void(const HomEvaluator&, const Message&, const Message&, double, Message&, Accuracy)>
        clear;
    std::function<void(const FunctionEvaluator<Ciphertext>&, const Ciphertext&, const Ciphertext&, double,
                       Ciphertext&, Accuracy)>
        encrypted;
    std::function<void(const Plan&, const PlannedCiphertext&, const PlannedCiphertext&, double,
                       PlannedCiphertext&, Accuracy)>
        planned;
    std::function<long double(long double, long double)> exact;
    /// Distances of the inputs from the thresholds.
    std::function<long double(long double, long double)> distance;
    /// The bounds of a result within the margin.
    std::function<std::pair<long double, long double>(long double, long double)> between;
};

#define TORVO_FUNCTION(call)                                                                                 \
    [](const auto& on, const auto& a, [[maybe_unused]] const auto& b, double bound, auto& out,               \
       Accuracy accuracy) { call; }
#define TORVO_THRICE(call) TORVO_FUNCTION(call), TORVO_FUNCTION(call), TORVO_FUNCTION(call)

using Real = long double;
using Ends = std::pair<Real, Real>;

const std::vector<Function>& functions() {
    static const auto distance = [](Real a, Real) { return std::fabs(a); };
    static const auto difference = [](Real a, Real b) { return std::fabs(a - b); };
    static const auto ends = [](Real a, Real) { return std::min(std::fabs(a + 0.5L), std::fabs(a - 0.25L)); };
    static const std::vector<Function> all{
        {"sign", 0, false, 1, TORVO_THRICE(sign(on, a, bound, out, accuracy)),
         [](Real a, Real) { return a > 0 ? 1 : -1; }, distance,
         [](Real, Real) {
             return Ends{-1, 1};
         }},
        {"step", 0, false, 1, TORVO_THRICE(step(on, a, bound, out, accuracy)),
         [](Real a, Real) { return a > 0 ? 1 : 0; }, distance,
         [](Real, Real) {
             return Ends{0, 1};
         }},
        {"isBelow", 0, true, 2, TORVO_THRICE(isBelow(on, a, b, bound, out, accuracy)),
         [](Real a, Real b) { return a < b ? 1 : 0; }, difference,
         [](Real, Real) {
             return Ends{0, 1};
         }},
        {"max", 1, true, 2, TORVO_THRICE(max(on, a, b, bound, out, accuracy)),
         [](Real a, Real b) { return std::max(a, b); }, difference,
         [](Real a, Real b) {
             return Ends{std::min(a, b), std::max(a, b)};
         }},
        {"min", 1, true, 2, TORVO_THRICE(min(on, a, b, bound, out, accuracy)),
         [](Real a, Real b) { return std::min(a, b); }, difference,
         [](Real a, Real b) {
             return Ends{std::min(a, b), std::max(a, b)};
         }},
        {"abs", 1, false, 1, TORVO_THRICE(abs(on, a, bound, out, accuracy)),
         [](Real a, Real) { return std::fabs(a); }, distance,
         [](Real a, Real) {
             return Ends{0, std::fabs(a)};
         }},
        {"relu", 1, false, 1, TORVO_THRICE(relu(on, a, bound, out, accuracy)),
         [](Real a, Real) { return std::max<Real>(a, 0); }, distance,
         [](Real a, Real) {
             return Ends{std::min<Real>(a, 0), std::max<Real>(a, 0)};
         }},
        {"clamp", 1, false, 1.5, TORVO_THRICE(clamp(on, a, -0.5 * bound, 0.25 * bound, bound, out, accuracy)),
         [](Real a, Real) { return std::clamp<Real>(a, -0.5L, 0.25L); }, ends,
         [](Real a, Real) {
             const Real end = a > 0 ? 0.25L : -0.5L;
             return Ends{std::min(a, end), std::max(a, end)};
         }},
        {"isInInterval", 0, false, 1.5,
         TORVO_THRICE(isInInterval(on, a, -0.5 * bound, 0.25 * bound, bound, out, accuracy)),
         [](Real a, Real) { return a > -0.5L && a < 0.25L ? 1 : 0; }, ends,
         [](Real, Real) {
             return Ends{0, 1};
         }}};
    return all;
}

/// Whether results are numbers of the size of the inputs, rather than 0, 1 or -1.
bool isNumber(const Function& function) {
    return function.more == 1;
}

/// Expects every slot within the bounds that the header gives; `noise` goes to the tests' own rounding.
void expectWithin(const Function& function, const Message& got, const Message& a, const Message& b,
                  double bound, Accuracy accuracy, double noise) {
    const Real margin = powerOfHalf(accuracy.margin) * function.widest;
    // Of two signs, as of the ends of an interval, each errs.
    const Real error = powerOfHalf(accuracy.error) * function.widest + noise;
    for (u64 i = 0; i < got.getSize(); ++i) {
        const Real x = a[i].real() / bound, y = b[i].real() / bound;
        const Real result = got[i].real() / (isNumber(function) ? bound : 1);
        if (function.distance(x, y) >= margin) {
            ASSERT_LE(std::fabs(result - function.exact(x, y)), error) << x << " " << y;
        } else {
            const Ends ends = function.between(x, y);
            ASSERT_GE(result, ends.first - error) << x << " " << y;
            ASSERT_LE(result, ends.second + error) << x << " " << y;
        }
    }
}

// ---- the whole domain

class SignsFrom : public testing::TestWithParam<u64> {};

TEST_P(SignsFrom, MeetEveryErrorOnTheWholeDomainInTheClear) {
    const auto a = static_cast<unsigned>(GetParam());
    for (unsigned b = leastSignExponent; b <= mostSignExponent; ++b) {
        SCOPED_TRACE(b);
        const double bound = 1.5;
        const Message x = denseMessage(bound, a);
        Message out;
        sign(toy().evaluator, x, bound, out, {a, b});
        for (u64 i = 0; i < x.getSize(); ++i) {
            const Real number = x[i].real();
            if (std::fabs(number) >= powerOfHalf(a) * bound)
                ASSERT_LE(std::fabs(out[i].real() - (number > 0 ? 1 : -1)), powerOfHalf(b) + 1e-10L)
                    << number;
            else
                ASSERT_LE(std::fabs(out[i].real()), 1 + powerOfHalf(b) + 1e-10L) << number;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Margin, SignsFrom, testing::Range(leastSignExponent, mostSignExponent + 1),
                         [](const auto& tested) { return "2ToTheMinus" + std::to_string(tested.param); });

TEST(Comparisons, EveryFunctionMeetsItsErrorOnTheWholeDomainInTheClear) {
    Seeded random(401);
    SCOPED_TRACE(random.describe());
    for (const Function& function : functions())
        for (const Accuracy accuracy : {Accuracy{4, 4}, Accuracy{8, 8}, Accuracy{11, 14}, Accuracy{16, 5}})
            for (const double bound : {1.0, 0.3, 100.0}) {
                SCOPED_TRACE(testing::Message() << function.name << " margin " << accuracy.margin << " error "
                                                << accuracy.error << " bound " << bound);
                const Message a = denseMessage(bound, accuracy.margin);
                Message b = a;
                for (auto& slot : b) slot = random.real(-bound, bound);
                for (u64 i = 0; i < b.getSize(); i += 2) // close, and equal
                    b[i] = std::clamp(a[i].real() + bound * random.real(-0.1, 0.1) * (i % 8), -bound, bound);
                Message out;
                function.clear(toy().evaluator, a, b, bound, out, accuracy);
                expectWithin(function, out, a, b, bound, accuracy, 1e-10);
            }
}

// ---- encrypted

/// What a toy ciphertext adds: 2^-33 for a product, some 30 times that for a stage, twice for a bound of 2.
constexpr double toyNoise = 0x1p-24;

TEST(Comparisons, CiphertextsAndPlansSpendTheSameLevelsAndAgreeWithTheClear) {
    Seeded random(402);
    SCOPED_TRACE(random.describe());
    for (const Function& function : functions())
        for (const Accuracy accuracy : {Accuracy{4, 4}, Accuracy{6, 9}, Accuracy{8, 7}}) {
            SCOPED_TRACE(testing::Message()
                         << function.name << " margin " << accuracy.margin << " error " << accuracy.error);
            const Message a = realMessage(random, 5, -1, 1), b = realMessage(random, 5, -1, 1);
            u64 levels = function.more;
            for (const u64 degree : signDegrees(accuracy.margin, accuracy.error))
                levels += levelsOfDegree(degree);
            ASSERT_LE(levels, 12);
            Ciphertext x = toy().encrypt(a, 12);
            const Ciphertext y = toy().encrypt(b, 12);
            function.encrypted(toy().evaluator, x, y, 1, x, accuracy);
            EXPECT_EQ(x.getLevel(), 12 - levels);
            EXPECT_EQ(x.getRescaleCounter(), 0);
            EXPECT_EQ(x.getNumPoly(), 2);
            Message clear;
            function.clear(toy().evaluator, a, b, 1, clear, accuracy);
            expectWithin(function, clear, a, b, 1, accuracy, 1e-10);
            EXPECT_LT(maxError(toy().decrypt(x), clear), toyNoise);

            const Plan plan(toy().context);
            PlannedCiphertext p = plan.encrypt(a, 12);
            function.planned(plan, p, plan.encrypt(b, 12), 1, p, accuracy);
            EXPECT_EQ(p.getLevel(), 12 - levels);
            EXPECT_LT(maxError(p.getMessage(), clear), 1e-10);
            EXPECT_TRUE(plan.getReport().leftRotations.empty());
        }
}

TEST(Comparisons, ALargeBoundSpendsAtMostOneLevelMore) {
    Seeded random(403);
    SCOPED_TRACE(random.describe());
    for (const double bound : {0.01, 1.9, 2.0, 3.0, 50.0}) {
        SCOPED_TRACE(bound);
        const Message a = realMessage(random, 5, -bound, bound);
        Ciphertext x = toy().encrypt(a, 12);
        sign(toy().evaluator, x, bound, x, {6, 7});
        EXPECT_GE(x.getLevel(), bound <= 2 ? 3 : 2);
        expectWithin(functions()[0], toy().decrypt(x), a, a, bound, {6, 7}, toyNoise);
    }
}

// ---- bootstraps

/// The fewest bootstraps of stages that spend these levels, from this level, of all placements between stages.
u64 fewestBootstraps(const std::vector<u64>& stages, u64 next, u64 level) {
    if (next == stages.size()) return 0;
    u64 fewest = 100;
    if (level >= stages[next] + least) fewest = fewestBootstraps(stages, next + 1, level - stages[next]);
    if (after >= stages[next] + least)
        fewest = std::min(fewest, 1 + fewestBootstraps(stages, next + 1, after - stages[next]));
    return fewest;
}

TEST(Comparisons, NoPlacementNeedsFewerBootstraps) {
    for (unsigned margin = leastSignExponent; margin <= mostSignExponent; ++margin)
        for (const unsigned error : {4U, 8U, 12U, 16U}) {
            std::vector<u64> stages;
            for (const u64 degree : signDegrees(margin, error)) stages.push_back(levelsOfDegree(degree));
            for (u64 level = least; level <= after; ++level) {
                SCOPED_TRACE(testing::Message() << margin << " " << error << " from level " << level);
                const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
                PlannedCiphertext x = plan.encrypt(Message(5, 0.5), level);
                sign(plan, x, 1, x, {margin, error});
                EXPECT_EQ(plan.getReport().bootstraps, fewestBootstraps(stages, 0, level));
                EXPECT_GE(plan.getReport().lowestLevel, least);
            }
        }
}

TEST(Comparisons, EveryFunctionStartsFromAnyLevelWithBootstraps) {
    Seeded random(404);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{12, 8};
    for (const Function& function : functions())
        for (u64 level = 4; level <= after; level += function.isOfBoth ? 4 : 3) {
            SCOPED_TRACE(testing::Message() << function.name << " from level " << level);
            const Message a = realMessage(random, 5, -1, 1), b = realMessage(random, 5, -1, 1);
            Ciphertext x = toy().encrypt(a, level);
            const Ciphertext y = toy().encrypt(b, after);
            Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
            PlannedCiphertext p = plan.encrypt(a, level);
            function.planned(plan, p, plan.encrypt(b, after), 1, p, accuracy);
            function.encrypted(toyBootstrapping(), x, y, 1, x, accuracy);
            EXPECT_EQ(x.getLevel(), p.getLevel());
            EXPECT_GE(plan.getReport().bootstraps, 1);
            // A stage takes an error of 2^-20 of its input; numbers themselves are bootstrapped too.
            const double noise = powerOfHalf(accuracy.error) / 8 + 2 * boot().realBound();
            expectWithin(function, toy().decrypt(x), a, b, 1, accuracy, noise);
        }
}

TEST(Comparisons, TwoNumbersThatRunOutTogetherTakeOneBootstrap) {
    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    const Message a(5, 0.5), b(5, -0.25);
    // {7, 15} for the sign: all of its levels are there behind one bootstrap, and those of the product.
    PlannedCiphertext out;
    max(plan, plan.encrypt(a, 4), plan.encrypt(b, 4), 1, out, {4, 8});
    EXPECT_EQ(plan.getReport().bootstraps, 1);
    EXPECT_EQ(out.getLevel(), 12 - 8);
    Plan other(toy().context, BootstrappingEvaluator::Precision::Standard);
    clamp(other, other.encrypt(a, 4), -0.5, 0.5, 1, out, {4, 8});
    EXPECT_EQ(other.getReport().bootstraps, 1);
}

// ---- refusals

TEST(Comparisons, RefusalsComeInOrderAndLeaveTheOutputAlone) {
    const HomEvaluator withoutKeys(toy().context, KeyPack(toy().context));
    Ciphertext out = toy().encrypt(Message(5, 0.25), 3);
    const Ciphertext before = out;
    const Ciphertext x = toy().encrypt(Message(5, 0.5), 12), low = toy().encrypt(Message(5, 0.5), 5);
    Ciphertext three = x;
    three.setNumPoly(3);
    Ciphertext owing = x;
    owing.setRescaleCounter(1);
    const Ciphertext foreign = Scheme::of(ParameterPreset::SD3).encrypt(Message(5, 0.5), 1);
    const double nan = std::nan("");
    EXPECT_REFUSED(sign(withoutKeys, three, nan, out, {3, 3}), "Size should be 2");
    EXPECT_REFUSED(sign(withoutKeys, owing, nan, out, {3, 3}),
                   "The Operand should have rescale counter zero");
    EXPECT_REFUSED(max(withoutKeys, x, foreign, nan, out, {3, 3}),
                   "Operands are not of the ring of the generated context.");
    const auto bound = [](const std::string& name, const std::string& number) {
        return name + " is given the bound " + number + " of its numbers; give one from 2^-32 to 2^32";
    };
    EXPECT_REFUSED(sign(withoutKeys, low, nan, out, {3, 3}), bound("sign", "nan"));
    EXPECT_REFUSED(step(withoutKeys, low, 0, out, {3, 3}), bound("step", "0"));
    EXPECT_REFUSED(abs(withoutKeys, low, -1, out, {3, 3}), bound("abs", "-1"));
    EXPECT_REFUSED(relu(withoutKeys, low, INFINITY, out, {3, 3}), bound("relu", "inf"));
    EXPECT_REFUSED(isBelow(withoutKeys, low, low, 0x1p33, out, {3, 3}), bound("isBelow", "8589934592"));
    EXPECT_REFUSED(clamp(withoutKeys, low, 1, 0, 0, out, {3, 3}), bound("clamp", "0"));
    const auto interval = [](const std::string& name, const std::string& numbers) {
        return name + " is given the interval from " + numbers +
               "; give the lower bound first, and both within the bound of the numbers";
    };
    EXPECT_REFUSED(clamp(withoutKeys, low, 0.5, 0.5, 1, out, {3, 3}), interval("clamp", "0.5 to 0.5"));
    EXPECT_REFUSED(clamp(withoutKeys, low, nan, 0.5, 1, out, {3, 3}), interval("clamp", "nan to 0.5"));
    EXPECT_REFUSED(isInInterval(withoutKeys, low, -0.5, 1.5, 1, out, {3, 3}),
                   interval("isInInterval", "-0.5 to 1.5"));
    const auto accuracy = [](const std::string& numbers) {
        return "sign is asked for with " + numbers +
               "; give 4 to 16 bits of margin and 4 to 16 bits of error";
    };
    EXPECT_REFUSED(sign(withoutKeys, low, 1, out, {3, 4}), accuracy("a margin of 2^-3 and an error of 2^-4"));
    EXPECT_REFUSED(sign(withoutKeys, low, 1, out, {17, 4}),
                   accuracy("a margin of 2^-17 and an error of 2^-4"));
    EXPECT_REFUSED(sign(withoutKeys, low, 1, out, {4, 3}), accuracy("a margin of 2^-4 and an error of 2^-3"));
    EXPECT_REFUSED(sign(withoutKeys, low, 1, out, {16, 17}),
                   accuracy("a margin of 2^-16 and an error of 2^-17"));
    const std::string bootstrapIt = ". Bootstrap it first, or give a BootstrappingEvaluator in place of the "
                                    "evaluator.";
    EXPECT_REFUSED(sign(withoutKeys, low, 1, out, {4, 4}),
                   "sign needs 6 levels, but the ciphertext has 5" + bootstrapIt);
    EXPECT_REFUSED(max(withoutKeys, x, low, 1, out, {4, 4}),
                   "max needs 7 levels, but the ciphertext has 5" + bootstrapIt);
    EXPECT_REFUSED(clamp(withoutKeys, low, 0, 1, 1, out, {4, 4}),
                   "clamp needs 7 levels, but the ciphertext has 5" + bootstrapIt);
    EXPECT_REFUSED(sign(withoutKeys, x, 1, out, {4, 4}), "Failed to load the multiplication key");
    EXPECT_REFUSED(max(withoutKeys, x, toy().encrypt(Message(4, 0.5), 12), 1, out, {4, 4}),
                   "Two operands have different logSlots");
    const Ciphertext tooLow = toy().encrypt(Message(5, 0.5), 2);
    EXPECT_REFUSED(
        sign(toyBootstrapping(), tooLow, 1, out),
        "sign has to bootstrap first, which needs a ciphertext at level 3 or above, but this one is at level "
        "2. Stop using its levels earlier.");
    EXPECT_TRUE(sameWords(out, before));
    Message none;
    EXPECT_REFUSED(sign(toy().evaluator, none, 1, none),
                   "The message has no slots. Give one with at least one slot.");
}

// ---- noise

TEST(Comparisons, NoiseIsFollowedThroughTheStages) {
    const std::vector<ChebyshevSeries> linear{ChebyshevSeries({0, 1})};
    EXPECT_NEAR(errorWithNoise(linear, 0.5, {0.125, 0.0625}), 0.6875, 1e-12); // 1 - (0.5 - 0.125) + 0.0625
    EXPECT_EQ(errorWithNoise(linear, 0.125, {0.125, 0}), 1);                  // the sign is lost
    for (const u64 b : {4, 8, 16}) {
        const auto stages = signComposite(8, b);
        EXPECT_LE(errorWithNoise(stages, 0x1p-8, std::vector<double>(stages.size() + 1, 0x1p-20)),
                  powerOfHalf(b) + 0x1p-20L);
    }
}

TEST(Comparisons, NumbersThatABootstrapWouldDrownAreRefused) {
    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    const PlannedCiphertext x = plan.encrypt(Message(5, 0x1p-24), 4);
    PlannedCiphertext out;
    EXPECT_REFUSED(
        sign(plan, x, 0x1p-12, out, {12, 4}),
        "sign needs signs from 2^-12 on, within 2^-4, but the noise of this parameter lets no error be "
        "promised there. Take a larger margin or a parameter with a larger scale.");
    sign(plan, x, 0x1p-3, out, {12, 4});
    sign(Plan(toy().context), plan.encrypt(Message(5, 0x1p-24)), 0x1p-12, out, {5, 4}); // none there
}

/// Numbers on both sides of the margin and up to 1.
Message typicalMessage(u64 logSlots, u64 margin, Seeded& random) {
    Message m(logSlots);
    for (u64 i = 0; i < m.getSize(); ++i) {
        const double size = std::exp2(random.real(-static_cast<double>(margin), 0));
        m[i] = i % 8 == 0 ? powerOfHalf(margin) : i % 8 == 1 ? 1 : size;
        if (i % 16 > 7) m[i] = -m[i];
    }
    return m;
}

/// Numbers from the margin on whose signs err most when noise of these sizes is added in the worst way.
Message worstMessage(u64 logSlots, u64 margin, u64 error, const std::vector<double>& noise) {
    const std::vector<ChebyshevSeries> stages = signComposite(margin, error);
    std::vector<std::pair<double, double>> points;
    for (u64 i = 0; i <= 4000; ++i) {
        const double x = std::exp2(-static_cast<double>(margin) * static_cast<double>(i) / 4000);
        double largest = 0;
        for (u64 choice = 0; choice < u64{1} << stages.size(); ++choice) {
            double y = x;
            for (u64 k = 0; k < stages.size(); ++k)
                y = stages[k].evaluate(y + (choice >> k & 1 ? noise[k] : -noise[k])).real();
            largest = std::max(largest, std::abs(y - 1));
        }
        points.emplace_back(largest, x);
    }
    std::ranges::sort(points, std::greater<>());
    Message m(logSlots);
    for (u64 i = 0; i < m.getSize(); ++i) m[i] = (i % 2 == 0 ? 1 : -1) * points[i / 2 % 16].second;
    return m;
}

/// The largest error of the composite on numbers of a plan, stage by stage.
double errorOfPlan(const Plan& plan, const Message& m, u64 margin, u64 error) {
    PlannedCiphertext x(PlannedCiphertextImpl{19, 0, 2, m, m}); // no error of an encryption
    for (const ChebyshevSeries& stage : signComposite(margin, error)) evaluate(plan, x, stage, x);
    double largest = 0;
    for (u64 i = 0; i < m.getSize(); ++i)
        largest = std::max(largest, std::abs(x.getNoisyMessage()[i].real() - (m[i].real() > 0 ? 1 : -1)));
    return largest;
}

bool isPromised(const Plan& plan, u64 logSlots, const Accuracy& accuracy) {
    PlannedCiphertext x = plan.encrypt(Message(logSlots, 0.5));
    try {
        sign(plan, x, 1, x, accuracy);
        return true;
    } catch (const RuntimeException&) {
        return false;
    }
}

// What is promised is kept for the numbers that are hit hardest; what is refused would be missed, or be short of that by
// less than a bit.
TEST(ComparisonsRealPreset, NoiseDecidesWhatIsPromised) {
    u64 refused = 0;
    for (const u64 logDegree : {12, 16}) {
        const Context context = makeContext(logDegree, 20, 45, 36, 50, 10);
        const u64 logSlots = getLogFullSlots(context);
        const Plan plan(context);
        const FunctionEvaluator<PlannedCiphertext> on = plan;
        for (const unsigned margin : {4U, 8U, 12U})
            for (unsigned error = leastSignExponent; error <= mostSignExponent; ++error) {
                SCOPED_TRACE(testing::Message()
                             << "log degree " << logDegree << " margin " << margin << " error " << error);
                const auto stages = signComposite(margin, error);
                const std::vector<SlotNoise> noise(stages.size(), on.operations().noise(19, 8, logSlots));
                const Message m = worstMessage(logSlots, margin, error, noiseOfStages(stages, noise));
                const double measured = errorOfPlan(plan, m, margin, error);
                if (isPromised(plan, logSlots, {margin, error})) {
                    EXPECT_LE(measured, powerOfHalf(error) * (1 + noiseShare));
                } else {
                    EXPECT_GT(measured, powerOfHalf(error) / 2);
                    ++refused;
                }
            }
    }
    EXPECT_GT(refused, 3);
}

TEST(ComparisonsRealPreset, ARefusalNamesTheBestError) {
    const Plan plan(makeContext(16, 20, 45, 36, 50, 10)), coarse(makeContext(ParameterPreset::FTa), {});
    PlannedCiphertext x = plan.encrypt(Message(15, 0.5)), y = coarse.encrypt(Message(14, 0.5));
    EXPECT_REFUSED(
        sign(plan, x, 1, x, {12, 13}),
        "sign needs signs from 2^-12 on, within 2^-13, but the noise of this parameter lets 2^-10 be "
        "promised at best. Allow a larger error or take a parameter with a larger scale.");
    sign(plan, x, 1, x, {12, 10});
    EXPECT_REFUSED(
        sign(coarse, y, 1, y, {8, 8}),
        "sign needs signs from 2^-8 on, within 2^-8, but the noise of this parameter lets no error be "
        "promised there. Take a larger margin or a parameter with a larger scale.");
}

TEST(ComparisonsRealPreset, ManySlotsErrAsPromised) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST19);
    Seeded random(406);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{12, 14};
    const Message a = typicalMessage(scheme.logFullSlots(), accuracy.margin, random);
    const Plan plan(scheme.context);
    PlannedCiphertext planned = plan.encrypt(a);
    abs(plan, planned, 1, planned, accuracy);
    Ciphertext x = scheme.encrypt(a, scheme.encryptionLevel());
    abs(scheme.evaluator, x, 1, x, accuracy);
    EXPECT_EQ(x.getLevel(), planned.getLevel());
    expectWithin(functions()[5], scheme.decrypt(x), a, a, 1, accuracy,
                 powerOfHalf(accuracy.error) * noiseShare);
}

TEST(ComparisonsRealPreset, EveryFunctionErrsAsPromised) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(407);
    SCOPED_TRACE(random.describe());
    const Accuracy accuracy{7, 8};
    const Message a = typicalMessage(scheme.logFullSlots(), accuracy.margin, random),
                  b = typicalMessage(scheme.logFullSlots(), accuracy.margin, random);
    const Plan plan(scheme.context);
    const PlannedCiphertext plannedA = plan.encrypt(a), plannedB = plan.encrypt(b);
    const Ciphertext x = scheme.encrypt(a, scheme.encryptionLevel()),
                     y = scheme.encrypt(b, scheme.encryptionLevel());
    for (const Function& function : functions()) {
        SCOPED_TRACE(function.name);
        PlannedCiphertext planned;
        function.planned(plan, plannedA, plannedB, 1, planned, accuracy);
        Ciphertext out(scheme.context);
        function.encrypted(scheme.evaluator, x, y, 1, out, accuracy);
        EXPECT_EQ(out.getLevel(), planned.getLevel());
        expectWithin(function, scheme.decrypt(out), a, b, 1, accuracy,
                     powerOfHalf(accuracy.error) * noiseShare);
    }
}

// ---- threads, memory and outputs

TEST(Comparisons, AFailedAllocationLeavesTheOutputAlone) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    Seeded random(408);
    const Ciphertext a = toy().encrypt(realMessage(random, 5, -1, 1), 12),
                     b = toy().encrypt(realMessage(random, 5, -1, 1), 12);
    test::expectUnchangedByFailedAllocations(
        toy().encrypt(Message(5, 0.5), 2), 37,
        [&](Ciphertext& out) {
            max(toy().evaluator, a, b, 1, out, {4, 4});
        },
        test::FailingAllocation::Thread::Any);
}

TEST(Comparisons, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    Seeded random(407);
    const Ciphertext a = toy().encrypt(realMessage(random, 5, -1, 1), 12),
                     b = toy().encrypt(realMessage(random, 5, -1, 1), 11);
    const Ciphertext first = test::expectSameWordsInEach(test::anyOutputs(), [&](Ciphertext& out) {
        max(toy().evaluator, a, b, 1, out, {4, 4});
    });
    Ciphertext overA = a, overB = b;
    max(toy().evaluator, overA, b, 1, overA, {4, 4});
    max(toy().evaluator, a, overB, 1, overB, {4, 4});
    EXPECT_TRUE(sameWords(first, overA));
    EXPECT_TRUE(sameWords(first, overB));
}

} // namespace
} // namespace Torvo
