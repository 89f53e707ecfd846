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
    void flushKeyPack(std::shared_ptr<KeyPackImpl> keyPack);

private:
    const SecretKey& secretKey() const;
    /// Fills an empty key with the switch from `sFrom` to the secret key.
    void fillSwitchingKey(EvaluationKey& key, const Polynomial& sFrom) const;

    std::optional<SecretKey> secretKey_;
    std::shared_ptr<KeyPackImpl> keyPack_;
};

} // namespace Torvo
