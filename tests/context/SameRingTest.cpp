#include "context/SameRing.hpp"

#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/RingFamily.hpp"

#include <gtest/gtest.h>

using namespace Torvo;
using namespace Torvo::test;

namespace {

constexpr RefusedMeeting meeting{"keys are of another ring", "the evaluator's context",
                                 "make the evaluator with the context the keys were made with"};

} // namespace

TEST(SameRing, IsToldByDegreePrimesSplitAndDigits) {
    for (const auto& [ours, theirs] : foreignRings())
        EXPECT_FALSE(isSameRing(ours, theirs)) << shapeOf(ours) << " and " << shapeOf(theirs);
    // The split alone, and the digits alone, as no parameter set has them.
    const Context own = ringOfDigits(2), split = ringOfDigits(2), digits = ringOfDigits(2);
    split->parameter.chain_length = 3;
    split->parameter.numTP = 3;
    digits->parameter.gadget_rank = 4;
    EXPECT_FALSE(isSameRing(own, split));
    EXPECT_FALSE(isSameRing(own, digits));
}

TEST(SameRing, IsNotToldByNameOrIdentity) {
    const Context own = ringOfDigits(2);
    for (const Context& twin : twinsOf(own)) {
        ASSERT_NE(twin, own);
        EXPECT_TRUE(isSameRing(own, twin)) << twin->parameter.name;
        EXPECT_NO_THROW(requireSameRing(twin, own, meeting));
    }
    EXPECT_FALSE(*own == *twinsOf(own).back()) << "a twin that the comparison of parameters refuses";
}

// What each of the two comparisons is for.
TEST(SameRing, IsAnotherQuestionThanTheSameContext) {
    const Context own = ringOfDigits(2), twin = twinsOf(own).back();
    EXPECT_TRUE(isSameRing(own, twin));
    EXPECT_FALSE(isSameContext(own, twin));
    EXPECT_TRUE(isSameRing(makeContext(ParameterPreset::SD3D6R2), smallRingOfSD3())) << "whatever the rank";
    EXPECT_FALSE(isSameRing(own, makeContext(ParameterPreset::FX)));
}

TEST(SameRing, ARefusalNamesBothSides) {
    EXPECT_REFUSED(requireSameRing(ringOfDigits(2), ringOfDigits(4), meeting),
                   "keys are of another ring: degree 64, 4 + 2 primes, 2 digits (CUSTOM), but the "
                   "evaluator's context is degree 64, 4 + 1 primes, 4 digits (CUSTOM); make the evaluator "
                   "with the context the keys were made with");
    EXPECT_REFUSED(requireSameRing(distantRing(6), familyRing(6, 3), meeting),
                   "keys are of another ring: degree 64, 3 + 1 primes, 3 digits (CUSTOM), but the "
                   "evaluator's context is degree 64, 3 + 1 primes, 3 digits (CUSTOM), with other primes "
                   "from index 1 on; make the evaluator with the context the keys were made with");
    EXPECT_REFUSED(requireSharedPrimes(LWE::makeContext(LWE::ParameterPreset::SD3),
                                       makeContext(ParameterPreset::SGd0), 0, meeting),
                   "keys are of another ring: dimension 32, 4 primes (SD3), but the evaluator's context is "
                   "degree 65536, 1 + 1 primes, 1 digits (SGd0), with other primes from index 0 on; make the "
                   "evaluator with the context the keys were made with");
}

TEST(SameRing, SharedPrimesAreThoseOfTheCiphertextChainsUpToTheLevel) {
    const Context own = familyRing(6, 3), distant = distantRing(6), larger = familyRing(8, 2);
    EXPECT_TRUE(sharePrimes(own, distant, 0));
    EXPECT_FALSE(sharePrimes(own, distant, 1));
    EXPECT_TRUE(sharePrimes(own, larger, 1)) << "whatever the degree";
    EXPECT_FALSE(sharePrimes(own, larger, 2)) << "a level that one chain does not have";
    EXPECT_FALSE(sharePrimes(own, own, 3)) << "a temporary prime";
    const LWE::Context numbers = LWE::makeContext(LWE::ParameterPreset::SD3);
    EXPECT_TRUE(sharePrimes(numbers, smallRingOfSD3(), 3));
    EXPECT_TRUE(sharePrimes(smallRingOfSD3(), numbers, 3));
    EXPECT_FALSE(sharePrimes(numbers, own, 0));
    EXPECT_FALSE(sharePrimes(numbers, LWE::makeContext(32, 4, 50, 40), 0));
}

TEST(SameRing, WhatHasNoDigitsServesRingsThatShareTheRowsInUse) {
    const Context own = ringOfDigits(2), moreDigits = ringOfDigits(4);
    EXPECT_NO_THROW(requireSameRows(moreDigits, own, 3, false, meeting));
    EXPECT_THROW(requireSameRows(moreDigits, own, 3, true, meeting), RuntimeException)
        << "the temporary rows";
    EXPECT_NO_THROW(requireSameRows(distantRing(6), familyRing(6, 3), 0, false, meeting));
    EXPECT_THROW(requireSameRows(distantRing(6), familyRing(6, 3), 1, false, meeting), RuntimeException);
    EXPECT_THROW(requireSameRows(familyRing(7, 3), familyRing(6, 3), 0, false, meeting), RuntimeException);
    EXPECT_REFUSED(requireSameRows(familyModule(6, 3, 2), familyModule(6, 3, 4), 0, false, meeting),
                   "keys are of another ring: degree 64, rank 2, 3 + 1 primes, 3 digits (CUSTOM), but the "
                   "evaluator's context is degree 64, rank 4, 3 + 1 primes, 3 digits (CUSTOM); make the "
                   "evaluator with the context the keys were made with");
}

TEST(SameRing, APolynomialIsOfTheRingWhoseRowsItHasAtALevelOfItsChain) {
    const Context own = ringOfDigits(2);
    EXPECT_TRUE(isOfRing(own, Polynomial(own, false, true)));
    EXPECT_TRUE(isOfRing(own, Polynomial(own, true, false, 1)));
    EXPECT_TRUE(isOfRing(own, Polynomial(ringOfDigits(4), false, true)));
    EXPECT_FALSE(isOfRing(own, Polynomial(ringOfDigits(4), true, true)));
    EXPECT_FALSE(isOfRing(own, Polynomial(ringOfOtherPrimes(), false, true)));
    EXPECT_FALSE(isOfRing(own, Polynomial(ringOfOtherDegree(), false, true)));
    EXPECT_FALSE(isOfRing(own, Polynomial()));
    for (const bool isModUp : {false, true}) {
        Polynomial p(own, isModUp, true);
        for (const u64 level : {4, 5, 6, 7, 40}) {
            p.setLevel(level);
            EXPECT_FALSE(isOfRing(own, p)) << "level " << level << (isModUp ? ", mod-up" : "");
        }
    }
}
