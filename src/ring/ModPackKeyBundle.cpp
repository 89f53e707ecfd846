#include <Torvo/ModPackKeyBundle.hpp>

#include "core/Failure.hpp"
#include "core/Integers.hpp"
#include "core/RequireContext.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "persistence/Limits.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"
#include "ring/Messages.hpp"

#include <utility>

namespace Torvo {

namespace {

using Keys = std::vector<std::shared_ptr<EvaluationKey>>;

/// The keys of a bundle as one field of an archive: one after the other, without a count.
class AllKeys {
public:
    explicit AllKeys(const Keys& keys) : keys_(&keys) {}

    void save(OutputArchive& archive) const {
        for (const auto& key : *keys_) archive(std::as_const(*key).impl());
    }
    void load(InputArchive& archive) {
        for (const auto& key : *keys_) key->impl().loadOwn(archive);
    }

private:
    const Keys* keys_;
};

} // namespace

ModPackKeyBundle::ModPackKeyBundle(const Context& context, unsigned long num_keys)
    : context_(requireContext(context)) {
    require(num_keys <= limit::degree, message::tooManyPackingKeys);
    for (u64 k = 0; k < num_keys; ++k) keys_.push_back(makeEmptyModPackKey(context));
}

ModPackKeyBundle::ModPackKeyBundle(const Context& context, Keys keys)
    : context_(context), keys_(std::move(keys)) {}

unsigned long ModPackKeyBundle::getNumKeys() const {
    return keys_.size();
}

std::shared_ptr<EvaluationKey> ModPackKeyBundle::getModPackKey(unsigned long index) const {
    return keys_.at(index);
}

void ModPackKeyBundle::to(const Device& device) {
    for (const auto& key : keys_) key->removeExcept(device);
}

void ModPackKeyBundle::save(const std::string& path) const {
    Serialize::save(path, AllKeys(keys_));
}

void ModPackKeyBundle::save(std::ostream& stream) const {
    Serialize::save(stream, AllKeys(keys_));
}

unsigned long ModPackKeyBundle::savedSize() const {
    return detail::savedSize(*this);
}

void ModPackKeyBundle::load(const std::string& path) {
    Serialize::load(path, AllKeys(keys_));
}

void ModPackKeyBundle::load(std::istream& stream) {
    Serialize::load(stream, AllKeys(keys_));
}

} // namespace Torvo
