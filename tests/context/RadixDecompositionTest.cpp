#include "context/RadixDecomposition.hpp"

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>
#include <omp.h>

#include <numeric>
#include <set>
#include <vector>

namespace Torvo {
namespace {

using Stages = std::vector<u64>;

Stages live(const RadixDecomposition& plan, const std::array<u64, 3>& values) {
    return {values.begin(), values.begin() + static_cast<std::ptrdiff_t>(plan.numStages)};
}

struct Row {
    u64 logSlots;
    Stages logRadix, step, babySteps, giantSteps;
};

// The plans of a few sizes, worked out by hand.
const Row table[] = {
    {1, {1}, {1}, {2}, {1}},
    {2, {2}, {1}, {2}, {2}},
    {3, {3}, {1}, {4}, {2}},
    {4, {4}, {1}, {4}, {4}},
    {5, {3, 2}, {4, 1}, {4, 4}, {2, 2}},
    {6, {3, 3}, {8, 1}, {4, 4}, {2, 4}},
    {7, {4, 3}, {8, 1}, {4, 4}, {4, 4}},
    {8, {3, 3, 2}, {32, 4, 1}, {4, 4, 4}, {2, 4, 2}},
    {9, {3, 3, 3}, {64, 8, 1}, {4, 4, 4}, {2, 4, 4}},
    {10, {4, 3, 3}, {64, 8, 1}, {4, 4, 4}, {4, 4, 4}},
    {14, {5, 4, 5}, {512, 32, 1}, {8, 8, 8}, {4, 4, 8}},
    {15, {5, 5, 5}, {1024, 32, 1}, {8, 8, 8}, {4, 8, 8}},
    {16, {6, 5, 5}, {1024, 32, 1}, {8, 8, 8}, {8, 8, 8}},
};

TEST(RadixDecomposition, PlansAsInTheTable) {
    for (const Row& row : table) {
        SCOPED_TRACE(row.logSlots);
        const RadixDecomposition plan(row.logSlots);
        ASSERT_EQ(plan.numStages, row.logRadix.size());
        EXPECT_EQ(live(plan, plan.logRadix), row.logRadix);
        EXPECT_EQ(live(plan, plan.step), row.step);
        EXPECT_EQ(live(plan, plan.babySteps), row.babySteps);
        EXPECT_EQ(live(plan, plan.giantSteps), row.giantSteps);
        for (u64 s = 0; s < plan.numStages; ++s) EXPECT_EQ(plan.radix[s], u64{1} << row.logRadix[s]);
    }
}

TEST(RadixDecomposition, CoversTheTransformAndTheDiagonalsOfEachStage) {
    for (u64 n = 1; n <= 16; ++n) {
        SCOPED_TRACE(n);
        const RadixDecomposition plan(n);
        ASSERT_EQ(plan.numStages, n <= 4 ? 1U : n <= 7 ? 2U : 3U);
        EXPECT_EQ(std::accumulate(plan.logRadix.begin(), plan.logRadix.end(), u64{0}), n);
        EXPECT_EQ(plan.step[plan.numStages - 1], 1U);
        for (u64 s = 0; s < plan.numStages; ++s) {
            EXPECT_EQ(plan.babySteps[s] * plan.giantSteps[s], (s == 0 ? 1 : 2) * plan.radix[s]);
            EXPECT_EQ(plan.step[s] * plan.radix[s], s == 0 ? u64{1} << n : plan.step[s - 1]);
        }
    }
}

TEST(RadixDecomposition, HasNoStageForOneSlot) {
    EXPECT_EQ(RadixDecomposition(0).numStages, 0U);
}

TEST(RadixDecomposition, ListsBabyAndGiantSteps) {
    using Indices = std::vector<long>;
    const RadixDecomposition one(1), eight(8), sixteen(16);
    EXPECT_EQ(one.getRotIndicesForBabyStep(0), (Indices{0, 1}));
    EXPECT_EQ(one.getRotIndicesForGiantStep(0), (Indices{0}));
    EXPECT_EQ(eight.getRotIndicesForBabyStep(0), (Indices{0, 32, 64, 96}));
    EXPECT_EQ(eight.getRotIndicesForGiantStep(0), (Indices{-128, 0}));
    EXPECT_EQ(eight.getRotIndicesForBabyStep(1), (Indices{0, 4, 8, 12}));
    EXPECT_EQ(eight.getRotIndicesForGiantStep(1), (Indices{-32, -16, 0, 16}));
    EXPECT_EQ(sixteen.getRotIndicesForGiantStep(2), (Indices{-32, -24, -16, -8, 0, 8, 16, 24}));
}

TEST(RadixDecomposition, ReducesSignedIndicesByTheFullSlotCount) {
    const Context& context = test::contextOf(ParameterPreset::FX); // 32 slots
    EXPECT_EQ(convertFromSgnIdx({0, 1, 31, 32, 33, -1, -4, -32, -33}, context),
              (std::vector<u64>{0, 1, 31, 0, 1, 31, 28, 0, 31}));
    EXPECT_TRUE(convertFromSgnIdx({}, context).empty());
}

using IndexSet = std::set<long>;

TEST(RotationsForBootstrap, OfTheBatchedFormAreAllOfEveryStage) {
    const Context& context = test::contextOf(ParameterPreset::FX);
    // Stages of step 4, baby 4, giant 2 and of step 1, baby 4, giant 2; nothing to fold.
    EXPECT_EQ(context->getRotIndicesForBootstrap(5, false), (IndexSet{4, 8, 12, -16, 1, 2, 3, -4}));
    // One stage, baby 4, giant 4, and a fold by 16.
    EXPECT_EQ(context->getRotIndicesForBootstrap(4, false), (IndexSet{1, 2, 3, -8, -4, 4, 16}));
    // Baby 2, giant 1.
    EXPECT_EQ(context->getRotIndicesForBootstrap(1, false), (IndexSet{1, 2, 4, 8, 16}));
    EXPECT_EQ(context->getRotIndicesForBootstrap(0, false), (IndexSet{1, 2, 4, 8, 16}));
}

TEST(RotationsForBootstrap, OfTheCompactFormAreOneStrideAndOneGapInEachDirection) {
    const Context& context = test::contextOf(ParameterPreset::FX);
    EXPECT_EQ(context->getRotIndicesForBootstrap(5, true), (IndexSet{4, -16, 1, -4}));
    // The first stage rotates to the right only.
    EXPECT_EQ(context->getRotIndicesForBootstrap(4, true), (IndexSet{1, -4, 16}));
    EXPECT_EQ(context->getRotIndicesForBootstrap(1, true), (IndexSet{1, 2, 4, 8, 16}));
    // In the second stage of 64 slots giant is 4: a gap to the left too. (No more slots than 32 here, so
    // nothing is folded.)
    EXPECT_EQ(context->getRotIndicesForBootstrap(6, true), (IndexSet{8, -32, 1, -4, 4}));
}

// More slots than the ring has, so that nothing is folded: the plan alone, as at real ring degrees.
TEST(RotationsForBootstrap, OfThreeStagesAreTheseInBothForms) {
    const Context& context = test::contextOf(ParameterPreset::FX);
    // Steps 32, 4, 1; baby steps 4, 4, 4; giant steps 2, 4, 2.
    EXPECT_EQ(context->getRotIndicesForBootstrap(8, false),
              (IndexSet{32, 64, 96, -128, 4, 8, 12, -32, -16, 16, 1, 2, 3, -4}));
    EXPECT_EQ(context->getRotIndicesForBootstrap(8, true), (IndexSet{32, -128, 4, -16, 16, 1, -4}));
    // Steps 512, 32, 1; baby steps 8, 8, 8; giant steps 4, 4, 8.
    EXPECT_EQ(context->getRotIndicesForBootstrap(14, true), (IndexSet{512, -4096, 32, -256, 256, 1, -8, 8}));
    // Steps 1024, 32, 1; baby steps 8, 8, 8; giant steps 4, 8, 8 and, for 16, 8, 8, 8.
    for (const u64 logSlots : {15, 16})
        EXPECT_EQ(context->getRotIndicesForBootstrap(logSlots, true),
                  (IndexSet{1024, -8192, 32, -256, 256, 1, -8, 8}));
}

TEST(RotationsForBootstrap, LeaveOutZeroAndNeedNoFoldForFullSlots) {
    const Context& context = test::contextOf(ParameterPreset::FX);
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const bool compact : {false, true}) {
            const auto indices = context->getRotIndicesForBootstrap(logSlots, compact);
            EXPECT_FALSE(indices.contains(0));
            for (u64 r = u64{1} << logSlots; r < 32; r *= 2)
                EXPECT_TRUE(indices.contains(static_cast<long>(r)));
        }
    EXPECT_FALSE(context->getRotIndicesForBootstrap(5, false).contains(32));
}

TEST(RotationsForBootstrap, AsAFreeFunctionAreTheBatchedOnes) {
    const Context& context = test::contextOf(ParameterPreset::FX);
    EXPECT_EQ(getRotIndicesForBootstrap(context, 4), context->getRotIndicesForBootstrap(4, false));
}

TEST(RotationsForBootstrap, AreRefusedWithoutBootstrapping) {
    const Context& context = test::contextOf(ParameterPreset::SD3);
    const char* text = "The parameter dose not support bootstrap.";
    EXPECT_REFUSED(context->getRotIndicesForBootstrap(3, true), text);
    EXPECT_REFUSED(getRotIndicesForBootstrap(context, 3), text);
    const SecretKey secretKey(context);
    EXPECT_REFUSED(KeyGenerator(context, secretKey).genRotKeysForBootstrap(3), text);
}

TEST(RotationsForBootstrap, AreRefusedForMoreSlotsThanTheRingHas) {
    const auto& scheme = test::Scheme::of(ParameterPreset::FX);
    const KeyGenerator generator(scheme.context, scheme.secretKey);
    const Context& without = test::contextOf(ParameterPreset::SD3);
    const SecretKey itsSecret(without);
    for (const u64 logSlots : {u64{6}, u64{62}, u64{63}, u64{64}, u64{65}, u64{1} << 40, ~u64{0}}) {
        SCOPED_TRACE(logSlots);
        const char* text = "log_slots should not exceed 5";
        EXPECT_REFUSED(getRotIndicesForBootstrap(scheme.context, logSlots), text);
        for (const bool compact : {false, true})
            EXPECT_REFUSED(generator.genRotKeysForBootstrap(logSlots, compact), text);
        EXPECT_REFUSED(Bootstrapper(scheme.evaluator, logSlots), text);
        // The refusal of a preset without bootstrapping comes first.
        const char* first = "The parameter dose not support bootstrap.";
        EXPECT_REFUSED(getRotIndicesForBootstrap(without, logSlots), first);
        EXPECT_REFUSED(KeyGenerator(without, itsSecret).genRotKeysForBootstrap(logSlots), first);
    }
    for (u64 index = 1; index < 32; ++index)
        EXPECT_FALSE(generator.getKeyPack().isLeftRotKeyLoaded(index)) << index;
}

TEST(RotationsForBootstrap, GetTheirKeysModuloTheSlots) {
    const auto& scheme = test::Scheme::of(ParameterPreset::FX);
    for (const bool compact : {false, true}) {
        const KeyGenerator generator(scheme.context, scheme.secretKey);
        generator.genRotKeysForBootstrap(5, compact);
        std::set<u64> expected;
        for (const long index : scheme.context->getRotIndicesForBootstrap(5, compact))
            expected.insert(static_cast<u64>(index) & 31);
        for (u64 index = 1; index < 32; ++index)
            EXPECT_EQ(generator.getKeyPack().isLeftRotKeyLoaded(index), expected.contains(index)) << index;
    }
}

// In ascending order of the signed indices: which random numbers a key gets depends on it.
TEST(RotationsForBootstrap, GetTheirKeysInTheOrderOfTheSet) {
    const auto& scheme = test::Scheme::of(ParameterPreset::FX);
    const int team = omp_get_max_threads();
    omp_set_num_threads(1); // every thread of a team has numbers of its own
    const KeyGenerator together(scheme.context, scheme.secretKey), singly(scheme.context, scheme.secretKey);
    setSeed({1, 2, 3, 4});
    together.genRotKeysForBootstrap(5);
    setSeed({1, 2, 3, 4});
    for (const long index : {-16, -4, 1, 2, 3, 4, 8, 12}) singly.genRotKeyIfNotExist(index);
    omp_set_num_threads(team);
    for (const u64 index : {16, 28, 1, 2, 3, 4, 8, 12}) {
        auto a = together.getKeyPack().getLeftRotKey(index), b = singly.getKeyPack().getLeftRotKey(index);
        EXPECT_TRUE(test::sameWords(*a->getBxIter(Device{}), *b->getBxIter(Device{}))) << index;
    }
}

} // namespace
} // namespace Torvo
