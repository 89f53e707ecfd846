#include "arithmetic/elements/LevelledVector.hpp"

#include <gtest/gtest.h>

#include <new>

namespace Torvo::test {
namespace {

TEST(LevelledVector, HoldsARowForEachLevel) {
    LevelledVector v(10, 3);
    EXPECT_EQ(v.getDimension(), 10u);
    EXPECT_EQ(v.getLevel(), 3u);
    EXPECT_EQ(v.getData().size(), 40u);
    EXPECT_EQ(v.getRow(3), v.getRow(0) + 30);
    EXPECT_EQ(v.getDevice(), Device{});
}

TEST(LevelledVector, FollowsItsLevelInSizeWithoutGivingMemoryBack) {
    LevelledVector v(10, 3);
    const u64* storage = v.getRow(0);
    v.getRow(3)[9] = 17;
    v.setLevel(0);
    EXPECT_EQ(v.getData().size(), 10u);
    v.setLevel(3);
    EXPECT_EQ(v.getRow(0), storage);
    EXPECT_EQ(v.getRow(3)[9], 0u); // what lay there is of an earlier use
}

TEST(LevelledVector, OfMoreWordsThanThereAreIsRefusedByTheAllocator) {
    EXPECT_THROW(LevelledVector(u64{1} << 61, 7), std::bad_alloc); // 2^64 words
    EXPECT_THROW(LevelledVector((u64{1} << 61) + 1, 7), std::bad_alloc);
    EXPECT_THROW(LevelledVector(1, ~u64{0}), std::bad_alloc);
    LevelledVector v(64, 1);
    for (const u64 level : {~u64{0}, u64{1} << 58, (u64{1} << 58) - 1, (u64{1} << 58) + 1})
        EXPECT_THROW(v.setLevel(level), std::bad_alloc) << level;
    EXPECT_EQ(v.getLevel(), 1u);
    EXPECT_EQ(v.getData().size(), 128u);
}

TEST(LevelledVector, MovesToAnotherDeviceOrAllocatesThere) {
    LevelledVector v(2, 1);
    v.getRow(1)[1] = 5;
    v.to({DeviceType::CPU, 1});
    EXPECT_EQ(v.getDevice(), (Device{DeviceType::CPU, 1}));
    EXPECT_EQ(v.getRow(1)[1], 5u);
    v.allocate({DeviceType::PinnedHost, 0});
    EXPECT_EQ(v.getDevice(), (Device{DeviceType::PinnedHost, 0}));
    EXPECT_EQ(v.getData().size(), 4u);
}

TEST(LevelledVector, OfAPlainLWEContextHasItsDimensionAndTopLevel) {
    const LevelledVector v(LWE::makeContext(5, 3, 50, 40));
    EXPECT_EQ(v.getDimension(), 5u);
    EXPECT_EQ(v.getLevel(), 2u);
    EXPECT_EQ(v.getData().size(), 15u);
}

} // namespace
} // namespace Torvo::test
