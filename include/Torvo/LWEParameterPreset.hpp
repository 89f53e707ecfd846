#pragma once

#include <cstdint>

namespace Torvo::LWE {

/// The named parameter sets of plain LWE. The numbers are part of the file formats and never change.
///
/// Each shares its primes with the ring preset of the same name (`SS7`, `SD3`, `FGbD12L0`), so that a
/// ciphertext can pass from one to the other. `SS7` has dimension 1024, `SD3` dimension 32, `FGbD12L0`
/// dimension 4096 and a single prime.
enum class ParameterPreset : std::uint32_t { SS7 = 0, SD3 = 1, CUSTOM = 2, FGbD12L0 = 3 };

} // namespace Torvo::LWE
