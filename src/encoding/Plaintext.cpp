#include <Torvo/Plaintext.hpp>

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "encoding/Messages.hpp"
#include "encoding/NumberOfSlots.hpp"
#include "encoding/PlaintextImpl.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

Plaintext::Plaintext(const Context& context) : Plaintext(context, Polynomial(context, false, true)) {
    impl_->mx.clear();
}

Plaintext::Plaintext(const Context& context, Polynomial&& polynomial)
    : impl_(new PlaintextImpl(context, std::move(polynomial))) {}

Plaintext::Plaintext(const Plaintext& other) = default;
Plaintext::Plaintext(Plaintext&& other) noexcept = default;
Plaintext& Plaintext::operator=(const Plaintext& other) = default;
Plaintext& Plaintext::operator=(Plaintext&& other) noexcept = default;
Plaintext::~Plaintext() = default;

const Context& Plaintext::getContext() const {
    return impl_->context;
}

unsigned long Plaintext::getLogSlots() const {
    return impl_->log_slots;
}

void Plaintext::setLogSlots(unsigned long log_slots) {
    impl_->log_slots = log_slots;
}

unsigned long Plaintext::getNumberOfSlots() const {
    return numberOfSlots(impl_->log_slots);
}

unsigned long Plaintext::getLevel() const {
    return impl_->mx.getLevel();
}

void Plaintext::setLevel(unsigned long level) {
    impl_->mx.setLevel(level);
}

int Plaintext::getRescaleCounter() const {
    return impl_->rescale_counter.getValue();
}

void Plaintext::setRescaleCounter(int rescale_counter) {
    require(rescale_counter <= static_cast<int>(getLevel()), message::rescaleCounterAboveLevel);
    impl_->rescale_counter.setValue(rescale_counter);
}

Polynomial& Plaintext::getMx() {
    return impl_->mx;
}

const Polynomial& Plaintext::getMx() const {
    return impl_->mx;
}

unsigned long* Plaintext::getMxData(unsigned long i) {
    return impl_->mx.getRow(i);
}

const unsigned long* Plaintext::getMxData(unsigned long i) const {
    return impl_->mx.getRow(i);
}

Device Plaintext::getDevice() const {
    return impl_->mx.getDevice();
}

void Plaintext::to(const Device& device) {
    impl_->mx.to(device);
}

void Plaintext::allocate(const Device& device) {
    impl_->mx.allocate(device);
}

bool Plaintext::isZero() const {
    return impl_->context->primes.isZero(impl_->mx);
}

void Plaintext::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void Plaintext::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long Plaintext::savedSize() const {
    return detail::savedSize(*this);
}

void Plaintext::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void Plaintext::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo
