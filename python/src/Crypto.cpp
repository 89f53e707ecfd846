#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/CompactCiphertext.hpp>
#include <Torvo/Decryptor.hpp>
#include <Torvo/Encryptor.hpp>

#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <vector>

namespace TorvoPython {

using Torvo::Decryptor;
using Torvo::Encryptor;

namespace {

using Level = std::optional<unsigned long>;

/// Under the key of a pack or under a secret key: the library has one name for both.
template <class Key, class Out>
void encryptMessage(const Encryptor& self, const MessageHandle& message, const Guarded<Key>& key,
                    Guarded<Out>& out, Level level, int owed) {
    const Computing computing{reading(message), reading(key), writing(out)};
    const Torvo::Message& slots = message.object();
    if (level || owed != 0)
        self.encrypt(slots, key.object(), out.object(),
                     level.value_or(Torvo::getEncryptionLevel(out.object().getContext())), owed);
    else
        self.encrypt(slots, key.object(), out.object());
}

template <class Key, class Out>
void encryptPlaintext(const Encryptor& self, const PlaintextHandle& plaintext, const Guarded<Key>& key,
                      Guarded<Out>& out) {
    const Computing computing{reading(plaintext), reading(key), writing(out)};
    self.encrypt(plaintext.object(), key.object(), out.object());
}

template <class Key, class Out>
void encryptCoefficients(const Encryptor& self, const std::vector<double>& coefficients,
                         const Guarded<Key>& key, Guarded<Out>& out, Level level, int owed) {
    const Computing computing{reading(key), writing(out)};
    if (level || owed != 0)
        self.encrypt(coefficients, key.object(), out.object(),
                     level.value_or(Torvo::getEncryptionLevel(out.object().getContext())), owed);
    else
        self.encrypt(coefficients, key.object(), out.object());
}

template <class Key, class Out>
void defineUnder(py::class_<Encryptor>& handle, const char* name) {
    handle.def("encrypt", &encryptMessage<Key, Out>, py::arg("message"), py::arg(name), py::arg("out"),
               py::arg("level") = py::none(), py::arg("rescale_counter") = 0);
    handle.def("encrypt", &encryptPlaintext<Key, Out>, py::arg("plaintext"), py::arg(name), py::arg("out"),
               "Writes an encryption of a message or a plaintext. A message goes to the encryption level or "
               "to `level`; numbers that are too large, infinite or NaN raise Error.");
}

template <class Key, class Out>
void defineCoefficients(py::class_<Encryptor>& handle, const char* text) {
    handle.def("encrypt_coefficients", &encryptCoefficients<Key, Out>, py::arg("coefficients"),
               py::arg("secret_key"), py::arg("out"), py::arg("level") = py::none(),
               py::arg("rescale_counter") = 0, text);
}

using CompactHandle = Guarded<Torvo::CompactCiphertext>;

std::unique_ptr<CompactHandle> compactMessage(const Encryptor& self, const MessageHandle& message,
                                              const SecretKeyHandle& key, Level level, int owed) {
    const Computing computing{reading(message), reading(key)};
    const Torvo::Message& slots = message.object();
    if (level || owed != 0)
        return std::make_unique<CompactHandle>(self.encryptCompact(
            slots, key.object(), level.value_or(Torvo::getEncryptionLevel(key.object().getContext())), owed));
    return std::make_unique<CompactHandle>(self.encryptCompact(slots, key.object()));
}

void defineCompact(py::class_<Encryptor>& handle) {
    handle.def("encrypt_compact", &compactMessage, py::arg("message"), py::arg("secret_key"),
               py::arg("level") = py::none(), py::arg("rescale_counter") = 0);
    handle.def(
        "encrypt_compact",
        [](const Encryptor& self, const PlaintextHandle& plaintext, const SecretKeyHandle& key) {
            const Computing computing{reading(plaintext), reading(key)};
            return std::make_unique<CompactHandle>(self.encryptCompact(plaintext.object(), key.object()));
        },
        py::arg("plaintext"), py::arg("secret_key"), "An encryption in half the bytes, to be kept or sent.");
}

void bindEncryptor(py::module_& module) {
    py::class_<Encryptor> handle(
        module, "Encryptor",
        "Encrypts messages and plaintexts under the public key of a pack or under a secret key, "
        "with randomness of the calling thread.");
    handle.def(py::init([](const SharedContext& context) { return Encryptor(context.context); }),
               py::arg("context"));
    defineUnder<Torvo::KeyPack, Torvo::Ciphertext>(handle, "key_pack");
    defineUnder<Torvo::SecretKey, Torvo::Ciphertext>(handle, "secret_key");
    defineUnder<ModuleSecretKey, ModuleCiphertext>(handle, "secret_key");
    defineCoefficients<Torvo::SecretKey, Torvo::Ciphertext>(handle, "");
    defineCoefficients<ModuleSecretKey, ModuleCiphertext>(
        handle, "Puts real numbers, as many as a power of two, on the coefficients.");
    defineCompact(handle);
}

template <class Key, class In>
void decryptMessage(const Decryptor& self, const Guarded<In>& ciphertext, const Guarded<Key>& key,
                    MessageHandle& out) {
    const Computing computing{reading(ciphertext), reading(key), writing(out)};
    self.decrypt(ciphertext.object(), key.object(), outputOf(out));
}

template <class Key, class In>
void decryptPlaintext(const Decryptor& self, const Guarded<In>& ciphertext, const Guarded<Key>& key,
                      PlaintextHandle& out) {
    const Computing computing{reading(ciphertext), reading(key), writing(out)};
    self.decrypt(ciphertext.object(), key.object(), out.object());
}

template <class Key, class In>
std::vector<double> decryptCoefficients(const Decryptor& self, const Guarded<In>& ciphertext,
                                        const Guarded<Key>& key) {
    const Computing computing{reading(ciphertext), reading(key)};
    std::vector<double> out;
    self.decrypt(ciphertext.object(), key.object(), out);
    return out;
}

template <class Key, class In>
void defineWith(py::class_<Decryptor>& handle) {
    handle
        .def("decrypt", &decryptMessage<Key, In>, py::arg("ciphertext"), py::arg("secret_key"),
             py::arg("out"))
        .def("decrypt", &decryptPlaintext<Key, In>, py::arg("ciphertext"), py::arg("secret_key"),
             py::arg("out"),
             "Writes the message or the plaintext. Raises BufferError while an array looks at the slots of "
             "`out`.")
        .def("decrypt_coefficients", &decryptCoefficients<Key, In>, py::arg("ciphertext"),
             py::arg("secret_key"), "The real numbers on the coefficients.");
}

void bindDecryptor(py::module_& module) {
    py::class_<Decryptor> handle(
        module, "Decryptor",
        "Decrypts with the secret key. The low bits of what comes out depend on the key: do not "
        "publish raw decryptions.");
    handle.def(py::init([](const SharedContext& context) { return Decryptor(context.context); }),
               py::arg("context"));
    defineWith<Torvo::SecretKey, Torvo::Ciphertext>(handle);
    defineWith<ModuleSecretKey, ModuleCiphertext>(handle);
    handle.def(
        "partial_decrypt",
        [](const Decryptor& self, const CiphertextHandle& ciphertext, const SecretKeyHandle& key,
           CiphertextHandle& out) {
            const Computing computing{reading(ciphertext), reading(key), writing(out)};
            self.partialDecrypt(ciphertext.object(), key.object(), out.object());
        },
        py::arg("ciphertext"), py::arg("secret_key"), py::arg("out"),
        "One share of a decryption, with fresh noise added, as a ciphertext.");
}

} // namespace

void bindCrypto(py::module_& module) {
    bindEncryptor(module);
    bindDecryptor(module);
}

} // namespace TorvoPython
