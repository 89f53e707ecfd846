#pragma once

#include <Torvo/LWEParameterPreset.hpp>

#include <Torvo/ParameterPreset.hpp>

#include <vector>

namespace Torvo {

/// The whole prime chain of a preset, in chain order: chain_length + numTP primes, each 1 modulo 2 * degree.
/// @throws std::out_of_range "map::at" for `CUSTOM`
const std::vector<unsigned long>& getPrimeList(ParameterPreset preset);

/// The same for the presets of plain LWE.
const std::vector<unsigned long>& getPrimeList(LWE::ParameterPreset preset);

} // namespace Torvo
