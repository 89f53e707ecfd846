#include <Torvo/RingSwitchKey.hpp>

#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/OwnKey.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

RingSwitchKey::RingSwitchKey(const Context& context) : RingSwitchKey(makeEmptyRingSwitchKey(context)) {}

RingSwitchKey::RingSwitchKey(std::shared_ptr<EvaluationKey> key) : key_(std::move(key)) {}

const Context& RingSwitchKey::getContext() const {
    return key_->getContext();
}

EvaluationKey& RingSwitchKey::getKey() const {
    return *key_;
}

void RingSwitchKey::to(const Device& device) {
    key_->removeExcept(device);
}

void RingSwitchKey::save(const std::string& path) const {
    key_->save(path);
}

void RingSwitchKey::save(std::ostream& stream) const {
    key_->save(stream);
}

unsigned long RingSwitchKey::savedSize() const {
    return detail::savedSize(*this);
}

void RingSwitchKey::load(const std::string& path) {
    Serialize::load(path, OwnKey(key_->impl()));
}

void RingSwitchKey::load(std::istream& stream) {
    Serialize::load(stream, OwnKey(key_->impl()));
}

} // namespace Torvo
