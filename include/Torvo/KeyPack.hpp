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
/// encapsulation keys. They are in memory, or in a key directory from which each is read when it is first
/// needed.
///
/// A shared handle: copies see the same keys. Any number of threads may use one pack; a key is read from disk
/// once, and reading one rotation key does not delay the reading of another.
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
    KeyPack(const Context& context, const Context& context_sparse);
    KeyPack(const Context& context, const Context& context_sparse, const std::string& keyDirPath);

    /// Read the key from the directory unless it is in memory. A file that is missing or cannot be opened is
    /// not an error; in a pack without a second context the encapsulation key counts as missing. The key in a
    /// file must have the kind and the rotation index that the file name states, and belong to the ring of
    /// the context. After an error the call may be repeated.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects.", or the
    ///         archive's exception, for a bad file
    void loadEncKey() const;
    void loadMultKey() const;
    void loadConjKey() const;
    void loadLeftRotKey(unsigned long index) const;
    void loadRightRotKey(unsigned long index) const;
    void loadSparseSecretEncapsulationKey() const;

    /// Read the key from a stream. It must have the kind and the rotation index that the call names, and
    /// belong to the ring of the context. A rotation key that the pack already holds stays; any other key
    /// replaces the one held. After an error the pack is unchanged.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."; the
    ///         archive's exception on a short read; for an encapsulation key in a pack without a second
    ///         context "[KeyPack] context does not support sparse secret encapsulation"
    void loadEncKey(std::istream& stream) const;
    void loadMultKey(std::istream& stream) const;
    void loadConjKey(std::istream& stream) const;
    void loadLeftRotKey(unsigned long index, std::istream& stream) const;
    void loadRightRotKey(unsigned long index, std::istream& stream) const;
    void loadSparseSecretEncapsulationKey(std::istream& stream) const;

    /// Drop the key from memory; it is read from the directory again when it is next asked for. Who holds it
    /// meanwhile keeps it: its memory is given back with the last holder. A key that is not in memory is none
    /// to drop. So that no key is lost or exchanged, the file is read and compared first: it must be the one
    /// that `save` writes for the key. Until it is read again, the key counts as not loaded: `save` passes it
    /// over, and `KeyGenerator` makes a new one where it is asked for keys that are not there.
    /// @throws RuntimeException "[KeyPack] a key can be unloaded only when it can be read again, but " and
    ///         the reason. In this order: "the pack has no key directory; set one with setKeyDirPath and
    ///         save the pack into it", also without a key in memory; "there is no file " or "another key
    ///         stands in ", the path, "; save the pack into its directory first". For an encapsulation key in
    ///         a pack without a second context "[KeyPack] context does not support sparse secret
    ///         encapsulation". The key stays in memory then
    /// @throws std::out_of_range "map::at" when the key has no copy on the CPU
    void unloadEncKey() const;
    void unloadMultKey() const;
    void unloadConjKey() const;
    void unloadLeftRotKey(unsigned long index) const;
    void unloadRightRotKey(unsigned long index) const;
    void unloadSparseSecretEncapsulationKey() const;
    /// All of them, one after the other; those in front of a refusal are dropped.
    void unload() const;

    /// Whether the key is in memory. Never reads the disk. For a key other than a rotation key the call waits
    /// while another thread is reading that key.
    bool isEncKeyLoaded() const;
    bool isMultKeyLoaded() const;
    bool isConjKeyLoaded() const;
    bool isLeftRotKeyLoaded(unsigned long index) const;
    bool isRightRotKeyLoaded(unsigned long index) const;
    bool isSparseSecretEncapsulationKeyLoaded() const;
    /// Whether the directory has a file for exactly this `index`, which is not reduced modulo the number of
    /// slots.
    bool isLeftRotKeyFileAvailable(unsigned long index) const;

    /// The key, read from the directory if it is not in memory; null when it is in neither place.
    std::shared_ptr<EncryptionKey> getEncKey() const;
    std::shared_ptr<EvaluationKey> getMultKey() const;
    std::shared_ptr<EvaluationKey> getConjKey() const;
    std::shared_ptr<EvaluationKey> getLeftRotKey(unsigned long index) const;
    std::shared_ptr<EvaluationKey> getRightRotKey(unsigned long index) const;
    std::shared_ptr<SparseSecretEncapsulationKey> getSparseSecretEncapsulationKey() const;

    /// Sets the directory to read from, and makes its "PK" if that is missing.
    /// @throws RuntimeException "Cannot find path " and the path, unless it is a directory
    /// @throws std::filesystem::filesystem_error if "PK" cannot be made
    void setKeyDirPath(const std::string& path);
    /// Keeps all keys on `device` only.
    void to(const Device& device);

    /// Calls `setKeyDirPath(path)`, then writes each key held into its file. Each file is replaced as a
    /// whole, but the directory file by file: a reader at the same time may find new keys beside old ones.
    /// @throws RuntimeException as `setKeyDirPath`, and as `EvaluationKey::save`
    void save(const std::string& path);
    /// Writes the pack as one archive (format: docs/files.md).
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Replaces the content of the pack by that of a stream, after all of it has been read. Each key must
    /// have the right kind and belong to the ring of its context; a rotation key is stored under its own
    /// index.
    /// @throws as the loads of single keys from a stream
    void load(std::istream& stream);

    const std::shared_ptr<KeyPackImpl>& getImpl() const { return impl_; }

private:
    unsigned long leftIndex(unsigned long index) const;
    unsigned long rightIndex(unsigned long index) const;

    std::shared_ptr<KeyPackImpl> impl_;
    unsigned long num_slots_;
};

} // namespace Torvo
