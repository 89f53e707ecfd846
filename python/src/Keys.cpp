#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <pybind11/stl.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace TorvoPython {

using EncapsulationKey = Torvo::SparseSecretEncapsulationKey;
using Torvo::EncryptionKey;
using Torvo::EvaluationKey;
using Torvo::KeyGenerator;
using Torvo::KeyPack;
using Torvo::SecretKey;

namespace {

/// A secret key of a ring or of a module.
template <class T>
void bindSecretKey(py::module_& module, const char* name, const char* text) {
    using Handle = Guarded<T>;
    py::class_<Handle> handle(module, name, text);
    handle
        .def(py::init([](const SharedContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<Handle>(context.context);
             }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, const std::string& path) {
                 const py::gil_scoped_release released;
                 return std::make_unique<Handle>(context.context, path);
             }),
             py::arg("context"), py::arg("path"))
        .def_property_readonly(
            "context", [](const Handle& self) { return contextOf(self); }, "The context it was made for.");
    defineSecretFiles<T>(handle, name);
}

// ---- single keys

/// A key that a pack holds, or held: it stays as it is while somebody reads it.
template <class Key>
class HeldKey {
public:
    explicit HeldKey(std::shared_ptr<Key> key) : key_(std::move(key)) {}

    const Key& key() const { return *key_; }
    void save(const std::string& path) const { key_->save(path); }
    void save(std::ostream& stream) const { key_->save(stream); }
    unsigned long savedSize() const { return key_->savedSize(); }

private:
    std::shared_ptr<Key> key_;
};

template <class Key>
using HeldHandle = Guarded<HeldKey<Key>>;

/// A getter of the key in a handle.
template <class Key, class Get>
auto keyGetter(Get get) {
    return getter<HeldKey<Key>>([get](const HeldKey<Key>& held) { return std::invoke(get, held.key()); });
}

template <class Key>
py::class_<HeldHandle<Key>> bindHeldKey(py::module_& module, const char* name, const char* text) {
    py::class_<HeldHandle<Key>> handle(module, name, text);
    defineSave<HeldKey<Key>>(handle, "Writes the key into a file, which is replaced as a whole.");
    return handle;
}

void bindHeldKeys(py::module_& module) {
    bindHeldKey<EncryptionKey>(module, "EncryptionKey",
                               "A public encryption key, as a pack gives it. `to_bytes` is what "
                               "KeyPack.load_enc_key takes.")
        .def_property_readonly("context_hash", keyGetter<EncryptionKey>(&EncryptionKey::getContextHash),
                               "The stamp of the ring that the key belongs to.")
        .def_property_readonly("device", keyGetter<EncryptionKey>(&EncryptionKey::getDevice),
                               "Where the data are.");
    bindHeldKey<EvaluationKey>(
        module, "EvaluationKey",
        "A switching key, as a pack gives it: for products, conjugation or a rotation. "
        "`to_bytes` is what the loads of KeyPack take.")
        .def_property_readonly(
            "context",
            [](const HeldHandle<EvaluationKey>& self) {
                const Computing computing{reading(self)};
                return SharedContext{self.object().key().getContext()};
            },
            "The context it was made for.")
        .def_property_readonly("type", keyGetter<EvaluationKey>(&EvaluationKey::getType),
                               "The letter of its kind: m, c or r.")
        .def_property_readonly("rotation_index", keyGetter<EvaluationKey>(&EvaluationKey::getRotationIndex),
                               "The rotation to the left of a rotation key, 0 of others.")
        .def_property_readonly("context_hash", keyGetter<EvaluationKey>(&EvaluationKey::getContextHash),
                               "The stamp of the ring that the key belongs to.")
        .def_property_readonly("gadget_rank", keyGetter<EvaluationKey>(&EvaluationKey::getGadgetRank),
                               "The number of its pairs of ring elements.");
    bindHeldKey<EncapsulationKey>(module, "SparseSecretEncapsulationKey",
                                  "The two keys of bootstrapping with sparse secret encapsulation, as a pack "
                                  "gives them.");
}

using PackClass = py::class_<KeyPackHandle>;
using Data = std::optional<py::bytes>;

