#pragma once

#include "core/Integers.hpp"
#include "crypto/KeyGeneratorImplBase.hpp"
#include "crypto/KeyPackImpl.hpp"

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
    KeyGeneratorImpl(const Context& context, const Context& context_sparse,
                     const std::optional<SecretKey>& secretKey, std::shared_ptr<KeyPackImpl> keyPack);

    void genEncKey() const;
    void genMultKey() const;
    void genConjKey() const;
    void genLeftRotKey(u64 index) const;
    void genRightRotKey(u64 index) const;
    void genRotKeyBundle() const;
    void genRotKeyIfNotExist(long index) const;
    void genRotKeysForBootstrap(u64 log_slots, bool compact) const;
    void genSparseSecretEncapsulationKey() const;
    void flushKeyPack(std::shared_ptr<KeyPackImpl> keyPack);

protected:
    /// @throws RuntimeException "[KeyGenerator] The KeyGenerator was constructed without a default secret
    ///         key"
    const SecretKey& secretKey() const;
    /// Fills `key`, of `context`, with the switch from `sFrom` to `sTo`.
    void fillSwitchingKey(const Context& context, const RNSDecomposeData& decomposeData, EvaluationKey& key,
                          const Polynomial& sFrom, const Polynomial& sTo) const;

private:
    /// An empty key, filled with the switch from `sFrom` to the secret key.
    std::shared_ptr<EvaluationKey> switchingKey(std::unique_ptr<EvaluationKey> key,
                                                const Polynomial& sFrom) const;
    void genRotKeyUnlessLoaded(u64 index) const;
    /// @throws RuntimeException "Wrong rotation index"
    void requireRotation(u64 index) const;

    std::optional<SecretKey> secretKey_;
    std::shared_ptr<KeyPackImpl> keyPack_;
};

} // namespace Torvo
