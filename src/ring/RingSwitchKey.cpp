#include <Torvo/RingSwitchKey.hpp>

namespace Torvo {

RingSwitchKey::RingSwitchKey(const Context& context) : key_(makeEmptyRingSwitchKey(context)) {}

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

void RingSwitchKey::load(const std::string& path) {
    key_->load(path);
}

void RingSwitchKey::load(std::istream& stream) {
    key_->load(stream);
}

} // namespace Torvo
