#pragma once

#include <Torvo/RuntimeException.hpp>

#include <string>
#include <string_view>

namespace Torvo {

/// The guard in front of every operation: throws RuntimeException with `message` unless `condition` holds.
/// Never to be called inside a parallel region.
inline void require(bool condition, const char* message) {
    if (!condition) [[unlikely]]
        throw RuntimeException(message);
}

/// How a function without a backend in this build fails: "Cannot support the function '<name>' in the
/// current build configuration".
[[noreturn]] void throwUnsupported(std::string_view functionName);

} // namespace Torvo
