#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// The next `count` words of the calling thread's random generator. The abstract edge by which this layer
/// draws randomness: declared here, defined beside `UniformRandomBitGenerator`, so that no include points
/// upward.
void drawRandomWords(u64* out, u64 count);

} // namespace Torvo
