#include "core/CudaMemoryResource.hpp"
#include "core/Failure.hpp"
#include "core/Forks.hpp"
#include "core/HostMemoryResource.hpp"
#include "core/MemoryResource.hpp"
#include "core/Messages.hpp"
#include "core/PinnedMemoryResource.hpp"

#include <map>
#include <memory>
#include <mutex>

namespace Torvo {

namespace {

std::unique_ptr<MemoryResource> makeMemoryResource(DeviceType type) {
    switch (type) {
    case DeviceType::CPU:
        return std::make_unique<HostMemoryResource>();
    case DeviceType::GPU:
        return std::make_unique<CudaMemoryResource>();
    case DeviceType::PinnedHost:
        return std::make_unique<PinnedMemoryResource>();
    }
    throw RuntimeException(message::noMemoryResource);
}

struct Registry {
    Registry() { holdDuringForks(mutex); }

    std::mutex mutex;
    std::map<Device, std::unique_ptr<MemoryResource>> resources;
};

Registry& registry() {
    // Never destroyed: arrays in static storage release their memory after the end of main.
    static auto& made = *new Registry;
    return made;
}

/// Constructed when the library is loaded: a child that was forked while another thread constructed it would
/// wait for ever.
[[maybe_unused]] const Registry& madeAtLoad = registry();

} // namespace

MemoryResource& getPerDeviceMemoryResource(const Device& device) {
    auto& [mutex, resources] = registry();
    const std::lock_guard lock(mutex);
    if (const auto found = resources.find(device); found != resources.end()) return *found->second;
    return *resources.emplace(device, makeMemoryResource(device.type)).first->second;
}

} // namespace Torvo
