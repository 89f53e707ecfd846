#include "arithmetic/elements/Polynomial.hpp"

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "support/Expect.hpp"
#include "support/NaiveRing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace Torvo::test {
namespace {

constexpr Device pinned{DeviceType::PinnedHost, 0};
constexpr Device secondHost{DeviceType::CPU, 1};

/// 4 ciphertext primes and 2 temporary ones, at degree 64.
const Context& smallContext() {
    static const Context context = makeContext(6, 4, 50, 40, 51, 2, {});
    return context;
}

TEST(Polynomial, IsMadeAtFullHeightOnTheHost) {
    const auto chain = getPrimeList(smallContext());
    const Polynomial p(smallContext(), false, true);
    EXPECT_EQ(p.getDegree(), 64u);
    EXPECT_EQ(p.getNumBase(), 4u);
    EXPECT_EQ(p.getNumRows(), 4u);
    EXPECT_EQ(p.getLevel(), 3u);
    EXPECT_FALSE(p.isModUp());
    EXPECT_TRUE(p.isNTT());
    EXPECT_EQ(p.getPrimes(), (std::vector<u64>{chain[0], chain[1], chain[2], chain[3]}));
    EXPECT_FALSE(p.getGerm().has_value());
    EXPECT_EQ(p.getData().size(), 4 * 64u);
    EXPECT_EQ(p.getDevice(), Device{});
    EXPECT_EQ(p.getData().getStream(), getDefaultStream());
}

TEST(Polynomial, InTheModUpStateHasTheTemporaryRowsToo) {
    const Polynomial p(smallContext(), true, false);
    EXPECT_EQ(p.getNumBase(), 4u);
    EXPECT_EQ(p.getNumRows(), 6u);
    EXPECT_EQ(p.getLevel(), 3u);
    EXPECT_TRUE(p.isModUp());
    EXPECT_FALSE(p.isNTT());
    EXPECT_EQ(p.getPrimes(), getPrimeList(smallContext()));
    EXPECT_EQ(p.getData().size(), 6 * 64u);
}

TEST(Polynomial, MadeAtALevelHasStorageForThatLevelAndNoMore) {
    const Polynomial p(smallContext(), false, true, 1);
    EXPECT_EQ(p.getLevel(), 1u);
    EXPECT_EQ(p.getNumBase(), 4u);
    EXPECT_EQ(p.getNumRows(), 4u);
    EXPECT_EQ(p.getData().size(), 2 * 64u);
    EXPECT_EQ(p.getData().capacity(), 2 * 64u);
    const Polynomial raised(smallContext(), true, true, 1);
    EXPECT_EQ(raised.getLevel(), 1u);
    EXPECT_EQ(raised.getData().size(), 6 * 64u); // temporary rows stay where they are
}

TEST(Polynomial, FollowsItsLevelInSizeWithoutGivingMemoryBack) {
    Polynomial p(smallContext(), false, false);
    const u64* first = p.getRow(0);
    p.getRow(3)[63] = 17;
    p.setLevel(1);
    EXPECT_EQ(p.getLevel(), 1u);
    EXPECT_EQ(p.getData().size(), 2 * 64u);
    EXPECT_EQ(p.rowEnd(), 2u);
    p.setLevel(3);
    EXPECT_EQ(p.getData().size(), 4 * 64u);
    EXPECT_EQ(p.getRow(0), first);
    EXPECT_EQ(p.getRow(3)[63], 0u); // what lay there is of an earlier use
    EXPECT_EQ(p.getRow(3), first + 3 * 64);
}

TEST(Polynomial, InTheModUpStateKeepsItsRowsAtEveryLevel) {
    Polynomial p(smallContext(), true, false);
    p.setLevel(1);
    EXPECT_EQ(p.getData().size(), 6 * 64u);
    EXPECT_EQ(p.rowEnd(), 6u);
    std::vector<bool> live;
    for (u64 i = 0; i < 6; ++i) live.push_back(p.isLiveRow(i));
    EXPECT_EQ(live, (std::vector<bool>{true, true, false, false, true, true}));
}

TEST(Polynomial, HasZerosInRowsThatComeToLife) {
    for (const bool modUp : {false, true}) {
        Polynomial p(smallContext(), modUp, false);
        std::fill(p.getData().begin(), p.getData().end(), 17);
        p.setLevel(0);
        p.setLevel(2);
        for (u64 i = 0; i <= 3; ++i) {
            const u64 expected =
                i == 1 || i == 2 ? 0 : 17; // row 3 is not inspected, in the capacity or a hole
            EXPECT_EQ(std::count(p.getRow(i), p.getRow(i) + 64, expected), 64) << "row " << i;
        }
        if (modUp) p.clearHoles();
        p.setLevel(3);
        EXPECT_EQ(std::count(p.getRow(3), p.getRow(3) + 64, 0u), 64);
        EXPECT_TRUE(!modUp || p.getRow(5)[63] == 17);
    }
}

TEST(Polynomial, KeepsItsLevelWhenThereIsNoMemoryForAnother) {
    Polynomial p(smallContext(), false, false);
    // 64 words for each of 2^58 + 1 rows would wrap around to 64.
    EXPECT_THROW(p.setLevel(u64{1} << 58), std::bad_array_new_length);
    EXPECT_EQ(p.getLevel(), 3u);
    EXPECT_EQ(p.getData().size(), 4 * 64u);
    EXPECT_THROW(Polynomial(smallContext(), false, false, u64{1} << 58), std::bad_array_new_length);
}

TEST(Polynomial, CopiesHeaderPrimesGermAndData) {
    Seeded random(41);
    Polynomial p = randomPolynomial(smallContext(), false, true, 2, random);
    p.setGerm(PolyGerm(std::array<u64, 128>{5}));
    Polynomial copy(smallContext(), true, false);
    copy = p;
    for (const Polynomial& other : {copy, Polynomial(p)}) {
        EXPECT_EQ(other.getLevel(), 2u);
        EXPECT_EQ(other.getNumRows(), 4u);
        EXPECT_FALSE(other.isModUp());
        EXPECT_TRUE(other.isNTT());
        EXPECT_EQ(other.getPrimes(), p.getPrimes());
        EXPECT_EQ(other.getGerm(), p.getGerm());
        for (u64 i = 0; i <= 2; ++i) EXPECT_EQ(rowOf(other, i), rowOf(p, i));
    }
    copy.getRow(0)[0] ^= 1;
    EXPECT_NE(copy.getRow(0)[0], p.getRow(0)[0]);
}

TEST(Polynomial, OnCopyAssignmentReusesItsStorage) {
    Polynomial small(smallContext(), false, false), large(smallContext(), true, false);
    const u64* storage = large.getRow(0);
    large = small;
    EXPECT_EQ(large.getRow(0), storage);
    EXPECT_EQ(large.getData().size(), 4 * 64u);
    const Polynomial& self = large;
    large = self;
    EXPECT_EQ(large.getRow(0), storage);
}

TEST(Polynomial, MovesItsStorage) {
    Polynomial p(smallContext(), false, true);
    const u64* storage = p.getRow(0);
    Polynomial moved(std::move(p));
    EXPECT_EQ(moved.getRow(0), storage);
    Polynomial assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getRow(0), storage);
    EXPECT_EQ(assigned.getLevel(), 3u);
}

