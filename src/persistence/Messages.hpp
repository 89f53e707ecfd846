#pragma once

/// What this layer tells the caller, word for word.
namespace Torvo::message {

inline constexpr const char* notVerified = "[Verifier::load] Validation failed during deserializing objects.";
/// Followed by the path.
inline constexpr const char* cannotOpenFile = "Cannot open file ";

} // namespace Torvo::message
