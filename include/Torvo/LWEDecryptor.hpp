#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LWESecretKey.hpp>

namespace Torvo::LWE {

/// Decrypts plain LWE ciphertexts. Thread-safe.
class TORVO_API Decryptor {
public:
    explicit Decryptor(const Context& context);

    /// The encrypted number: b + <a, s>, after the rescales that `in` owes, divided by the scale of the level
    /// reached. Values must stay below half the modulus of the first one or two primes.
    /// @throws RuntimeException in this order: "[decrypt] ctxt and sk have different dimension"; "Rescale
    ///         counter should be less than or equal to the level"; "Operands are in different devices."; "The
    ///         generated context does not support the operation with current operands; check the device.";
    ///         "Operands are not of the ring of the generated context." and "Operands have different levels."
    ///         for a level that the chain of the context, or of the key, does not have, the first for a
    ///         ciphertext of other primes too; "the secret key has other primes: ", the key's, ", but the
    ///         decryptor's context is ", the decryptor's, "; make the decryptor with the context the key was
    ///         made with". `out` is then unchanged.
    void decrypt(const Ciphertext& in, const SecretKey& key, double& out) const;

private:
    Context context_;
};

} // namespace Torvo::LWE
