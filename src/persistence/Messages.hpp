#pragma once

/// What this layer tells the caller, word for word.
namespace Torvo::message {

inline constexpr const char* notVerified = "[Verifier::load] Validation failed during deserializing objects.";
/// Followed by the path.
inline constexpr const char* cannotOpenFile = "Cannot open file ";
/// Followed by the path, ": " and the reason that the system gives.
inline constexpr const char* cannotFinishFile = "Cannot finish writing file ";
inline constexpr const char* unknownOptionToSave = "[save SecretKey] Invalid serialize option";
inline constexpr const char* unknownOptionToLoad = "[load SecretKey] Invalid serialize option";

} // namespace Torvo::message
