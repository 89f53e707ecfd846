#pragma once

#include <benchmark/benchmark.h>
#include <omp.h>

namespace Torvo {

/// Times `operation.run` on a workbench with a team of `threads`; `operation.prepare`, if any, runs before
/// each iteration and is not timed.
template <class Workbench, class Operation>
void timeOperation(benchmark::State& state, Workbench& workbench, const Operation& operation, int threads) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    for (auto _ : state) {
        if (operation.prepare) {
            state.PauseTiming();
            operation.prepare(workbench);
            state.ResumeTiming();
        }
        operation.run(workbench);
    }
    omp_set_num_threads(before);
}

} // namespace Torvo
