#include "core/MultipleDevice.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "support/Expect.hpp"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

constexpr Device cpu{DeviceType::CPU, 0}, gpu{DeviceType::GPU, 0}, otherCpu{DeviceType::CPU, 1};

/// A value that differs from others and knows where it is.
struct Item {
    int number;
    Device device;
    void to(const Device& target) { device = target; }
};

using Items = MultipleDevice<std::vector<Item>>;

std::vector<Device> devicesOf(const Items& items) {
    std::vector<Device> devices;
    for (const auto& [device, value] : items.entries()) devices.push_back(device);
    return devices;
}

TEST(MultipleDevice, KeepsOneValuePerDevice) {
    Items items;
    items.set(cpu, {{1, cpu}});
    items.set(gpu, {{2, gpu}});
    items.set(cpu, {{3, cpu}});
    EXPECT_EQ(items.at(cpu)[0].number, 3);
    EXPECT_EQ(std::as_const(items).at(gpu)[0].number, 2);
}

TEST(MultipleDevice, ADeviceWithoutEntryIsOutOfRange) {
    Items items;
    EXPECT_THROW_TEXT(items.at(cpu), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(std::as_const(items).at(gpu), std::out_of_range, "map::at");
}

TEST(MultipleDevice, CopyMovesEveryElementAndReplacesTheOldValue) {
    Items items;
    items.set(cpu, {{1, cpu}, {2, cpu}});
    items.set(gpu, {{9, gpu}});
    items.copyTo_(cpu, gpu);
    ASSERT_EQ(items.at(gpu).size(), 2u);
    EXPECT_EQ(items.at(gpu)[1].number, 2);
    EXPECT_EQ(items.at(gpu)[0].device, gpu);
    EXPECT_EQ(items.at(cpu)[0].device, cpu);
    items.copyTo_(cpu, otherCpu);
    EXPECT_EQ(items.at(otherCpu)[1].device, otherCpu);
}

TEST(MultipleDevice, CopyReachesIntoNestedSequences) {
    MultipleDevice<std::vector<std::vector<Item>>> items;
    items.set(cpu, {{{1, cpu}}, {}, {{2, cpu}}});
    items.copyTo_(cpu, otherCpu);
    EXPECT_EQ(items.at(otherCpu)[2][0].device, otherCpu);
}

TEST(MultipleDevice, CopyFromADeviceWithoutEntryIsOutOfRange) {
    Items items;
    items.set(cpu, {{1, cpu}});
    EXPECT_THROW_TEXT(items.copyTo_(gpu, cpu), std::out_of_range, "map::at");
    EXPECT_EQ(items.at(cpu)[0].number, 1);
}

TEST(MultipleDevice, CopyThatFailsLeavesTheEntriesAsTheyWere) {
    MultipleDevice<DeviceSpecificArray<u64>> arrays;
    arrays.set(cpu, DeviceSpecificArray<u64>(2));
    EXPECT_REFUSED(arrays.copyTo_(cpu, gpu),
                   "Cannot support the function 'doAllocate' in the current build configuration");
    EXPECT_EQ(arrays.entries().size(), 1u);
    EXPECT_EQ(arrays.at(cpu).size(), 2u);
}

TEST(MultipleDevice, RemoveExceptKeepsTheEntryOfTheDevice) {
    Items items;
    items.set(cpu, {{1, cpu}});
    items.set(gpu, {{2, gpu}});
    items.set(otherCpu, {{3, otherCpu}});
    items.removeExcept(gpu);
    EXPECT_EQ(devicesOf(items), std::vector<Device>{gpu});
    EXPECT_EQ(items.at(gpu)[0].number, 2);
}

TEST(MultipleDevice, RemoveExceptTakesTheFirstValueInOrderOfIdThenType) {
    Items items;
    items.set(otherCpu, {{3, otherCpu}});
    items.set(gpu, {{2, gpu}});
    items.removeExcept(cpu);
    EXPECT_EQ(devicesOf(items), std::vector<Device>{cpu});
    EXPECT_EQ(items.at(cpu)[0].number, 2);
    EXPECT_EQ(items.at(cpu)[0].device, cpu);
}

TEST(MultipleDevice, RemoveExceptOnAnEmptyMapIsRefused) {
    Items items;
    EXPECT_REFUSED(items.removeExcept(cpu), "Value-device map is empty.");
    EXPECT_TRUE(items.mutex().try_lock());
    items.mutex().unlock();
}

TEST(MultipleDevice, EnsureCopiesTheFirstValueOnlyWhenThereIsNone) {
    Items items;
    EXPECT_REFUSED(items.ensure(cpu), "Value-device map is empty.");
    items.set(gpu, {{2, gpu}});
    items.ensure(cpu);
    EXPECT_EQ(items.at(cpu)[0].number, 2);
    EXPECT_EQ(items.at(cpu)[0].device, cpu);
    items.set(cpu, {{5, cpu}});
    items.ensure(cpu);
    EXPECT_EQ(items.at(cpu)[0].number, 5);
}

TEST(MultipleDevice, EveryMemberButCopyWaitsForTheMutex) {
    Items items;
    items.set(cpu, {{1, cpu}});
    const std::vector<std::function<void()>> members{[&] { items.at(cpu); },
                                                     [&] { std::as_const(items).at(cpu); },
                                                     [&] { (void)items.contains(cpu); },
                                                     [&] {
                                                         items.set(gpu, {{2, gpu}});
                                                     },
                                                     [&] { items.ensure(otherCpu); },
                                                     [&] { items.removeExcept(cpu); }};
    for (std::size_t i = 0; i < members.size(); ++i) {
        std::atomic<bool> returned = false;
        std::unique_lock lock(items.mutex());
        std::thread caller([&] {
            members[i]();
            returned = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time to return where nothing holds it
        EXPECT_FALSE(returned) << "member " << i;
        items.copyTo_(cpu, cpu); // for a caller that holds the mutex
        lock.unlock();
        caller.join();
    }
    EXPECT_EQ(devicesOf(items), std::vector<Device>{cpu});
}

} // namespace
} // namespace Torvo
