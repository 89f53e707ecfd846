#include "encoding/RescaleCounter.hpp"

#include "core/Failure.hpp"
#include "encoding/Messages.hpp"

namespace Torvo {

void requireValidRescaleCounter(int value) {
    require(value >= 0, message::negativeRescaleCounter);
}

RescaleCounter::RescaleCounter(int value) : value_(value) {
    requireValidRescaleCounter(value);
}

void RescaleCounter::setValue(int value) {
    requireValidRescaleCounter(value);
    value_ = value;
}

} // namespace Torvo
