#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/CompactCiphertext.hpp>
#include <Torvo/EncodingType.hpp>

namespace TorvoPython {

using Torvo::Ciphertext;
using Torvo::CompactCiphertext;
using CompactHandle = Guarded<CompactCiphertext>;

namespace {

void bindCompact(py::module_& module) {
    py::class_<CompactHandle> handle(
        module, "CompactCiphertext",
        "A fresh encryption under a secret key in little more than half the bytes, to be kept or sent.");
    handle
        .def(py::init([](const SharedContext& context) {
                 return std::make_unique<CompactHandle>(context.context);
             }),
             py::arg("context"))
        .def_property_readonly(
            "context", [](const CompactHandle& self) { return contextOf(self); },
            "The context it was made for.")
        .def_property_readonly("rescale_counter",
                               getter<CompactCiphertext>(&CompactCiphertext::getRescaleCounter),
                               "How many rescales are owed.")
        .def("__reduce__",
             [](const CompactHandle& self) {
                 return restoredBy("CompactCiphertext", py::make_tuple(contextOf(self), savedBytes(self)));
             })
        .def_property_readonly("is_empty", getter<CompactCiphertext>(&CompactCiphertext::isEmpty),
                               "Whether nothing was assigned or loaded yet.")
        .def_property_readonly("log_slots", getter<CompactCiphertext>(&CompactCiphertext::getLogSlots),
                               "log2 of the number of slots in use.")
        .def_property_readonly("level", getter<CompactCiphertext>(&CompactCiphertext::getLevel),
                               "How many rescales the data can still take.")
        .def(
            "expand",
            [](const CompactHandle& self) {
                const Computing computing{reading(self)};
                return std::make_unique<CiphertextHandle>(self.object().expand());
            },
            "The ciphertext to compute with; the same at every call.");
    defineSave<CompactCiphertext>(handle, "Writes the ciphertext into a file, which is replaced as a whole.");
    defineLoad<CompactCiphertext>(handle, "compact ciphertext");
}

/// A ciphertext of a ring or of a module.
template <class T>
py::class_<Guarded<T>> bindCiphertextOf(py::module_& module, const char* name, const char* text) {
    using Handle = Guarded<T>;
    py::class_<Handle> handle(module, name, text);
    handle
        .def(py::init([](const SharedContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<Handle>(context.context);
             }),
             py::arg("context"))
        .def_property("size", getter<T>(&T::getSize), setter<T>(&T::setSize),
                      "The number of ring elements: rank + 1, but for products that are not relinearised.")
        .def_property("encoding_type", getter<T>(&T::getEncodingType), setter<T>(&T::setEncodingType),
                      "On slots or on coefficients.")
        .def_property_readonly("parameter_preset", getter<T>(&T::getParameterPreset),
                               "The preset of its context.")
        .def_property_readonly("scale_factor", getter<T>(&T::getCurrentScaleFactor),
                               "log2 of the scale of data at this level with nothing owed.")
        .def_property_readonly("current_prime", getter<T>(&T::getCurrentPrime),
                               "The prime that the next rescale divides by.")
        .def_property_readonly("is_mod_up", getter<T>(&T::isModUp),
                               "Whether the elements carry rows of the temporary primes too.")
        .def_property_readonly("is_ntt", getter<T>(&T::isNTT), "Whether the elements are in NTT form.")
        .def(
            "under",
            [](const Handle& self, const SharedContext& context) {
                const Computing computing{reading(self)};
                return std::make_unique<Handle>(context.context, self.object());
            },
            py::arg("context"),
            "The same residues, word for word, under another context. The primes of both must be the same "
            "up to the level: nothing compares them.")
        .def(
            "assign",
            [](Handle& self, const Handle& other) {
                const Computing computing{writing(self), reading(other)};
                self.object() = other.object();
            },
            py::arg("other"),
            "Takes a copy of the data of `other`, into the memory that is there where it suffices.");
    defineStamps<T>(handle);
    defineSave<T>(handle, "Writes the ciphertext into a file, which is replaced as a whole.");
    defineLoad<T>(handle, "ciphertext");
    defineCopy<T>(handle);
    return handle;
}

} // namespace

void bindCiphertext(py::module_& module) {
    py::enum_<Torvo::EncodingType>(module, "EncodingType", "Where a ciphertext carries its numbers.")
        .value("Slot", Torvo::EncodingType::Slot)
        .value("Coefficient", Torvo::EncodingType::Coefficient);
    bindCiphertextOf<Ciphertext>(
        module, "Ciphertext",
        "An encrypted vector of numbers: two or more ring elements, with level, owed "
        "rescales, slots and encoding. One thread writes or many read; the object "
        "sees to that.");
    bindCiphertextOf<ModuleCiphertext>(module, "ModuleCiphertext",
                                       "An encrypted vector of numbers of rank above 1, for presets such as "
                                       "SD3D6R2.")
        .def("__reduce__", [](const Guarded<ModuleCiphertext>& self) {
            return restoredBy("ModuleCiphertext", py::make_tuple(contextOf(self), savedBytes(self)));
        });
    bindCompact(module);
}

} // namespace TorvoPython
