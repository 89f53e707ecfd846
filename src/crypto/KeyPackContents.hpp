#pragma once

#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <map>
#include <memory>
#include <optional>

namespace Torvo {

/// The keys of a pack at one moment, as they are stored together.
struct KeyPackContents {
    KeyPackContents(const Context& packContext, const std::optional<Context>& packContextSparse)
        : context(packContext), contextSparse(packContextSparse) {}

    Context context;
    std::optional<Context> contextSparse;
    std::shared_ptr<EncryptionKey> encKey;
    std::shared_ptr<EvaluationKey> multKey;
    std::shared_ptr<EvaluationKey> conjKey;
    std::map<u64, std::shared_ptr<EvaluationKey>> rotKeys;
    std::shared_ptr<SparseSecretEncapsulationKey> sparseKey;

    /// Encryption, multiplication and conjugation key, each behind a byte that is 1 when the key is there; a
    /// u64 count and the rotation keys in index order; the encapsulation key behind its byte. Keys stand
    /// without their frames (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Keys are read one by one, so a forged count costs no more memory than the stream has keys for. Each
    /// must be of the kind whose place it takes and of the ring of its context. A rotation key goes under the
    /// index that it bears.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."; for an
    ///         encapsulation key without a second context "[KeyPack] context does not support sparse secret
    ///         encapsulation"; the archive's exception on a short read
    void load(InputArchive& archive);
};

} // namespace Torvo
