#pragma once

#include "core/DeviceSpecificArray.hpp"

#include <complex>

namespace Torvo {

/// The slots of a message: slot i is element i.
class MessageImpl : public DeviceSpecificArray<std::complex<double>> {
public:
    using DeviceSpecificArray<std::complex<double>>::DeviceSpecificArray;
};

} // namespace Torvo
