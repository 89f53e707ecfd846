#include "Module.hpp"

#include <cstddef>
#include <string>

namespace py = pybind11;

namespace {

/// An object that `__new__` made and no `__init__` is no object of the library. pybind11 would hand out memory without
/// content for it; here the call that is given one is refused.
void* refuseUninitialised(std::size_t) {
    throw py::type_error(
        "The object was made by __new__ alone, so it has no content; make it by calling its class");
}

/// How an enumeration is pickled: as its number.
py::tuple reducedNumber(const py::object& self) {
    return py::make_tuple(py::type::of(self), py::make_tuple(py::int_(self)));
}

/// The refusal of every class that says nothing of pickles. Python's own answer to the oldest formats would end the
/// process.
py::tuple refusePickle(const py::object& self) {
    const auto name = py::cast<std::string>(py::type::of(self).attr("__name__"));
    const char* const instead = py::hasattr(self, "to_bytes") ? "; send what its to_bytes gives"
                                                              : "; make it again where it is needed";
    throw py::type_error("An object of class " + name + " is not pickled" + instead);
}

void guardType(py::handle type, py::detail::type_info& info) {
    info.operator_new = &refuseUninitialised;
    const bool isEnumeration = py::hasattr(type, "__members__");
    if (!isEnumeration && type.attr("__dict__").contains("__reduce__")) return;
    const py::is_method method(type);
    type.attr("__reduce__") = isEnumeration ? py::cpp_function(&reducedNumber, py::name("__reduce__"), method)
                                            : py::cpp_function(&refusePickle, py::name("__reduce__"), method);
}

/// Completes what pybind11 leaves open in the classes of the module.
void guardTypes(const py::module_& module) {
    for (const auto& entry : py::reinterpret_borrow<py::dict>(module.attr("__dict__")))
        if (PyType_Check(entry.second.ptr()))
            if (auto* info = py::detail::get_type_info(reinterpret_cast<PyTypeObject*>(entry.second.ptr())))
                guardType(entry.second, *info);
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
    guardTypes(module);
}
