#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/EnDecoder.hpp>

#include <pybind11/stl.h>

#include <vector>

namespace TorvoPython {

using Torvo::EnDecoder;
using Torvo::Plaintext;

namespace {

std::unique_ptr<PlaintextHandle> encode(const EnDecoder& self, const MessageHandle& message,
                                        unsigned long level, int owed) {
    const Computing computing{reading(message)};
    return std::make_unique<PlaintextHandle>(self.encode(message.object(), level, owed));
}

std::unique_ptr<PlaintextHandle> encodeWithoutNTT(const EnDecoder& self, const MessageHandle& message,
                                                  unsigned long level, int owed) {
    const Computing computing{reading(message)};
    return std::make_unique<PlaintextHandle>(
        self.encodeWithoutNTT(static_cast<const Torvo::Message&>(message.object()), level, owed));
}

void bindEnDecoder(py::module_& module) {
    py::class_<EnDecoder>(module, "EnDecoder", "Turns messages into plaintexts and back.")
        .def(py::init([](const SharedContext& context) { return EnDecoder(context.context); }),
             py::arg("context"))
        .def(
            "encode",
            [](const EnDecoder& self, const MessageHandle& message) {
                const Computing computing{reading(message)};
                return std::make_unique<PlaintextHandle>(self.encode(message.object()));
            },
            py::arg("message"))
        .def("encode", &encode, py::arg("message"), py::arg("level"), py::arg("rescale_counter") = 0,
             "A plaintext of the message, at the encryption level or at `level`. Raises Error for numbers "
             "that are too "
             "large for level and scale, infinite or NaN, and for a size that is no power of two.")
        .def("encode_without_ntt", &encodeWithoutNTT, py::arg("message"), py::arg("level"),
             py::arg("rescale_counter") = 0)
        .def(
            "encode_without_ntt",
            [](const EnDecoder& self, const std::vector<double>& coefficients, unsigned long level,
               int owed) {
                const py::gil_scoped_release released;
                return std::make_unique<PlaintextHandle>(self.encodeWithoutNTT(coefficients, level, owed));
            },
            py::arg("coefficients"), py::arg("level"), py::arg("rescale_counter") = 0,
            "The same outside of NTT form, of a message or of real coefficients.")
        .def(
            "decode",
            [](const EnDecoder& self, const PlaintextHandle& plaintext) {
                const Computing computing{reading(plaintext)};
                return std::make_unique<MessageHandle>(self.decode(plaintext.object()));
            },
            py::arg("plaintext"), "The message of a plaintext.")
        .def(
            "decode_without_fft",
            [](const EnDecoder& self, const PlaintextHandle& plaintext) {
                const Computing computing{reading(plaintext)};
                return self.decodeWithoutFFT(plaintext.object());
            },
            py::arg("plaintext"), "The coefficients under the message: twice as many real numbers as slots.");
}

} // namespace

void bindEncoding(py::module_& module) {
    py::class_<PlaintextHandle> handle(
        module, "Plaintext",
        "A vector of complex slots, encoded: one ring element at a level, with the rescales it still owes.");
    handle.def(py::init([](const SharedContext& context) {
                   const py::gil_scoped_release released;
                   return std::make_unique<PlaintextHandle>(context.context);
               }),
               py::arg("context"));
    handle.def_property_readonly("is_zero", getter<Plaintext>(&Plaintext::isZero),
                                 "Whether all its words are zero.");
    handle.def("__reduce__", [](const PlaintextHandle& self) {
        return restoredBy("Plaintext", py::make_tuple(contextOf(self), savedBytes(self)));
    });
    defineStamps<Plaintext>(handle);
    defineSave<Plaintext>(handle, "Writes the plaintext into a file, which is replaced as a whole.");
    defineLoad<Plaintext>(handle, "plaintext");
    defineCopy<Plaintext>(handle);
    bindEnDecoder(module);
}

} // namespace TorvoPython
