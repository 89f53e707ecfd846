#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Greatest modulus for which residues are computed in floating point, a little above 2^51. See FMALanes.
inline constexpr u64 greatestFloatPrime = (u64{1} << 51) + (u64{1} << 41);

/// Calls run.operator()<spareBits>() for p <= greatestFloatPrime, p < 2^(51 - spareBits): 0, 1 or 4. Residues of
/// smaller moduli may grow further before they must be reduced.
template <class Run>
[[gnu::always_inline]] inline void withSpareBits(u64 p, Run run) {
    if (p < u64{1} << 47) return run.template operator()<4>();
    if (p < u64{1} << 50) return run.template operator()<1>();
    run.template operator()<0>();
}

/// A modulus in floating point.
struct FloatModulus {
    double prime;
    double inverse; // 1 / prime, rounded
};

} // namespace Torvo
