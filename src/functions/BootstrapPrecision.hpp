#pragma once

#include <Torvo/ParameterPreset.hpp>

namespace Torvo {

/// E|error|^2 of a slot after a bootstrap, from the mean of -log2|error| that `ParameterPreset` gives for each preset;
/// 0 for presets without bootstrapping.
double bootstrapVariance(ParameterPreset preset, bool isComplex, bool isExtended);

} // namespace Torvo
