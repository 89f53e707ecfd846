#pragma once

#include "core/Integers.hpp"

#include <limits>
#include <new>

namespace Torvo {

/// The words of rows 0 to `level`. Levels and dimensions may be any numbers, so what no memory holds must not
/// wrap around to a few words.
/// @throws std::bad_array_new_length
inline u64 wordCount(u64 rowLength, u64 level) {
    const u128 count = (static_cast<u128>(level) + 1) * rowLength;
    if (count > std::numeric_limits<u64>::max()) throw std::bad_array_new_length();
    return static_cast<u64>(count);
}

} // namespace Torvo
