#include "crypto/OwnKey.hpp"

#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "persistence/Serialize.hpp"

#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

namespace Torvo {

void loadOwn(EncryptionKey& key, std::istream& stream) {
    Serialize::load(stream, OwnKey(key.impl()));
}

void loadOwn(EvaluationKey& key, std::istream& stream) {
    Serialize::load(stream, OwnKey(key.impl()));
}

void loadOwn(SparseSecretEncapsulationKey& key, std::istream& stream) {
    key.load(stream);
}

} // namespace Torvo
