#pragma once

#include "core/Integers.hpp"

#include <mutex>

/// What the library does about `fork`, from the moment it is loaded until it is unloaded. A child has one
/// thread, the one that forked, and a copy of all memory. So before the fork
/// - the forking thread lets its idle team of OpenMP threads go: in the child these threads are no more, and
///   the first parallel region would wait for them for ever. Inside a parallel region the team stays;
/// - the forking thread takes the mutexes that other threads may hold at any time, since in the child nobody
///   would give them back;
/// and the child counts the fork, by which the generators notice that they are copies.
namespace Torvo {

/// How many forks lie between this process and the one that loaded the library.
u64 forkCount() noexcept;

/// Has the forking thread hold `mutex` during every fork from now on. For mutexes that are never destroyed,
/// of which no thread holds two at once.
void holdDuringForks(std::mutex& mutex);

} // namespace Torvo
