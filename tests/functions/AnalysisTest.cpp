#include <Torvo/Analysis.hpp>

#include "functions/Inverses.hpp"
#include "functions/Operations.hpp"

#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"
#include "support/Sanitizer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
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

using test::boot;
using test::maxError;
using test::recordSpending;
using test::sameWords;
using test::Scheme;
using test::Seeded;
using test::toy;
using test::toyBootstrapping;
using test::toyWithRotations;

template <class Value>
using Apply = std::function<void(const FunctionEvaluator<Value>&, const Value&, Value&)>;

/// A function on a domain, and what it should be there.
struct Case {
    std::string name;
    double lower, upper, error;
    std::function<long double(long double)> exact;
    Apply<Ciphertext> onCiphertexts;
    Apply<Message> onMessages;
    Apply<PlannedCiphertext> onPlans;
};

void PrintTo(const Case& test, std::ostream* stream) {
    *stream << test.name << " from " << test.lower << " to " << test.upper << " within " << test.error;
}

template <class Function>
Case made(const std::string& name, double lower, double upper, double error,
          std::function<long double(long double)> exact, Function apply) {
    return {name, lower, upper, error, std::move(exact), apply, apply, apply};
}

/// apply(on, in, lower, upper, error, out), or with one bound.
#define ON_INTERVAL(function)                                                                                \
    [=](const auto& on, const auto& in, auto& out) { function(on, in, lower, upper, error, out); }
#define ON_BOUND(function)                                                                                   \
    [=](const auto& on, const auto& in, auto& out) { function(on, in, upper, error, out); }

Case inverseCase(double lower, double upper, double error) {
    return made(
        "inverse", lower, upper, error, [](long double x) { return 1 / x; }, ON_INTERVAL(inverse));
}
Case sqrtCase(double lower, double upper, double error) {
    return made(
        "sqrt", lower, upper, error, [](long double x) { return std::sqrt(x); }, ON_INTERVAL(sqrt));
}
Case inverseSqrtCase(double lower, double upper, double error) {
    return made(
        "inverseSqrt", lower, upper, error, [](long double x) { return 1 / std::sqrt(x); },
        ON_INTERVAL(inverseSqrt));
}
Case expCase(double lower, double upper, double error) {
    return made(
        "exp", lower, upper, error, [](long double x) { return std::exp(x); }, ON_INTERVAL(exp));
}
Case logCase(double lower, double upper, double error) {
    return made(
        "log", lower, upper, error, [](long double x) { return std::log(x); }, ON_INTERVAL(log));
}

Case boundCase(const std::string& name, double upper, double error) {
    const double lower = -upper;
    if (name == "sigmoid")
        return made(
            name, lower, upper, error, [](long double x) { return 1 / (1 + std::exp(-x)); },
            ON_BOUND(sigmoid));
    if (name == "tanh")
        return made(
            name, lower, upper, error, [](long double x) { return std::tanh(x); }, ON_BOUND(tanh));
    if (name == "gelu")
        return made(
            name, lower, upper, error, [](long double x) { return x * std::erfc(-x / std::sqrt(2.0L)) / 2; },
            ON_BOUND(gelu));
    if (name == "sin")
        return made(
            name, lower, upper, error, [](long double x) { return std::sin(x); }, ON_BOUND(sin));
    return made(
        "cos", lower, upper, error, [](long double x) { return std::cos(x); }, ON_BOUND(cos));
}