TEST(Polynomial, MovesItsDataToAnotherDeviceOrAllocatesThere) {
    Seeded random(42);
    Polynomial p = randomPolynomial(smallContext(), false, false, 2, random);
    const Polynomial before = p;
    const u64* storage = p.getRow(0);
    p.to(Device{});
    p.allocate(Device{});
    EXPECT_EQ(p.getRow(0), storage);
    p.to(secondHost);
    EXPECT_EQ(p.getDevice(), secondHost);
    EXPECT_NE(p.getRow(0), storage);
    EXPECT_EQ(rowOf(p, 2), rowOf(before, 2));
    EXPECT_REFUSED(p.to(pinned), "Not supported. Build with TORVO_CUDA flag.");
    EXPECT_EQ(p.getDevice(), secondHost);
    p.allocate(pinned);
    EXPECT_EQ(p.getDevice(), pinned);
    EXPECT_EQ(p.getData().size(), 3 * 64u);
    EXPECT_REFUSED(p.allocate(Device({DeviceType::GPU, 0})),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(Polynomial, SwapsItsDataWithWhatItIsGiven) {
    Polynomial p(smallContext(), false, false);
    const u64* old = p.getRow(0);
    DeviceSpecificArray<u64> data(2 * 64);
    const u64* fresh = data.getData();
    p.setData(std::move(data));
    EXPECT_EQ(p.getRow(0), fresh);
    EXPECT_EQ(data.getData(), old);
    EXPECT_EQ(data.size(), 4 * 64u);
    p.setData(std::move(p.getData()));
    EXPECT_EQ(p.getRow(0), fresh);
    EXPECT_EQ(p.getData().size(), 2 * 64u);
}

TEST(Polynomial, GivesItsShapeWithoutItsGerm) {
    Polynomial p(smallContext(), true, true);
    p.setLevel(1);
    p.setGerm(PolyGerm(std::array<u64, 128>{}));
    const Polynomial other = p.sameShape();
    EXPECT_EQ(other.getDegree(), 64u);
    EXPECT_EQ(other.getNumBase(), 4u);
    EXPECT_EQ(other.getNumRows(), 6u);
    EXPECT_EQ(other.getLevel(), 1u);
    EXPECT_TRUE(other.isModUp());
    EXPECT_TRUE(other.isNTT());
    EXPECT_EQ(other.getPrimes(), p.getPrimes());
    EXPECT_EQ(other.getData().size(), p.getData().size());
    EXPECT_NE(other.getRow(0), p.getRow(0));
    EXPECT_FALSE(other.getGerm().has_value());
    p.disableGerm();
    EXPECT_FALSE(p.getGerm().has_value());
}

TEST(Polynomial, IsViewedByRowsAndWalkedInSequences) {
    Seeded random(43);
    struct Bearer {
        int other;
        Polynomial poly;
    };
    const std::vector<Bearer> bearers{{0, randomPolynomial(smallContext(), false, true, 3, random)},
                                      {1, randomPolynomial(smallContext(), false, true, 3, random)}};
    EXPECT_EQ(PolynomialView(bearers[0].poly).getRow(2), bearers[0].poly.getRow(2));
    const auto polyOf = [](const Bearer& b) -> const Polynomial& { return b.poly; };
    PolyIter it(bearers.begin(), polyOf);
    const PolyIter end(bearers.end(), polyOf);
    for (const Bearer& bearer : bearers) {
        EXPECT_FALSE(it == end);
        EXPECT_EQ(&*it, &bearer.poly);
        EXPECT_EQ(it.getRow(3), bearer.poly.getRow(3));
        ++it;
    }
    EXPECT_TRUE(it == end);
}

} // namespace
} // namespace Torvo::test