/// The key of Python, or None.
template <class Key>
py::object held(std::shared_ptr<Key> key) {
    return key == nullptr ? py::none()
                          : py::cast(std::make_unique<HeldHandle<Key>>(HeldKey<Key>(std::move(key))));
}

/// Loads a key from bytes, or else from the directory.
template <class FromFile, class FromStream>
void loadKey(const KeyPackHandle& self, const Data& data, FromFile&& fromFile, FromStream&& fromStream) {
    if (data) {
        readAll(*data, "key", {reading(self)},
                [&](std::istream& stream) { fromStream(self.object(), stream); });
        return;
    }
    const Computing computing{reading(self)};
    fromFile(self.object());
}

constexpr const char* loadText =
    "Takes the key from bytes, or else from the directory, where a missing file is no error.";
constexpr const char* unloadText = "Drops the key from memory, if the directory has it.";
constexpr const char* getText = "The key, read from the directory if need be; None where there is none.";

/// Load, unload and get of a key that a pack has one of.
template <class Key>
void defineOnlyKey(PackClass& handle, const std::string& name, void (KeyPack::*fromFile)() const,
                   void (KeyPack::*fromStream)(std::istream&) const, void (KeyPack::*unload)() const,
                   std::shared_ptr<Key> (KeyPack::*get)() const) {
    handle
        .def(("load_" + name).c_str(),
             [=](const KeyPackHandle& self, const Data& data) {
                 loadKey(self, data, std::mem_fn(fromFile), std::mem_fn(fromStream));
             },
             py::arg("data") = py::none(), loadText)
        .def(("unload_" + name).c_str(),
             [=](const KeyPackHandle& self) {
                 const Computing computing{reading(self)};
                 (self.object().*unload)();
             },
             unloadText)
        .def(("get_" + name).c_str(),
             [=](const KeyPackHandle& self) { return held(getter<KeyPack>(get)(self)); }, getText);
}

/// The same of a key for each index.
void defineRotationKey(PackClass& handle, const std::string& name,
                       void (KeyPack::*fromFile)(unsigned long) const,
                       void (KeyPack::*fromStream)(unsigned long, std::istream&) const,
                       void (KeyPack::*unload)(unsigned long) const,
                       std::shared_ptr<EvaluationKey> (KeyPack::*get)(unsigned long) const) {
    handle
        .def(("load_" + name).c_str(),
             [=](const KeyPackHandle& self, unsigned long index, const Data& data) {
                 loadKey(
                     self, data, [=](const KeyPack& pack) { (pack.*fromFile)(index); },
                     [=](const KeyPack& pack, std::istream& stream) { (pack.*fromStream)(index, stream); });
             },
             py::arg("index"), py::arg("data") = py::none(), loadText)
        .def(("unload_" + name).c_str(),
             [=](const KeyPackHandle& self, unsigned long index) {
                 const Computing computing{reading(self)};
                 (self.object().*unload)(index);
             },
             py::arg("index"), unloadText)
        .def(("get_" + name).c_str(),
             [=](const KeyPackHandle& self, unsigned long index) {
                 return held(getter<KeyPack>([=](const KeyPack& pack) { return (pack.*get)(index); })(self));
             },
             py::arg("index"), getText);
}

