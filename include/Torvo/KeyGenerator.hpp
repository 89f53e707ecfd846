#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/SecretKey.hpp>

#include <memory>
#include <string>

namespace Torvo {

class KeyGeneratorImpl;

/// Makes public keys from a secret key, straight into a `KeyPack`, with randomness of the calling thread.
/// Generators may run side by side on one pack.
///
/// Every generating call of a generator without a secret key throws RuntimeException "[KeyGenerator] The
/// KeyGenerator was constructed without a default secret key".
class TORVO_API KeyGenerator {
public:
    /// Without a secret key.
    explicit KeyGenerator(const Context& context);
    /// With a new pack.
    /// @throws RuntimeException "[KeyGenerator] context and secret key don't match"
    KeyGenerator(const Context& context, const SecretKey& secretKey);
    /// Writing into `keyPack`.
    KeyGenerator(const Context& context, const SecretKey& secretKey, const KeyPack& keyPack);
    /// With a second context for sparse secret encapsulation.
    /// @throws RuntimeException in this order: as above; "[KeyGenerator] context does not support sparse
    ///         secret encapsulation"; "[KeyGenerator] parameter of context and context_sparse does not match"
    KeyGenerator(const Context& context, const Context& contextSparse, const SecretKey& secretKey);
    KeyGenerator(const Context& context, const Context& contextSparse, const SecretKey& secretKey,
                 const KeyPack& keyPack);

    /// The key for `Encryptor::encrypt` with a pack; replaces the one held.
    void genEncKey() const;
    /// The key for multiplication of ciphertexts; replaces the one held.
    void genMultKey() const;
    /// The key for complex conjugation; replaces the one held.
    void genConjKey() const;
    /// The key for left rotation by `index`; a key held already stays.
    /// @param index  1 to number of slots - 1
    /// @throws RuntimeException "Wrong rotation index"
    void genLeftRotKey(unsigned long index) const;
    /// The key for right rotation by `index`: that of left rotation by number of slots - `index`.
    void genRightRotKey(unsigned long index) const;
    /// Left and right rotation keys for all powers of two: from these every rotation can be composed.
    void genRotKeyBundle() const;
    /// The left rotation key for `index` modulo the number of slots (negative: to the right), unless it is
    /// held already or the index comes to 0.
    void genRotKeyIfNotExist(long index) const;

    /// The rotation keys for bootstrapping messages of 2^logSlots slots, unless they are held already.
    /// @param compact  false: a key for each index of the plan; true: the few that rotations one after the
    ///                 other need. The same value goes to `Bootstrapper` as `sequential_rotations`
    /// @throws RuntimeException "The parameter dose not support bootstrap."
    void genRotKeysForBootstrap(unsigned long logSlots, bool compact = false) const;
    /// The keys between the secret and a new sparse one that nobody keeps, for bootstrapping with sparse
    /// secret encapsulation; replaces those held.
    /// @throws RuntimeException "Key Generator is not constructed for the parameter supporting sparse secret
    ///         encapsulation" without a second context
    void genSparseSecretEncapsulationKey() const;

    /// The pack that the keys go to.
    const KeyPack& getKeyPack() const;
    /// Writes the keys held into a key directory, as `KeyPack::save`.
    void save(const std::string& path) const;
    /// Starts a new, empty pack for the next keys; the old one stays with whoever holds it.
    void flush();

private:
    Context context_;
    Context contextSparse_;
    KeyPack keyPack_;
    std::shared_ptr<KeyGeneratorImpl> impl_;
};

} // namespace Torvo