/// Domains whose functions fit into the toy's 12 levels.
std::vector<Case> cases() {
    std::vector<Case> all{inverseCase(0.5, 2, 1e-6),     inverseCase(-3, -0.25, 1e-5),
                          inverseCase(0x1p-10, 1, 1),    sqrtCase(0.25, 4, 1e-6),
                          sqrtCase(0, 1, 1e-2),          sqrtCase(0x1p-10, 1, 1e-4),
                          inverseSqrtCase(0.5, 2, 1e-6), inverseSqrtCase(0x1p-8, 1, 1e-2),
                          expCase(-1, 1, 1e-7),          expCase(-8, 2, 1e-5),
                          logCase(0.5, 2, 1e-6),         logCase(0x1p-6, 8, 1e-3)};
    for (const char* name : {"sigmoid", "tanh", "gelu", "sin", "cos"}) {
        all.push_back(boundCase(name, 1, 1e-7));
        all.push_back(boundCase(name, 8, 1e-4));
    }
    return all;
}

/// `count` points of the domain, equally far from each other and closer towards both ends, with both ends among them,
/// in messages of 2^logSlots slots.
std::vector<Message> pointsOf(const Case& test, u64 logSlots, u64 count) {
    std::vector<Message> messages;
    const u64 slots = u64{1} << logSlots, last = count * slots - 1;
    for (u64 k = 0; k < count; ++k) {
        Message m(logSlots);
        for (u64 i = 0; i < slots; ++i) {
            // Neighbours in one message lie in all parts of the domain.
            const double share = static_cast<double>(i * count + k) / static_cast<double>(last);
            const double y = k % 2 == 0 ? share : share * share; // towards the lower end
            m[i] = std::clamp(test.lower + (test.upper - test.lower) * y, test.lower, test.upper);
        }
        messages.push_back(m);
    }
    messages.front()[0] = test.lower;
    messages.back()[slots - 1] = test.upper;
    return messages;
}

double errorOf(const Case& test, const Message& x, const Message& got) {
    double largest = 0;
    for (u64 i = 0; i < x.getSize(); ++i) {
        const auto exact = static_cast<double>(test.exact(static_cast<long double>(x[i].real())));
        largest = std::max(largest, std::abs(got[i] - exact));
    }
    return largest;
}

/// The predicted errors are those of one run, so that another run may err by a few times the largest of them.
constexpr double runs = 6;

std::string nameOf(const testing::TestParamInfo<Case>& test) {
    return std::to_string(test.index) + "_" + test.param.name;
}

class EveryFunction : public testing::TestWithParam<Case> {};

