#include "functions/PlanOperations.hpp"

#include "functions/CipherOperations.hpp"
#include "functions/PlannedCiphertextImpl.hpp"

#include "support/Expect.hpp"
#include "support/Scheme.hpp"

#include <Torvo/Plan.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using test::Scheme;

/// Products on ciphertexts and on a plan, to which the same rules apply.
class PlanOperationsTest : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Message message = Message(3, 0.5);
    const Plan plan{scheme.context};
    const CipherOperations ciphers{scheme.evaluator};
    const PlanOperations plans{plan};

    Ciphertext encrypted(u64 level, int owed) const {
        Ciphertext x = scheme.encrypt(message, level);
        x.setRescaleCounter(owed);
        return x;
    }
    PlannedCiphertext planned(u64 level, int owed) const {
        return PlannedCiphertext({level, owed, 2, message, message});
    }

    /// Both operands break the rule of `text`, and so does one of them with a sound one.
    template <class Value>
    void expectProductsRefused(const Operations<Value>& on, const Value& bad, const Value& sound,
                               const char* forOne, const char* forTwo) const {
        Value out = on.unset();
        EXPECT_REFUSED(on.tensor(bad, bad, out), forTwo);
        EXPECT_REFUSED(on.tensor(bad, sound, out), forTwo);
        EXPECT_REFUSED(on.tensor(sound, bad, out), forTwo);
        EXPECT_REFUSED(on.multAtLevel(bad, 0.5, 1, out), forOne);
        EXPECT_REFUSED(on.multSlotsAtLevel(bad, Message(1, 0.5), 1, out), forOne);
    }
};

constexpr const char* levelZero = "The level of the operand is zero";

TEST_F(PlanOperationsTest, RefuseProductsAtLevelZeroAsTheEvaluatorDoes) {
    expectProductsRefused(ciphers, encrypted(0, 0), encrypted(5, 0), levelZero, levelZero);
    expectProductsRefused(plans, planned(0, 0), planned(5, 0), levelZero, levelZero);
    // Of several broken rules the level is named first.
    expectProductsRefused(plans, planned(0, 1), planned(5, 1), levelZero, levelZero);
}

TEST_F(PlanOperationsTest, RefuseProductsThatOweARescaleAsTheEvaluatorDoes) {
    const char* one = "The Operand should have rescale counter zero";
    const char* two = "The Operands should have rescale counter zero";
    expectProductsRefused(ciphers, encrypted(4, 1), encrypted(4, 0), one, two);
    expectProductsRefused(plans, planned(4, 1), planned(4, 0), one, two);
}

TEST_F(PlanOperationsTest, RefuseARescaleAtLevelZeroAsTheEvaluatorDoes) {
    Ciphertext x = encrypted(0, 0);
    EXPECT_REFUSED(ciphers.rescale(x), levelZero);
    PlannedCiphertext p = planned(0, 0);
    EXPECT_REFUSED(plans.rescale(p), levelZero);
}

TEST_F(PlanOperationsTest, RefuseAFactorForLevelZero) {
    PlannedCiphertext out;
    EXPECT_REFUSED(plans.multAtLevel(planned(4, 0), 0.5, 0, out), levelZero);
    EXPECT_REFUSED(plans.multSlotsAtLevel(planned(4, 0), message, 0, out), levelZero);
}

} // namespace
} // namespace Torvo
