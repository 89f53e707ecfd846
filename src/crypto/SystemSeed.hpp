#pragma once

#include <array>

namespace Torvo {

/// Fills `seed` from the operating system: 128 bits, in the low halves of the four words. Each is the
/// exclusive or of a word of std::random_device and one of the kernel's pool, and so as good as the better of
/// the two: on many machines std::random_device is only an instruction of the processor.
/// @throws RuntimeException "Cannot seed the random generator: ", the source that failed, why, and what to do
void drawSystemSeed(std::array<unsigned long, 4>& seed);

} // namespace Torvo
