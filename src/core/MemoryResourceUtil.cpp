#include "core/CudaMemoryResource.hpp"
#include "core/Failure.hpp"
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

} // namespace

MemoryResource& getPerDeviceMemoryResource(const Device& device) {
    using Registry = std::map<Device, std::unique_ptr<MemoryResource>>;
    // Never destroyed: arrays in static storage give their memory back after the end of main.
    static auto& registry = *new Registry;
    static std::mutex mutex;

    const std::lock_guard lock(mutex);
    if (const auto found = registry.find(device); found != registry.end()) return *found->second;
    return *registry.emplace(device, makeMemoryResource(device.type)).first->second;
}

} // namespace Torvo
