#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/CompactCiphertext.hpp>
#include <Torvo/Decryptor.hpp>
#include <Torvo/Encryptor.hpp>

#include <pybind11/stl.h>

#include <optional>
#include <vector>

namespace TorvoPython {

using Torvo::Decryptor;
using Torvo::Encryptor;

namespace {

using Level = std::optional<unsigned long>;

/// Under the key of a pack or under a secret key: the library has one name for both.
template <class Key>
void encryptMessage(const Encryptor& self, const MessageHandle& message, const Guarded<Key>& key,
                    CiphertextHandle& out, Level level, int owed) {
    const Computing computing{reading(message), reading(key), writing(out)};
    const Torvo::Message& slots = message.object();
    if (level || owed != 0)
        self.encrypt(slots, key.object(), out.object(),
                     level.value_or(Torvo::getEncryptionLevel(out.object().getContext())), owed);
    else
        self.encrypt(slots, key.object(), out.object());
}

template <class Key>
void encryptPlaintext(const Encryptor& self, const PlaintextHandle& plaintext, const Guarded<Key>& key,
                      CiphertextHandle& out) {
    const Computing computing{reading(plaintext), reading(key), writing(out)};
    self.encrypt(plaintext.object(), key.object(), out.object());
}

void encryptCoefficients(const Encryptor& self, const std::vector<double>& coefficients,
                         const SecretKeyHandle& key, CiphertextHandle& out) {
    const Computing computing{reading(key), writing(out)};
    self.encrypt(coefficients, key.object(), out.object());
}

template <class Key>
void defineUnder(py::class_<Encryptor>& handle, const char* name) {
    handle.def("encrypt", &encryptMessage<Key>, py::arg("message"), py::arg(name), py::arg("out"),
               py::arg("level") = py::none(), py::arg("rescale_counter") = 0);
    handle.def("encrypt", &encryptPlaintext<Key>, py::arg("plaintext"), py::arg(name), py::arg("out"),
               "Writes an encryption of a message or a plaintext. A message goes to the encryption level or "
               "to `level`; "
               "numbers that are too large, infinite or NaN raise Error.");
}

void bindEncryptor(py::module_& module) {
    py::class_<Encryptor> handle(
        module, "Encryptor",
        "Encrypts messages and plaintexts under the public key of a pack or under a secret key, "
        "with randomness of the calling thread.");
    handle.def(py::init([](const SharedContext& context) { return Encryptor(context.context); }),
               py::arg("context"));
    defineUnder<Torvo::KeyPack>(handle, "key_pack");
    defineUnder<Torvo::SecretKey>(handle, "secret_key");
    handle.def("encrypt_coefficients", &encryptCoefficients, py::arg("coefficients"), py::arg("secret_key"),
               py::arg("out"), "Puts real numbers, as many as a power of two, on the coefficients.");
    handle.def(
        "encrypt_compact",
        [](const Encryptor& self, const MessageHandle& message, const SecretKeyHandle& key) {
            const Computing computing{reading(message), reading(key)};
            return std::make_unique<Guarded<Torvo::CompactCiphertext>>(
                self.encryptCompact(message.object(), key.object()));
        },
        py::arg("message"), py::arg("secret_key"), "An encryption in half the bytes, to be kept or sent.");
}

void decryptMessage(const Decryptor& self, const CiphertextHandle& ciphertext, const SecretKeyHandle& key,
                    MessageHandle& out) {
    const Computing computing{reading(ciphertext), reading(key), writing(out)};
    out.object().requireNoView();
    self.decrypt(ciphertext.object(), key.object(), static_cast<Torvo::Message&>(out.object()));
}

void bindDecryptor(py::module_& module) {
    py::class_<Decryptor>(
        module, "Decryptor",
        "Decrypts with the secret key. The low bits of what comes out depend on the key: do not "
        "publish raw decryptions.")
        .def(py::init([](const SharedContext& context) { return Decryptor(context.context); }),
             py::arg("context"))
        .def("decrypt", &decryptMessage, py::arg("ciphertext"), py::arg("secret_key"), py::arg("out"))
        .def(
            "decrypt",
            [](const Decryptor& self, const CiphertextHandle& ciphertext, const SecretKeyHandle& key,
               PlaintextHandle& out) {
                const Computing computing{reading(ciphertext), reading(key), writing(out)};
                self.decrypt(ciphertext.object(), key.object(), out.object());
            },
            py::arg("ciphertext"), py::arg("secret_key"), py::arg("out"),
            "Writes the message or the plaintext. Raises BufferError while an array looks at the slots of "
            "`out`.")
        .def(
            "decrypt_coefficients",
            [](const Decryptor& self, const CiphertextHandle& ciphertext, const SecretKeyHandle& key) {
                const Computing computing{reading(ciphertext), reading(key)};
                std::vector<double> out;
                self.decrypt(ciphertext.object(), key.object(), out);
                return out;
            },
            py::arg("ciphertext"), py::arg("secret_key"), "The real numbers on the coefficients.");
}

} // namespace

void bindCrypto(py::module_& module) {
    bindEncryptor(module);
    bindDecryptor(module);
}

} // namespace TorvoPython
