#include <Torvo/Message.hpp>

#include "arithmetic/elements/Relocation.hpp"
#include "core/Failure.hpp"
#include "encoding/MessageImpl.hpp"
#include "encoding/Messages.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <string>

namespace Torvo {

namespace {

/// 1 << log_slots, where the 16 bytes of each slot fit a word together. A count given for its logarithm does
/// not pass, as a rule.
u64 slotCount(u64 log_slots) {
    if (log_slots >= 60)
        throw RuntimeException(message::messageOfTooManySlots + std::to_string(log_slots) +
                               message::messageSlotsFitBelow);
    return u64{1} << log_slots;
}

} // namespace

Message::Message() : impl_(new MessageImpl) {}

Message::Message(unsigned long log_slots) : Message(log_slots, 0.0) {}

Message::Message(unsigned long log_slots, std::complex<double> value)
    : impl_(new MessageImpl(slotCount(log_slots))) {
    std::fill(begin(), end(), value);
}

Message::Message(const std::vector<std::complex<double>>& values) : Message() {
    require(values.empty() || std::has_single_bit(values.size()), message::messageSizeNotPowerOfTwo);
    impl_->resize(values.size());
    std::copy(values.begin(), values.end(), begin());
}

Message::Message(const Message& other) = default;
Message::Message(Message&& other) noexcept = default;
Message& Message::operator=(const Message& other) = default;
Message& Message::operator=(Message&& other) noexcept = default;
Message::~Message() = default;

std::complex<double>& Message::operator[](unsigned long idx) {
    return (*impl_)[idx];
}

const std::complex<double>& Message::operator[](unsigned long idx) const {
    return (*impl_)[idx];
}

std::complex<double>* Message::begin() {
    return impl_->begin();
}

std::complex<double>* Message::end() {
    return impl_->end();
}

const std::complex<double>* Message::begin() const {
    return impl_->begin();
}

const std::complex<double>* Message::end() const {
    return impl_->end();
}

void Message::resize(unsigned long size) {
    const u64 kept = getSize();
    impl_->resize(size);
    impl_->clear(kept);
}

unsigned long Message::getSize() const {
    return impl_->size();
}

bool Message::isEmpty() const {
    return getSize() == 0;
}

unsigned long Message::getLogSlots() const {
    return isEmpty() ? 0 : std::bit_width(getSize()) - 1;
}

Device Message::getDevice() const {
    return impl_->getDevice();
}

void Message::to(const Device& device) {
    impl_->to(device);
}

void Message::allocate(const Device& device) {
    allocateOn(device, *impl_);
}

void Message::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void Message::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long Message::savedSize() const {
    return detail::savedSize(*this);
}

void Message::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void Message::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo
