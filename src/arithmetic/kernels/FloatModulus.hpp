#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Greatest modulus for which residues are computed in floating point, a little above 2^51. See FMALanes.
inline constexpr u64 greatestFloatPrime = (u64{1} << 51) + (u64{1} << 41);

/// Moduli below this one leave room for two bits more: see FMA512Lanes.
inline constexpr u64 greatestRoomyPrime = u64{1} << 50;

/// A modulus in floating point.
struct FloatModulus {
    double prime;
    double inverse; // 1 / prime, rounded
};

} // namespace Torvo
