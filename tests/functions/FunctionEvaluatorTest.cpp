#include <Torvo/FunctionEvaluator.hpp>

#include "functions/Operations.hpp"

#include "support/Expect.hpp"
#include "support/FunctionRuns.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::maxError;
using test::realMessage;
using test::sameWords;
using test::Seeded;
using test::toy;

constexpr u64 least = test::leastToBootstrap, after = test::afterBootstrap;

const Bootstrapper& bootstrapper() {
    static const Bootstrapper made = [] {
        boot(); // the keys
        return Bootstrapper(toy().evaluator);
    }();
    return made;
}

const Operations<Ciphertext>& bootstrapping(BootstrappingEvaluator::Precision precision = {}) {
    using Precision = BootstrappingEvaluator::Precision;
    static const FunctionEvaluator<Ciphertext> standard(
        BootstrappingEvaluator(toy().evaluator, bootstrapper())),
        extended(BootstrappingEvaluator(toy().evaluator, bootstrapper(), Precision::Extended));
    return (precision == Precision::Standard ? standard : extended).operations();
}

TEST(FunctionEvaluatorTest, AnEvaluatorAloneSaysHowManyLevelsAreMissing) {
    const FunctionEvaluator<Ciphertext> evaluator = toy().evaluator;
    Ciphertext x = toy().encrypt(Message(5, 0.5), 4);
    const Ciphertext before = x;
    evaluator.operations().prepare("sort", 4, {}, {&x});
    EXPECT_REFUSED(
        evaluator.operations().prepare("sort", 5, {}, {&x}),
        "sort needs 5 levels, but the ciphertext has 4. Bootstrap it first, or give a BootstrappingEvaluator "
        "in place of the evaluator.");
    EXPECT_TRUE(sameWords(x, before));
}

TEST(FunctionEvaluatorTest, LevelsAreBootstrappedAsLateAsPossibleFromEveryLevel) {
    Seeded random(1);
    SCOPED_TRACE(random.describe());
    for (const double bound : {1.0, 2.5}) {
        const u64 reserve = least + (bound > 1 ? 1 : 0);
        const long divisor = bound > 1 ? 3 : 1;
        for (u64 level = reserve; level <= after; ++level) {
            const Message message = random.message(5, bound);
            for (const u64 levels : {u64{1}, u64{4}, after - reserve}) {
                SCOPED_TRACE(testing::Message()
                             << levels << " levels from level " << level << ", bound " << bound);
                Ciphertext x = toy().encrypt(message, level);
                const Ciphertext before = x;
                bootstrapping().prepare("f", levels, {bound, false}, {&x});
                if (level >= levels + reserve) {
                    EXPECT_TRUE(sameWords(x, before));
                    continue;
                }
                EXPECT_EQ(x.getLevel(), after);
                EXPECT_LT(maxError(toy().decrypt(x), message),
                          static_cast<double>(divisor) * boot().complexBound());
            }
        }
    }
}

TEST(FunctionEvaluatorTest, TwoRealCiphertextsAreBootstrappedAsOne) {
    Seeded random(2);
    SCOPED_TRACE(random.describe());
    Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    const FunctionEvaluator<PlannedCiphertext> planned = plan;
    for (const u64 count : {1, 2, 3, 4}) {
        std::vector<Message> messages;
        std::vector<Ciphertext> xs;
        std::vector<PlannedCiphertext> plannedXs;
        for (u64 k = 0; k < count; ++k) {
            messages.push_back(realMessage(random, 5, -1.5, 1.5));
            xs.push_back(toy().encrypt(messages.back(), 4 + k));
            plannedXs.push_back(plan.encrypt(messages.back(), 4 + k));
        }
        std::vector<Ciphertext*> pointers;
        std::vector<PlannedCiphertext*> plannedPointers;
        for (u64 k = 0; k < count; ++k) {
            pointers.push_back(&xs[k]);
            plannedPointers.push_back(&plannedXs[k]);
        }
        plan.reset();
        bootstrapping().prepare("f", 6, {1.5, true}, pointers);
        planned.operations().prepare("f", 6, {1.5, true}, plannedPointers);
        EXPECT_EQ(plan.getReport().bootstraps, (count + 1) / 2);
        for (u64 k = 0; k < count; ++k) {
            EXPECT_EQ(xs[k].getLevel(), after);
            EXPECT_EQ(plannedXs[k].getLevel(), after);
            EXPECT_LT(maxError(toy().decrypt(xs[k]), messages[k]), 2 * boot().complexBound());
        }
    }
    // One that is there twice is bootstrapped once.
    Ciphertext x = toy().encrypt(realMessage(random, 5, -1, 1), 3);
    bootstrapping().prepare("f", 6, {1, true}, {&x, &x});
    EXPECT_EQ(x.getLevel(), after);
}

