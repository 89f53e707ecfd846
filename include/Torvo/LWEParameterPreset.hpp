#pragma once

#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo::LWE {

/// The named parameter sets of plain LWE. The numbers are part of the file formats and never change.
///
/// Each shares its primes with the ring preset of the same name (`SS7`, `SD3`, `FGbD12L0`), so that a
/// ciphertext can pass from one to the other.
///
/// | preset | dimension | primes, bits | level | modulus, bits |
/// | --- | --- | --- | --- | --- |
/// | `SS7` | 1024 | 50, 7 of 42 | 7 | 344 |
/// | `SD3` | 32 | 47, 3 of 41 | 3 | 170 |
/// | `FGbD12L0` | 4096 | 58 | 0 | 58 |
///
/// `getSecurityLevel` returns 128, the level stated for all three. By the table that rates custom parameter
/// sets only `FGbD12L0` has it, also with its packing keys, of 109 bits. `SS7` and `SD3` are far too short
/// for their moduli to hide anything from an attacker: use them for experiments only.
enum class ParameterPreset : std::uint32_t { SS7 = 0, SD3 = 1, CUSTOM = 2, FGbD12L0 = 3 };

} // namespace Torvo::LWE
