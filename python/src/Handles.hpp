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
#include <string>

namespace TorvoPython {

using PlaintextHandle = Guarded<Torvo::Plaintext>;
using CiphertextHandle = Guarded<Torvo::Ciphertext>;
using SecretKeyHandle = Guarded<Torvo::SecretKey>;
/// Of rank above 1.
using ModuleCiphertext = Torvo::CiphertextBase<Torvo::EncryptionType::MLWE>;
using ModuleSecretKey = Torvo::SecretKeyBase<Torvo::EncryptionType::MLWE>;
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

/// `to` of what can be on a device.
template <class T, class Class>
void defineMove(Class& handle) {
    handle.def(
        "to",
        [](Guarded<T>& self, const Torvo::Device& device) {
            const Computing computing{writing(self)};
            outputOf(self).to(device);
        },
        py::arg("device"), "Moves the data to another device; this build computes on the CPU only.");
}

/// `to` and where the data are.
template <class T, class Class>
void defineDevice(Class& handle) {
    handle.def_property_readonly("device", getter<T>(&T::getDevice), "Where the data are.");
    defineMove<T>(handle);
}

template <class T, class Class>
void defineLevels(Class& handle) {
    handle
        .def_property("level", getter<T>(&T::getLevel), setter<T>(&T::setLevel),
                      "How many rescales the data can still take. One that is set keeps the leading rows.")
        .def_property("rescale_counter", getter<T>(&T::getRescaleCounter), setter<T>(&T::setRescaleCounter),
                      "How many rescales are owed.");
}

/// What plaintexts and ciphertexts have alike.
template <class T, class Class>
void defineStamps(Class& handle) {
    handle
        .def_property_readonly(
            "context", [](const Guarded<T>& self) { return contextOf(self); }, "The context it was made for.")
        .def_property("log_slots", getter<T>(&T::getLogSlots), setter<T>(&T::setLogSlots),
                      "log2 of the number of slots in use. A number that is set is not checked.")
        .def_property_readonly("number_of_slots", getter<T>(&T::getNumberOfSlots),
                               "The number of slots in use.");
    defineLevels<T>(handle);
    defineDevice<T>(handle);
}

/// `load` and `from_bytes` of an object that is made for a context. Both read into a new object: what a load left half
/// done is never seen.
template <class Context, class T, class Class>
void defineLoadFor(Class& handle, const char* what) {
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
            [what](const Context& context, const py::bytes& data) {
                auto loaded = std::make_unique<Guarded<T>>(context.context);
                readAll(data, what, {}, [&](std::istream& stream) { loaded->object().load(stream); });
                return loaded;
            },
            py::arg("context"), py::arg("data"),
            "The object whose `to_bytes` gave these, for a context of its primes.");
}
template <class T, class Class>
void defineLoad(Class& handle, const char* what) {
    defineLoadFor<SharedContext, T>(handle, what);
}

/// The files of a secret key, and its refusal to be pickled.
template <class T, class Class>
void defineSecretFiles(Class& handle, const char* name) {
    handle
        .def(
            "save",
            [](const Guarded<T>& self, const std::string& path) {
                const Computing computing{reading(self)};
                self.object().save(path);
            },
            py::arg("path"), "Writes the whole key, unencrypted, into a file that only its owner may read.")
        .def(
            "save_seed_only",
            [](const Guarded<T>& self, const std::string& path) {
                const Computing computing{reading(self)};
                self.object().saveSeedOnly(path);
            },
            py::arg("path"), "Writes only what the key was drawn from, some 70 bytes, as secret as the key.")
        .def_property_readonly("saved_size", getter<T>(&T::savedSize),
                               "The number of bytes that `save` writes.")
        .def("__reduce__", [name](const Guarded<T>&) -> py::tuple {
            throw py::type_error(
                "A secret key is not pickled, so that it does not travel by accident; write it with "
                "save(path), which makes a file for its owner alone, and read that with " +
                std::string(name) + "(context, path)");
        });
    defineDevice<T>(handle);
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
