#pragma once

#include "core/Integers.hpp"

#include <vector>

namespace Torvo {

/// The rotations to the left of which one by `index` is made where it has no key of its own: the digits -1, 0, 1 of the
/// non-adjacent signed binary form of `index`, lowest first, each a power of two to the left or to the right.
/// @param turn  the number of slots, a power of two
inline std::vector<u64> rotationDigits(u64 index, u64 turn) {
    std::vector<u64> digits;
    for (u64 rest = index % turn, step = 1; step < turn && rest != 0; step *= 2, rest /= 2) {
        if (rest % 2 == 0) continue;
        const bool toTheLeft = rest % 4 == 1;
        digits.push_back(toTheLeft ? step : turn - step);
        if (!toTheLeft) ++rest;
    }
    return digits;
}

} // namespace Torvo
