#include <Torvo/LWECiphertext.hpp>

#include "lwe/LWECiphertextImpl.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

namespace Torvo::LWE {

Ciphertext::Ciphertext(const Context& context) : impl_(new CiphertextImpl(context)) {}

Ciphertext::Ciphertext(const Ciphertext& other) = default;
Ciphertext::Ciphertext(Ciphertext&& other) noexcept = default;
Ciphertext& Ciphertext::operator=(const Ciphertext& other) = default;
Ciphertext& Ciphertext::operator=(Ciphertext&& other) noexcept = default;
Ciphertext::~Ciphertext() = default;

const Context& Ciphertext::getContext() const {
    return impl_->context;
}

LevelledVector& Ciphertext::getAx() {
    return impl_->ax;
}

const LevelledVector& Ciphertext::getAx() const {
    return impl_->ax;
}

LevelledElement& Ciphertext::getBx() {
    return impl_->bx;
}

const LevelledElement& Ciphertext::getBx() const {
    return impl_->bx;
}

unsigned long Ciphertext::getLevel() const {
    return impl_->ax.getLevel();
}

void Ciphertext::setLevel(unsigned long level) {
    impl_->setLevel(level);
}

int Ciphertext::getRescaleCounter() const {
    return impl_->rescale_counter.getValue();
}

void Ciphertext::setRescaleCounter(int rescale_counter) {
    impl_->setRescaleCounter(rescale_counter);
}

Device Ciphertext::getDevice() const {
    return impl_->ax.getDevice();
}

void Ciphertext::to(const Device& device) {
    impl_->ax.to(device);
    impl_->bx.to(device);
}

void Ciphertext::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void Ciphertext::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long Ciphertext::savedSize() const {
    return detail::savedSize(*this);
}

void Ciphertext::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void Ciphertext::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo::LWE
