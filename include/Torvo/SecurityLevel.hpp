#pragma once

#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo {

/// A security claim; the numeric value of an enumerator is the claim in bits.
enum class SecurityLevel : std::uint32_t { None = 0, Bits128 = 128, Bits192 = 192, Bits256 = 256 };

/// The security of an LWE instance with ternary secret, by table look-up (not a lattice estimate).
/// @param logDimension  log2 of the length of the secret; outside 10 to 17 the answer is `None`
/// @param logModulus    total size of the modulus in bits, key switching primes included; above 0
TORVO_API SecurityLevel computeLWESecurityLevel(unsigned long logDimension, unsigned long logModulus);

} // namespace Torvo
