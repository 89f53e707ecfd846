#pragma once

#include <Torvo/Device.hpp>

#include <set>

namespace Torvo {

/// The GPUs with these numbers.
/// @throws RuntimeException "Invalid CUDA device ID: " and the first number, in ascending order, that is not
///         below the device count
std::set<Device> cudaIdsToDevices(const std::set<int>& ids);

} // namespace Torvo
