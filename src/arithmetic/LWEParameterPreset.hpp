#pragma once

#include <cstdint>

namespace Torvo::LWE {

/// The named parameter sets of plain LWE. The numbers are part of the file formats.
enum class ParameterPreset : std::uint32_t { SS7 = 0, SD3 = 1, CUSTOM = 2, FGbD12L0 = 3 };

} // namespace Torvo::LWE
