#pragma once

#include <Torvo/Export.hpp>

#include <array>

namespace Torvo {

/// The 256-bit seed of the calling thread's random generator. Whoever knows it can replay every key and
/// every encryption drawn from it: treat it as a secret.
TORVO_API std::array<unsigned long, 4> getSeed();

/// Restarts the calling thread's random generator from `seed`, for reproducible tests. Other threads,
/// OpenMP workers included, keep their own generators and seeds.
TORVO_API void setSeed(const std::array<unsigned long, 4>& seed);

} // namespace Torvo
