#include "core/Forks.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "support/ForkedChild.hpp"
#include "support/Sanitizer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using test::inChild;
using Words = std::vector<u64>;

TEST(Forks, AreCountedInChildrenOnly) {
    const u64 here = forkCount();
    const Words below = inChild([] {
        const u64 child = forkCount();
        Words counts = inChild([] { return Words{forkCount()}; });
        counts.push_back(child);
        return counts;
    });
    EXPECT_EQ(below, (Words{here + 2, here + 1}));
    EXPECT_EQ(inChild([] { return Words{forkCount()}; }), Words{here + 1});
    EXPECT_EQ(forkCount(), here);
}

// The other thread releases the mutex only after a while; the fork must wait for that.
TEST(Forks, NoOtherThreadHoldsARegisteredMutex) {
    static auto& mutex = *new std::mutex;
    holdDuringForks(mutex);
    std::atomic<bool> isHeld = false, isGivenBack = false, isOver = false;
    std::thread holder([&] {
        {
            const std::lock_guard lock(mutex);
            isHeld = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            isGivenBack = true;
        }
        isOver.wait(
            false); // a thread that ended before the fork is a leak of the child to the thread sanitizer
    });
    while (!isHeld) std::this_thread::yield();
    const Words inside = inChild([&] { return Words{isGivenBack, mutex.try_lock()}; });
    EXPECT_EQ(inside, (Words{1, 1}));
    isOver = true;
    isOver.notify_one();
    holder.join();
    EXPECT_TRUE(mutex.try_lock()) << "after the fork the parent gives it back too";
    mutex.unlock();
}

/// Large enough for the kept blocks, and for more of them than are kept.
void allocateAndFill(u64 round) {
    DeviceSpecificArray<u64> array((u64{1} << 17) + round % 8 * 4096);
    array[0] = array[array.size() - 1] = round;
}

TEST(Forks, ChildrenAllocateWhateverOtherThreadsAllocateMeanwhile) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED(); // whose allocator has locks of its own, held in the child for ever
    std::atomic<bool> isDone = false;
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            for (u64 round = 0; !isDone; ++round) allocateAndFill(round);
        });
    for (u64 child = 0; child < 200 && !testing::Test::HasFailure(); ++child) {
        const Words got = inChild([&] {
            for (u64 round = 0; round < 8; ++round) allocateAndFill(round);
            return Words{child};
        });
        EXPECT_EQ(got, Words{child});
    }
    isDone = true;
    for (auto& thread : threads) thread.join();
}

} // namespace
} // namespace Torvo
