#pragma once

#include <string>

/// The texts of the exceptions of this layer, each once.
namespace Torvo::message {

inline constexpr const char* emptyMessage = "The message has no slots. Give one with at least one slot.";

inline std::string tooFewLevels(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " needs " + std::to_string(needed) + " levels, but the ciphertext has " + std::to_string(there) +
           ". Bootstrap it first, or give a BootstrappingEvaluator in place of the evaluator.";
}


inline std::string tooFewLevelsAfterBootstrap(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " needs " + std::to_string(needed) + " levels at once, but a bootstrap leaves " +
           std::to_string(there) + " to spend. Take a parameter with more levels.";
}
inline std::string tooLowToBootstrap(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " has to bootstrap first, which needs a ciphertext at level " + std::to_string(needed) +
           " or above, but this one is at level " + std::to_string(there) + ". Stop using its levels earlier.";
}

} // namespace Torvo::message
