#pragma once

#include "core/DeviceSpecificArray.hpp"

#include <utility>

namespace Torvo {

/// Gives `data` storage of its size on `device`, all zeros; the content is lost. Does nothing when it is
/// already there.
template <class T>
void allocateOn(const Device& device, DeviceSpecificArray<T>& data) {
    if (data.getDevice() == device) return;
    DeviceSpecificArray<T> moved(data.size(), device, data.getStream());
    moved.clear();
    data = std::move(moved);
}

} // namespace Torvo