void defineAccess(PackClass& handle) {
    defineOnlyKey<EncryptionKey>(handle, "enc_key", &KeyPack::loadEncKey, &KeyPack::loadEncKey,
                                 &KeyPack::unloadEncKey, &KeyPack::getEncKey);
    defineOnlyKey<EvaluationKey>(handle, "mult_key", &KeyPack::loadMultKey, &KeyPack::loadMultKey,
                                 &KeyPack::unloadMultKey, &KeyPack::getMultKey);
    defineOnlyKey<EvaluationKey>(handle, "conj_key", &KeyPack::loadConjKey, &KeyPack::loadConjKey,
                                 &KeyPack::unloadConjKey, &KeyPack::getConjKey);
    defineOnlyKey<EncapsulationKey>(
        handle, "sparse_secret_encapsulation_key", &KeyPack::loadSparseSecretEncapsulationKey,
        &KeyPack::loadSparseSecretEncapsulationKey, &KeyPack::unloadSparseSecretEncapsulationKey,
        &KeyPack::getSparseSecretEncapsulationKey);
    defineRotationKey(handle, "left_rot_key", &KeyPack::loadLeftRotKey, &KeyPack::loadLeftRotKey,
                      &KeyPack::unloadLeftRotKey, &KeyPack::getLeftRotKey);
    defineRotationKey(handle, "right_rot_key", &KeyPack::loadRightRotKey, &KeyPack::loadRightRotKey,
                      &KeyPack::unloadRightRotKey, &KeyPack::getRightRotKey);
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
            "Whether the key for this rotation to the left is in memory or in the directory.")
        .def(
            "is_right_rotation_key_loaded",
            [](const KeyPackHandle& self, unsigned long index) {
                const Computing computing{reading(self)};
                return self.object().isRightRotKeyLoaded(index);
            },
            py::arg("index"), "Whether the key for this rotation to the right is in memory.")
        .def_property_readonly("is_sparse_secret_encapsulation_key_loaded",
                               getter<KeyPack>(&KeyPack::isSparseSecretEncapsulationKeyLoaded),
                               "Whether the encapsulation key is in memory.")
        .def(
            "is_left_rot_key_file_available",
            [](const KeyPackHandle& self, unsigned long index) {
                const Computing computing{reading(self)};
                return self.object().isLeftRotKeyFileAvailable(index);
            },
            py::arg("index"), "Whether the directory has a file for exactly this rotation to the left.");
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
        .def(py::init([](const SharedContext& context, const SharedContext& sparse, const std::string& path) {
                 const py::gil_scoped_release released;
                 return std::make_unique<KeyPackHandle>(context.context, sparse.context, path);
             }),
             py::arg("context"), py::arg("context_sparse"), py::arg("path"))
        .def(
            "set_key_dir_path",
            [](KeyPackHandle& self, const std::string& path) {
                const Computing computing{writing(self)};
                self.object().setKeyDirPath(path);
            },
            py::arg("path"), "Sets the directory to read keys from.")
        .def_property_readonly("saved_size", getter<KeyPack>(&KeyPack::savedSize),
                               "The number of bytes that `to_bytes` gives.")
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
    defineMove<KeyPack>(handle);
    defineSingleKeys(handle);
    defineAccess(handle);
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
            "gen_left_rot_key",
            [](const KeyGenerator& self, unsigned long index) {
                const py::gil_scoped_release released;
                self.genLeftRotKey(index);
            },
            py::arg("index"), "The key for a rotation to the left, by 1 to the number of slots - 1.")
        .def(
            "gen_right_rot_key",
            [](const KeyGenerator& self, unsigned long index) {
                const py::gil_scoped_release released;
                self.genRightRotKey(index);
            },
            py::arg("index"), "The key for a rotation to the right, by 1 to the number of slots - 1.")
        .def(
            "save",
            [](const KeyGenerator& self, const std::string& path) {
                const py::gil_scoped_release released;
                self.save(path);
            },
            py::arg("path"), "Writes the keys held into a key directory, which must exist.")
        .def_property_readonly(
            "key_pack",
            [](const KeyGenerator& self) { return std::make_unique<KeyPackHandle>(self.getKeyPack()); },
            "The pack that the keys go to: a handle of the same keys.")
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
        "Makes public keys from a secret key, directly in a pack, with randomness of the calling thread. "
        "Keys "
        "between rings are returned. Without a pack it makes one, without a secret key only packing keys.");
    handle
        .def(py::init([](const SharedContext& context) { return KeyGenerator(context.context); }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, const SecretKeyHandle& secret) {
                 const Computing computing{reading(secret)};
                 return KeyGenerator(context.context, secret.object());
             }),
             py::arg("context"), py::arg("secret_key"))
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
    bindSecretKey<SecretKey>(
        module, "SecretKey",
        "A secret key. SecretKey(context) draws a new one, SecretKey(context, path) reads one from a file of "
        "`save` or `save_seed_only`. Its memory is wiped when it is dropped. It is never pickled.");
    bindSecretKey<ModuleSecretKey>(
        module, "ModuleSecretKey",
        "A secret key of rank above 1, for presets such as SD3D6R2. As SecretKey, it is never pickled.");
    bindHeldKeys(module);
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
