#pragma once

#include "core/Integers.hpp"

#include <limits>
#include <new>

namespace Torvo {

/// The number of words in rows 0 to `level`. Levels and dimensions may be any numbers, so a count beyond all
/// memory must not wrap around to a small one.
/// @throws std::bad_array_new_length
inline u64 wordCount(u64 rowLength, u64 level) {
    const u128 count = (static_cast<u128>(level) + 1) * rowLength;
    if (count > std::numeric_limits<u64>::max()) throw std::bad_array_new_length();
    return static_cast<u64>(count);
}

} // namespace Torvo
