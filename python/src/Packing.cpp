#include "LWE.hpp"
#include "Module.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TorvoPython {

using Torvo::Ciphertext;
using Torvo::KeyGenerator;
using Torvo::ModPackKeyBundle;
using Torvo::RingPacker;
using Torvo::RingSwitchKey;
using Torvo::SecretKey;
using SwitchKeyHandle = Guarded<RingSwitchKey>;
using BundleHandle = Guarded<ModPackKeyBundle>;

namespace {

void bindSwitchKey(py::module_& module) {
    py::class_<SwitchKeyHandle> handle(
        module, "RingSwitchKey",
        "The key of RingPacker.compose or of RingPacker.decompose. KeyGenerator makes it. Nothing in it is "
        "secret.");
    handle
        .def(py::init([](const SharedContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<SwitchKeyHandle>(context.context);
             }),
             py::arg("context"))
        .def_property_readonly(
            "context", [](const SwitchKeyHandle& self) { return contextOf(self); }, "The large ring.")
        .def("__reduce__", [](const SwitchKeyHandle& self) {
            return restoredBy("RingSwitchKey", py::make_tuple(contextOf(self), savedBytes(self)));
        });
    defineMove<RingSwitchKey>(handle);
    defineSave<RingSwitchKey>(handle, "Writes the key into a file, which is replaced as a whole.");
    defineLoadFor<SharedContext, RingSwitchKey>(handle, "ring switching key");
}

/// Memory for the keys is taken before they are read, so their number must be one that the bytes can hold: each key has
/// more than a row of words.
std::unique_ptr<BundleHandle> bundleOf(const SharedContext& context, const py::bytes& data,
                                       unsigned long count) {
    const unsigned long size = std::string_view(data).size();
    const unsigned long row = Torvo::getDegree(context.context) * sizeof(unsigned long);
    if (count > size / row)
        throw Torvo::RuntimeException("The bytes are " + std::to_string(size) + ", too few for " +
                                      std::to_string(count) +
                                      " packing keys of this ring; give the number of keys that were saved");
    std::unique_ptr<BundleHandle> loaded;
    readAll(data, "packing keys", {}, [&](std::istream& stream) {
        loaded = std::make_unique<BundleHandle>(context.context, count);
        loaded->object().load(stream);
    });
    return loaded;
}

void bindBundle(py::module_& module) {
    py::class_<BundleHandle> handle(
        module, "ModPackKeyBundle",
        "The keys of RingPacker.mod_pack. KeyGenerator makes them. Nothing in them is secret.");
    handle
        .def(py::init([](const SharedContext& context, unsigned long count) {
                 const py::gil_scoped_release released;
                 return std::make_unique<BundleHandle>(context.context, count);
             }),
             py::arg("context"), py::arg("num_keys"))
        .def_property_readonly(
            "context", [](const BundleHandle& self) { return contextOf(self); }, "The large ring.")
        .def_property_readonly("num_keys", getter<ModPackKeyBundle>(&ModPackKeyBundle::getNumKeys),
                               "How many keys there are.")
        .def(
            "load",
            [](BundleHandle& self, const std::string& path) {
                const Computing computing{writing(self)};
                ModPackKeyBundle loaded(self.object().getContext(), self.object().getNumKeys());
                loaded.load(path);
                self.object() = std::move(loaded);
            },
            py::arg("path"),
            "Replaces the keys by those of a file, which holds as many; a failed load changes nothing.")
        .def_static("from_bytes", &bundleOf, py::arg("context"), py::arg("data"), py::arg("num_keys"),
                    "The keys whose `to_bytes` gave these. The bytes do not tell how many there are.")
        .def("__reduce__", [](const BundleHandle& self) {
            return restoredBy("ModPackKeyBundle",
                              py::make_tuple(contextOf(self), savedBytes(self),
                                             getter<ModPackKeyBundle>(&ModPackKeyBundle::getNumKeys)(self)));
        });
    defineMove<ModPackKeyBundle>(handle);
    defineSave<ModPackKeyBundle>(handle, "Writes the keys into a file, which is replaced as a whole.");
}

/// The inputs of a packing, where the library wants them. Only while they are locked.
template <class T>
std::vector<const T*> inputsOf(const Operands<T>& operands) {
    std::vector<const T*> inputs;
    for (const Guarded<T>* operand : operands.pointers) inputs.push_back(&operand->object());
    return inputs;
}

/// The outputs, none of them twice: they are written at once.
template <class T>
std::vector<T*> outputsOf(const Operands<T>& operands) {
    std::vector<T*> outputs;
    for (Guarded<T>* operand : operands.pointers) outputs.push_back(&operand->object());
    std::vector<T*> sorted = outputs;
    std::sort(sorted.begin(), sorted.end(), std::less<T*>());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
        throw py::value_error("An output is named twice; give as many ciphertexts as there are outputs");
    return outputs;
}

template <class T>
std::vector<Wanted> writingAll(const Operands<T>& operands) {
    std::vector<Wanted> wanted;
    for (Guarded<T>* operand : operands.pointers) wanted.push_back(writing(*operand));
    return wanted;
}

void compose(const RingPacker& self, const Operands<Ciphertext>& in, const SwitchKeyHandle& key,
             CiphertextHandle& out) {
    const Computing computing(joined(readingAll(in), {reading(key), writing(out)}));
    self.compose(inputsOf(in), key.object(), out.object());
}

void decompose(const RingPacker& self, const CiphertextHandle& in, const SwitchKeyHandle& key,
               const Operands<Ciphertext>& outs) {
    const Computing computing(joined(writingAll(outs), {reading(in), reading(key)}));
    std::vector<Ciphertext*> outputs = outputsOf(outs);
    self.decompose(in.object(), key.object(), outputs);
}

template <class In, class Out>
void modPack(const RingPacker& self, const Operands<In>& in, const BundleHandle& keys, Guarded<Out>& out) {
    const Computing computing(joined(readingAll(in), {reading(keys), writing(out)}));
    self.modPack(inputsOf(in), keys.object(), out.object());
}

void unPack(const RingPacker& self, const CiphertextHandle& in, const Operands<LWECiphertext>& outs) {
    const Computing computing(joined(writingAll(outs), {reading(in)}));
    self.unPack(in.object(), outputsOf(outs));
}

void bindPacker(py::module_& module) {
    py::class_<RingPacker> handle(
        module, "RingPacker",
        "Moves ciphertexts between rings of other degree, modules and plain LWE. It moves coefficients: "
        "operands are what Encryptor.encrypt_coefficients and Bootstrapper.slot_to_coeff give.");
    handle.def(py::init<>())
        .def("compose", &compose, py::arg("operands"), py::arg("key"), py::arg("out"),
             "Several ciphertexts of a small ring into one of a large ring; coefficient c of the j-th one "
             "becomes coefficient c k + j. A single one is embedded.")
        .def("decompose", &decompose, py::arg("operand"), py::arg("key"), py::arg("outs"),
             "One ciphertext of a large ring into several of a small ring, which are written; a single one "
             "takes every k-th coefficient.");
    const char* text = "Several ciphertexts of a module, or of plain LWE, into one of lower rank and higher "
                       "degree.";
    const auto packing = [&](auto pack, const char* shown) {
        handle.def("mod_pack", pack, py::arg("operands"), py::arg("keys"), py::arg("out"), shown);
    };
    packing(&modPack<ModuleCiphertext, Ciphertext>, "");
    packing(&modPack<ModuleCiphertext, ModuleCiphertext>, "");
    packing(&modPack<LWECiphertext, Ciphertext>, "");
    packing(&modPack<LWECiphertext, ModuleCiphertext>, text);
    handle.def("un_pack", &unPack, py::arg("operand"), py::arg("outs"),
               "A ciphertext of degree n into n plain LWE ciphertexts, one for each coefficient, which are "
               "written. Needs no key.");
}

/// The keys between rings, which the generator returns.
void defineRingKeys(py::module_& module) {
    auto handle = py::class_<KeyGenerator>(module.attr("KeyGenerator"));
    handle
        .def(
            "gen_compose_key",
            [](const KeyGenerator& self, const SecretKeyHandle& in) {
                const Computing computing{reading(in)};
                return std::make_unique<SwitchKeyHandle>(self.genComposeKey(in.object()));
            },
            py::arg("in_key"), "The key of RingPacker.compose from `in_key`, a secret of a small ring.")
        .def(
            "gen_decompose_key",
            [](const KeyGenerator& self, const SharedContext& context, const SecretKeyHandle& out) {
                const Computing computing{reading(out)};
                return std::make_unique<SwitchKeyHandle>(self.genDecomposeKey(context.context, out.object()));
            },
            py::arg("switch_context"), py::arg("out_key"),
            "The key of RingPacker.decompose to `out_key`, a secret of a small ring. It belongs to "
            "`switch_context`, a ring of the generator's degree.");
    const auto packing = [&]<class In, class Out>(const Guarded<In>*, const Guarded<Out>*, const char* text) {
        handle.def(
            "gen_mod_pack_key_bundle",
            [](const KeyGenerator& self, const Guarded<In>& in, const Guarded<Out>& out) {
                const Computing computing{reading(in), reading(out)};
                return std::make_unique<BundleHandle>(self.genModPackKeyBundle(in.object(), out.object()));
            },
            py::arg("in_key"), py::arg("out_key"), text);
    };
    const Guarded<SecretKey>* ring = nullptr;
    const Guarded<ModuleSecretKey>* module_ = nullptr;
    const Guarded<LWESecretKey>* plain = nullptr;
    packing(module_, ring, "");
    packing(module_, module_, "");
    packing(plain, ring, "");
    packing(plain, module_,
            "The keys of RingPacker.mod_pack from the secret of a module or of plain LWE to `out_key`. Only "
            "the generator's context is used, as the large ring.");
}

template <class A, class B>
void defineNumber(py::module_& module, const char* name,
                  unsigned long (*get)(const decltype(A::context)&, const decltype(B::context)&),
                  const char* first, const char* second, const char* text) {
    module.def(
        name, [get](const A& a, const B& b) { return get(a.context, b.context); }, py::arg(first),
        py::arg(second), text);
}

void bindNumbers(py::module_& module) {
    using Ring = SharedContext;
    using Plain = SharedLWEContext;
    defineNumber<Ring, Ring>(module, "get_num_ciphertexts_after_full_decompose",
                             &Torvo::getNumCiphertextsAfterFullDecompose, "source", "target",
                             "How many ciphertexts of `target` one of `source` decomposes into.");
    defineNumber<Ring, Ring>(module, "get_num_ciphertexts_to_full_compose",
                             &Torvo::getNumCiphertextsToFullCompose, "source", "target",
                             "How many ciphertexts of `source` fill one of `target`.");
    defineNumber<Ring, Ring>(module, "get_num_ciphertexts_to_mod_pack", &Torvo::getNumCiphertextsToModPack,
                             "source", "target", "");
    defineNumber<Plain, Ring>(module, "get_num_ciphertexts_to_mod_pack", &Torvo::getNumCiphertextsToModPack,
                              "source", "target",
                              "How many ciphertexts of a module or of plain LWE fill one of `target`.");
    defineNumber<Ring, Ring>(module, "get_max_compatible_level", &Torvo::getMaxCompatibleLevel, "a", "b", "");
    defineNumber<Plain, Ring>(module, "get_max_compatible_level", &Torvo::getMaxCompatibleLevel, "a", "b",
                              "The highest level up to which two chains have the same primes, so that a "
                              "ciphertext may pass from one to the other.");
    module.def(
        "get_num_ciphertexts_after_un_pack",
        [](const SharedContext& context) { return Torvo::getNumCiphertextsAfterUnPack(context.context); },
        py::arg("context"), "How many plain LWE ciphertexts RingPacker.un_pack makes.");
    module.def(
        "gen_lwe_secret_key_after_un_pack",
        [](const SharedLWEContext& context, const SecretKeyHandle& key) {
            const Computing computing{reading(key)};
            return std::make_unique<LWESecretKeyHandle>(
                Torvo::genLWESecretKeyAfterUnPack(context.context, key.object()));
        },
        py::arg("lwe_context"), py::arg("secret_key"),
        "The secret of the ciphertexts of RingPacker.un_pack: the coefficients of `secret_key`.");
}

} // namespace

void bindPacking(py::module_& module) {
    bindSwitchKey(module);
    bindBundle(module);
    bindPacker(module);
    defineRingKeys(module);
    bindNumbers(module);
}

} // namespace TorvoPython
