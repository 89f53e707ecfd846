#include "Contexts.hpp"
#include "Module.hpp"
#include "Streams.hpp"

#include <Torvo/EncryptionType.hpp>
#include <Torvo/ParameterPreset.hpp>
#include <Torvo/SecurityLevel.hpp>

#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <sstream>

namespace TorvoPython {

using Torvo::ContextContent;
using Torvo::ParameterPreset;

namespace {

struct PresetName {
    const char* name;
    ParameterPreset preset;
};

constexpr std::array presets{
    PresetName{"FVa", ParameterPreset::FVa},
    PresetName{"FVb", ParameterPreset::FVb},
    PresetName{"FGa", ParameterPreset::FGa},
    PresetName{"FGb", ParameterPreset::FGb},
    PresetName{"FTa", ParameterPreset::FTa},
    PresetName{"FTb", ParameterPreset::FTb},
    PresetName{"ST19", ParameterPreset::ST19},
    PresetName{"ST14", ParameterPreset::ST14},
    PresetName{"ST11", ParameterPreset::ST11},
    PresetName{"ST8", ParameterPreset::ST8},
    PresetName{"ST7", ParameterPreset::ST7},
    PresetName{"SS7", ParameterPreset::SS7},
    PresetName{"SD3", ParameterPreset::SD3},
    PresetName{"CUSTOM", ParameterPreset::CUSTOM},
    PresetName{"FVc", ParameterPreset::FVc},
    PresetName{"FX", ParameterPreset::FX},
    PresetName{"FGd", ParameterPreset::FGd},
    PresetName{"SGd0", ParameterPreset::SGd0},
    PresetName{"SD3D6R2", ParameterPreset::SD3D6R2},
    PresetName{"FGbL0", ParameterPreset::FGbL0},
    PresetName{"FGbD12L0", ParameterPreset::FGbD12L0},
    PresetName{"FGbD8R4L0", ParameterPreset::FGbD8R4L0},
    PresetName{"FGbD6R6L0", ParameterPreset::FGbD6R6L0},
};

/// The contexts of this process, by their files. Weak: the last object that uses one frees it. Guarded by the
/// interpreter's lock, which a fork holds too, so that a child finds the map whole.
std::map<std::string, std::weak_ptr<ContextContent>>& known() {
    static auto& contexts =
        *new std::map<std::string, std::weak_ptr<ContextContent>>; // outlives the interpreter
    return contexts;
}

/// The one context of this content: the one that is there, or else this.
SharedContext oneOf(Torvo::Context made) {
    const std::string recipe = recipeOf(made);
    std::erase_if(known(), [](const auto& entry) { return entry.second.expired(); });
    auto& slot = known()[recipe];
    if (auto there = slot.lock()) return {std::move(there)};
    slot = made;
    return {std::move(made)};
}

template <class Make>
SharedContext madeBy(Make&& make) {
    Torvo::Context made;
    {
        const py::gil_scoped_release released;
        made = make();
    }
    return oneOf(std::move(made));
}

SharedContext fromBytes(const py::bytes& bytes) {
    const auto there = known().find(std::string(bytes));
    if (there != known().end())
        if (auto context = there->second.lock()) return {std::move(context)};
    Torvo::Context made;
    readAll(bytes, "context", {}, [&](std::istream& stream) { made = Torvo::makeContext(stream); });
    return oneOf(std::move(made));
}

/// A preset is known by its number too, so that one that is there need not be made to be found.
SharedContext ofPreset(ParameterPreset preset) {
    static auto& byPreset = *new std::map<ParameterPreset, std::weak_ptr<ContextContent>>;
    if (auto there = byPreset[preset].lock()) return {std::move(there)};
    SharedContext made = madeBy([&] { return Torvo::makeContext(preset); });
    byPreset[preset] = made.context;
    return made;
}

SharedContext ofName(const std::string& name) {
    for (const auto& [known, preset] : presets)
        if (name == known) return ofPreset(preset);
    std::string names;
    for (const auto& [known, preset] : presets)
        if (preset != ParameterPreset::CUSTOM) names += std::string(names.empty() ? "" : ", ") + known;
    throw py::value_error("There is no preset \"" + name + "\"; give one of " + names);
}

void bindPresets(py::module_& module) {
    py::enum_<ParameterPreset> preset(module, "ParameterPreset",
                                      "The named parameter sets. FV*, FG* and FT* can be bootstrapped; ST*, "
                                      "SS7 and SD3 are for shallow circuits, "
                                      "and their digits are the number of multiplications in a row. FX is a "
                                      "toy for tests, without security.");
    for (const auto& [name, value] : presets) preset.value(name, value);
    py::enum_<Torvo::EncryptionType>(module, "EncryptionType",
                                     "The lattice problem behind a key: RLWE works on one ring element, MLWE "
                                     "on a vector of several.")
        .value("MLWE", Torvo::EncryptionType::MLWE)
        .value("RLWE", Torvo::EncryptionType::RLWE);
    module.def("get_encryption_type", &Torvo::getEncryptionType, py::arg("preset"),
               "The lattice problem that a preset works on.");
    module.def("get_sparse_parameter_preset_for", &Torvo::getSparseParameterPresetFor, py::arg("preset"),
               "The preset of the second context for sparse secret encapsulation.");
    py::enum_<Torvo::SecurityLevel>(module, "SecurityLevel",
                                    "A claim of security; the value is the claim in bits.")
        .value("None_", Torvo::SecurityLevel::None)
        .value("Bits128", Torvo::SecurityLevel::Bits128)
        .value("Bits192", Torvo::SecurityLevel::Bits192)
        .value("Bits256", Torvo::SecurityLevel::Bits256);
    module.def("compute_lwe_security_level", &Torvo::computeLWESecurityLevel, py::arg("log_dimension"),
               py::arg("log_modulus"),
               "The security of an LWE instance with a ternary secret, by table look-up: log2 of the "
               "dimension, bits of "
               "the whole modulus.");
}

template <class Result>
auto number(Result (*get)(const Torvo::Context&)) {
    return [get](const SharedContext& self) { return get(self.context); };
}

void defineNumbers(py::class_<SharedContext>& handle) {
    handle.def_property_readonly("degree", number(&Torvo::getDegree), "The ring degree N.")
        .def_property_readonly("rank", number(&Torvo::getRank),
                               "Ring elements of a secret key: 1, but for modules.")
        .def_property_readonly("log_slots", number(&Torvo::getLogFullSlots),
                               "log2 of the number of complex slots of a full ciphertext.")
        .def_property_readonly(
            "slots", [](const SharedContext& self) { return 1UL << Torvo::getLogFullSlots(self.context); },
            "The number of complex slots of a full ciphertext: N / 2.")
        .def_property_readonly(
            "encryption_level", number(&Torvo::getEncryptionLevel),
            "The level of a fresh encryption: how many multiplications in a row it allows.")
        .def_property_readonly("security_level", number(&Torvo::getSecurityLevel),
                               "Claimed security in bits: 128, 192, 256, or 0 for none.")
        .def_property_readonly("scale_factors", number(&Torvo::getDefaultScaleFactorList),
                               "log2 of the scale of data at each level, from level 0 up.")
        .def_property_readonly("primes", number(&Torvo::getPrimeList),
                               "The prime chain: base prime, the other ciphertext primes, temporary primes.")
        .def_property_readonly("is_bootstrappable", number(&Torvo::isBootstrappableParameter),
                               "Whether ciphertexts can be bootstrapped.")
        .def_property_readonly("has_extended_bootstrap", number(&Torvo::isExtendedBootstrapSupported),
                               "Whether the bootstrap of high precision is there.")
        .def_property_readonly("has_sparse_secret_encapsulation",
                               number(&Torvo::isSparseSecretEncapsulationSupported),
                               "Whether a bootstrap can run under an encapsulated sparse secret.");
}

void defineMaking(py::class_<SharedContext>& handle) {
    handle.def(py::init(&ofName), py::arg("preset"))
        .def(py::init(&ofPreset), py::arg("preset"))
        .def_static(
            "custom",
            [](unsigned long log_degree, unsigned long chain_length, unsigned long logBase,
               unsigned long logQ, unsigned long logT, unsigned long gadget_rank) {
                return madeBy([&] {
                    return Torvo::makeContext(log_degree, chain_length, logBase, logQ, logT, gadget_rank);
                });
            },
            py::arg("log_degree"), py::arg("chain_length"), py::arg("log_bpsize"), py::arg("log_qpsize"),
            py::arg("log_tpsize"), py::arg("gadget_rank"),
            "A context with numbers of your own: log2 of the degree (6 to 20), ciphertext primes (1 to 50), "
            "bits of the "
            "base prime, of the other ciphertext primes (36 to 61) and of the temporary primes, and digits "
            "of key "
            "switching, which divide the number of ciphertext primes.")
        .def_static(
            "from_bytes", &fromBytes, py::arg("data"),
            "The context whose `to_bytes` gave these 69 bytes: the one of this process, if there is one.")
        .def_static(
            "load",
            [](const std::string& path) { return madeBy([&] { return Torvo::makeContextFromFile(path); }); },
            py::arg("path"), "The context that `save` wrote into a file.")
        .def(
            "save",
            [](const SharedContext& self, const std::string& path) {
                const py::gil_scoped_release released;
                Torvo::saveContextToFile(self.context, path);
            },
            py::arg("path"), "Writes the recipe of the context, 69 bytes; an existing file is replaced.")
        .def(
            "to_bytes", [](const SharedContext& self) { return py::bytes(recipeOf(self.context)); },
            "What `save` writes into a file.");
}

} // namespace

std::string recipeOf(const Torvo::Context& context) {
    std::ostringstream stream;
    Torvo::saveContext(context, stream);
    return std::move(stream).str();
}

std::string describe(const Torvo::Context& context) {
    return "degree " + std::to_string(Torvo::getDegree(context)) + ", " +
           std::to_string(Torvo::getEncryptionLevel(context)) + " levels, " +
           std::to_string(Torvo::getSecurityLevel(context)) + " bits of security";
}

void bindContext(py::module_& module) {
    bindPresets(module);
    py::class_<SharedContext> handle(module, "Context",
                                     "A parameter set with all its tables: ring, primes, transforms, scales. "
                                     "Context(\"ST11\") takes the name of a "
                                     "preset or a ParameterPreset. It never changes; any number of threads "
                                     "and objects share it, and a process keeps "
                                     "one for each content.");
    defineMaking(handle);
    defineNumbers(handle);
    handle
        .def(
            "is_same_ring",
            [](const SharedContext& a, const SharedContext& b) {
                return Torvo::isSameRing(a.context, b.context);
            },
            py::arg("other"), "Whether keys and ciphertexts of the one serve the other.")
        .def(
            "__eq__",
            [](const SharedContext& a, const SharedContext& b) {
                return a.context == b.context || Torvo::isSameContext(a.context, b.context);
            },
            py::is_operator())
        .def("__hash__",
             [](const SharedContext& self) { return std::hash<std::string>()(recipeOf(self.context)); })
        .def("__repr__",
             [](const SharedContext& self) { return "<torvo.Context: " + describe(self.context) + ">"; })
        .def("__copy__", [](const SharedContext& self) { return self; })
        .def(
            "__deepcopy__", [](const SharedContext& self, const py::object&) { return self; },
            py::arg("memo"))
        .def("__reduce__", [](const SharedContext& self) {
            return restoredBy("Context", py::make_tuple(py::bytes(recipeOf(self.context))));
        });
}

} // namespace TorvoPython
