#include <Torvo/Polynomials.hpp>

#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <complex>
#include <string>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using test::boot;
using test::maxError;
using test::realMessage;
using test::sameWords;
using test::Scheme;
using test::Seeded;
using test::toy;

double sigmoid(double x) {
    return 1 / (1 + std::exp(-x));
}

template <class Function>
Message mapped(Message m, Function f) {
    for (auto& slot : m) slot = f(slot);
    return m;
}

const ChebyshevSeries& sigmoidSeries() {
    static const ChebyshevSeries made = ChebyshevSeries::interpolate(sigmoid, 31, -8, 8);
    return made;
}

/// 2^-24: a toy product errs by 2^-33 or so, a Chebyshev series of degree 31 by some 30 times that.
constexpr double toyError = 0x1p-24;

TEST(Polynomials, ASeriesIsOneCallOnCiphertextsMessagesAndPlans) {
    Seeded random(11);
    SCOPED_TRACE(random.describe());
    const ChebyshevSeries& f = sigmoidSeries();
    const Message x = realMessage(random, 5, -8, 8);
    const Message expected = mapped(x, [&](Complex slot) { return f.evaluate(slot); });

    Ciphertext y = toy().encrypt(x, 8);
    evaluate(toy().evaluator, y, f, y);
    EXPECT_EQ(y.getLevel(), 2); // five levels, and one for the interval
    EXPECT_EQ(y.getNumPoly(), 2);
    EXPECT_EQ(y.getRescaleCounter(), 0);
    EXPECT_EQ(y.getLogSlots(), 5);
    EXPECT_LT(maxError(toy().decrypt(y), expected), toyError);

    Message inTheClear;
    evaluate(toy().evaluator, x, f, inTheClear);
    EXPECT_LT(maxError(inTheClear, expected), 1e-13);

    const Plan plan(toy().context);
    PlannedCiphertext planned = plan.encrypt(x, 8);
    evaluate(plan, planned, f, planned);
    EXPECT_EQ(planned.getLevel(), 2);
    EXPECT_LT(maxError(planned.getMessage(), expected), 1e-13);
    EXPECT_EQ(plan.getReport().lowestLevel, 2);
    EXPECT_GT(plan.getReport().relinearizations, 0);
    EXPECT_TRUE(plan.getReport().leftRotations.empty());
}

TEST(Polynomials, ManySeriesOfOneArgumentShareItsPowers) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    const std::vector<ChebyshevSeries> f{
        ChebyshevSeries::interpolate([](double x) { return std::exp(x); }, 15),
        ChebyshevSeries::interpolate([](double x) { return std::sin(3 * x); }, 31), ChebyshevSeries({0.25}),
        ChebyshevSeries({0.5, Complex(0, 0.5)})};
    const Message x = realMessage(random, 5, -1, 1);
    Plan plan(toy().context);
    u64 apart = 0;
    for (const ChebyshevSeries& each : f) {
        PlannedCiphertext out;
        evaluate(plan, plan.encrypt(x), each, out);
        apart += plan.getReport().relinearizations;
        plan.reset();
    }
    std::vector<PlannedCiphertext> planned;
    evaluate(plan, plan.encrypt(x), f, planned);
    EXPECT_LT(plan.getReport().relinearizations, apart);

    const u64 level = toy().encryptionLevel();
    std::vector<Ciphertext> outs;
    evaluate(toy().evaluator, toy().encrypt(x, level), f, outs);
    ASSERT_EQ(outs.size(), f.size());
    const std::vector<u64> levels{level - 4, level - 5, level, level - 1};
    for (u64 k = 0; k < f.size(); ++k) {
        EXPECT_EQ(outs[k].getLevel(), levels[k]) << k;
        EXPECT_EQ(planned[k].getLevel(), levels[k]) << k;
        const Message expected = mapped(x, [&](Complex slot) { return f[k].evaluate(slot); });
        EXPECT_LT(maxError(toy().decrypt(outs[k]), expected), toyError) << k;
    }
}

