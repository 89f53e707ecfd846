#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Torvo {

class KeyPackImpl;

/// The public keys that an evaluator works with: encryption, multiplication, conjugation, rotation and
/// encapsulation keys, in memory or in a key directory from which each is read when first asked for.
///
/// A shared handle: copies see the same keys. Any number of threads may use one pack; a key is read from disk
/// once, and reading one rotation key does not hold up another.
///
/// Rotation indices are taken modulo the number of slots; right rotation by r is left rotation by
/// `num_slots - r`. A key directory holds its files in the subdirectory "PK": EncKey.bin, MultKey.bin,
/// ConjKey.bin, RotKey<index>.bin and SparseSecretEncapsulationKey.bin.
class TORVO_API KeyPack {
public:
    /// An empty pack without a directory.
    explicit KeyPack(const Context& context);
    /// An empty pack that reads its keys from `keyDirPath`.
    /// @throws RuntimeException "Cannot find path " and the path, unless it and its "PK" are directories
    KeyPack(const Context& context, const std::string& keyDirPath);
    /// With a second context for sparse secret encapsulation.
    /// @throws RuntimeException "[KeyPack] context does not support sparse secret encapsulation", then
    ///         "[KeyPack] parameter of context and context_sparse does not match"
    KeyPack(const Context& context, const Context& contextSparse);
    KeyPack(const Context& context, const Context& contextSparse, const std::string& keyDirPath);

    /// Read the key from the directory unless it is in memory. A missing file is no failure, nor is one that
    /// does not open; in a pack without a second context the encapsulation key counts as missing. The key of
    /// a file must be of the kind and the rotation index that its name tells, and of the ring of the context.
    /// After a failure the key may be asked for again.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects.", or the
    ///         archive's exception, for a bad file
    void loadEncKey() const;
    void loadMultKey() const;
    void loadConjKey() const;
    void loadLeftRotKey(unsigned long index) const;
    void loadRightRotKey(unsigned long index) const;
    void loadSparseSecretEncapsulationKey() const;

    /// Read the key from a stream. It must be of the kind and the rotation index that is asked for, and of
    /// the ring of the context. A fixed key replaces the one held; a rotation key held already stays. After a
    /// failure the pack holds what it held before.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."; the
    ///         archive's exception on a short read; for an encapsulation key in a pack without a second
    ///         context "[KeyPack] context does not support sparse secret encapsulation"
    void loadEncKey(std::istream& stream) const;
    void loadMultKey(std::istream& stream) const;
    void loadConjKey(std::istream& stream) const;
    void loadLeftRotKey(unsigned long index, std::istream& stream) const;
    void loadRightRotKey(unsigned long index, std::istream& stream) const;
    void loadSparseSecretEncapsulationKey(std::istream& stream) const;

    /// Whether the key is in memory; never touches the disk, but for a fixed key waits while it is being
    /// read.
    bool isEncKeyLoaded() const;
    bool isMultKeyLoaded() const;
    bool isConjKeyLoaded() const;
    bool isLeftRotKeyLoaded(unsigned long index) const;
    bool isRightRotKeyLoaded(unsigned long index) const;
    bool isSparseSecretEncapsulationKeyLoaded() const;
    /// Whether the directory has a file for exactly `index`, which is not reduced here.
    bool isLeftRotKeyFileAvailable(unsigned long index) const;

    /// The key, read from the directory if need be; null when it is neither in memory nor on disk.
    std::shared_ptr<EncryptionKey> getEncKey() const;
    std::shared_ptr<EvaluationKey> getMultKey() const;
    std::shared_ptr<EvaluationKey> getConjKey() const;
    std::shared_ptr<EvaluationKey> getLeftRotKey(unsigned long index) const;
    std::shared_ptr<EvaluationKey> getRightRotKey(unsigned long index) const;
    std::shared_ptr<SparseSecretEncapsulationKey> getSparseSecretEncapsulationKey() const;

    /// Sets the directory to read from, making its "PK" when that is missing.
    /// @throws RuntimeException "Cannot find path " and the path, unless it is a directory
    /// @throws std::filesystem::filesystem_error when "PK" cannot be made
    void setKeyDirPath(const std::string& path);
    /// Keeps all keys on `device` only.
    void to(const Device& device);

    /// `setKeyDirPath(path)`, then writes each key held into its file. Each file is replaced as a whole, the
    /// directory file by file: a reader meanwhile may find new keys beside old ones.
    /// @throws RuntimeException as `setKeyDirPath`, and as `EvaluationKey::save`
    void save(const std::string& path);
    /// Writes the pack as one archive (format: docs/files.md).
    void save(std::ostream& stream) const;
    /// Replaces what the pack held by the pack of a stream, once all of it has been read. Each key must be of
    /// its kind and of the ring of its context; a rotation key goes under the index that it bears.
    /// @throws as the loads of single keys from a stream
    void load(std::istream& stream);

    const std::shared_ptr<KeyPackImpl>& getImpl() const { return impl_; }

private:
    unsigned long leftIndex(unsigned long index) const;
    unsigned long rightIndex(unsigned long index) const;

    std::shared_ptr<KeyPackImpl> impl_;
    unsigned long numSlots_;
};

} // namespace Torvo
