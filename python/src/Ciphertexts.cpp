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

} // namespace

void bindCiphertext(py::module_& module) {
    py::enum_<Torvo::EncodingType>(module, "EncodingType", "Where a ciphertext carries its numbers.")
        .value("Slot", Torvo::EncodingType::Slot)
        .value("Coefficient", Torvo::EncodingType::Coefficient);
    py::class_<CiphertextHandle> handle(module, "Ciphertext",
                                        "An encrypted vector of numbers: two or more ring elements, with "
                                        "level, owed rescales, slots and encoding. "
                                        "One thread writes or many read; the object sees to that.");
    handle
        .def(py::init([](const SharedContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<CiphertextHandle>(context.context);
             }),
             py::arg("context"))
        .def_property("size", getter<Ciphertext>(&Ciphertext::getSize),
                      setter<Ciphertext>(&Ciphertext::setSize),
                      "The number of ring elements: 2, but for products that are not relinearised.")
        .def_property("encoding_type", getter<Ciphertext>(&Ciphertext::getEncodingType),
                      setter<Ciphertext>(&Ciphertext::setEncodingType), "On slots or on coefficients.")
        .def_property_readonly("scale_factor", getter<Ciphertext>(&Ciphertext::getCurrentScaleFactor),
                               "log2 of the scale of data at this level with nothing owed.")
        .def_property_readonly("is_ntt", getter<Ciphertext>(&Ciphertext::isNTT),
                               "Whether the elements are in NTT form.")
        .def(
            "assign",
            [](CiphertextHandle& self, const CiphertextHandle& other) {
                const Computing computing{writing(self), reading(other)};
                self.object() = other.object();
            },
            py::arg("other"),
            "Takes a copy of the data of `other`, into the memory that is there where it suffices.");
    defineStamps<Ciphertext>(handle);
    defineSave<Ciphertext>(handle, "Writes the ciphertext into a file, which is replaced as a whole.");
    defineLoad<Ciphertext>(handle, "ciphertext");
    defineCopy<Ciphertext>(handle);
    bindCompact(module);
}

} // namespace TorvoPython
