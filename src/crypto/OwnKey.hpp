#pragma once

#include "persistence/ArchiveForward.hpp"

#include <iosfwd>

namespace Torvo {

class EncryptionKey;
class EvaluationKey;
class SparseSecretEncapsulationKey;

/// As a field of an archive: the key that is to take the place of `key`, of its kind, index and ring.
template <class Key>
class OwnKey {
public:
    explicit OwnKey(Key& key) : key_(&key) {}
    void load(InputArchive& archive) { key_->loadOwn(archive); }

private:
    Key* key_;
};

/// From a stream. The `load` of a key by itself takes any key that has its shape.
void loadOwn(EncryptionKey& key, std::istream& stream);
void loadOwn(EvaluationKey& key, std::istream& stream);
void loadOwn(SparseSecretEncapsulationKey& key, std::istream& stream);

} // namespace Torvo
