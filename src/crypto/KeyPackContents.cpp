#include "crypto/KeyPackContents.hpp"

#include "core/Failure.hpp"
#include "crypto/Messages.hpp"
#include "crypto/UnsetKey.hpp"
#include "persistence/Archive.hpp"

#include <utility>

namespace Torvo {

namespace {

template <class Key>
void saveFields(OutputArchive& archive, const Key& key) {
    archive(key.impl());
}

void saveFields(OutputArchive& archive, const SparseSecretEncapsulationKey& key) {
    archive(key.getDTSPart()->impl(), key.getSTDPart()->impl());
}

template <class Key>
void loadFields(InputArchive& archive, Key& key) {
    key.impl().loadOwn(archive);
}

void loadFields(InputArchive& archive, SparseSecretEncapsulationKey& key) {
    for (EvaluationKey* part : {key.getDTSPart(), key.getSTDPart()}) loadFields(archive, *part);
}

template <class Key>
void saveIfPresent(OutputArchive& archive, const std::shared_ptr<Key>& key) {
    const bool isPresent = key != nullptr;
    archive(detail::Flag(isPresent));
    if (key) saveFields(archive, *key);
}

template <class Key, class Make>
std::shared_ptr<Key> loadIfPresent(InputArchive& archive, Make&& makeEmpty) {
    bool isPresent = false;
    archive(detail::Flag(isPresent));
    if (!isPresent) return nullptr;
    std::shared_ptr<Key> key = makeEmpty();
    loadFields(archive, *key);
    return key;
}

} // namespace

void KeyPackContents::save(OutputArchive& archive) const {
    saveIfPresent(archive, encKey);
    saveIfPresent(archive, multKey);
    saveIfPresent(archive, conjKey);
    archive(u64{rotKeys.size()});
    for (const auto& [index, key] : rotKeys) saveFields(archive, *key);
    saveIfPresent(archive, sparseKey);
}

void KeyPackContents::load(InputArchive& archive) {
    encKey = loadIfPresent<EncryptionKey>(archive, [&] { return unsetEncryptionKey(context); });
    multKey = loadIfPresent<EvaluationKey>(archive, [&] { return unsetKey(context, KeyKind::Mult); });
    conjKey = loadIfPresent<EvaluationKey>(archive, [&] { return unsetKey(context, KeyKind::Conj); });
    u64 count = 0;
    archive(count);
    for (u64 i = 0; i < count; ++i) {
        std::shared_ptr<EvaluationKey> key = unsetKey(context, KeyKind::Rot);
        key->impl().loadAnyRotation(archive);
        rotKeys.emplace(key->getRotationIndex(), std::move(key));
    }
    sparseKey = loadIfPresent<SparseSecretEncapsulationKey>(archive, [&] {
        require(context_sparse.has_value(), message::keyPackWithoutEncapsulation);
        return unsetEncapsulationKey(context, *context_sparse);
    });
}

} // namespace Torvo
