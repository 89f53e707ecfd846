#pragma once

#include "core/Integers.hpp"

#include <mutex>

/// How the library handles `fork`, from the moment it is loaded until it is unloaded. A child has one thread,
/// the one that forked, and a copy of all memory. So before the fork
/// - the forking thread ends its idle team of OpenMP threads: these threads do not exist in the child, whose
///   first parallel region would wait for them for ever. Inside a parallel region the team stays;
/// - the forking thread takes the mutexes that other threads may hold at any time, since in the child no
///   thread would release them;
/// and the child counts the fork, by which the generators notice that they are copies.
namespace Torvo {

/// The number of forks between the process that loaded the library and this one.
u64 forkCount() noexcept;

/// From now on the forking thread holds `mutex` during every fork. For mutexes that are never destroyed and
/// of which no thread holds two at once.
void holdDuringForks(std::mutex& mutex);

} // namespace Torvo
