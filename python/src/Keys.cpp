#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <pybind11/stl.h>

#include <array>
#include <functional>
#include <string>

namespace TorvoPython {

using Torvo::KeyGenerator;
using Torvo::KeyPack;
using Torvo::SecretKey;

namespace {

void bindSecretKey(py::module_& module) {
    py::class_<SecretKeyHandle> handle(
        module, "SecretKey",
        "A secret key. SecretKey(context) draws a new one, SecretKey(context, path) reads one from a file of "
        "`save` or "
        "`save_seed_only`. Its memory is wiped when it is dropped. It is never pickled.");
    handle
        .def(py::init([](const SharedContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<SecretKeyHandle>(context.context);
             }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, const std::string& path) {
                 const py::gil_scoped_release released;
                 return std::make_unique<SecretKeyHandle>(context.context, path);
             }),
             py::arg("context"), py::arg("path"))
        .def_property_readonly(
            "context", [](const SecretKeyHandle& self) { return contextOf(self); },
            "The context it was made for.")
        .def(
            "save",
            [](const SecretKeyHandle& self, const std::string& path) {
                const Computing computing{reading(self)};
                self.object().save(path);
            },
            py::arg("path"), "Writes the whole key, unencrypted, into a file that only its owner may read.")
        .def(
            "save_seed_only",
            [](const SecretKeyHandle& self, const std::string& path) {
                const Computing computing{reading(self)};
                self.object().saveSeedOnly(path);
            },
            py::arg("path"), "Writes only what the key was drawn from, 71 bytes, as secret as the key.")
        .def("__reduce__", [](const SecretKeyHandle&) -> py::tuple {
            throw py::type_error(
                "A secret key is not pickled, so that it does not travel by accident; write it with "
                "save(path), which makes a file for its owner alone, and read that with "
                "SecretKey(context, path)");
        });
}

template <class Class>
void defineSingleKeys(Class& handle) {
    handle
        .def_property_readonly("is_encryption_key_loaded", getter<KeyPack>(&KeyPack::isEncKeyLoaded),
                               "Whether the encryption key is in memory.")
        .def_property_readonly("is_multiplication_key_loaded", getter<KeyPack>(&KeyPack::isMultKeyLoaded),
                               "Whether the multiplication key is in memory.")
        .def_property_readonly("is_conjugation_key_loaded", getter<KeyPack>(&KeyPack::isConjKeyLoaded),
                               "Whether the conjugation key is in memory.")
        .def(
            "is_left_rotation_key_loaded",
            [](const KeyPackHandle& self, unsigned long index) {
                const Computing computing{reading(self)};
                return self.object().isLeftRotKeyLoaded(index);
            },
            py::arg("index"), "Whether the key for this rotation to the left is in memory.")
        .def(
            "has_left_rotation_key",
            [](const KeyPackHandle& self, unsigned long index) {
                const Computing computing{reading(self)};
                const KeyPack& pack = self.object();
                return pack.isLeftRotKeyLoaded(index) || pack.isLeftRotKeyFileAvailable(index);
            },
            py::arg("index"),
            "Whether the key for this rotation to the left is in memory or in the directory.");
}

void bindKeyPack(py::module_& module) {
    py::class_<KeyPackHandle> handle(module, "KeyPack",
                                     "The public keys that an evaluator works with, in memory or in a key "
                                     "directory from which each is read when it "
                                     "is first needed. Nothing in it is secret.");
    handle
        .def(py::init([](const SharedContext& context) {
                 return std::make_unique<KeyPackHandle>(context.context);
             }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, const std::string& path) {
                 const py::gil_scoped_release released;
                 return std::make_unique<KeyPackHandle>(context.context, path);
             }),
             py::arg("context"), py::arg("path"))
        .def(py::init([](const SharedContext& context, const SharedContext& sparse) {
                 return std::make_unique<KeyPackHandle>(context.context, sparse.context);
             }),
             py::arg("context"), py::arg("context_sparse"))
        .def(
            "save",
            [](KeyPackHandle& self, const std::string& path) {
                const Computing computing{writing(self)};
                self.object().save(path);
            },
            py::arg("path"), "Writes each key held into its file in the directory, which must exist.")
        .def(
            "load_bytes",
            [](KeyPackHandle& self, const py::bytes& data) {
                readAll(data, "key pack", {writing(self)},
                        [&](std::istream& stream) { self.object().load(stream); });
            },
            py::arg("data"), "Replaces the content by that of a pack whose `to_bytes` gave these.")
        .def("to_bytes", &savedBytes<KeyPack>, "All keys that are in memory, as one archive.")
        .def(
            "unload",
            [](const KeyPackHandle& self) {
                const Computing computing{reading(self)};
                self.object().unload();
            },
            "Drops from memory the keys that can be read from the directory again.");
    defineSingleKeys(handle);
}

