#pragma once

#include "core/DeviceSpecificArray.hpp"

#include <cstddef>

namespace Torvo::utils {

/// Overwrites memory that held a secret. The compiler may not remove the stores.
void wipe(void* data, std::size_t byteCount) noexcept;

/// Wipes the whole allocation of an array, since the array may have been longer. Does nothing to one that the
/// host cannot write.
template <class T>
void wipe(DeviceSpecificArray<T>& array) noexcept {
    if (array.getDevice().type == DeviceType::CPU) wipe(array.getData(), array.capacityInBytes());
}

} // namespace Torvo::utils
