#pragma once

/// The exact texts of this layer's exceptions.
namespace Torvo::message {

inline constexpr const char* noMemoryResource =
    "Cannot find a proper memory resource for the requested device.";
inline constexpr const char* copyWithoutBackend = "Not supported. Build with TORVO_CUDA flag.";
inline constexpr const char* nullContext = "The context is null. Make one with makeContext.";
inline constexpr const char* emptyDeviceMap = "Value-device map is empty.";

} // namespace Torvo::message
