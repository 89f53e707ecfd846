#pragma once

#include "Contexts.hpp"
#include "Guarded.hpp"
#include "Messages.hpp"
#include "Streams.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/Ciphertext.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/Plan.hpp>
#include <Torvo/SecretKey.hpp>

#include <memory>

namespace TorvoPython {

using PlaintextHandle = Guarded<Torvo::Plaintext>;
using CiphertextHandle = Guarded<Torvo::Ciphertext>;
using SecretKeyHandle = Guarded<Torvo::SecretKey>;
/// A pack looks after its keys by itself; only to give it another directory or content wants it alone.
using KeyPackHandle = Guarded<Torvo::KeyPack>;
using BootstrapperHandle = Guarded<Torvo::Bootstrapper>;
using PlanHandle = Guarded<Torvo::Plan>;
using PlannedHandle = Guarded<Torvo::PlannedCiphertext>;

/// Shares its bootstrapper with the object that it was made from, and so the lock of that one.
struct BootstrappingHandle {
    Torvo::BootstrappingEvaluator evaluator;
    std::shared_ptr<BootstrapperHandle> bootstrapper;
};

/// What plaintexts and ciphertexts have alike.
template <class T, class Class>
void defineStamps(Class& handle) {
    handle
        .def_property_readonly(
            "context", [](const Guarded<T>& self) { return contextOf(self); }, "The context it was made for.")
        .def_property("log_slots", getter<T>(&T::getLogSlots), setter<T>(&T::setLogSlots),
                      "log2 of the number of slots in use. A number that is set is not checked.")
        .def_property("level", getter<T>(&T::getLevel), setter<T>(&T::setLevel),
                      "How many rescales the data can still take. One that is set keeps the leading rows.")
        .def_property("rescale_counter", getter<T>(&T::getRescaleCounter), setter<T>(&T::setRescaleCounter),
                      "How many rescales are owed.");
}

/// `load` and `from_bytes` of an object that is made for a context. Both read into a new object: what a load left half
/// done is never seen.
template <class T, class Class>
void defineLoad(Class& handle, const char* what) {
    handle
        .def(
            "load",
            [](Guarded<T>& self, const std::string& path) {
                const Computing computing{writing(self)};
                T loaded(self.object().getContext());
                loaded.load(path);
                self.object() = std::move(loaded);
            },
            py::arg("path"), "Replaces the content by that of a file; a failed load changes nothing.")
        .def_static(
            "from_bytes",
            [what](const SharedContext& context, const py::bytes& data) {
                auto loaded = std::make_unique<Guarded<T>>(context.context);
                readAll(data, what, {}, [&](std::istream& stream) { loaded->object().load(stream); });
                return loaded;
            },
            py::arg("context"), py::arg("data"),
            "The object whose `to_bytes` gave these, for a context of its ring.");
}

/// Copies under the lock.
template <class T, class Class>
void defineCopy(Class& handle) {
    const auto copy = [](const Guarded<T>& self) {
        const Computing computing{reading(self)};
        return std::make_unique<Guarded<T>>(self.object());
    };
    handle.def("copy", copy, "A copy of the data, which shares the context.").def("__copy__", copy);
    handle.def(
        "__deepcopy__", [copy](const Guarded<T>& self, const py::object&) { return copy(self); },
        py::arg("memo"));
}

} // namespace TorvoPython
