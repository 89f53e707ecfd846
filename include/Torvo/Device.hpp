#pragma once

#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo {

/// Where a buffer of numbers lives. This build computes on `CPU` only; requests for any other kind of device
/// fail with a fixed text.
enum class DeviceType : std::int32_t { CPU = 0, GPU = 1, PinnedHost = 3 };

/// A place for buffers: a kind of device and its number (0 for the host).
struct Device {
    DeviceType type = DeviceType::CPU;
    std::int32_t id = 0;

    friend bool operator==(const Device&, const Device&) = default;

    /// Orders by `id`, then by `type`: {CPU, 0} < {GPU, 0} < {CPU, 1}.
    friend bool operator<(const Device& a, const Device& b) {
        return a.id != b.id ? a.id < b.id : a.type < b.type;
    }
};

/// The GPU that a request without a device number goes to: {GPU, 0} in this build. Thread-safe, never throws.
TORVO_API Device getCurrentCudaDevice();

/// Makes GPU `id` the current one. Without a GPU backend this does nothing. Thread-safe, never throws.
TORVO_API void setCurrentCudaDevice(int id);

} // namespace Torvo
