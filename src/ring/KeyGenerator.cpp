#include <Torvo/KeyGenerator.hpp>

#include "ring/RingKeyGenerator.hpp"

#include <optional>

namespace Torvo {

KeyGenerator::KeyGenerator(const Context& context)
    : context_(context), keyPack_(context),
      impl_(std::make_shared<RingKeyGenerator>(context, std::nullopt, keyPack_.getImpl())) {}

KeyGenerator::KeyGenerator(const Context& context, const SecretKey& secretKey)
    : KeyGenerator(context, secretKey, KeyPack(context)) {}

KeyGenerator::KeyGenerator(const Context& context, const SecretKey& secretKey, const KeyPack& keyPack)
    : context_(context), keyPack_(keyPack),
      impl_(std::make_shared<RingKeyGenerator>(context, secretKey, keyPack_.getImpl())) {}

KeyGenerator::KeyGenerator(const Context& context, const Context& context_sparse, const SecretKey& secretKey)
    : KeyGenerator(context, context_sparse, secretKey, KeyPack(context)) {}

KeyGenerator::KeyGenerator(const Context& context, const Context& context_sparse, const SecretKey& secretKey,
                           const KeyPack& keyPack)
    : context_(context), context_sparse_(context_sparse), keyPack_(keyPack),
      impl_(std::make_shared<RingKeyGenerator>(context, context_sparse, secretKey, keyPack_.getImpl())) {}

void KeyGenerator::genEncKey() const {
    impl_->genEncKey();
}

void KeyGenerator::genMultKey() const {
    impl_->genMultKey();
}

void KeyGenerator::genConjKey() const {
    impl_->genConjKey();
}

void KeyGenerator::genLeftRotKey(unsigned long index) const {
    impl_->genLeftRotKey(index);
}

void KeyGenerator::genRightRotKey(unsigned long index) const {
    impl_->genRightRotKey(index);
}

void KeyGenerator::genRotKeyBundle() const {
    impl_->genRotKeyBundle();
}

void KeyGenerator::genRotKeyIfNotExist(long index) const {
    impl_->genRotKeyIfNotExist(index);
}

void KeyGenerator::genRotKeysForBootstrap(unsigned long log_slots, bool compact) const {
    impl_->genRotKeysForBootstrap(log_slots, compact);
}

void KeyGenerator::genSparseSecretEncapsulationKey() const {
    impl_->genSparseSecretEncapsulationKey();
}

RingSwitchKey KeyGenerator::genComposeKey(const SecretKey& in_key) const {
    return impl_->genComposeKey(in_key);
}

RingSwitchKey KeyGenerator::genDecomposeKey(const Context& switch_context, const SecretKey& out_key) const {
    return impl_->genDecomposeKey(switch_context, out_key);
}

template <EncryptionType E>
ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>& in_key,
                                                   const SecretKeyBase<E>& out_key) const {
    return impl_->genModPackKeyBundle(in_key, out_key);
}

template <EncryptionType E>
ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const LWE::SecretKey& in_key,
                                                   const SecretKeyBase<E>& out_key) const {
    return impl_->genModPackKeyBundle(in_key, out_key);
}

const KeyPack& KeyGenerator::getKeyPack() const {
    return keyPack_;
}

void KeyGenerator::save(const std::string& path) const {
    keyPack_.getImpl()->save(path);
}

void KeyGenerator::flush() {
    keyPack_ = KeyPack(context_);
    impl_->flushKeyPack(keyPack_.getImpl());
}

template ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>&,
                                                            const SecretKeyBase<EncryptionType::MLWE>&) const;
template ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const SecretKeyBase<EncryptionType::MLWE>&,
                                                            const SecretKeyBase<EncryptionType::RLWE>&) const;
template ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const LWE::SecretKey&,
                                                            const SecretKeyBase<EncryptionType::MLWE>&) const;
template ModPackKeyBundle KeyGenerator::genModPackKeyBundle(const LWE::SecretKey&,
                                                            const SecretKeyBase<EncryptionType::RLWE>&) const;

} // namespace Torvo
