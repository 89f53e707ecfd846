#pragma once

#include <Torvo/Export.hpp>

#include <array>

namespace Torvo {

/// The 256-bit seed of the calling thread's random generator. Whoever knows it can replay every key and
/// every encryption drawn from it: treat it as a secret.
///
/// A thread's generator is seeded by the operating system at its first use. It takes a fresh seed immediately
/// before and after it samples a random secret key, because the key's file holds the state from which the key
/// was sampled: the file thus reveals only this key. In the child of a `fork` every generator takes a fresh
/// seed before anything else, even after `setSeed`: parent and child share no later word.
/// @throws RuntimeException "Cannot seed the random generator: " with the source that failed and the reason.
///         Everything that draws random numbers throws the same if a new seed is needed; nothing is drawn
///         then
TORVO_API std::array<unsigned long, 4> getSeed();

/// Restarts the calling thread's random generator from `seed`, for reproducible tests. Other threads,
/// OpenMP workers included, keep their own generators and seeds. From then on this thread takes no fresh
/// seeds: whoever has `seed`, or the file of one random secret key made on this thread, can reproduce all
/// that the thread draws later, other keys and encryptions included. Only a child of a `fork` has a fresh
/// seed of its own, until it calls `setSeed`.
/// @throws RuntimeException as `getSeed` does
TORVO_API void setSeed(const std::array<unsigned long, 4>& seed);

} // namespace Torvo
