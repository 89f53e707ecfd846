#pragma once

#include "core/Integers.hpp"

#include <omp.h>

namespace Torvo {

/// How a row loop behaves when its caller already is in a parallel region: run with one thread, or open a
/// team of the default size all the same.
enum class Nesting { Guarded, Default };

/// Calls body(i) for i < count, shared out among an OpenMP team in contiguous blocks; all threads have left
/// before it returns. The body must not throw: an exception that left it would end the process.
template <Nesting nesting = Nesting::Guarded, class Body>
void forEachIndex(u64 count, Body&& body) {
    // One thread or the default team, never a size between: a team that shrinks gives its threads back to
    // the system, to be made anew for the next loop.
    const bool alone = count < 2 || (nesting == Nesting::Guarded && omp_in_parallel() != 0);
    const int threads = alone ? 1 : omp_get_max_threads();
#pragma omp parallel for schedule(static) num_threads(threads)
    for (u64 i = 0; i < count; ++i) body(i);
}

} // namespace Torvo
