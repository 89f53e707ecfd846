#pragma once

#include "core/DeviceSpecificArray.hpp"

namespace Torvo {

/// Gives `data` storage of its size on `device`, contents lost; nothing when it is there already.
template <class T>
void allocateOn(const Device& device, DeviceSpecificArray<T>& data) {
    if (data.getDevice() == device) return;
    data = DeviceSpecificArray<T>(data.size(), device, data.getStream());
}

} // namespace Torvo
