#pragma once

#include "core/Integers.hpp"

#include <span>

namespace Torvo {

/// The exponents a and b for which there are tables: sign on 2^-a <= |x| <= 1, within 2^-b.
inline constexpr u64 leastSignExponent = 4, mostSignExponent = 16;

/// The degrees of the odd polynomials whose composite approximates sign so well on fewest levels, and of
/// these with fewest products; that of the first one first. `tools/sign_tables` finds them.
std::span<const u64> signDegrees(u64 a, u64 b);

} // namespace Torvo
