#include <Torvo/CompactCiphertext.hpp>

#include "crypto/CompactCiphertextImpl.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

namespace Torvo {

CompactCiphertext::CompactCiphertext(const Context& context) : impl_(new CompactCiphertextImpl(context)) {}
CompactCiphertext::CompactCiphertext(CompactCiphertextImpl* impl) : impl_(impl) {}

CompactCiphertext::CompactCiphertext(const CompactCiphertext& other) = default;
CompactCiphertext::CompactCiphertext(CompactCiphertext&& other) noexcept = default;
// By a copy: one that fails must not leave the germ of one encryption beside the element of another.
CompactCiphertext& CompactCiphertext::operator=(const CompactCiphertext& other) {
    return *this = CompactCiphertext(other);
}
CompactCiphertext& CompactCiphertext::operator=(CompactCiphertext&& other) noexcept = default;
CompactCiphertext::~CompactCiphertext() = default;

const Context& CompactCiphertext::getContext() const {
    return impl_->context;
}

bool CompactCiphertext::isEmpty() const {
    return !impl_->germ.has_value();
}

unsigned long CompactCiphertext::getLogSlots() const {
    return impl_->log_slots;
}

unsigned long CompactCiphertext::getLevel() const {
    return impl_->b.getLevel();
}

int CompactCiphertext::getRescaleCounter() const {
    return impl_->rescale_counter.getValue();
}

Ciphertext CompactCiphertext::expand() const {
    return impl_->expand();
}

void CompactCiphertext::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void CompactCiphertext::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long CompactCiphertext::savedSize() const {
    return detail::savedSize(*this);
}

void CompactCiphertext::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void CompactCiphertext::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo
