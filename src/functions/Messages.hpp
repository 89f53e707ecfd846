#pragma once

#include <string>

/// The texts of the exceptions of this layer, each once.
namespace Torvo::message {

inline constexpr const char* emptyMessage = "The message has no slots. Give one with at least one slot.";

inline std::string tooFewLevels(const std::string& what, unsigned long needed, unsigned long there) {
    return what + " needs " + std::to_string(needed) + " levels, but the ciphertext has " + std::to_string(there) +
           ". Bootstrap it first, or give a LevelKeeper in place of the evaluator.";
}

} // namespace Torvo::message
