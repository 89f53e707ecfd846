#pragma once

#include <string>

namespace Torvo {

class EncryptionKey;
class EvaluationKey;
class SparseSecretEncapsulationKey;

/// Refuses a key whose bytes are not those of the regular file of `path`. The file is compared piece by piece
/// with what a save would write, which takes no memory, and in the end must be over too.
/// @throws RuntimeException "[KeyPack] a key can be unloaded only when it can be read again, but " and "there
///         is no file " or "another key stands in ", the path, "; save the pack into its directory first"
void requireSavedAs(const EncryptionKey& key, const std::string& path);
void requireSavedAs(const EvaluationKey& key, const std::string& path);
void requireSavedAs(const SparseSecretEncapsulationKey& key, const std::string& path);

} // namespace Torvo
