#include "Messages.hpp"
#include "Handles.hpp"
#include "Module.hpp"
#include "Streams.hpp"

#include <pybind11/complex.h>

#include <complex>
#include <memory>
#include <string>

namespace TorvoPython {

using Torvo::DeviceType;
using Complex = std::complex<double>;

namespace {

/// Where the numbers of a view stand that Python asks for beside the slots.
struct ViewShape {
    Py_ssize_t shape;
    Py_ssize_t stride;
};

/// The slots as a one-dimensional buffer of complex numbers, without a copy. Numbers may be written while the message is
/// read, as with any array; the slots cannot move.
int getBuffer(PyObject* object, Py_buffer* view, int) {
    view->obj = nullptr;
    try {
        auto& self = py::cast<MessageHandle&>(py::handle(object));
        auto shape = std::make_unique<ViewShape>();
        static Complex noSlot;
        {
            const Computing computing{writing(self)};
            ViewedMessage& message = self.object();
            if (message.getDevice().type != DeviceType::CPU)
                throw py::buffer_error("The message is not on the CPU");
            view->buf = message.isEmpty() ? &noSlot : message.begin();
            shape->shape = static_cast<Py_ssize_t>(message.getSize());
            ++message.views;
        }
        shape->stride = sizeof(Complex);
        view->itemsize = sizeof(Complex);
        view->len = shape->shape * view->itemsize;
        view->readonly = 0;
        view->format = const_cast<char*>("Zd");
        view->ndim = 1;
        view->shape = &shape->shape;
        view->strides = &shape->stride;
        view->suboffsets = nullptr;
        view->internal = shape.release();
        view->obj = py::handle(object).inc_ref().ptr();
        return 0;
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& exception) {
        PyErr_SetString(PyExc_BufferError, exception.what());
    }
    return -1;
}

void releaseBuffer(PyObject* object, Py_buffer* view) {
    delete static_cast<ViewShape*>(view->internal);
    auto& self = py::cast<MessageHandle&>(py::handle(object));
    const Computing computing{writing(self)};
    --self.object().views;
}

void enableViews(const py::class_<MessageHandle>& handle) {
    auto* type = reinterpret_cast<PyHeapTypeObject*>(handle.ptr());
    type->as_buffer.bf_getbuffer = &getBuffer;
    type->as_buffer.bf_releasebuffer = &releaseBuffer;
    type->ht_type.tp_as_buffer = &type->as_buffer;
}

/// A slot by its index, from the end for a negative one.
Complex& slotOf(ViewedMessage& message, Py_ssize_t index) {
    const auto size = static_cast<Py_ssize_t>(message.getSize());
    if (index < -size || index >= size)
        throw py::index_error("slot " + std::to_string(index) + " of a message of " + std::to_string(size) +
                              " slots");
    return message[static_cast<unsigned long>(index < 0 ? index + size : index)];
}

void defineSlots(py::class_<MessageHandle>& handle) {
    handle.def("__len__", getter<ViewedMessage>(&ViewedMessage::getSize))
        .def(
            "__getitem__",
            [](MessageHandle& self, Py_ssize_t index) {
                const Computing computing{reading(self)};
                return slotOf(self.object(), index);
            },
            py::arg("index"))
        .def(
            "__setitem__",
            [](MessageHandle& self, Py_ssize_t index, Complex value) {
                const Computing computing{writing(self)};
                slotOf(self.object(), index) = value;
            },
            py::arg("index"), py::arg("value"))
        .def(
            "resize",
            [](MessageHandle& self, unsigned long size) {
                const Computing computing{writing(self)};
                self.object().requireNoView();
                self.object().resize(size);
            },
            py::arg("size"),
            "Changes the number of slots and keeps the leading ones; new slots are 0. Raises BufferError "
            "while an array "
            "looks at the slots.")
        .def_property_readonly("is_empty", getter<ViewedMessage>(&ViewedMessage::isEmpty),
                               "Whether it has no slots.")
        .def_property_readonly("log_slots", getter<ViewedMessage>(&ViewedMessage::getLogSlots),
                               "log2 of the number of slots, rounded down.");
}

void defineStorage(py::class_<MessageHandle>& handle) {
    handle
        .def(
            "load",
            [](MessageHandle& self, const std::string& path) {
                const Computing computing{writing(self)};
                self.object().requireNoView();
                ViewedMessage loaded;
                static_cast<Torvo::Message&>(loaded).load(path);
                static_cast<Torvo::Message&>(self.object()) = std::move(loaded);
            },
            py::arg("path"),
            "Replaces size and slots by the saved ones; a failed load changes nothing. Raises BufferError "
            "while an "
            "array looks at the slots.")
        .def_static(
            "from_bytes",
            [](const py::bytes& data) {
                auto loaded = std::make_unique<MessageHandle>();
                readAll(data, "message", {}, [&](std::istream& stream) { loaded->object().load(stream); });
                return loaded;
            },
            py::arg("data"), "The message whose `to_bytes` gave these.");
    defineSave<ViewedMessage>(handle, "Writes the slots into a file, which is replaced as a whole.");
}

} // namespace

void bindMessage(py::module_& module) {
    py::class_<MessageHandle> handle(module, "Message",
                                     "Numbers in the clear: complex slots, as many as a power of two. "
                                     "Message(3) has 8 slots of 0, Message(3, 0.5) "
                                     "8 slots of 0.5. numpy.asarray(message) is an array of complex128 on "
                                     "the very slots, without a copy; while "
                                     "it lives, the message cannot be given others.");
    handle.def(py::init<>())
        .def(py::init<unsigned long>(), py::arg("log_slots"))
        .def(py::init<unsigned long, Complex>(), py::arg("log_slots"), py::arg("value"))
        .def("__copy__", [](const MessageHandle& self) {
            const Computing computing{reading(self)};
            return std::make_unique<MessageHandle>(Torvo::Message(self.object()));
        });
    handle.attr("__deepcopy__") = py::cpp_function(
        [](const MessageHandle& self, const py::object&) {
            const Computing computing{reading(self)};
            return std::make_unique<MessageHandle>(Torvo::Message(self.object()));
        },
        py::is_method(handle), py::arg("memo"));
    handle.def("__reduce__", [](const MessageHandle& self) {
        return restoredBy("Message", py::make_tuple(savedBytes(self)));
    });
    defineSlots(handle);
    defineStorage(handle);
    defineDevice<ViewedMessage>(handle);
    enableViews(handle);
}

} // namespace TorvoPython
