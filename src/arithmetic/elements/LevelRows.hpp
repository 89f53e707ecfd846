#pragma once

#include "arithmetic/elements/WordCount.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// Resizes `data` from the rows of one level to those of another. Rows above the old level are set to zero:
/// their memory may hold data of an earlier use or of another object.
inline void changeLevel(u64 from, u64 to, u64 length, DeviceSpecificArray<u64>& data) {
    data.resize(wordCount(length, to));
    const u64 kept = from + 1; // 0 for data without a row
    if (kept <= to) data.clear(kept * length);
}

} // namespace Torvo
