#pragma once

#include <Torvo/Message.hpp>
#include <Torvo/ParameterPreset.hpp>

#include <complex>
#include <map>
#include <random>
#include <string>

// What the programs that tell of the precision of bootstrapping share.

namespace Torvo::bench {

inline const std::map<std::string, ParameterPreset> bootstrappable{
    {"FVa", ParameterPreset::FVa}, {"FVb", ParameterPreset::FVb}, {"FVc", ParameterPreset::FVc},
    {"FGa", ParameterPreset::FGa}, {"FGb", ParameterPreset::FGb}, {"FGd", ParameterPreset::FGd},
    {"FTa", ParameterPreset::FTa}, {"FTb", ParameterPreset::FTb}, {"FX", ParameterPreset::FX},
};

/// Uniform in the unit disc, or in [-1, 1].
inline Message randomMessage(std::mt19937_64& random, unsigned long logSlots, bool isComplex) {
    std::uniform_real_distribution<double> uniform(-1, 1);
    Message message(logSlots);
    for (auto& slot : message) {
        do slot = {uniform(random), isComplex ? uniform(random) : 0.0};
        while (std::abs(slot) > 1);
    }
    return message;
}

} // namespace Torvo::bench