template <class Class>
void defineGenerations(Class& handle) {
    const auto call = [](void (KeyGenerator::*generate)() const) {
        return [generate](const KeyGenerator& self) {
            const py::gil_scoped_release released;
            (self.*generate)();
        };
    };
    handle.def("gen_enc_key", call(&KeyGenerator::genEncKey), "The key to encrypt with.")
        .def("gen_mult_key", call(&KeyGenerator::genMultKey), "The key for products of ciphertexts.")
        .def("gen_conj_key", call(&KeyGenerator::genConjKey), "The key for complex conjugation.")
        .def("gen_rot_key_bundle", call(&KeyGenerator::genRotKeyBundle),
             "Rotation keys for all powers of two, left and right: every rotation can be composed of them.")
        .def("gen_sparse_secret_encapsulation_key", call(&KeyGenerator::genSparseSecretEncapsulationKey),
             "The keys for bootstrapping with sparse secret encapsulation.")
        .def(
            "gen_rot_key_if_not_exist",
            [](const KeyGenerator& self, long index) {
                const py::gil_scoped_release released;
                self.genRotKeyIfNotExist(index);
            },
            py::arg("index"), "The key for a rotation to the left, or to the right for a negative index.")
        .def(
            "gen_rot_keys_for_bootstrap",
            [](const KeyGenerator& self, unsigned long log_slots, bool compact) {
                const py::gil_scoped_release released;
                self.genRotKeysForBootstrap(log_slots, compact);
            },
            py::arg("log_slots"), py::arg("compact") = false,
            "The rotation keys for bootstrapping messages of 2^log_slots slots; compact ones for a "
            "bootstrapper with "
            "sequential rotations.");
}

void bindGenerator(py::module_& module) {
    py::class_<KeyGenerator> handle(
        module, "KeyGenerator",
        "Makes public keys from a secret key, directly in a pack, with randomness of the calling thread.");
    handle
        .def(py::init(
                 [](const SharedContext& context, const SecretKeyHandle& secret, const KeyPackHandle& pack) {
                     const Computing computing{reading(secret), reading(pack)};
                     return KeyGenerator(context.context, secret.object(), pack.object());
                 }),
             py::arg("context"), py::arg("secret_key"), py::arg("key_pack"))
        .def(py::init([](const SharedContext& context, const SharedContext& sparse,
                         const SecretKeyHandle& secret, const KeyPackHandle& pack) {
                 const Computing computing{reading(secret), reading(pack)};
                 return KeyGenerator(context.context, sparse.context, secret.object(), pack.object());
             }),
             py::arg("context"), py::arg("context_sparse"), py::arg("secret_key"), py::arg("key_pack"));
    defineGenerations(handle);
}

} // namespace

void bindKeys(py::module_& module) {
    bindSecretKey(module);
    bindKeyPack(module);
    bindGenerator(module);
    module.def(
        "get_seed", [] { return Torvo::getSeed(); },
        "The seed of this thread's random generator, four words. Whoever knows it can replay every key and "
        "encryption "
        "drawn from it: a secret.");
    module.def(
        "set_seed", [](const std::array<unsigned long, 4>& seed) { Torvo::setSeed(seed); }, py::arg("seed"),
        "Restarts this thread's random generator, for reproducible tests. Never in production: the seed "
        "replays "
        "everything.");
}

} // namespace TorvoPython