TEST_P(EveryFunction, IsWithinItsErrorOnTheWholeDomain) {
    const Case& test = GetParam();
    for (const u64 logSlots : {5, 2}) {
        for (const Message& x : pointsOf(test, logSlots, logSlots == 5 ? 6 : 1)) {
            Message inTheClear;
            test.onMessages(toy().evaluator, x, inTheClear);
            EXPECT_LE(errorOf(test, x, inTheClear), test.error * (1 + 1e-6) + 1e-12);

            const u64 level = toy().encryptionLevel();
            const Plan plan(toy().context);
            PlannedCiphertext planned = plan.encrypt(x, level);
            test.onPlans(plan, planned, planned);
            EXPECT_LE(errorOf(test, x, planned.getMessage()), test.error * (1 + 1e-6) + 1e-12);

            Ciphertext y = toy().encrypt(x, level);
            test.onCiphertexts(toy().evaluator, y, y);
            EXPECT_EQ(y.getLevel(), planned.getLevel());
            EXPECT_EQ(y.getLevel(), plan.getReport().lowestLevel);
            EXPECT_EQ(y.getNumPoly(), 2);
            EXPECT_EQ(y.getRescaleCounter(), 0);
            EXPECT_EQ(y.getLogSlots(), logSlots);
            EXPECT_LE(errorOf(test, x, toy().decrypt(y)), test.error + runs * planned.getLargestError());
            EXPECT_TRUE(plan.getReport().leftRotations.empty());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Analysis, EveryFunction, testing::ValuesIn(cases()), nameOf);

/// In the clear, where levels do not run out.
TEST(Analysis, WideDomainsAreReachedByStepsBehindAShortSeries) {
    for (const Case& test :
         {inverseCase(0x1p-20, 1, 1e-3 * 0x1p20), inverseCase(0x1p-20, 16, 1e-3),
          inverseCase(-1, -0x1p-30, 1), sqrtCase(0, 1, 0x1p-13), sqrtCase(0x1p-20, 1, 1e-6),
          sqrtCase(0, 1000, 0.01), inverseSqrtCase(0x1p-20, 1, 1e-6), inverseSqrtCase(0x1p-30, 4, 1e-3)}) {
        SCOPED_TRACE(testing::Message() << test.name << " from " << test.lower << " to " << test.upper);
        const Message x = pointsOf(test, 7, 1).front();
        Message y;
        test.onMessages(toy().evaluator, x, y);
        EXPECT_LE(errorOf(test, x, y), test.error * (1 + 1e-6) + 1e-12);
    }
}

// ---- bootstraps

TEST(Analysis, AFunctionStartsFromAnyLevelWithABootstrappingEvaluator) {
    const Case test = inverseCase(0.25, 1, 1e-5);
    const Message x = pointsOf(test, 5, 1).front();
    for (u64 level = 3; level <= toy().encryptionLevel(); ++level) {
        SCOPED_TRACE(level);
        const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
        PlannedCiphertext planned = plan.encrypt(x, level);
        test.onPlans(plan, planned, planned);
        Ciphertext y = toy().encrypt(x, level);
        test.onCiphertexts(toyBootstrapping(), y, y);
        EXPECT_EQ(y.getLevel(), planned.getLevel());
        EXPECT_LE(plan.getReport().bootstraps, 1);
        // The slope of 1 / x is at most 16 here.
        EXPECT_LE(errorOf(test, x, toy().decrypt(y)),
                  test.error + runs * planned.getLargestError() + 16 * boot().realBound());
    }
}

TEST(Analysis, StepsAreBootstrappedWhereTheirLevelsRunOut) {
    const Case test = sqrtCase(0, 1, 0x1p-13);
    const Message x = pointsOf(test, 5, 1).front();
    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    PlannedCiphertext planned = plan.encrypt(x);
    test.onPlans(plan, planned, planned);
    EXPECT_GT(plan.getReport().bootstraps, 2);
    Ciphertext y = toy().encrypt(x, toy().encryptionLevel());
    test.onCiphertexts(toyBootstrapping(), y, y);
    EXPECT_EQ(y.getLevel(), planned.getLevel());
    // A factor of the result that errs by d makes it err by d sqrt(x); each of up to 20 steps has a bootstrap at most,
    // of a factor 4.
    EXPECT_LE(errorOf(test, x, toy().decrypt(y)),
              test.error + runs * planned.getLargestError() + 80 * boot().realBound());
}

TEST(Analysis, AnInverseIsBootstrappedBetweenItsSteps) {
    const Case test = inverseCase(0x1p-9, 1, 0x1p-11);
    const Message x = pointsOf(test, 5, 1).front();
    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    PlannedCiphertext planned = plan.encrypt(x);
    test.onPlans(plan, planned, planned);
    EXPECT_GT(plan.getReport().bootstraps, 0);
    Ciphertext y = toy().encrypt(x, toy().encryptionLevel());
    test.onCiphertexts(toyBootstrapping(), y, y);
    EXPECT_EQ(y.getLevel(), planned.getLevel());
    // Of each step y, up to 2^9, and a factor of it are bootstrapped at most.
    const double steps = 4;
    EXPECT_LE(errorOf(test, x, toy().decrypt(y)),
              test.error + runs * planned.getLargestError() + steps * 2 * 0x1p9 * boot().realBound());
}

// ---- softmax

Message softmaxOf(const Message& x, u64 length) {
    Message out = x;
    for (u64 first = 0; first < x.getSize(); first += length) {
        long double sum = 0;
        for (u64 i = first; i < first + length; ++i) sum += std::exp(static_cast<long double>(x[i].real()));
        for (u64 i = first; i < first + length; ++i)
            out[i] = static_cast<double>(std::exp(static_cast<long double>(x[i].real())) / sum);
    }
    return out;
}

/// Numbers up to `bound`, where one block holds the bound alone, one its negative, and one both.
Message softmaxInput(Seeded& random, u64 logSlots, u64 length, double bound) {
    Message m = test::realMessage(random, logSlots, -bound, bound);
    for (u64 i = 0; i < length; ++i) {
        m[i] = bound;
        m[m.getSize() - 1 - i] = i == 0 ? bound : -bound;
    }
    return m;
}

TEST(Analysis, SoftmaxSumsUpOverBlocksOfEveryLength) {
    Seeded random(31);
    SCOPED_TRACE(random.describe());
    const Scheme& scheme = toyWithRotations();
    constexpr double error = 1e-5, bound = 1.5;
    for (const u64 logSlots : {5, 3}) {
        for (const u64 length : {0, 1, 2, 8}) {
            SCOPED_TRACE(testing::Message() << "blocks of " << length << " of 2^" << logSlots << " slots");
            const u64 real = length == 0 ? u64{1} << logSlots : length;
            const Message x = softmaxInput(random, logSlots, real, bound), expected = softmaxOf(x, real);
            Message inTheClear;
            softmax(scheme.evaluator, x, bound, error, inTheClear, length);
            EXPECT_LE(maxError(inTheClear, expected), error);

            const Plan plan(scheme.context);
            PlannedCiphertext planned = plan.encrypt(x);
            softmax(plan, planned, bound, error, planned, length);
            Ciphertext y = scheme.encrypt(x, scheme.encryptionLevel());
            softmax(scheme.evaluator, y, bound, error, y, length);
            EXPECT_EQ(y.getLevel(), planned.getLevel());
            EXPECT_LE(maxError(scheme.decrypt(y), expected), error + runs * planned.getLargestError());
            EXPECT_LT(planned.getLargestError(), 0x1p-20);
        }
    }
}

TEST(Analysis, SoftmaxStartsFromAnyLevelWithABootstrappingEvaluator) {
    Seeded random(32);
    SCOPED_TRACE(random.describe());
    const Scheme& scheme = toyWithRotations();
    constexpr double error = 1e-5;
    const Message x = softmaxInput(random, 5, 8, 1), expected = softmaxOf(x, 8);
    for (u64 level = 3; level <= scheme.encryptionLevel(); ++level) {
        SCOPED_TRACE(level);
        const Plan plan(scheme.context, BootstrappingEvaluator::Precision::Standard);
        PlannedCiphertext planned = plan.encrypt(x, level);
        softmax(plan, planned, 1, error, planned, 8);
        Ciphertext y = scheme.encrypt(x, level);
        softmax(toyBootstrapping(), y, 1, error, y, 8);
        EXPECT_EQ(y.getLevel(), planned.getLevel());
        EXPECT_GT(plan.getReport().bootstraps, 0);
        // With S the sum of E <= 1: an error d of the input makes the result err by d / 2, one of E by d / S, and S is
        // 1.08 or more; one of S, bootstrapped as a ninth, by 9 d E / S^2, at most 9 d / (4 * 7 e^-2); one of 1 / S,
        // bootstrapped as it is, by d.
        EXPECT_LE(maxError(scheme.decrypt(y), expected),
                  error + runs * planned.getLargestError() + 6 * boot().realBound());
    }
}

TEST(Analysis, SoftmaxNeedsThePlannedRotationsAndNoOthers) {
    const Scheme& scheme = toy();
    const Message x(5, 0.5);
    const Plan plan(scheme.context);
    PlannedCiphertext planned = plan.encrypt(x);
    softmax(plan, planned, 1, 1e-3, planned, 4);
    const std::set<unsigned long> indices = plan.getReport().leftRotations;
    EXPECT_EQ(indices, (std::set<unsigned long>{1, 2, 30, 31}));
    const auto evaluatorWith = [&](unsigned long leftOut) {
        const KeyPack pack(scheme.context);
        const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
        generator.genMultKey();
        for (const unsigned long index : indices)
            if (index != leftOut) generator.genLeftRotKey(index);
        return HomEvaluator(scheme.context, pack);
    };
    const Ciphertext in = scheme.encrypt(x, scheme.encryptionLevel());
    Ciphertext out = in;
    softmax(evaluatorWith(0), in, 1, 1e-3, out, 4);
    EXPECT_EQ(out.getLevel(), planned.getLevel());
    EXPECT_LT(maxError(scheme.decrypt(out), Message(5, 0.25)), 2e-3);
    const Ciphertext before = out;
    for (const unsigned long index : indices)
        EXPECT_THROW(softmax(evaluatorWith(index), in, 1, 1e-3, out, 4), RuntimeException) << index;
    EXPECT_TRUE(sameWords(out, before));
}

// ---- refusals

// The product of error and bound is no number any more: it is 0.
TEST(Analysis, AnInverseOfTheSmallestErrorTakesAFewStepsAndEnds) {
    for (const double error : {0.0, 5e-324, 1e-300}) {
        const IterationRoute route = routeOfInverse(0.25, 1, error, 63);
        EXPECT_LE(route.steps, 11); // 63 is reached from 1 - 2^-1022 by halving log(error) so often
        EXPECT_LE(route.start.getDegree(), 63);
    }
}

TEST(Analysis, WhatNoFunctionIsComputedOnIsRefusedInOrder) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Ciphertext three = toy().encrypt(Message(5, 0.5), 3), out = three;
    three.setNumPoly(3);
    const Ciphertext before = out;
    const HomEvaluator& on = toy().evaluator;
    EXPECT_REFUSED(
        inverse(on, three, -1, 1, -1, out),
        "inverse is given the interval from -1 to 1; give bounds of one sign, the lower one first, and both "
        "finite and not 0");
    EXPECT_REFUSED(
        inverse(on, three, 0, 1, -1, out),
        "inverse is given the interval from 0 to 1; give bounds of one sign, the lower one first, and both "
        "finite and not 0");
    EXPECT_REFUSED(
        inverse(on, three, 1, 1, -1, out),
        "inverse is given the interval from 1 to 1; give bounds of one sign, the lower one first, and both "
        "finite and not 0");
    EXPECT_REFUSED(
        inverse(on, three, 1, infinity, -1, out),
        "inverse is given the interval from 1 to inf; give bounds of one sign, the lower one first, and "
        "both finite and not 0");
    EXPECT_REFUSED(inverse(on, three, 0x1p-40, 1, 0, out),
                   "inverse is given the error 0; give a positive, finite one");
    EXPECT_REFUSED(
        inverse(on, three, 0x1p-3, 0x1p30, 1, out),
        "inverse is given the interval from 0.125 to 1073741824; give bounds with a ratio of 2^32 at most, "
        "or allow a larger error for a square root near 0");
    EXPECT_REFUSED(inverse(on, three, 1, 2, 1e-3, out), "Size should be 2");
    EXPECT_REFUSED(
        sqrt(on, three, -1, 1, nan, out),
        "sqrt is given the interval from -1 to 1; give finite bounds of 0 or more, the lower one first");
    EXPECT_REFUSED(sqrt(on, three, 0, 1, nan, out),
                   "sqrt is given the error nan; give a positive, finite one");
    EXPECT_REFUSED(
        inverseSqrt(on, three, 0, 1, 1, out),
        "inverseSqrt is given the interval from 0 to 1; give positive, finite bounds, the lower one first");
    EXPECT_REFUSED(exp(on, three, nan, 1, 0, out),
                   "exp is given the interval from nan to 1; give the lower bound first, and both finite");
    EXPECT_REFUSED(exp(on, three, 0, 1, infinity, out),
                   "exp is given the error inf; give a positive, finite one");
    EXPECT_REFUSED(
        log(on, three, 0, 1, 1, out),
        "log is given the interval from 0 to 1; give positive, finite bounds, the lower one first");
    EXPECT_REFUSED(sigmoid(on, three, 0, 0, out),
                   "sigmoid is given the bound 0; give a positive, finite one");
    EXPECT_REFUSED(tanh(on, three, nan, 0, out), "tanh is given the bound nan; give a positive, finite one");
    EXPECT_REFUSED(gelu(on, three, infinity, 0, out),
                   "gelu is given the bound inf; give a positive, finite one");
    EXPECT_REFUSED(sin(on, three, -1, 0, out), "sin is given the bound -1; give a positive, finite one");
    EXPECT_REFUSED(cos(on, three, 1, -2, out), "cos is given the error -2; give a positive, finite one");
    EXPECT_REFUSED(softmax(on, three, -1, 0, out, 3),
                   "softmax is given the bound -1; give a positive, finite one");
    EXPECT_REFUSED(softmax(on, three, 1, 0, out, 3),
                   "softmax is given the error 0; give a positive, finite one");
    EXPECT_REFUSED(softmax(on, three, 1, 0.1, out, 3), "Size should be 2");
    for (const u64 length : {3, 64})
        EXPECT_REFUSED(
            softmax(on, out, 1, 0.1, out, length),
            "softmax is given blocks of " + std::to_string(length) +
                " slots; give a power of two up to the 32 slots of the ciphertext, or 0 for one block of "
                "all");
    EXPECT_TRUE(sameWords(out, before));
    // What no series comes down to.
    EXPECT_THROW(log(on, out, 0x1p-40, 1, 1e-6, out), RuntimeException);
    EXPECT_TRUE(sameWords(out, before));
}

TEST(Analysis, MissingLevelsAreNamedTogether) {
    Ciphertext x = toy().encrypt(Message(5, 0.5), toy().encryptionLevel()), out = x;
    const Ciphertext before = out;
    EXPECT_REFUSED(inverse(toy().evaluator, x, 0x1p-30, 1, 1e-3 * 0x1p30, out),
                   "inverse needs 23 levels, but the ciphertext has 12. Bootstrap "
                   "it first, or give a BootstrappingEvaluator in place of the evaluator.");
    // Of softmax those of the exponentials, of the sum, of its inverse and of the product; before a key is looked for.
    const HomEvaluator withoutKeys(toy().context, KeyPack(toy().context));
    const Plan plan(toy().context);
    PlannedCiphertext planned = plan.encrypt(Message(5, 0.5));
    softmax(plan, planned, 1, 1e-3, planned, 4);
    const u64 levels = toy().encryptionLevel() - planned.getLevel();
    x = toy().encrypt(Message(5, 0.5), levels - 1);
    EXPECT_REFUSED(softmax(withoutKeys, x, 1, 1e-3, out, 4),
                   "softmax needs " + std::to_string(levels) + " levels, but the ciphertext has " +
                       std::to_string(levels - 1) +
                       ". Bootstrap it first, or give a BootstrappingEvaluator in place of the evaluator.");
    x = toy().encrypt(Message(5, 0.5), levels);
    EXPECT_REFUSED(softmax(withoutKeys, x, 1, 1e-3, out, 4),
                   "Failed to load the left rotation keys for indices 1, 2, 30, 31");
    softmax(toyWithRotations().evaluator, x, 1, 1e-3, x, 4);
    EXPECT_EQ(x.getLevel(), 0);
    EXPECT_TRUE(sameWords(out, before));
}

TEST(Analysis, TwoThreadsAndUsedOutputsGiveTheSameWords) {
    const Ciphertext x = toy().encrypt(Message(5, 0.5), 9);
    test::expectSameWordsInEach(test::anyOutputs(),
                                [&](Ciphertext& out) { inverse(toy().evaluator, x, 0.25, 1, 1e-4, out); });
}

TEST(Analysis, AFailedAllocationLeavesTheOutputAlone) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Ciphertext x = toy().encrypt(Message(5, 0.75), 5), before = toy().encrypt(Message(5, 0.5), 2);
    // Every third allocation: there are hundreds.
    test::expectUnchangedByFailedAllocations(
        before, 3, [&](Ciphertext& out) { inverse(toy().evaluator, x, 0.5, 1, 0.1, out); });
}

