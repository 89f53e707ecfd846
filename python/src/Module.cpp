#include "Module.hpp"

#include <cstddef>

namespace py = pybind11;

namespace {

/// An object that `__new__` made and no `__init__` is no object of the library. pybind11 would hand out memory without
/// content for it; here the call that is given one is refused.
void* refuseUninitialised(std::size_t) {
    throw py::type_error(
        "The object was made by __new__ alone, so it has no content; make it by calling its class");
}

void guardAgainstUninitialised(const py::module_& module) {
    for (const auto& entry : py::reinterpret_borrow<py::dict>(module.attr("__dict__")))
        if (PyType_Check(entry.second.ptr()))
            if (auto* type = py::detail::get_type_info(reinterpret_cast<PyTypeObject*>(entry.second.ptr())))
                type->operator_new = &refuseUninitialised;
}

} // namespace

PYBIND11_MODULE(_torvo, module) {
    module.doc() =
        "The classes of libTorvo, one for each handle of the C++ headers. The package torvo puts arrays "
        "and operators on top of them.";
    py::options options;
    options.disable_function_signatures();
    using namespace TorvoPython;
    bindErrors(module);
    bindDevices(module);
    bindContext(module);
    bindMessage(module);
    bindEncoding(module);
    bindCiphertext(module);
    bindKeys(module);
    bindCrypto(module);
    bindEvaluator(module);
    bindBootstrap(module);
    bindSeries(module);
    bindPlan(module);
    bindFunctions(module);
    bindLinear(module);
    bindComparisons(module);
    bindAdvice(module);
    bindLWE(module);
    bindPacking(module);
    bindFiles(module);
    bindThreads(module);
    guardAgainstUninitialised(module);
}
