#pragma once

#include "core/Integers.hpp"
#include "crypto/KeyGeneratorImplBase.hpp"
#include "crypto/KeyPackImpl.hpp"

#include <Torvo/LWESecretKey.hpp>
#include <Torvo/ModPackKeyBundle.hpp>
#include <Torvo/RingSwitchKey.hpp>
#include <Torvo/SecretKey.hpp>

#include <memory>
#include <optional>

namespace Torvo {

/// One member per kind of key, writing into a pack.
class KeyGeneratorImpl : public KeyGeneratorImplBase {
public:
    /// Refuses as the constructors of `KeyGenerator`.
    KeyGeneratorImpl(const Context& context, const std::optional<SecretKey>& secretKey,
                     std::shared_ptr<KeyPackImpl> keyPack);
    KeyGeneratorImpl(const Context& context, const Context& contextSparse,
                     const std::optional<SecretKey>& secretKey, std::shared_ptr<KeyPackImpl> keyPack);

    void genEncKey() const;
    void genMultKey() const;
    void genConjKey() const;
    void genLeftRotKey(u64 index) const;
    void genRightRotKey(u64 index) const;
    void genRotKeyBundle() const;
    void genRotKeyIfNotExist(long index) const;
    void genRotKeysForBootstrap(u64 logSlots, bool compact) const;
    void genSparseSecretEncapsulationKey() const;
    void flushKeyPack(std::shared_ptr<KeyPackImpl> keyPack);

    // Keys between rings, which go to the caller and not into the pack.

    RingSwitchKey genComposeKey(const SecretKey& in_key) const;
    RingSwitchKey genDecomposeKey(const Context& switch_context, const SecretKey& out_key) const;
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>& in_key,
                                         const SecretKeyBase<E>& out_key) const;
    template <EncryptionType E>
    ModPackKeyBundle genModPackKeyBundle(const LWE::SecretKey& in_key, const SecretKeyBase<E>& out_key) const;

private:
    /// @throws RuntimeException "[KeyGenerator] The KeyGenerator was constructed without a default secret
    /// key"
    const SecretKey& secretKey() const;
    /// An empty key, filled with the switch from `sFrom` to the secret key.
    std::shared_ptr<EvaluationKey> switchingKey(std::unique_ptr<EvaluationKey> key,
                                                const Polynomial& sFrom) const;
    /// Fills `key`, of `context`, with the switch from `sFrom` to `sTo`.
    void fillSwitchingKey(const Context& context, const RNSDecomposeData& decomposeData, EvaluationKey& key,
                          const Polynomial& sFrom, const Polynomial& sTo) const;
    /// The packing keys from `inRank` components of degree `inDegree` to `out_key`.
    template <EncryptionType E>
    ModPackKeyBundle packingKeys(const int* in, u64 inRank, u64 inDegree,
                                 const SecretKeyBase<E>& out_key) const;
    void genRotKeyUnlessLoaded(u64 index) const;
    /// @throws RuntimeException "Wrong rotation index"
    void requireRotation(u64 index) const;

    std::optional<SecretKey> secretKey_;
    std::shared_ptr<KeyPackImpl> keyPack_;
};

/// The rules for packing from a key of `in` to a key of `out` by keys of `ring`, refused as
/// `KeyGenerator::genModPackKeyBundle` tells. In plain LWE the dimension is the rank, and the degree is 1.
void checkModPackKeyBundleCondition(const Context& ring, const Context& in, const Context& out);
void checkModPackKeyBundleCondition(const Context& ring, const LWE::Context& in, const Context& out);

} // namespace Torvo
