#pragma once

/// The exact texts of the exceptions of transforms.
namespace Torvo::message {

inline constexpr const char* notNTTFriendly = "Not an NTT-friendly prime given.";
inline constexpr const char* nttDegreeNotPowerOfTwo = "[NTT] degree must be a power of two.";
inline constexpr const char* nttDegreeTooSmall = "[NTT] degree should be >= 64.";

} // namespace Torvo::message
