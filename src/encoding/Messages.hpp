#pragma once

/// The refusals of the encoding layer, word for word.
namespace Torvo::message {

inline constexpr const char* messageSizeNotPowerOfTwo =
    "[Message] The size of message must be a power of two";

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

} // namespace Torvo::message
