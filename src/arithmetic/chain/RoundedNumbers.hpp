#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Real numbers on their way into a polynomial: multiplied by a scale and rounded, not yet reduced modulo the primes.
struct RoundedNumbers {
    DeviceSpecificArray<u64> words; ///< signed; empty if a magnitude is not below 2^63
    u64 greatest = 0;               ///< no magnitude among the words is greater
    DeviceSpecificArray<i128> wide; ///< the numbers, where the words are empty

    u64 size() const { return words.size() + wide.size(); }
};

} // namespace Torvo
