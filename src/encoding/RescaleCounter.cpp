#include "encoding/RescaleCounter.hpp"

#include "core/Failure.hpp"
#include "encoding/Messages.hpp"

namespace Torvo {

void isValidRescaleCounter(int value) {
    require(value >= 0, message::negativeRescaleCounter);
}

RescaleCounter::RescaleCounter(int value) : value_(value) {
    isValidRescaleCounter(value);
}

void RescaleCounter::setValue(int value) {
    isValidRescaleCounter(value);
    value_ = value;
}

} // namespace Torvo
