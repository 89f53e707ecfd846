#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/LWESecretKey.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/RingSwitchKey.hpp>
#include <Torvo/SecretKey.hpp>

#include <memory>
#include <string>

namespace Torvo {

class RingKeyGenerator;

/// Makes public keys from a secret key, directly in a `KeyPack`, with randomness of the calling thread.
/// Several generators may work on one pack at the same time. The keys between rings, which `RingPacker` uses,
/// are returned to the caller instead.
///
/// Every generating call of a generator without a secret key throws RuntimeException "[KeyGenerator] The
/// KeyGenerator was constructed without a default secret key", except `genModPackKeyBundle`, which takes both
/// keys as arguments.
class TORVO_API KeyGenerator {
public:
    /// Without a secret key.
    explicit KeyGenerator(const Context& context);
    /// With a new pack.
    /// @throws RuntimeException "[KeyGenerator] context and secret key don't match"
    KeyGenerator(const Context& context, const SecretKey& secretKey);
    /// Writes into `keyPack`, which must be of the same ring, in the sense of `HomEvaluator`.
    /// @throws RuntimeException in this order: as above; "the key pack is of another ring: ", the pack's, ",
    ///         but the key generator's context is ", the generator's, "; make the generator with a pack of
    ///         its own context"
    KeyGenerator(const Context& context, const SecretKey& secretKey, const KeyPack& keyPack);
    /// With a second context for sparse secret encapsulation.
    /// @throws RuntimeException in this order: as above; "[KeyGenerator] context does not support sparse
    ///         secret encapsulation"; "[KeyGenerator] parameter of context and context_sparse does not
    ///         match"; for a pack of another ring the text of the form without a second context
    KeyGenerator(const Context& context, const Context& context_sparse, const SecretKey& secretKey);
    KeyGenerator(const Context& context, const Context& context_sparse, const SecretKey& secretKey,
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
    /// The key for right rotation by `index`, which is that for left rotation by number of slots - `index`.
    void genRightRotKey(unsigned long index) const;
    /// Left and right rotation keys for all powers of two: from these every rotation can be composed.
    void genRotKeyBundle() const;
    /// The left rotation key for `index` modulo the number of slots (negative: to the right), unless it is
    /// held already or the reduced index is 0.
    void genRotKeyIfNotExist(long index) const;

    /// The rotation keys for bootstrapping messages of 2^log_slots slots, unless they are held already.
    /// @param compact  false: a key for each index of the plan; true: the few keys that sequential rotations
    ///                 need. Pass the same value to `Bootstrapper` as `sequential_rotations`
    /// @throws RuntimeException "The parameter dose not support bootstrap."; "log_slots should not
    ///         exceed " and log2 of the number of slots
    void genRotKeysForBootstrap(unsigned long log_slots, bool compact = false) const;
    /// The keys between the secret and a new sparse secret, which is discarded, for bootstrapping with sparse
    /// secret encapsulation; replaces those held.
    /// @throws RuntimeException "Key Generator is not constructed for the parameter supporting sparse secret
    ///         encapsulation" without a second context
    void genSparseSecretEncapsulationKey() const;

    // Keys between rings. Primes are compared from the base prime up to the level of fresh encryptions of the
    // small ring; if the base primes differ, the calls throw "The given two contexts are not compatible at
    // any level" instead of their own text.

    /// The key of `RingPacker::compose`: from `in_key`, a secret of a small ring embedded in the generator's
    /// ring, to the generator's secret key.
    /// @throws RuntimeException in this order: without a secret key; "[genComposeKey] The degree of input
    ///         ciphertext does not divide the RLWE encryption degree"; "[genComposeKey] The encryption primes
    ///         of the ciphertext to switch from is not subset of the primes of the RLWE encryption"
    RingSwitchKey genComposeKey(const SecretKey& in_key) const;
    /// The key of `RingPacker::decompose`: from the generator's secret key to `out_key`, a secret of a small
    /// ring. The key belongs to `switch_context`, a ring of the generator's degree whose modulus is no larger
    /// than the small ring's security allows (`FGbL0` for `FGb` to `FGbD12L0`).
    /// @throws RuntimeException in this order: without a secret key; "[genDecomposeKey] The degree of the
    ///         switch key is not same to the RLWE encryption degree"; "[genDecomposeKey] The degree of output
    ///         ciphertexts does not divide the degree of ciphertext to switch to"; "[genDecomposeKey] The
    ///         encryption primes of the ciphertext to switch to is not subset of the primes of the RLWE
    ///         encryption"; "[genDecomposeKey] The encryption primes of the ciphertext to switch to is not
    ///         subset of the primes of the switching key"
    RingSwitchKey genDecomposeKey(const Context& switch_context, const SecretKey& out_key) const;
    /// The keys of `RingPacker::modPack`, in the generator's context, from `in_key` (higher rank, lower
    /// degree) to `out_key`; their number is rank of `in_key` / rank of `out_key`. The generator needs no
    /// secret key: only its context is used, as the large ring.
    /// @throws RuntimeException in this order: "[genModPackKeyBundle] Total dimension of output secret key is
    ///         not equal to the RLWE encryption dimension"; "[genModPackKeyBundle] The degree of input secret
    ///         key does not divide the degree of output secret key"; "[genModPackKeyBundle] The rank of
    ///         output secret key does not divide the rank of input secret key"; "[genModPackKeyBundle] The
    ///         encryption primes of the ciphertext to pack to is not subset of the primes of the switching
    ///         key"; "[genModPackKeyBundle] The encryption primes of the ciphertext to pack to is not subset
    ///         of the primes of the output ciphertext"; "[ModPackKeyBundle] The number of keys should be at
    ///         most 1048576"
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>& in_key,
                                         const SecretKeyBase<E>& out_key) const;
    /// The same from plain LWE, whose dimension takes the place of the rank of `in_key`.
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const LWE::SecretKey& in_key, const SecretKeyBase<E>& out_key) const;

    /// The pack that the keys go to.
    const KeyPack& getKeyPack() const;
    /// Writes the keys held into a key directory, as `KeyPack::save`.
    void save(const std::string& path) const;
    /// Starts a new, empty pack for the next keys; the old one stays with whoever holds it.
    void flush();

private:
    Context context_;
    Context context_sparse_;
    KeyPack keyPack_;
    std::shared_ptr<RingKeyGenerator> impl_;
};

} // namespace Torvo
