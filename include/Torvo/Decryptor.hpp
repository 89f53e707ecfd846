#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/SecretKey.hpp>

#include <vector>

namespace Torvo {

/// Decrypts with the secret key. Thread-safe on different outputs.
///
/// The previous content of the output does not matter. It takes level, log slots and rescale counter from the
/// ciphertext; a plaintext is returned in NTT form. A ciphertext that is not in NTT form is transformed
/// first, in a copy.
///
/// The low bits of a decrypted message are noise that depends on the secret key: do not publish raw
/// decryptions, nor hand them to whoever chose the ciphertexts (SECURITY.md).
///
/// MLWE forms throw RuntimeException "[decrypt] Number of polynomials of MLWE ciphertext is invalid" unless
/// there are rank + 1 ring elements; RLWE forms accept any number from 2 up.
///
/// After their own rules all members throw, before anything is written: "Operands are not of the ring of the
/// generated context." for a ciphertext of another degree, of other primes, or at a level that its chain does
/// not have; "the secret key is of another ring: ", the key's, ", but the decryptor's context is ", the
/// decryptor's, "; make the decryptor with the context the key was made with", where degree, rank or primes
/// up to the level of the ciphertext differ.
class TORVO_API Decryptor {
public:
    explicit Decryptor(const Context& context);

    /// @throws RuntimeException "The operand have to encode the message on its slots"
    template <EncryptionType E>
    void decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey,
                 Plaintext& out) const;
    /// @throws RuntimeException "The operand have to encode the message on its slots"
    template <EncryptionType E>
    void decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey, Message& out) const;
    /// @throws RuntimeException "The operand have to encode the message on its coefficients"
    template <EncryptionType E>
    void decrypt(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& secretKey,
                 std::vector<double>& out) const;

    /// One share of a decryption, with fresh noise added: out[0] = b + a * s + e, out[1] = a, in NTT form.
    /// @throws RuntimeException "The operand have to encode the message on its slots", then "[partialDecrypt]
    ///         Size of Ciphertext should be 2"
    void partialDecrypt(const Ciphertext& ciphertext, const SecretKey& secretKey, Ciphertext& out) const;

private:
    Context context_;
};

} // namespace Torvo