TEST(Analysis, AFailedAllocationInASoftmaxLeavesTheOutputAlone) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const Scheme& scheme = toyWithRotations();
    const Ciphertext x = scheme.encrypt(Message(5, 0.75), 8), before = scheme.encrypt(Message(5, 0.5), 2);
    test::expectUnchangedByFailedAllocations(
        before, 7, [&](Ciphertext& out) { softmax(scheme.evaluator, x, 0.5, 0.1, out, 4); });
}

// ---- real degrees

class AnalysisRealPreset : public testing::TestWithParam<Case> {};

/// With --gtest_output=json:FILE the numbers of docs/functions.md.
TEST_P(AnalysisRealPreset, ErrsAsThePlanPredicts) {
    const Case& test = GetParam();
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const Message x = pointsOf(test, scheme.logFullSlots(), 1).front();
    const Plan plan(scheme.context);
    PlannedCiphertext planned = plan.encrypt(x);
    test.onPlans(plan, planned, planned);
    Ciphertext y = scheme.encrypt(x, scheme.encryptionLevel());
    test.onCiphertexts(scheme.evaluator, y, y);
    EXPECT_EQ(y.getLevel(), planned.getLevel());
    const double measured = maxError(scheme.decrypt(y), planned.getMessage());
    EXPECT_LE(measured, 4 * planned.getLargestError());
    EXPECT_GE(measured, planned.getLargestError() / 4);
    EXPECT_LE(errorOf(test, x, scheme.decrypt(y)), test.error + 4 * planned.getLargestError());
    RecordProperty("domain", std::to_string(test.lower) + " to " + std::to_string(test.upper));
    RecordProperty("log2_error_wanted", std::to_string(std::log2(test.error)));
    recordSpending(scheme.encryptionLevel() - y.getLevel(), plan, planned.getLargestError(), measured);
}

