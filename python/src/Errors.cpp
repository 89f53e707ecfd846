#include "Module.hpp"

#include <Torvo/RuntimeException.hpp>

#include <exception>
#include <new>

namespace TorvoPython {

namespace {

/// Lives as long as the interpreter: the translator may be called until its end.
PyObject* errorType = nullptr;

/// Everything that a call of the library throws becomes an `Error` with its text, the exceptions of the archive and of
/// the standard library included; no memory is a MemoryError. What pybind11 and Python themselves raise passes.
void translate(std::exception_ptr thrown) {
    try {
        std::rethrow_exception(std::move(thrown));
    } catch (const py::error_already_set&) {
        throw;
    } catch (const py::cast_error&) {
        PyErr_SetString(PyExc_TypeError,
                        "A function that was given returned something else than a number; give one "
                        "that returns numbers.");
    } catch (const py::builtin_exception&) {
        throw;
    } catch (const std::bad_alloc&) {
        PyErr_SetString(PyExc_MemoryError, "There is not enough memory for this call.");
    } catch (const std::exception& exception) {
        PyErr_SetString(errorType, exception.what());
    }
}

} // namespace

py::handle errorClass() {
    return errorType;
}

void bindErrors(py::module_& module) {
    errorType = PyErr_NewExceptionWithDoc(
        "torvo.Error",
        "What the library refuses, with its text: what was given, what is allowed, what to do.",
        PyExc_RuntimeError, nullptr);
    if (errorType == nullptr) throw py::error_already_set();
    module.attr("Error") = py::handle(errorType);
    py::register_exception_translator(&translate);
}

} // namespace TorvoPython
