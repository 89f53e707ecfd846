#pragma once

#include "context/Parameter.hpp"

#include <Torvo/Message.hpp>
#include <Torvo/ParameterPreset.hpp>
#include <Torvo/RuntimeException.hpp>

#include <complex>
#include <map>
#include <random>
#include <string>

// Shared by the programs that measure the precision of bootstrapping.

namespace Torvo::bench {

inline std::map<std::string, ParameterPreset> bootstrappablePresets() {
    std::map<std::string, ParameterPreset> presets;
    for (const ParameterPreset preset : allPresets())
        if (const Parameter parameter(preset); parameter.has_bootstrap)
            presets.emplace(parameter.name, preset);
    return presets;
}

/// @throws RuntimeException for any other name
inline ParameterPreset bootstrappable(const std::string& name) {
    const auto presets = bootstrappablePresets();
    const auto found = presets.find(name);
    if (found == presets.end()) throw RuntimeException("no bootstrappable preset " + name);
    return found->second;
}

/// Uniform in the unit disc, or in [-1, 1].
inline Message randomMessage(std::mt19937_64& random, unsigned long log_slots, bool isComplex) {
    std::uniform_real_distribution<double> uniform(-1, 1);
    Message message(log_slots);
    for (auto& slot : message) {
        do slot = {uniform(random), isComplex ? uniform(random) : 0.0};
        while (std::abs(slot) > 1);
    }
    return message;
}

} // namespace Torvo::bench
