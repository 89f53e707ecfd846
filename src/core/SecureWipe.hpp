#pragma once

#include "core/DeviceSpecificArray.hpp"

#include <cstddef>

namespace Torvo::utils {

/// Overwrites memory that held a secret, by stores that the compiler may not drop.
void wipe(void* data, std::size_t byteCount) noexcept;

/// The whole allocation of an array, in case it once was longer; nothing for one that the host cannot write.
template <class T>
void wipe(DeviceSpecificArray<T>& array) noexcept {
    if (array.getDevice().type == DeviceType::CPU) wipe(array.getData(), array.capacityInBytes());
}

} // namespace Torvo::utils
