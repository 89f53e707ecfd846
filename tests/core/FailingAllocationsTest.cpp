#include "support/FailingAllocations.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "support/Sanitizer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <thread>

using namespace Torvo;
using namespace Torvo::test;

namespace {

/// By direct calls: a compiler may remove a pair of new and delete expressions, but not these.
void allocateAndFree() {
    static void* volatile kept = nullptr;
    kept = ::operator new(1);
    ::operator delete(kept);
}

TEST(FailingAllocations, FailOnceAfterTheCountedOnes) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const FailingAllocation failing(1);
    EXPECT_NO_THROW(allocateAndFree());
    EXPECT_FALSE(failing.hasFailed());
    EXPECT_THROW(allocateAndFree(), std::bad_alloc);
    EXPECT_TRUE(failing.hasFailed());
    EXPECT_NO_THROW(allocateAndFree());
}

// The allocator of arrays returns the blocks that it keeps and tries a second time, which fails too.
TEST(FailingAllocations, ReachTheArraysOfTheLibrary) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const DeviceSpecificArray<u64> first(3); // from here on the allocator itself is there
    const FailingAllocation failing(0);
    EXPECT_THROW(DeviceSpecificArray<u64>(3), std::bad_alloc);
    EXPECT_TRUE(failing.hasFailed());
    EXPECT_NO_THROW(DeviceSpecificArray<u64>(3));
}

TEST(FailingAllocations, CanBeThoseOfOtherThreadsAlone) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    bool threw = false;
    std::unique_ptr<FailingAllocation> failing;
    std::atomic<bool> isArmed = false;
    std::thread other([&] {
        while (!isArmed) std::this_thread::yield();
        try {
            allocateAndFree();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
    });
    failing = std::make_unique<FailingAllocation>(0, FailingAllocation::Thread::Others);
    EXPECT_NO_THROW(allocateAndFree());
    isArmed = true;
    other.join();
    EXPECT_TRUE(threw);
}

} // namespace
