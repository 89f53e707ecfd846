#include "core/CudaMemoryResource.hpp"
#include "core/HostMemoryResource.hpp"
#include "core/PinnedMemoryResource.hpp"
#include "support/Expect.hpp"

#include <cstdint>
#include <set>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

constexpr const char* noResource = "Cannot find a proper memory resource for the requested device.";
constexpr const char* noAllocation =
    "Cannot support the function 'doAllocate' in the current build configuration";

TEST(HostMemoryResource, GivesMemoryAlignedTo32BytesAndNullForNothing) {
    HostMemoryResource resource;
    EXPECT_EQ(resource.doAllocate(0, getDefaultStream()), nullptr);
    for (std::size_t bytes = 1; bytes < (1u << 22); bytes = 3 * bytes + 1) {
        void* p = resource.doAllocate(bytes, getDefaultStream());
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 32, 0u) << bytes;
        static_cast<char*>(p)[0] = 1;
        static_cast<char*>(p)[bytes - 1] = 1;
        resource.doDeallocate(p, bytes, getDefaultStream());
    }
}

TEST(PinnedMemoryResource, GivesNullForEverySize) {
    PinnedMemoryResource resource;
    EXPECT_EQ(resource.doAllocate(0, getDefaultStream()), nullptr);
    EXPECT_EQ(resource.doAllocate(64, getDefaultStream()), nullptr);
    EXPECT_NO_THROW(resource.doDeallocate(nullptr, 64, getDefaultStream()));
}

TEST(CudaMemoryResource, GivesNullForNothingAndRefusesTheRest) {
    CudaMemoryResource resource;
    EXPECT_EQ(resource.doAllocate(0, getDefaultStream()), nullptr);
    EXPECT_REFUSED(resource.doAllocate(1, getDefaultStream()), noAllocation);
    EXPECT_NO_THROW(resource.doDeallocate(nullptr, 1, getDefaultStream()));
}

TEST(MemoryResourceUtil, KindOfResourceFollowsTheKindOfDevice) {
    const auto resourceOf = [](DeviceType type) { return &getPerDeviceMemoryResource({type, 0}); };
    EXPECT_NE(dynamic_cast<HostMemoryResource*>(resourceOf(DeviceType::CPU)), nullptr);
    EXPECT_NE(dynamic_cast<CudaMemoryResource*>(resourceOf(DeviceType::GPU)), nullptr);
    EXPECT_NE(dynamic_cast<PinnedMemoryResource*>(resourceOf(DeviceType::PinnedHost)), nullptr);
}

TEST(MemoryResourceUtil, ADeviceKeepsItsResourceAndSharesItWithNoOther) {
    const auto* first = &getPerDeviceMemoryResource({DeviceType::CPU, 0});
    const auto* other = &getPerDeviceMemoryResource({DeviceType::CPU, 7});
    EXPECT_NE(first, other);
    EXPECT_EQ(first, &getPerDeviceMemoryResource({DeviceType::CPU, 0}));
    EXPECT_EQ(other, &getPerDeviceMemoryResource({DeviceType::CPU, 7}));
}

TEST(MemoryResourceUtil, AnUnknownKindOfDeviceIsRefusedEveryTime) {
    EXPECT_REFUSED(getPerDeviceMemoryResource({DeviceType{2}, 0}), noResource);
    EXPECT_REFUSED(getPerDeviceMemoryResource({DeviceType{2}, 0}), noResource);
    EXPECT_REFUSED(getPerDeviceMemoryResource({DeviceType{4}, 0}), noResource);
}

TEST(MemoryResourceUtil, ThreadsThatAskAtOnceGetOneResource) {
    constexpr int threadCount = 8;
    std::vector<MemoryResource*> seen(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&seen, t] { seen[t] = &getPerDeviceMemoryResource({DeviceType::CPU, 99}); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(std::set<MemoryResource*>(seen.begin(), seen.end()).size(), 1u);
}

} // namespace
} // namespace Torvo
