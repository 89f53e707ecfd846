#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// x with its lowest `bits` bits in reverse order, for 0 < bits and x < 2^bits.
inline u64 reverseBits(u64 x, u64 bits) {
    x = (x >> 1 & 0x5555555555555555) | (x & 0x5555555555555555) << 1;
    x = (x >> 2 & 0x3333333333333333) | (x & 0x3333333333333333) << 2;
    x = (x >> 4 & 0x0f0f0f0f0f0f0f0f) | (x & 0x0f0f0f0f0f0f0f0f) << 4;
    return __builtin_bswap64(x) >> (64 - bits);
}

} // namespace Torvo
