#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/LWEContext.hpp>

#include <gtest/gtest.h>

namespace Torvo {

namespace {

using namespace test;

const char* const incompatible = "The given two contexts are not compatible at any level";

/// In both orders.
u64 levelOf(const Context& a, const Context& b) {
    EXPECT_EQ(getMaxCompatibleLevel(a, b), getMaxCompatibleLevel(b, a));
    return getMaxCompatibleLevel(a, b);
}

} // namespace

TEST(MaxCompatibleLevel, OfAContextWithItselfIsItsTopLevel) {
    const Context toy = contextOf(ParameterPreset::FX), single = familyRing(6, 1);
    EXPECT_EQ(getMaxCompatibleLevel(toy, toy), 24U);
    EXPECT_EQ(getMaxCompatibleLevel(single, single), 0U);
}

TEST(MaxCompatibleLevel, IsThatOfTheShorterChainWhenAllItsPrimesAgree) {
    EXPECT_EQ(levelOf(familyRing(6, 3), familyRing(8, 3)), 2U);
    EXPECT_EQ(levelOf(familyRing(6, 2), familyRing(7, 3)), 1U);
    EXPECT_EQ(levelOf(familyRing(6, 1), familyRing(7, 3)), 0U);
    EXPECT_EQ(levelOf(contextOf(ParameterPreset::FX), contextOf(ParameterPreset::FGbD12L0)), 0U);
}

TEST(MaxCompatibleLevel, IsTheLastBeforeThePrimesPart) {
    EXPECT_EQ(levelOf(familyRing(6, 3), distantRing(6)), 0U);
    EXPECT_EQ(levelOf(smallRingOfSD3(), contextOf(ParameterPreset::SD3D6R2)), 3U);
}

TEST(MaxCompatibleLevel, DoesNotReachTheTemporaryPrimes) {
    const Context single = familyRing(6, 1), same = familyRing(6, 1);
    ASSERT_EQ(getPrimeList(single).size(), 2U);
    EXPECT_EQ(levelOf(single, same), 0U);
}

TEST(MaxCompatibleLevel, NeedsACommonBasePrime) {
    EXPECT_REFUSED(getMaxCompatibleLevel(familyRing(6, 3), strangerRing(6)), incompatible);
    const LWE::Context lwe = LWE::makeContext(LWE::ParameterPreset::SD3);
    EXPECT_REFUSED(getMaxCompatibleLevel(lwe, familyRing(6, 3)), incompatible);
}

TEST(MaxCompatibleLevel, OfPlainLWEFollowsTheSameRule) {
    const LWE::Context lwe = LWE::makeContext(LWE::ParameterPreset::SD3);
    EXPECT_EQ(getMaxCompatibleLevel(lwe, smallRingOfSD3()), 3U);
    const LWE::Context single = LWE::makeContext(LWE::ParameterPreset::FGbD12L0);
    EXPECT_EQ(getMaxCompatibleLevel(single, contextOf(ParameterPreset::FX)), 0U);
}

} // namespace Torvo
