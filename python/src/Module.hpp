#pragma once

#include "Guarded.hpp"

namespace TorvoPython {

// One of each subject. The order in which the module calls them is that of the needs: a class is known before a
// signature names it.
void bindErrors(py::module_& module);
/// The type of torvo.Error.
py::handle errorClass();
void bindContext(py::module_& module);
void bindMessage(py::module_& module);
void bindEncoding(py::module_& module);
void bindDevices(py::module_& module);
void bindCiphertext(py::module_& module);
void bindKeys(py::module_& module);
void bindCrypto(py::module_& module);
void bindEvaluator(py::module_& module);
void bindBootstrap(py::module_& module);
void bindSeries(py::module_& module);
void bindPlan(py::module_& module);
void bindFunctions(py::module_& module);
void bindLinear(py::module_& module);
void bindComparisons(py::module_& module);
void bindAdvice(py::module_& module);
void bindLWE(py::module_& module);
void bindPacking(py::module_& module);
void bindFiles(py::module_& module);
void bindThreads(py::module_& module);

} // namespace TorvoPython