TEST(Polynomials, EachBlockOfSlotsMayHaveASeriesOfItsOwn) {
    Seeded random(13);
    SCOPED_TRACE(random.describe());
    for (const u64 logSlots : {2, 5}) {
        for (const u64 count : {u64{1}, u64{2}, u64{1} << logSlots}) {
            SCOPED_TRACE(testing::Message() << count << " series on 2^" << logSlots << " slots");
            std::vector<ChebyshevSeries> f;
            for (u64 k = 0; k < count; ++k)
                f.push_back(ChebyshevSeries::interpolate(
                    [k](double x) { return std::cos(static_cast<double>(k + 1) * x / 4); }, 3 + 2 * (k % 5),
                    -2, 2));
            const Message x = realMessage(random, logSlots, -2, 2);
            const u64 length = x.getSize() / count;
            Message expected = x;
            for (u64 i = 0; i < x.getSize(); ++i) expected[i] = f[i / length].evaluate(x[i]);
            Ciphertext y = toy().encrypt(x, 9);
            evaluateBlockwise(toy().evaluator, y, f, y);
            EXPECT_LT(maxError(toy().decrypt(y), expected), toyError);
        }
    }
}

TEST(Polynomials, MonomialsTakeComplexArguments) {
    Seeded random(14);
    SCOPED_TRACE(random.describe());
    for (const u64 degree : {0, 1, 2, 3, 6, 7, 8, 20}) {
        SCOPED_TRACE(degree);
        std::vector<Complex> c;
        for (u64 k = 0; k <= degree; ++k)
            c.emplace_back(random.real(-1, 1) / 8, k % 2 == 0 ? 0 : random.real(-1, 1) / 8);
        const Message x = random.message(5, 0.7);
        const Message expected = mapped(x, [&](Complex slot) {
            std::complex<long double> sum = 0, power = 1;
            for (const Complex& each : c) {
                sum += std::complex<long double>(each) * power;
                power *= std::complex<long double>(slot);
            }
            return Complex(sum);
        });
        Ciphertext y = toy().encrypt(x, 9);
        evaluateMonomials(toy().evaluator, y, c, y);
        EXPECT_EQ(y.getLevel(), 9 - std::bit_width(degree));
        EXPECT_LT(maxError(toy().decrypt(y), expected), toyError);
    }
}

TEST(Polynomials, ABootstrappingEvaluatorStartsFromAnyLevel) {
    Seeded random(15);
    SCOPED_TRACE(random.describe());
    boot();
    const BootstrappingEvaluator evaluator(toy().evaluator, Bootstrapper(toy().evaluator));
    const ChebyshevSeries& f = sigmoidSeries();
    const Message x = realMessage(random, 5, -8, 8);
    const Message expected = mapped(x, [&](Complex slot) { return f.evaluate(slot); });
    for (u64 level = 4; level <= toy().encryptionLevel(); ++level) {
        SCOPED_TRACE(level);
        Ciphertext y = toy().encrypt(x, level);
        Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
        PlannedCiphertext planned = plan.encrypt(x, level);
        evaluate(plan, planned, f, planned);
        evaluate(evaluator, y, f, y);
        // 6 levels, and 4 that are kept because the numbers lie outside the unit square
        EXPECT_EQ(plan.getReport().bootstraps, level < 10 ? 1 : 0);
        EXPECT_EQ(y.getLevel(), level < 10 ? 12 - 6 : level - 6);
        EXPECT_EQ(planned.getLevel(), y.getLevel());
        // The slope of a sigmoid is at most 1/4, and a bootstrap of what was divided by 8 errs by 8 times its error.
        EXPECT_LT(maxError(toy().decrypt(y), expected), 2 * boot().realBound() + toyError);
    }
}

