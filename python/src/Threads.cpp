#include "Module.hpp"

#include <omp.h>

#include <string>

namespace TorvoPython {

void bindThreads(py::module_& module) {
    module.def(
        "set_thread_count",
        [](int count) {
            if (count < 1)
                throw py::value_error("the number of threads is " + std::to_string(count) +
                                      "; give a positive integer");
            omp_set_num_threads(count);
        },
        py::arg("count"),
        "How many OpenMP threads the calls of this Python thread use from now on. Others keep what "
        "OMP_NUM_THREADS or their own call says.");
    module.def(
        "get_thread_count", [] { return omp_get_max_threads(); },
        "How many OpenMP threads a call of this Python thread uses at most.");
}

} // namespace TorvoPython
