#include "LWE.hpp"
#include "Module.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>
#include <Torvo/LWEParameterPreset.hpp>

#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <optional>
#include <sstream>
#include <string>

namespace TorvoPython {

using LWEEncryptor = Torvo::LWE::Encryptor;
using LWEDecryptor = Torvo::LWE::Decryptor;
using LWEHomEvaluator = Torvo::LWE::HomEvaluator;
using LWEPreset = Torvo::LWE::ParameterPreset;

namespace {

std::string recipeOf(const Torvo::LWE::Context& context) {
    std::ostringstream stream;
    Torvo::LWE::saveContext(context, stream);
    return std::move(stream).str();
}

SharedLWEContext ofBytes(const py::bytes& data) {
    SharedLWEContext made;
    readAll(data, "LWE context", {},
            [&](std::istream& stream) { made.context = Torvo::LWE::makeContext(stream); });
    return made;
}

template <class Result>
auto number(Result (*get)(const Torvo::LWE::Context&)) {
    return [get](const SharedLWEContext& self) { return get(self.context); };
}

void defineContextFiles(py::class_<SharedLWEContext>& handle) {
    handle
        .def_static(
            "load",
            [](const std::string& path) {
                const py::gil_scoped_release released;
                return SharedLWEContext{Torvo::LWE::makeContextFromFile(path)};
            },
            py::arg("path"), "The context that `save` wrote into a file.")
        .def(
            "save",
            [](const SharedLWEContext& self, const std::string& path) {
                const py::gil_scoped_release released;
                Torvo::LWE::saveContextToFile(self.context, path);
            },
            py::arg("path"), "Writes the recipe of the context, 37 bytes; an existing file is replaced.")
        .def_static("from_bytes", &ofBytes, py::arg("data"), "The context whose `to_bytes` gave these.")
        .def(
            "to_bytes", [](const SharedLWEContext& self) { return py::bytes(recipeOf(self.context)); },
            "What `save` writes into a file.")
        .def("__reduce__",
             [](const SharedLWEContext& self) {
                 return restoredBy("LWEContext", py::make_tuple(py::bytes(recipeOf(self.context))));
             })
        .def(
            "__eq__",
            [](const SharedLWEContext& a, const SharedLWEContext& b) {
                return a.context == b.context || recipeOf(a.context) == recipeOf(b.context);
            },
            py::is_operator())
        .def("__hash__",
             [](const SharedLWEContext& self) { return std::hash<std::string>()(recipeOf(self.context)); });
}

void bindLWEContext(py::module_& module) {
    py::enum_<LWEPreset>(module, "LWEParameterPreset", "The named parameter sets of plain LWE.")
        .value("SS7", LWEPreset::SS7)
        .value("SD3", LWEPreset::SD3)
        .value("CUSTOM", LWEPreset::CUSTOM)
        .value("FGbD12L0", LWEPreset::FGbD12L0);
    py::class_<SharedLWEContext> handle(
        module, "LWEContext",
        "A parameter set of plain LWE: vectors of integers modulo a product of primes, without a ring. It "
        "never changes; any number of threads and objects share it.");
    handle
        .def(py::init([](LWEPreset preset) {
                 const py::gil_scoped_release released;
                 return SharedLWEContext{Torvo::LWE::makeContext(preset)};
             }),
             py::arg("preset"))
        .def_static(
            "custom",
            [](unsigned long dimension, unsigned long chainLength, unsigned long logBase,
               unsigned long logQ) {
                const py::gil_scoped_release released;
                return SharedLWEContext{Torvo::LWE::makeContext(dimension, chainLength, logBase, logQ)};
            },
            py::arg("dimension"), py::arg("chain_length"), py::arg("log_bpsize"), py::arg("log_qpsize"),
            "A context with numbers of your own: length of the secret, number of primes (1 to 50), bits of "
            "the base prime and of the others (36 to 61). It shares primes with a ring only by chance.")
        .def_property_readonly("dimension", number(&Torvo::LWE::getDimension), "Length of the secret.")
        .def_property_readonly("encryption_level", number(&Torvo::LWE::getEncryptionLevel),
                               "The level of a fresh encryption.")
        .def_property_readonly("security_level", number(&Torvo::LWE::getSecurityLevel),
                               "Claimed security in bits: 128, 192, 256, or 0 for none.")
        .def_property_readonly("scale_factors", number(&Torvo::LWE::getDefaultScaleFactorList),
                               "log2 of the scale of data at each level, from level 0 up.")
        .def_property_readonly("primes", number(&Torvo::LWE::getPrimeList),
                               "The prime chain: base prime, then the others from the lowest level up.");
    defineContextFiles(handle);
}

SharedLWEContext contextOf(const LWECiphertextHandle& self) {
    const Computing computing{reading(self)};
    return {self.object().getContext()};
}

void bindLWECiphertext(py::module_& module) {
    py::class_<LWECiphertextHandle> handle(
        module, "LWECiphertext",
        "One encrypted real number. One thread writes or many read; the object sees to that.");
    handle
        .def(py::init([](const SharedLWEContext& context) {
                 return std::make_unique<LWECiphertextHandle>(context.context);
             }),
             py::arg("context"))
        .def_property_readonly(
            "context", [](const LWECiphertextHandle& self) { return contextOf(self); },
            "The context it was made for.")
        .def("__reduce__", [](const LWECiphertextHandle& self) {
            return restoredBy("LWECiphertext", py::make_tuple(contextOf(self), savedBytes(self)));
        });
    defineLevels<LWECiphertext>(handle);
    defineDevice<LWECiphertext>(handle);
    defineSave<LWECiphertext>(handle, "Writes the ciphertext into a file, which is replaced as a whole.");
    defineLoadFor<SharedLWEContext, LWECiphertext>(handle, "LWE ciphertext");
    defineCopy<LWECiphertext>(handle);
}

void bindLWESecretKey(py::module_& module) {
    py::class_<LWESecretKeyHandle> handle(
        module, "LWESecretKey",
        "A secret vector. LWESecretKey(context) draws a new one, LWESecretKey(context, path) reads one from "
        "a "
        "file of `save` or `save_seed_only`. Its memory is wiped when it is dropped. It is never pickled.");
    handle
        .def(py::init([](const SharedLWEContext& context) {
                 const py::gil_scoped_release released;
                 return std::make_unique<LWESecretKeyHandle>(context.context);
             }),
             py::arg("context"))
        .def(py::init([](const SharedLWEContext& context, const std::string& path) {
                 const py::gil_scoped_release released;
                 return std::make_unique<LWESecretKeyHandle>(context.context, path);
             }),
             py::arg("context"), py::arg("path"))
        .def_property_readonly(
            "context",
            [](const LWESecretKeyHandle& self) {
                const Computing computing{reading(self)};
                return SharedLWEContext{self.object().getContext()};
            },
            "The context it was made for.");
    defineSecretFiles<LWESecretKey>(handle, "LWESecretKey");
}

void encryptNumber(const LWEEncryptor& self, double message, const LWESecretKeyHandle& key,
                   LWECiphertextHandle& out, std::optional<unsigned long> level, int owed) {
    const Computing computing{reading(key), writing(out)};
    if (level || owed != 0)
        self.encrypt(message, key.object(), out.object(),
                     level.value_or(Torvo::LWE::getEncryptionLevel(out.object().getContext())), owed);
    else
        self.encrypt(message, key.object(), out.object());
}

void bindLWEEncryption(py::module_& module) {
    py::class_<LWEEncryptor>(module, "LWEEncryptor",
                             "Encrypts one real number under a secret key, with randomness of the calling "
                             "thread.")
        .def(py::init([](const SharedLWEContext& context) { return LWEEncryptor(context.context); }),
             py::arg("context"))
        .def("encrypt", &encryptNumber, py::arg("message"), py::arg("secret_key"), py::arg("out"),
             py::arg("level") = py::none(), py::arg("rescale_counter") = 0,
             "Writes an encryption at the encryption level or at `level`. Raises Error for a number that is "
             "too large, infinite or NaN.");
    py::class_<LWEDecryptor>(module, "LWEDecryptor", "Decrypts plain LWE ciphertexts with the secret key.")
        .def(py::init([](const SharedLWEContext& context) { return LWEDecryptor(context.context); }),
             py::arg("context"))
        .def(
            "decrypt",
            [](const LWEDecryptor& self, const LWECiphertextHandle& in, const LWESecretKeyHandle& key) {
                const Computing computing{reading(in), reading(key)};
                double out = 0;
                self.decrypt(in.object(), key.object(), out);
                return out;
            },
            py::arg("ciphertext"), py::arg("secret_key"),
            "The number. Its low bits are noise that depends on the key: do not publish raw decryptions.");
}

using Evaluators = py::class_<LWEHomEvaluator>;

void defineUnary(Evaluators& handle, const char* name,
                 void (LWEHomEvaluator::*member)(const LWECiphertext&, LWECiphertext&) const,
                 const char* text) {
    handle.def(
        name,
        [member](const LWEHomEvaluator& self, const LWECiphertextHandle& in, LWECiphertextHandle& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(in.object(), out.object());
        },
        py::arg("operand"), py::arg("out"), text);
}

void defineBinary(Evaluators& handle, const char* name,
                  void (LWEHomEvaluator::*member)(const LWECiphertext&, const LWECiphertext&, LWECiphertext&)
                      const,
                  const char* text) {
    handle.def(
        name,
        [member](const LWEHomEvaluator& self, const LWECiphertextHandle& a, const LWECiphertextHandle& b,
                 LWECiphertextHandle& out) {
            const Computing computing{reading(a), reading(b), writing(out)};
            (self.*member)(a.object(), b.object(), out.object());
        },
        py::arg("a"), py::arg("b"), py::arg("out"), text);
}

/// The second operand is a number of this kind.
template <class Number>
void defineWith(Evaluators& handle, const char* name,
                void (LWEHomEvaluator::*member)(const LWECiphertext&, Number, LWECiphertext&) const,
                const char* argument, const char* text) {
    handle.def(
        name,
        [member](const LWEHomEvaluator& self, const LWECiphertextHandle& in, Number value,
                 LWECiphertextHandle& out) {
            const Computing computing{reading(in), writing(out)};
            (self.*member)(in.object(), value, out.object());
        },
        py::arg("operand"), py::arg(argument), py::arg("out"), text);
}

void bindLWEEvaluator(py::module_& module) {
    Evaluators handle(module, "LWEHomEvaluator",
                      "The linear operations on plain LWE ciphertexts. Every operation writes its last "
                      "argument, which may be one of the operands.");
    handle.def(py::init([](const SharedLWEContext& context) { return LWEHomEvaluator(context.context); }),
               py::arg("context"));
    defineUnary(handle, "negate", &LWEHomEvaluator::negate, "out = -operand");
    defineWith<double>(handle, "add", &LWEHomEvaluator::add, "constant", "out = operand + constant");
    defineBinary(handle, "add", &LWEHomEvaluator::add, "out = a + b, at the lower of the levels.");
    defineWith<double>(handle, "sub", &LWEHomEvaluator::sub, "constant", "out = operand - constant");
    defineBinary(handle, "sub", &LWEHomEvaluator::sub, "out = a - b, at the lower of the levels.");
    defineWith<long>(handle, "mult_integer", &LWEHomEvaluator::multInteger, "n",
                     "out = n operand, without a level.");
    defineWith<double>(handle, "mult_without_rescale", &LWEHomEvaluator::multWithoutRescale, "constant",
                       "out = operand constant, which owes one rescale.");
    defineWith<double>(handle, "mult", &LWEHomEvaluator::mult, "constant",
                       "out = operand constant, for one level.");
    defineWith<unsigned long>(handle, "level_down", &LWEHomEvaluator::levelDown, "target_level",
                              "Brings a ciphertext down to a level.");
    defineUnary(handle, "level_down_one", &LWEHomEvaluator::levelDownOne, "The same number one level lower.");
    handle.def(
        "rescale",
        [](const LWEHomEvaluator& self, LWECiphertextHandle& operand) {
            const Computing computing{writing(operand)};
            self.rescale(operand.object());
        },
        py::arg("operand"), "Pays one owed rescale, for one level.");
}

} // namespace

void bindLWE(py::module_& module) {
    bindLWEContext(module);
    bindLWECiphertext(module);
    bindLWESecretKey(module);
    bindLWEEncryption(module);
    bindLWEEvaluator(module);
}

} // namespace TorvoPython
