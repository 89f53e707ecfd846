#pragma once

#include "persistence/ArchiveForward.hpp"

#include <iosfwd>

namespace Torvo {

class EncryptionKey;
class EvaluationKey;
class SparseSecretEncapsulationKey;

/// As a field of an archive: the key that replaces `key`, of the same kind, index and ring.
template <class Key>
class OwnKey {
public:
    explicit OwnKey(Key& key) : key_(&key) {}
    void load(InputArchive& archive) { key_->loadOwn(archive); }

private:
    Key* key_;
};

/// The same from a stream. The public `load` of a key accepts any key of its shape.
void loadOwn(EncryptionKey& key, std::istream& stream);
void loadOwn(EvaluationKey& key, std::istream& stream);
void loadOwn(SparseSecretEncapsulationKey& key, std::istream& stream);

} // namespace Torvo
