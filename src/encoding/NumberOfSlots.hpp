#pragma once

#include "core/Integers.hpp"
#include "encoding/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <string>

namespace Torvo {

/// 2^log_slots. Objects may hold any log slots, even ones whose number does not fit a word.
/// @throws RuntimeException "The number of slots of log slots <log_slots> does not fit a word; set log slots
///         below 64"
inline u64 numberOfSlots(u64 log_slots) {
    if (log_slots >= 64)
        throw RuntimeException(message::slotsOfLogSlots + std::to_string(log_slots) + message::exceedAWord);
    return u64{1} << log_slots;
}

} // namespace Torvo
