#include "core/Failure.hpp"

namespace Torvo {

void throwUnsupported(std::string_view functionName) {
    throw RuntimeException("Cannot support the function '" + std::string(functionName) +
                           "' in the current build configuration");
}

} // namespace Torvo