INSTANTIATE_TEST_SUITE_P(Analysis, AnalysisRealPreset, testing::ValuesIn(cases()), nameOf);

TEST(SoftmaxRealPreset, OfManyBlocksErrsAsThePlanPredicts) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    generator.genMultKey();
    Seeded random(33);
    SCOPED_TRACE(random.describe());
    constexpr double error = 1e-4;
    const Message x = softmaxInput(random, scheme.logFullSlots(), 4, 1), expected = softmaxOf(x, 4);
    const Plan plan(scheme.context);
    PlannedCiphertext planned = plan.encrypt(x);
    softmax(plan, planned, 1, error, planned, 4);
    for (const unsigned long index : plan.getReport().leftRotations) generator.genLeftRotKey(index);
    Ciphertext y = scheme.encrypt(x, scheme.encryptionLevel());
    softmax(HomEvaluator(scheme.context, pack), y, 1, error, y, 4);
    EXPECT_EQ(y.getLevel(), planned.getLevel());
    const double measured = maxError(scheme.decrypt(y), planned.getMessage());
    EXPECT_LE(measured, 4 * planned.getLargestError());
    EXPECT_GE(measured, planned.getLargestError() / 4);
    EXPECT_LE(maxError(scheme.decrypt(y), expected), error + measured);
    recordSpending(scheme.encryptionLevel() - y.getLevel(), plan, planned.getLargestError(), measured);
}

} // namespace
} // namespace Torvo
