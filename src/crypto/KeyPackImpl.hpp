#pragma once

#include "core/Integers.hpp"
#include "core/ThreadSafe.hpp"
#include "crypto/KeyPackContents.hpp"
#include "crypto/KeySlot.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Torvo {

/// The keys of a pack, with one mutex per fixed slot, a reader-writer lock around the map of rotation keys,
/// and one load mutex per rotation index. Indices here are left-rotation indices and are not reduced.
///
/// A key in a slot or in the map is complete; only `to` changes it.
class KeyPackImpl {
public:
    using RotationKeys = decltype(KeyPackContents::rotKeys);

    explicit KeyPackImpl(const Context& context);
    KeyPackImpl(const Context& context, const std::string& keyDirPath);
    KeyPackImpl(const Context& context, const Context& context_sparse);
    KeyPackImpl(const Context& context, const Context& context_sparse, const std::string& keyDirPath);

    const Context& getContext() const { return context_; }

    bool isEncKeyFileAvailable() const;
    bool isMultKeyFileAvailable() const;
    bool isConjKeyFileAvailable() const;
    bool isRotKeyFileAvailable(u64 index) const;
    bool isSparseSecretEncapsulationKeyFileAvailable() const;

    /// Read the key from the directory unless it is in memory; a missing file is not an error. Without a
    /// second context the encapsulation key counts as missing.
    void maybeLoadEncKey() { getEncKey(); }
    void maybeLoadMultKey() { getMultKey(); }
    void maybeLoadConjKey() { getConjKey(); }
    void maybeLoadRotKey(u64 index) { getRotKey(index); }
    void maybeLoadSparseSecretEncapsulationKey() { getSparseSecretEncapsulationKey(); }

    /// Read the key from a stream. A rotation key that the pack already holds stays; any other key replaces
    /// the one held.
    void maybeLoadEncKey(std::istream& stream);
    void maybeLoadMultKey(std::istream& stream);
    void maybeLoadConjKey(std::istream& stream);
    void maybeLoadRotKey(u64 index, std::istream& stream);
    /// @throws RuntimeException "[KeyPack] context does not support sparse secret encapsulation" for a pack
    ///         without a second context
    void maybeLoadSparseSecretEncapsulationKey(std::istream& stream);

    /// Drop the key from memory, if the directory has the file that would be written for it.
    /// @throws RuntimeException "[KeyPack] a key can be unloaded only when it can be read again, but " and
    /// why
    ///         it cannot
    void unloadEncKey();
    void unloadMultKey();
    void unloadConjKey();
    void unloadRotKey(u64 index);
    void unloadSparseSecretEncapsulationKey();
    /// All of them in turn.
    void unload();

    bool isEncKeyLoaded() const { return encKey.isFilled(); }
    bool isMultKeyLoaded() const { return multKey.isFilled(); }
    bool isConjKeyLoaded() const { return conjKey.isFilled(); }
    bool isRotKeyLoaded(u64 index) const { return findRotKey(index) != nullptr; }
    bool isSparseSecretEncapsulationKeyLoaded() const { return sparseKey.isFilled(); }

    /// Each tries the lazy load first; null when there is no key.
    std::shared_ptr<EncryptionKey> getEncKey();
    std::shared_ptr<EvaluationKey> getMultKey();
    std::shared_ptr<EvaluationKey> getConjKey();
    std::shared_ptr<EvaluationKey> getRotKey(u64 index);
    std::shared_ptr<SparseSecretEncapsulationKey> getSparseSecretEncapsulationKey();

    /// Stores a rotation key under `index`, unless there is one, and returns the one that is there then.
    std::shared_ptr<EvaluationKey> addRotKey(u64 index, std::shared_ptr<EvaluationKey> key);

    void setKeyDirPath(const std::string& path);
    void to(const Device& device);
    void save(const std::string& path);
    void save(std::ostream& stream) const;
    /// Replaces the content of the pack, after the whole stream has been read.
    void load(std::istream& stream);

    // The slots, which KeyGeneratorImpl fills too.

    KeySlot<EncryptionKey> encKey;
    KeySlot<EvaluationKey> multKey;
    KeySlot<EvaluationKey> conjKey;
    KeySlot<SparseSecretEncapsulationKey> sparseKey;

private:
    /// The file of that name in the directory; empty when there is no directory.
    std::string keyFile(const std::string& name) const;
    /// The same for a key that is to be read again.
    std::string keyFileToUnload(const std::string& name) const;
    /// For the constructors, which make no directory.
    void openKeyDir(const std::string& path);
    std::shared_ptr<EvaluationKey> findRotKey(u64 index) const;
    /// Held while the key of `index` is read from disk or dropped.
    std::mutex& rotLoadMutex(u64 index);
    KeyPackContents contents() const;
    std::unique_ptr<SparseSecretEncapsulationKey> makeEmptySparseKey() const;

    Context context_;
    std::optional<Context> context_sparse_;
    ThreadSafe<RotationKeys> rotKeys_;
    ThreadSafeMap<u64, std::unique_ptr<std::mutex>> rotLoadMutexes_;
    ThreadSafe<std::string> keyDirPath_; ///< empty when none is set
};

/// The rules for a second context of sparse secret encapsulation; the caller gives the texts of the refusals.
void requireSparsePartner(const Context& context, const Context& context_sparse, const char* unsupported,
                          const char* mismatched);

} // namespace Torvo
