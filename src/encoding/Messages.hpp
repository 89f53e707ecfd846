#pragma once

#include "core/Integers.hpp"

#include <string>

/// The exact texts of the exceptions of the encoding layer.
namespace Torvo::message {

inline constexpr const char* messageSizeNotPowerOfTwo =
    "[Message] The size of message must be a power of two";

inline constexpr const char* messageOfTooManySlots =
    "[Message] No memory holds the slots of log slots "; ///< the number follows
inline constexpr const char* messageSlotsFitBelow = "; give log slots below 60";

inline constexpr const char* slotsOfLogSlots = "The number of slots of log slots "; ///< the number follows
inline constexpr const char* exceedAWord = " does not fit a word; set log slots below 64";

inline constexpr const char* negativeRescaleCounter =
    "Rescale counter should be greater than or equal to zero";
inline constexpr const char* rescaleCounterAboveLevel =
    "Rescale counter should be less than or equal to the level";

inline constexpr const char* encodeNothing = "[encode] Cannot encode a message of size 0";
inline constexpr const char* encodeFewerThanTwo = "[encode] Cannot encode a message with a size less than 2";
inline constexpr const char* encodeSizeNotPowerOfTwo = "[encode] The message size should be a power of two";
inline constexpr const char* encodeLevelTooHigh =
    "[encode] The target level is greater than the maximum possible level";
inline constexpr const char* encodeSizeTooLarge = "[encode] Message size is too large.";
inline constexpr const char* encodeCounterAboveLevel =
    "[encode] The target rescale counter should be less than or equal to the target level.";

/// For `what`, a number given as `value`; both numbers in decimal.
inline std::string encodeOutOfRange(const std::string& what, const std::string& value, u64 level, int counter,
                                    const std::string& largest) {
    return "[encode] Cannot encode the " + what + " " + value + " at level " + std::to_string(level) +
           " with rescale counter " + std::to_string(counter) + ": the magnitude should be at most " +
           largest + ". Give a smaller number or a higher level.";
}

} // namespace Torvo::message
