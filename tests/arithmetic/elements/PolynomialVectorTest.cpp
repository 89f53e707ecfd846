#include "arithmetic/elements/PolynomialVector.hpp"

#include "support/Expect.hpp"
#include "support/NaiveRing.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace Torvo::test {
namespace {

constexpr Device secondHost{DeviceType::CPU, 1};

const Context& smallContext() {
    static const Context context = makeContext(6, 4, 50, 40, 51, 2, {});
    return context;
}

constexpr auto outOfRange = "vector::_M_range_check: __n (which is %zu) >= this->size() (which is %zu)";

std::string rangeError(u64 n, u64 size) {
    char text[128];
    std::snprintf(text, sizeof text, outOfRange, n, size);
    return text;
}

TEST(PolynomialVector, HoldsPolynomialsOfOneShape) {
    const PolynomialVector polys(smallContext(), 3, true, true);
    EXPECT_EQ(polys.getContext(), smallContext());
    EXPECT_EQ(polys.getSize(), 3u);
    EXPECT_EQ(polys.getDegree(), 64u);
    EXPECT_EQ(polys.getLevel(), 3u);
    EXPECT_TRUE(polys.isModUp());
    EXPECT_TRUE(polys.isNTT());
    EXPECT_EQ(polys.getDevice(), Device{});
    EXPECT_EQ(polys.getPoly(2).getNumRows(), 6u);
}

TEST(PolynomialVector, RefusesToAnswerForPolynomialsThatDiffer) {
    PolynomialVector polys(smallContext(), 3, false, false);
    polys.getPoly(2).setLevel(1);
    EXPECT_REFUSED(polys.getLevel(), "Polynomials have different levels");
    polys.getPoly(2).setNTT(true);
    EXPECT_REFUSED(polys.isNTT(), "Polynomials have different NTT states");
    polys.getPoly(1).to(secondHost);
    EXPECT_REFUSED(polys.getDevice(), "Polynomials are in different devices");
    EXPECT_FALSE(polys.isModUp());
    polys.getPoly(1) = Polynomial(smallContext(), true, false);
    EXPECT_REFUSED(polys.isModUp(), "Polynomials have different modUp states");
}

TEST(PolynomialVector, OfOnePolynomialAnswersForIt) {
    PolynomialVector polys(smallContext(), 1, false, true);
    polys.getPoly(0).setLevel(2);
    polys.getPoly(0).to(secondHost);
    EXPECT_EQ(polys.getLevel(), 2u);
    EXPECT_FALSE(polys.isModUp());
    EXPECT_TRUE(polys.isNTT());
    EXPECT_EQ(polys.getDevice(), secondHost);
}

TEST(PolynomialVector, ChecksTheRangeOfItsIndices) {
    PolynomialVector polys(smallContext(), 2, false, true);
    const PolynomialVector& constPolys = polys;
    EXPECT_THROW_TEXT(polys.getPoly(2), std::out_of_range, rangeError(2, 2));
    EXPECT_THROW_TEXT(constPolys.getPoly(7), std::out_of_range, rangeError(7, 2));
    PolynomialVector empty(smallContext(), 0, false, true);
    EXPECT_THROW_TEXT(empty.getLevel(), std::out_of_range, rangeError(0, 0));
    EXPECT_THROW_TEXT(empty.isModUp(), std::out_of_range, rangeError(0, 0));
    EXPECT_THROW_TEXT(empty.isNTT(), std::out_of_range, rangeError(0, 0));
    EXPECT_THROW_TEXT(empty.getDevice(), std::out_of_range, rangeError(0, 0));
}

TEST(PolynomialVector, SetsTheLevelOfAllAndTheSizeOfThoseNotModUp) {
    PolynomialVector plain(smallContext(), 2, false, true), modUp(smallContext(), 2, true, true);
    plain.setLevel(1);
    modUp.setLevel(1);
    for (u64 j = 0; j < 2; ++j) {
        EXPECT_EQ(plain.getPoly(j).getLevel(), 1u);
        EXPECT_EQ(plain.getPoly(j).getData().size(), 2 * 64u);
        EXPECT_EQ(modUp.getPoly(j).getLevel(), 1u);
        EXPECT_EQ(modUp.getPoly(j).getData().size(), 6 * 64u);
    }
}

TEST(PolynomialVector, GrowsByPolynomialsOfTheFirstOnesShapeAndKeepsTheOldOnes) {
    PolynomialVector polys(smallContext(), 2, true, true);
    polys.setLevel(1);
    Seeded random(44);
    for (Polynomial& p : polys.getPolys()) p = randomPolynomial(smallContext(), true, true, 1, random);
    polys.getPoly(0).setGerm(PolyGerm(std::array<u64, 128>{9}));
    const auto before = polys.getPolys();
    polys.setSize(5);
    ASSERT_EQ(polys.getSize(), 5u);
    for (u64 j = 0; j < 2; ++j)
        for (const u64 i : {0, 1, 4, 5}) EXPECT_EQ(rowOf(polys.getPoly(j), i), rowOf(before[j], i));
    EXPECT_TRUE(polys.getPoly(0).getGerm().has_value());
    for (u64 j = 2; j < 5; ++j) {
        const Polynomial& p = polys.getPoly(j);
        EXPECT_EQ(p.getDegree(), 64u);
        EXPECT_EQ(p.getNumBase(), 4u);
        EXPECT_EQ(p.getNumRows(), 6u);
        EXPECT_EQ(p.getLevel(), 1u);
        EXPECT_TRUE(p.isModUp());
        EXPECT_TRUE(p.isNTT());
        EXPECT_EQ(p.getPrimes(), before[0].getPrimes());
        EXPECT_EQ(p.getData().size(), 6 * 64u);
        EXPECT_FALSE(p.getGerm().has_value());
    }
    polys.setSize(1);
    EXPECT_EQ(polys.getSize(), 1u);
    EXPECT_EQ(rowOf(polys.getPoly(0), 5), rowOf(before[0], 5));
    polys.setSize(0);
    EXPECT_EQ(polys.getSize(), 0u);
}

TEST(PolynomialVector, MovesAndAllocatesAllItsPolynomials) {
    PolynomialVector polys(smallContext(), 2, false, true);
    polys.to(secondHost);
    EXPECT_EQ(polys.getDevice(), secondHost);
    polys.allocate({DeviceType::PinnedHost, 0});
    EXPECT_EQ(polys.getDevice(), (Device{DeviceType::PinnedHost, 0}));
}

} // namespace
} // namespace Torvo::test
