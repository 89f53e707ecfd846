#include <Torvo/EncryptionKey.hpp>

#include "core/Failure.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/Messages.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

EncryptionKey::EncryptionKey(const Context& context)
    : EncryptionKey(std::make_unique<EncryptionKeyImpl>(context)) {
    impl_->ax.clear();
    impl_->bx.clear();
}

EncryptionKey::EncryptionKey(const Context& context, const SecretKey& secretKey)
    : impl_(std::make_unique<EncryptionKeyImpl>(context, secretKey)) {}

EncryptionKey::EncryptionKey(std::unique_ptr<EncryptionKeyImpl> impl) : impl_(std::move(impl)) {}

EncryptionKey::EncryptionKey(EncryptionKey&& other) noexcept = default;
EncryptionKey& EncryptionKey::operator=(EncryptionKey&& other) noexcept = default;
EncryptionKey::~EncryptionKey() = default;

Polynomial& EncryptionKey::getAx() {
    return impl_->ax;
}

const Polynomial& EncryptionKey::getAx() const {
    return impl_->ax;
}

Polynomial& EncryptionKey::getBx() {
    return impl_->bx;
}

const Polynomial& EncryptionKey::getBx() const {
    return impl_->bx;
}

unsigned long EncryptionKey::getContextHash() const {
    return impl_->context_hash;
}

Device EncryptionKey::getDevice() const {
    require(impl_->ax.getDevice() == impl_->bx.getDevice(), message::encryptionKeyOnTwoDevices);
    return impl_->ax.getDevice();
}

void EncryptionKey::to(const Device& device) {
    impl_->ax.to(device);
    impl_->bx.to(device);
}

void EncryptionKey::allocate(const Device& device) {
    impl_->ax.allocate(device);
    impl_->bx.allocate(device);
}

void EncryptionKey::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void EncryptionKey::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long EncryptionKey::savedSize() const {
    return detail::savedSize(*this);
}

void EncryptionKey::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void EncryptionKey::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

void save(const EncryptionKey& key, std::ostream& stream) {
    key.save(stream);
}

void load(EncryptionKey& key, std::istream& stream) {
    key.load(stream);
}

} // namespace Torvo
