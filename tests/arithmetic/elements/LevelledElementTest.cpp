#include "arithmetic/elements/LevelledElement.hpp"

#include "support/Expect.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace Torvo::test {
namespace {

const Context& smallContext() {
    static const Context context = makeContext(6, 4, 50, 40, 51, 2, {});
    return context;
}

std::vector<u64> wordsOf(const LevelledElement& e) {
    return {e.getData().begin(), e.getData().end()};
}

TEST(LevelledElement, IsMadeZeroAtTheTop) {
    const LevelledElement plain(smallContext(), false), modUp(smallContext(), true);
    EXPECT_EQ(plain.getNumPrimes(), 4u);
    EXPECT_EQ(plain.getLevel(), 3u);
    EXPECT_FALSE(plain.isModUp());
    EXPECT_EQ(wordsOf(plain), std::vector<u64>(4));
    EXPECT_EQ(modUp.getNumPrimes(), 6u);
    EXPECT_EQ(modUp.getLevel(), 5u);
    EXPECT_TRUE(modUp.isModUp());
    EXPECT_EQ(wordsOf(modUp), std::vector<u64>(6));
}

TEST(LevelledElement, OfMinusOneIsOneBelowEachPrime) {
    const auto chain = getPrimeList(smallContext());
    const LevelledElement e(-1, smallContext(), false, 2);
    EXPECT_EQ(e.getLevel(), 2u);
    EXPECT_EQ(wordsOf(e), (std::vector<u64>{chain[0] - 1, chain[1] - 1, chain[2] - 1}));
}

TEST(LevelledElement, ReducesItsValueInAllRowsWhenModUp) {
    const auto chain = getPrimeList(smallContext());
    for (const long value : {0L, 5L, std::numeric_limits<long>::max(), std::numeric_limits<long>::min()}) {
        const LevelledElement e(value, smallContext(), true, 1);
        ASSERT_EQ(e.getData().size(), 6u);
        EXPECT_EQ(e.getLevel(), 1u);
        for (u64 i = 0; i < 6; ++i) {
            const i128 p = chain[i], r = value % p;
            EXPECT_EQ(e[i], static_cast<u64>(r < 0 ? r + p : r)) << value << ", row " << i;
        }
    }
}

TEST(LevelledElement, KeepsThePrimeItselfForANegativeMultipleOfIt) {
    const u64 p = getPrimeList(smallContext())[1];
    const LevelledElement e(-3 * static_cast<long>(p), smallContext(), false, 1);
    EXPECT_EQ(e[1], p);
}

TEST(LevelledElement, FollowsItsLevelInSizeUnlessModUp) {
    LevelledElement plain(7, smallContext(), false, 3), modUp(7, smallContext(), true, 3);
    plain.setLevel(0);
    modUp.setLevel(0);
    EXPECT_EQ(wordsOf(plain), (std::vector<u64>{7}));
    EXPECT_EQ(wordsOf(modUp), std::vector<u64>(6, 7));
}

TEST(LevelledElement, MovesToAnotherDeviceOrAllocatesThere) {
    LevelledElement e(7, smallContext(), false, 3);
    const u64* storage = e.getData().getData();
    e.allocate(Device{});
    EXPECT_EQ(e.getData().getData(), storage);
    e.to({DeviceType::CPU, 1});
    EXPECT_EQ(e.getDevice(), (Device{DeviceType::CPU, 1}));
    EXPECT_EQ(wordsOf(e), std::vector<u64>(4, 7));
    e.allocate({DeviceType::PinnedHost, 0});
    EXPECT_EQ(e.getDevice(), (Device{DeviceType::PinnedHost, 0}));
    EXPECT_EQ(e.getData().size(), 4u);
}

TEST(LevelledElement, OfAPlainLWEContextIsZeroAtItsTop) {
    const LevelledElement e(LWE::makeContext(5, 3, 50, 40));
    EXPECT_EQ(e.getNumPrimes(), 3u);
    EXPECT_EQ(e.getLevel(), 2u);
    EXPECT_FALSE(e.isModUp());
    EXPECT_EQ(wordsOf(e), std::vector<u64>(3));
}

TEST(LevelledElement, OfANumberInAPlainLWEContextKeepsAllItsRows) {
    const LWE::Context context = LWE::makeContext(5, 3, 50, 40);
    const auto chain = LWE::getPrimeList(context);
    const LevelledElement e(-2, context, 1);
    EXPECT_EQ(e.getLevel(), 1u);
    EXPECT_EQ(wordsOf(e), (std::vector<u64>{chain[0] - 2, chain[1] - 2, chain[2] - 2}));
    const LevelledElement multiple(-static_cast<long>(chain[1]), context, 0);
    EXPECT_EQ(multiple[1], chain[1]) << "a negative multiple of a prime is the prime itself";
}

} // namespace
} // namespace Torvo::test
