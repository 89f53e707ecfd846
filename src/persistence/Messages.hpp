#pragma once

/// The exact texts of this layer's exceptions.
namespace Torvo::message {

inline constexpr const char* notVerified = "[Verifier::load] Validation failed during deserializing objects.";
/// Followed by the path.
inline constexpr const char* cannotOpenFile = "Cannot open file ";
/// Followed by the path, ": " and the reason that the system gives.
inline constexpr const char* cannotFinishFile = "Cannot finish writing file ";
/// Followed by the path, " holds ", the length found, " bytes, not ", the length expected and what to do.
inline constexpr const char* fileTooLong = "The file is longer than what is to be loaded: ";
/// Followed by the path, ": " and the reason that the system gives, or the next.
inline constexpr const char* cannotMapFile = "Cannot map file ";
inline constexpr const char* notMappable = "it is no regular file; give the path of a file that was saved";
inline constexpr const char* unknownOptionToSave = "[save SecretKey] Invalid serialize option";
inline constexpr const char* unknownOptionToLoad = "[load SecretKey] Invalid serialize option";
inline constexpr const char* noStreamBuffer =
    "The stream has no buffer. Give one that is connected to a file or to memory.";

} // namespace Torvo::message
