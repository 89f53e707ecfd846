#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/OwnKey.hpp"
#include "crypto/UnsetKey.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

namespace {

EvaluationKey emptyPart(const Context& context) {
    return {context, static_cast<char>(KeyKind::Encapsulation), 0};
}

} // namespace

SparseSecretEncapsulationKey::SparseSecretEncapsulationKey(const Context& context,
                                                           const Context& context_sparse)
    : dts_(emptyPart(context_sparse)), std_(emptyPart(context)) {}

SparseSecretEncapsulationKey::SparseSecretEncapsulationKey(EvaluationKey&& dts, EvaluationKey&& std)
    : dts_(std::move(dts)), std_(std::move(std)) {}

EvaluationKey* SparseSecretEncapsulationKey::getDTSPart() {
    return &dts_;
}

const EvaluationKey* SparseSecretEncapsulationKey::getDTSPart() const {
    return &dts_;
}

EvaluationKey* SparseSecretEncapsulationKey::getSTDPart() {
    return &std_;
}

const EvaluationKey* SparseSecretEncapsulationKey::getSTDPart() const {
    return &std_;
}

void SparseSecretEncapsulationKey::copyTo(const Device& device) {
    dts_.copyTo(device);
    std_.copyTo(device);
}

void SparseSecretEncapsulationKey::removeExcept(const Device& device) {
    dts_.removeExcept(device);
    std_.removeExcept(device);
}

void SparseSecretEncapsulationKey::save(const std::string& path) const {
    Serialize::save(path, dts_.impl(), std_.impl());
}

void SparseSecretEncapsulationKey::save(std::ostream& stream) const {
    Serialize::save(stream, dts_.impl(), std_.impl());
}

unsigned long SparseSecretEncapsulationKey::savedSize() const {
    return detail::savedSize(*this);
}

void SparseSecretEncapsulationKey::load(const std::string& path) {
    Serialize::load(path, OwnKey(dts_.impl()), OwnKey(std_.impl()));
}

void SparseSecretEncapsulationKey::load(std::istream& stream) {
    Serialize::load(stream, OwnKey(dts_.impl()), OwnKey(std_.impl()));
}

std::unique_ptr<SparseSecretEncapsulationKey>
makeEmptySparseSecretEncapsulationKey(const Context& context, const Context& context_sparse) {
    return std::make_unique<SparseSecretEncapsulationKey>(context, context_sparse);
}

void save(const SparseSecretEncapsulationKey& key, std::ostream& stream) {
    key.save(stream);
}

void load(SparseSecretEncapsulationKey& key, std::istream& stream) {
    key.load(stream);
}

} // namespace Torvo
