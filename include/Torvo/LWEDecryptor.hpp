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

    /// The encrypted number: b + <a, s>, after the rescales that `in` owes, over the scale of the level
    /// reached. Values must stay below half the modulus of the first one or two primes.
    /// @throws RuntimeException "[decrypt] ctxt and sk have different dimension"
    void decrypt(const Ciphertext& in, const SecretKey& key, double& out) const;

private:
    Context context_;
};

} // namespace Torvo::LWE
