#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/CompactCiphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/SecretKey.hpp>

#include <vector>

namespace Torvo {

/// Encrypts under the public key of a pack (RLWE) or under a secret key (RLWE and MLWE), with randomness of
/// the calling thread. Thread-safe on different outputs. The input is never changed.
///
/// The previous content of the output does not matter. The result is encoded on slots and in NTT form (except
/// for the coefficient forms), at the level of the plaintext, with its log slots and rescale counter.
///
/// Forms without level and rescale counter use the encryption level and 0. Encoding errors are those of
/// `EnDecoder::encode`. One of them, "[encode] Cannot encode the ...", for numbers that are too large for
/// level and scale, infinite or NaN, is tested last of all, after the rules of encryption. If encoding
/// refuses, no random number has been drawn and the output is unchanged.
class TORVO_API Encryptor {
public:
    explicit Encryptor(const Context& context);

    /// The rescale counter is checked against the level that the output had before the call: a fresh output
    /// allows every counter, one at a low level may not.
    /// @throws RuntimeException in this order: "[encrypt] Failed to load the encryption key";
    ///         "Operands are in different devices."; "[encrypt] Level of an input Plaintext cannot be greater
    ///         than encryption level."; "Operands are not of the ring of the generated context." for a
    ///         plaintext of another ring; "the encryption key is of another ring: ", the key's, ", but the
    ///         encryptor's context is ", the encryptor's, "; make the encryptor with the context the key was
    ///         made with", where degree or primes up to the level differ; "Rescale counter should be less
    ///         than or equal to the level"
    void encrypt(const Plaintext& plaintext, const KeyPack& keyPack, Ciphertext& out) const;
    void encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out, unsigned long level,
                 int rescale_counter) const;
    void encrypt(const Message& message, const KeyPack& keyPack, Ciphertext& out) const;

    /// @throws RuntimeException in this order: "[encrypt] Level of an input Plaintext cannot be greater than
    ///         encryption level"; "Operands are not of the ring of the generated context." for a plaintext of
    ///         another ring; "the secret key is of another ring: " and the rest as above, also for another
    ///         rank
    template <EncryptionType E>
    void encrypt(const Plaintext& plaintext, const SecretKeyBase<E>& secretKey, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void encrypt(const Message& message, const SecretKeyBase<E>& secretKey, CiphertextBase<E>& out,
                 unsigned long level, int rescale_counter) const;
    template <EncryptionType E>
    void encrypt(const Message& message, const SecretKeyBase<E>& secretKey, CiphertextBase<E>& out) const;

    /// Puts real numbers on the coefficients; the ciphertext is coefficient-encoded and not in NTT form.
    /// @throws RuntimeException "[encode] Cannot encode a message with a size less than 2", then
    ///         "[encode] The message size should be a power of two", then as encoding and encryption do
    template <EncryptionType E>
    void encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                 CiphertextBase<E>& out, unsigned long level, int rescale_counter) const;
    template <EncryptionType E>
    void encrypt(const std::vector<double>& coefficients, const SecretKeyBase<E>& secretKey,
                 CiphertextBase<E>& out) const;

    /// Encrypts into half the bytes: what `CompactCiphertext::expand` gives is a fresh encryption as
    /// `encrypt` makes it, and as safe. For RLWE.
    /// @throws RuntimeException as `encrypt` under a secret key does
    CompactCiphertext encryptCompact(const Plaintext& plaintext, const SecretKey& secretKey) const;
    CompactCiphertext encryptCompact(const Message& message, const SecretKey& secretKey, unsigned long level,
                                     int rescale_counter) const;
    CompactCiphertext encryptCompact(const Message& message, const SecretKey& secretKey) const;

private:
    Context context_;
};

} // namespace Torvo
