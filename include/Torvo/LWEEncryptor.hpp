#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LWESecretKey.hpp>

namespace Torvo::LWE {

/// Encrypts one real number under a secret key, with randomness of the calling thread. Thread-safe on
/// different outputs. The result has two errors: the rounding of the number at the scale of the level (at
/// most one unit), and a discrete gaussian of standard deviation 3.2 units.
class TORVO_API Encryptor {
public:
    explicit Encryptor(const Context& context);

    /// Encrypts at the encryption level, with no rescale owed.
    void encrypt(double message, const SecretKey& key, Ciphertext& out) const;
    /// @param level            0 to the encryption level
    /// @param rescale_counter  number of rescales that the ciphertext owes, 0 to `level`
    /// @throws RuntimeException in this order, the texts of the ring's encryptor for these numbers: "[encode]
    ///         The target level is greater than the maximum possible level"; "[encode] The target rescale
    ///         counter should be less than or equal to the target level."; "Rescale counter should be greater
    ///         than or equal to zero"; and, for a key of another length or of fewer primes, "Operands have
    ///         different dimensions."; "Operands have different levels."; for other primes up to the level
    ///         "the secret key has other primes: ", the key's, ", but the encryptor's context is ", the
    ///         encryptor's, "; make the encryptor with the context the key was made with"; last "[encode]
    ///         Cannot encode the number ...", in the words of the ring's encoder, for a message that is too
    ///         large for level and scale, infinite or NaN. The output is then unchanged.
    void encrypt(double message, const SecretKey& key, Ciphertext& out, unsigned long level,
                 int rescale_counter) const;

private:
    Context context_;
};

} // namespace Torvo::LWE