TEST(FunctionEvaluatorTest, WhatCannotBeBootstrappedIsRefusedAndUnchanged) {
    const Message message(5, 0.5);
    Ciphertext good = toy().encrypt(message, 3), low = toy().encrypt(message, 2);
    const Ciphertext before = good;
    EXPECT_REFUSED(
        bootstrapping().prepare("sort", 4, {}, {&good, &low}),
        "sort has to bootstrap first, which needs a ciphertext at level 3 or above, but this one is at level "
        "2. Stop using its levels earlier.");
    EXPECT_REFUSED(
        bootstrapping().prepare("sort", 4, {1.5, false}, {&good}),
        "sort has to bootstrap first, which needs a ciphertext at level 4 or above, but this one is at level "
        "3. Stop using its levels earlier.");
    EXPECT_REFUSED(
        bootstrapping().prepare("sort", 10, {}, {&good}),
        "sort needs 10 levels at once, but a bootstrap leaves 9 to spend. Take a parameter with more "
        "levels.");
    EXPECT_REFUSED(
        bootstrapping(BootstrappingEvaluator::Precision::Extended).prepare("sort", 4, {}, {&good}),
        "sort has to bootstrap first, which needs a ciphertext at level 4 or above, but this one is at level "
        "3. Stop using its levels earlier.");
    EXPECT_TRUE(sameWords(good, before));

    const Plan plan(toy().context, BootstrappingEvaluator::Precision::Standard);
    const FunctionEvaluator<PlannedCiphertext> planned = plan;
    PlannedCiphertext p = plan.encrypt(message, 2);
    EXPECT_REFUSED(
        planned.operations().prepare("sort", 4, {}, {&p}),
        "sort has to bootstrap first, which needs a ciphertext at level 3 or above, but this one is at level "
        "2. Stop using its levels earlier.");
}

TEST(FunctionEvaluatorTest, TheExtendedFormIsUsedWhereItIsAskedFor) {
    Seeded random(3);
    const Message message = random.message(5);
    Ciphertext standard = toy().encrypt(message, 4), extended = standard;
    bootstrapping().prepare("f", 5, {}, {&standard});
    bootstrapping(BootstrappingEvaluator::Precision::Extended).prepare("f", 5, {}, {&extended});
    EXPECT_EQ(extended.getLevel(), after);
    EXPECT_LT(4 * maxError(toy().decrypt(extended), message), maxError(toy().decrypt(standard), message));
}

TEST(PlanTest, AFreshCiphertextErrsAsAnEncryptionDoes) {
    Seeded random(4);
    const Message message = random.message(5);
    const Plan plan(toy().context);
    double predicted = 0, measured = 0;
    constexpr int times = 40;
    for (int k = 0; k < times; ++k) {
        predicted += std::pow(plan.encrypt(message).getError(), 2);
        const Message got = toy().decrypt(toy().encrypt(message, toy().encryptionLevel()));
        for (u64 i = 0; i < message.getSize(); ++i)
            measured += std::norm(got[i] - message[i]) / static_cast<double>(message.getSize());
    }
    // One key has one value of its error and of its secret at each of the 32 slots, which all encryptions share: the
    // mean of 32 squares of normal variables leaves these bounds with a chance below 2^-20.
    EXPECT_GT(measured / predicted, 0.35);
    EXPECT_LT(measured / predicted, 2.2);
    EXPECT_EQ(plan.encrypt(message).getLevel(), toy().encryptionLevel());
    EXPECT_EQ(plan.encrypt(message).getLogSlots(), 5);
}

TEST(PlanTest, RefusesWhatAnEncryptionRefuses) {
    const Plan plan(toy().context);
    EXPECT_REFUSED(plan.encrypt(Message(5, 1.0), toy().encryptionLevel() + 1),
                   "[encrypt] Level of an input Plaintext cannot be greater than encryption level.");
    EXPECT_REFUSED(Plan(nullptr), "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(
        Plan(test::Scheme::of(ParameterPreset::SD3).context, BootstrappingEvaluator::Precision::Standard),
        "The Parameter does not support bootstrap");
    EXPECT_THROW(plan.encrypt(Message(5, std::nan(""))), RuntimeException);
    EXPECT_THROW(plan.encrypt(Message(6, 0.5)), RuntimeException);
    EXPECT_THROW(plan.encrypt(Message()), RuntimeException);
}

} // namespace
} // namespace Torvo