TEST(Polynomials, RefusalsComeInOrderAndLeaveTheOutputAlone) {
    const Scheme& other = Scheme::of(ParameterPreset::SD3);
    const ChebyshevSeries f({0, 1, 0, 1}), elsewhere({1, 1}, 0, 1);
    const HomEvaluator withoutKeys(toy().context, KeyPack(toy().context));
    Ciphertext out = toy().encrypt(Message(5, 0.25), 3);
    const Ciphertext before = out;
    Ciphertext x = toy().encrypt(Message(5, 0.5), 3);

    Ciphertext onCoefficients = x;
    onCoefficients.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(evaluate(toy().evaluator, onCoefficients, f, out),
                   "The operand have to encode the message on its slots");
    Ciphertext three = x;
    three.setNumPoly(3);
    EXPECT_REFUSED(evaluate(toy().evaluator, three, f, out), "Size should be 2");
    Ciphertext owing = x;
    owing.setRescaleCounter(1);
    EXPECT_REFUSED(evaluate(toy().evaluator, owing, f, out), "The Operand should have rescale counter zero");
    const Ciphertext foreign = other.encrypt(Message(5, 0.5), 1);
    EXPECT_REFUSED(evaluate(toy().evaluator, foreign, f, out),
                   "Operands are not of the ring of the generated context.");
    Ciphertext tooManySlots = x;
    tooManySlots.setLogSlots(62);
    EXPECT_REFUSED(
        evaluateBlockwise(toy().evaluator, tooManySlots, {f}, out),
        "The ciphertext says that it has log slots 62, but its ring has 5; set its log slots to those that "
        "it was encrypted with");
    const Ciphertext low = toy().encrypt(Message(5, 0.5), 1);
    EXPECT_REFUSED(
        evaluate(withoutKeys, low, f, out),
        "evaluate of degree 3 needs 2 levels, but the ciphertext has 1. Bootstrap it first, or give a "
        "BootstrappingEvaluator in place of the evaluator.");
    EXPECT_REFUSED(evaluate(withoutKeys, x, f, out), "Failed to load the multiplication key");

    std::vector<Ciphertext> outs{before};
    EXPECT_REFUSED(evaluate(toy().evaluator, x, std::vector<ChebyshevSeries>(), outs),
                   "[evaluate] The list of series is empty; give at least one");
    EXPECT_REFUSED(
        evaluate(toy().evaluator, x, std::vector<ChebyshevSeries>{f, f, elsewhere}, outs),
        "[evaluate] Series 2 is on the interval from 0 to 1, but the first one on that from -1 to 1; give "
        "series on one interval");
    EXPECT_REFUSED(evaluateBlockwise(toy().evaluator, x, {f, f, f}, out),
                   "[evaluate] The number of series is 3, which does not divide the 32 slots; give one for "
                   "each block of "
                   "equally many slots");
    EXPECT_REFUSED(evaluateMonomials(toy().evaluator, x, {1, std::nan("")}, out),
                   "[ChebyshevSeries] The coefficient of T_1 is nan; give finite numbers");
    EXPECT_REFUSED(
        evaluateMonomials(toy().evaluator, x, {}, out),
        "[ChebyshevSeries] The number of coefficients is 0; give 1 to 1024 of them, that of T_0 first");
    EXPECT_TRUE(sameWords(out, before));
    ASSERT_EQ(outs.size(), 1);
    EXPECT_TRUE(sameWords(outs[0], before));

    const Plan plan(toy().context);
    PlannedCiphertext planned = plan.encrypt(Message(5, 0.5), 1);
    EXPECT_REFUSED(
        evaluate(plan, planned, f, planned),
        "evaluate of degree 3 needs 2 levels, but the ciphertext has 1. Bootstrap it first, or give a "
        "BootstrappingEvaluator in place of the evaluator.");
    Message none;
    EXPECT_REFUSED(evaluate(toy().evaluator, none, f, none),
                   "The message has no slots. Give one with at least one slot.");
}

TEST(Polynomials, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    Seeded random(16);
    const Ciphertext x = toy().encrypt(realMessage(random, 5, -8, 8), 9);
    test::expectSameWordsInEach(test::anyOutputs(),
                                [&](Ciphertext& out) { evaluate(toy().evaluator, x, sigmoidSeries(), out); });
}

