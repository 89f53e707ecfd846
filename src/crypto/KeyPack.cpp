#include <Torvo/KeyPack.hpp>

#include "context/ContextContent.hpp"
#include "crypto/KeyPackImpl.hpp"
#include "persistence/SavedSize.hpp"

namespace Torvo {

KeyPack::KeyPack(const Context& context)
    : impl_(std::make_shared<KeyPackImpl>(context)), num_slots_(context->parameter.num_slots) {}

KeyPack::KeyPack(const Context& context, const std::string& keyDirPath)
    : impl_(std::make_shared<KeyPackImpl>(context, keyDirPath)), num_slots_(context->parameter.num_slots) {}

KeyPack::KeyPack(const Context& context, const Context& context_sparse)
    : impl_(std::make_shared<KeyPackImpl>(context, context_sparse)),
      num_slots_(context->parameter.num_slots) {}

KeyPack::KeyPack(const Context& context, const Context& context_sparse, const std::string& keyDirPath)
    : impl_(std::make_shared<KeyPackImpl>(context, context_sparse, keyDirPath)),
      num_slots_(context->parameter.num_slots) {}

unsigned long KeyPack::leftIndex(unsigned long index) const {
    return index & (num_slots_ - 1);
}

unsigned long KeyPack::rightIndex(unsigned long index) const {
    return leftIndex(num_slots_ - leftIndex(index));
}

void KeyPack::loadEncKey() const {
    impl_->maybeLoadEncKey();
}

void KeyPack::loadMultKey() const {
    impl_->maybeLoadMultKey();
}

void KeyPack::loadConjKey() const {
    impl_->maybeLoadConjKey();
}

void KeyPack::loadLeftRotKey(unsigned long index) const {
    impl_->maybeLoadRotKey(leftIndex(index));
}

void KeyPack::loadRightRotKey(unsigned long index) const {
    impl_->maybeLoadRotKey(rightIndex(index));
}

void KeyPack::loadSparseSecretEncapsulationKey() const {
    impl_->maybeLoadSparseSecretEncapsulationKey();
}

void KeyPack::loadEncKey(std::istream& stream) const {
    impl_->maybeLoadEncKey(stream);
}

void KeyPack::loadMultKey(std::istream& stream) const {
    impl_->maybeLoadMultKey(stream);
}

void KeyPack::loadConjKey(std::istream& stream) const {
    impl_->maybeLoadConjKey(stream);
}

void KeyPack::loadLeftRotKey(unsigned long index, std::istream& stream) const {
    impl_->maybeLoadRotKey(leftIndex(index), stream);
}

void KeyPack::loadRightRotKey(unsigned long index, std::istream& stream) const {
    impl_->maybeLoadRotKey(rightIndex(index), stream);
}

void KeyPack::loadSparseSecretEncapsulationKey(std::istream& stream) const {
    impl_->maybeLoadSparseSecretEncapsulationKey(stream);
}

void KeyPack::unloadEncKey() const {
    impl_->unloadEncKey();
}

void KeyPack::unloadMultKey() const {
    impl_->unloadMultKey();
}

void KeyPack::unloadConjKey() const {
    impl_->unloadConjKey();
}

void KeyPack::unloadLeftRotKey(unsigned long index) const {
    impl_->unloadRotKey(leftIndex(index));
}

void KeyPack::unloadRightRotKey(unsigned long index) const {
    impl_->unloadRotKey(rightIndex(index));
}

void KeyPack::unloadSparseSecretEncapsulationKey() const {
    impl_->unloadSparseSecretEncapsulationKey();
}

void KeyPack::unload() const {
    impl_->unload();
}

bool KeyPack::isEncKeyLoaded() const {
    return impl_->isEncKeyLoaded();
}

bool KeyPack::isMultKeyLoaded() const {
    return impl_->isMultKeyLoaded();
}

bool KeyPack::isConjKeyLoaded() const {
    return impl_->isConjKeyLoaded();
}

bool KeyPack::isLeftRotKeyLoaded(unsigned long index) const {
    return impl_->isRotKeyLoaded(leftIndex(index));
}

bool KeyPack::isRightRotKeyLoaded(unsigned long index) const {
    return impl_->isRotKeyLoaded(rightIndex(index));
}

bool KeyPack::isSparseSecretEncapsulationKeyLoaded() const {
    return impl_->isSparseSecretEncapsulationKeyLoaded();
}

bool KeyPack::isLeftRotKeyFileAvailable(unsigned long index) const {
    return impl_->isRotKeyFileAvailable(index);
}

std::shared_ptr<EncryptionKey> KeyPack::getEncKey() const {
    return impl_->getEncKey();
}

std::shared_ptr<EvaluationKey> KeyPack::getMultKey() const {
    return impl_->getMultKey();
}

std::shared_ptr<EvaluationKey> KeyPack::getConjKey() const {
    return impl_->getConjKey();
}

std::shared_ptr<EvaluationKey> KeyPack::getLeftRotKey(unsigned long index) const {
    return impl_->getRotKey(leftIndex(index));
}

std::shared_ptr<EvaluationKey> KeyPack::getRightRotKey(unsigned long index) const {
    return impl_->getRotKey(rightIndex(index));
}

std::shared_ptr<SparseSecretEncapsulationKey> KeyPack::getSparseSecretEncapsulationKey() const {
    return impl_->getSparseSecretEncapsulationKey();
}

void KeyPack::setKeyDirPath(const std::string& path) {
    impl_->setKeyDirPath(path);
}

void KeyPack::to(const Device& device) {
    impl_->to(device);
}

void KeyPack::save(const std::string& path) {
    impl_->save(path);
}

void KeyPack::save(std::ostream& stream) const {
    impl_->save(stream);
}

unsigned long KeyPack::savedSize() const {
    return detail::savedSize(*this);
}

void KeyPack::load(std::istream& stream) {
    impl_->load(stream);
}

} // namespace Torvo
