#pragma once

#include "core/Integers.hpp"

#include <omp.h>

#include <algorithm>

namespace Torvo {

/// How a row loop behaves when its caller is already in a parallel region: Guarded runs with one thread,
/// Default opens a team of the default size nevertheless.
enum class Nesting { Guarded, Default };

/// Number of threads of a guarded team, and so the number of sums to keep if each thread adds up its own.
inline u64 teamSize() {
    return omp_in_parallel() != 0 ? 1 : static_cast<u64>(omp_get_max_threads());
}

/// The calling thread's place in its team.
inline u64 threadInTeam() {
    return static_cast<u64>(omp_get_thread_num());
}

/// Number of threads of a loop over `count` indices: one or the default team, never a size between. A team
/// that shrinks returns its threads to the system, and the next loop would have to create them again.
inline int threadsFor(u64 count, Nesting nesting = Nesting::Guarded) {
    const bool alone = count < 2 || (nesting == Nesting::Guarded && omp_in_parallel() != 0);
    return alone ? 1 : omp_get_max_threads();
}

/// Calls body(i) for i < count; the threads of an OpenMP team share the indices in contiguous blocks. Returns
/// after all threads have finished. The body must not throw: an exception that left it would end the process.
template <Nesting nesting = Nesting::Guarded, class Body>
void forEachIndex(u64 count, Body&& body) {
    const int threads = threadsFor(count, nesting);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (u64 i = 0; i < count; ++i) body(i);
}

/// The same, but the threads take the indices in turns: where work of one kind is followed by another, each gets
/// as much of both.
template <class Body>
void forEachIndexInTurns(u64 count, Body&& body) {
    const int threads = threadsFor(count);
#pragma omp parallel for schedule(static, 1) num_threads(threads)
    for (u64 i = 0; i < count; ++i) body(i);
}

/// Calls body(begin, end) for ranges that together are the indices below `count`, one range for each thread
/// of a guarded team. Ranges begin at multiples of eight, so that no two threads share a cache line of words.
template <class Body>
void forEachShare(u64 count, Body&& body) {
    const u64 shares = static_cast<u64>(omp_get_max_threads());
    const u64 length = ((count + shares - 1) / shares + 7) / 8 * 8;
    if (length == 0) return;
    forEachIndex((count + length - 1) / length,
                 [&](u64 t) { body(t * length, std::min((t + 1) * length, count)); });
}

} // namespace Torvo
