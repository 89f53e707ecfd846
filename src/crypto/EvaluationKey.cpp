#include <Torvo/EvaluationKey.hpp>

#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/UnsetKey.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

namespace {

std::unique_ptr<EvaluationKey> emptyKey(const Context& context, KeyKind kind, u64 rotationIndex = 0) {
    return std::make_unique<EvaluationKey>(context, static_cast<char>(kind), rotationIndex);
}

} // namespace

EvaluationKey::EvaluationKey() : impl_(std::make_unique<EvaluationKeyImpl>()) {}

EvaluationKey::EvaluationKey(const Context& context, char type, unsigned long rotationIndex)
    : EvaluationKey(std::make_unique<EvaluationKeyImpl>(context, type, rotationIndex)) {
    for (auto* part : {&impl_->ax, &impl_->bx})
        for (Polynomial& poly : part->at(Device{})) poly.clear();
}

EvaluationKey::EvaluationKey(std::unique_ptr<EvaluationKeyImpl> impl) : impl_(std::move(impl)) {}

EvaluationKey::EvaluationKey(EvaluationKey&& other) noexcept = default;
EvaluationKey& EvaluationKey::operator=(EvaluationKey&& other) noexcept = default;
EvaluationKey::~EvaluationKey() = default;

const Context& EvaluationKey::getContext() const {
    return impl_->context;
}

char EvaluationKey::getType() const {
    return impl_->type;
}

unsigned long EvaluationKey::getRotationIndex() const {
    return impl_->rotationIndex;
}

unsigned long EvaluationKey::getContextHash() const {
    return impl_->context_hash;
}

unsigned long EvaluationKey::getGadgetRank() const {
    return impl_->ax.at(Device{}).size();
}

Polynomial* EvaluationKey::getAxIter(const Device& device) {
    return impl_->ax.at(device).data();
}

const Polynomial* EvaluationKey::getAxIter(const Device& device) const {
    return std::as_const(*impl_).ax.at(device).data();
}

Polynomial* EvaluationKey::getBxIter(const Device& device) {
    return impl_->bx.at(device).data();
}

const Polynomial* EvaluationKey::getBxIter(const Device& device) const {
    return std::as_const(*impl_).bx.at(device).data();
}

void EvaluationKey::copyTo(const Device& device) {
    impl_->ax.ensure(device);
    impl_->bx.ensure(device);
}

void EvaluationKey::removeExcept(const Device& device) {
    impl_->ax.removeExcept(device);
    impl_->bx.removeExcept(device);
}

void EvaluationKey::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void EvaluationKey::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long EvaluationKey::savedSize() const {
    return detail::savedSize(*this);
}

void EvaluationKey::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void EvaluationKey::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

std::unique_ptr<EvaluationKey> makeEmptyMultKey(const Context& context) {
    return emptyKey(context, KeyKind::Mult);
}

std::unique_ptr<EvaluationKey> makeEmptyConjKey(const Context& context) {
    return emptyKey(context, KeyKind::Conj);
}

std::unique_ptr<EvaluationKey> makeEmptyRotKey(const Context& context, unsigned long rotationIndex) {
    return emptyKey(context, KeyKind::Rot, rotationIndex);
}

std::unique_ptr<EvaluationKey> makeEmptyModPackKey(const Context& context) {
    return emptyKey(context, KeyKind::ModPack);
}

std::unique_ptr<EvaluationKey> makeEmptyRingSwitchKey(const Context& context) {
    return emptyKey(context, KeyKind::RingSwitch);
}

void save(const EvaluationKey& key, std::ostream& stream) {
    key.save(stream);
}

void load(EvaluationKey& key, std::istream& stream) {
    key.load(stream);
}

} // namespace Torvo
