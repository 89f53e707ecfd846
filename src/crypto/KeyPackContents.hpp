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
        : context(packContext), context_sparse(packContextSparse) {}

    Context context;
    std::optional<Context> context_sparse;
    std::shared_ptr<EncryptionKey> encKey;
    std::shared_ptr<EvaluationKey> multKey;
    std::shared_ptr<EvaluationKey> conjKey;
    std::map<u64, std::shared_ptr<EvaluationKey>> rotKeys;
    std::shared_ptr<SparseSecretEncapsulationKey> sparseKey;

    /// Encryption, multiplication and conjugation key, each after a byte that is 1 if the key is present; a
    /// u64 count and the rotation keys in index order; the encapsulation key after its byte. Keys are written
    /// without their frames (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Keys are read one by one, so a forged count costs no more memory than the keys in the stream. Each
    /// must be of the expected kind and of the ring of its context. A rotation key is stored under its own
    /// index.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."; for an
    ///         encapsulation key without a second context "[KeyPack] context does not support sparse secret
    ///         encapsulation"; the archive's exception on a short read
    void load(InputArchive& archive);
};

} // namespace Torvo
