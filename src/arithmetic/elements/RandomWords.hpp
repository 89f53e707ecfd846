#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// The next `count` words of the calling thread's random generator. Declared here and defined beside
/// `UniformRandomBitGenerator`: by this abstract edge the layer draws randomness without an include that
/// points upward.
void drawRandomWords(u64* out, u64 count);

} // namespace Torvo