// Six times the predicted error: both are the largest of one run.
TEST(PolynomialsRealPreset, SeveralSeriesBlocksAndMonomialsErrAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::SS7);
    Seeded random(18);
    SCOPED_TRACE(random.describe());
    std::vector<ChebyshevSeries> f;
    for (const double k : {1, 2, 3, 4})
        f.push_back(ChebyshevSeries::interpolate([k](double x) { return std::cos(k * x / 4); }, 7, -2, 2));
    const std::vector<Complex> c{0.5, {0, 0.25}, -0.125, 0.25, {0.125, -0.25}};
    const Message x = realMessage(random, scheme.logFullSlots(), -2, 2),
                  z = random.message(scheme.logFullSlots(), 0.7);
    const Plan plan(scheme.context);
    const PlannedCiphertext plannedX = plan.encrypt(x), plannedZ = plan.encrypt(z);
    const Ciphertext encryptedX = scheme.encrypt(x, scheme.encryptionLevel()),
                     encryptedZ = scheme.encrypt(z, scheme.encryptionLevel());
    const auto expectAsPlanned = [&](const Ciphertext& got, const PlannedCiphertext& planned,
                                     const Message& expected) {
        EXPECT_EQ(got.getLevel(), planned.getLevel());
        EXPECT_LE(maxError(scheme.decrypt(got), expected), 6 * planned.getLargestError());
    };
    std::vector<PlannedCiphertext> plans;
    std::vector<Ciphertext> outs;
    evaluate(plan, plannedX, f, plans);
    evaluate(scheme.evaluator, encryptedX, f, outs);
    for (u64 k = 0; k < f.size(); ++k)
        expectAsPlanned(outs.at(k), plans.at(k),
                        mapped(x, [&](Complex slot) { return f[k].evaluate(slot); }));

    PlannedCiphertext planned;
    Ciphertext out(scheme.context);
    evaluateBlockwise(plan, plannedX, f, planned);
    evaluateBlockwise(scheme.evaluator, encryptedX, f, out);
    Message blocks = x;
    for (u64 i = 0; i < x.getSize(); ++i) blocks[i] = f[i / (x.getSize() / f.size())].evaluate(x[i]);
    expectAsPlanned(out, planned, blocks);

    evaluateMonomials(plan, plannedZ, c, planned);
    evaluateMonomials(scheme.evaluator, encryptedZ, c, out);
    expectAsPlanned(out, planned, mapped(z, [&](Complex slot) {
                        return c[0] + slot * (c[1] + slot * (c[2] + slot * (c[3] + slot * c[4])));
                    }));
}

TEST(PolynomialsRealPreset, ASigmoidOfManySlotsErrsAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    Seeded random(17);
    SCOPED_TRACE(random.describe());
    const Message x = realMessage(random, scheme.logFullSlots(), -8, 8);
    const Plan plan(scheme.context);
    PlannedCiphertext planned = plan.encrypt(x);
    evaluate(plan, planned, sigmoidSeries(), planned);
    const double estimate = plan.estimateSeconds();
    Ciphertext y = scheme.encrypt(x, scheme.encryptionLevel());
    const auto start = std::chrono::steady_clock::now();
    evaluate(scheme.evaluator, y, sigmoidSeries(), y);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Other programs may take the processor from either.
    EXPECT_GT(estimate, 0.1 * seconds);
    EXPECT_LT(estimate, 10 * seconds);
    EXPECT_EQ(plan.estimateSeconds(), estimate);
    EXPECT_EQ(y.getLevel(), planned.getLevel());
    const Message got = scheme.decrypt(y);
    double sum = 0;
    for (u64 i = 0; i < x.getSize(); ++i) sum += std::norm(got[i] - sigmoidSeries().evaluate(x[i]));
    const double error = std::sqrt(sum / static_cast<double>(x.getSize()));
    EXPECT_LT(std::abs(std::log2(error / planned.getError())), 0.5);
    EXPECT_LT(maxError(got, mapped(x, [](Complex slot) { return sigmoid(slot.real()); })), 0x1p-12);
}

} // namespace
} // namespace Torvo
