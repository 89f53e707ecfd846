#pragma once

#include "core/Failure.hpp"

#include <Torvo/Device.hpp>

namespace Torvo {

/// The function names in the exceptions of an operation on a device without backend.
struct FailureNames {
    const char* gpu;
    const char* plain;
};

/// Refuses every device that is not of type CPU.
inline void requireBackend(const Device& device, FailureNames names) {
    if (device.type == DeviceType::CPU) return;
    throwUnsupported(device.type == DeviceType::GPU ? names.gpu : names.plain);
}

} // namespace Torvo
