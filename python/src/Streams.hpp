#pragma once

#include "Guarded.hpp"

#include <Torvo/RuntimeException.hpp>

#include <istream>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace TorvoPython {

/// Memory of a fixed size as a stream: an object is written into the bytes that Python will own, and read from those
/// that it owns, without a copy between.
class MemoryBuffer : public std::streambuf {
public:
    MemoryBuffer(char* begin, std::size_t size) {
        setp(begin, begin + size);
        setg(begin, begin, begin + size);
    }
    std::size_t unread() const { return static_cast<std::size_t>(egptr() - gptr()); }
};

/// What `object.save(stream)` writes, as a `bytes`. The object is locked from the counting to the end of the writing.
template <class T>
py::bytes savedBytes(const Guarded<T>& self) {
    PyObject* raw = nullptr;
    py::bytes result;
    {
        const Computing computing{reading(self)};
        const std::size_t size = self.object().savedSize();
        char* begin = nullptr;
        {
            const py::gil_scoped_acquire acquired;
            raw = PyBytes_FromStringAndSize(nullptr, static_cast<py::ssize_t>(size));
            if (raw == nullptr) throw py::error_already_set();
            result = py::reinterpret_steal<py::bytes>(raw);
            begin = PyBytes_AS_STRING(raw);
        }
        MemoryBuffer buffer(begin, size);
        std::ostream stream(&buffer);
        self.object().save(stream);
    }
    return result;
}

/// What a pickle holds of an object with a file: how `torvo._pickling` makes it again.
inline py::tuple restoredBy(const char* kind, const py::tuple& arguments) {
    const py::object restore = py::module_::import("torvo._pickling").attr("loaded");
    return py::make_tuple(restore, py::make_tuple(kind, arguments));
}

/// Reads an object from bytes of Python, all of them. `load` is called under the locks that are wanted, without the
/// interpreter's lock.
template <class Load>
void readAll(const py::bytes& bytes, const char* what, std::initializer_list<Wanted> wanted, Load&& load) {
    const std::string_view view(bytes);
    const Computing computing(wanted);
    MemoryBuffer buffer(const_cast<char*>(view.data()), view.size()); // never written: the stream only reads
    std::istream stream(&buffer);
    load(stream);
    if (buffer.unread() != 0)
        throw Torvo::RuntimeException("The bytes are " + std::to_string(view.size()) + ", and " +
                                      std::to_string(buffer.unread()) + " of them stand behind the " + what +
                                      "; give exactly what to_bytes returned");
}

/// `save(path)`, `to_bytes()` and the size of both, which every object with a file of its own has.
template <class T, class Class>
void defineSave(Class& handle, const char* saveText) {
    handle.def(
        "save",
        [](const Guarded<T>& self, const std::string& path) {
            const Computing computing{reading(self)};
            self.object().save(path);
        },
        py::arg("path"), saveText);
    handle.def("to_bytes", &savedBytes<T>, "What `save` writes into a file, as bytes.");
    handle.def_property_readonly("saved_size", getter<T>(&T::savedSize),
                                 "The number of bytes that `save` writes.");
}

} // namespace TorvoPython
