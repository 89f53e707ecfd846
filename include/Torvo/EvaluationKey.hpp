#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Torvo {

class EvaluationKeyImpl;
class Polynomial;

/// A switching key: `gadget_rank` pairs of mod-up ring elements that turn a product of a polynomial and one
/// secret into a ciphertext under another. Multiplication, conjugation and rotation keys are all of this
/// class and differ by a one-letter tag. Made by `KeyGenerator`, kept by `KeyPack`.
/// Any number of threads may read one key; `removeExcept` is for its owner.
class TORVO_API EvaluationKey {
public:
    /// Empty, to load into.
    EvaluationKey();
    /// A key of the shape of `context`, all zeros.
    /// @param type           tag of the key kind, see the factories below
    /// @param rotationIndex  left-rotation index of a rotation key, 0 otherwise
    EvaluationKey(const Context& context, char type, unsigned long rotationIndex);
    /// For the library itself.
    explicit EvaluationKey(std::unique_ptr<EvaluationKeyImpl> impl);

    EvaluationKey(EvaluationKey&& other) noexcept;
    EvaluationKey& operator=(EvaluationKey&& other) noexcept;
    ~EvaluationKey();

    const Context& getContext() const;
    char getType() const;
    unsigned long getRotationIndex() const;
    /// The stamp of the ring that the key belongs to.
    unsigned long getContextHash() const;
    /// Number of pairs.
    /// @throws std::out_of_range "map::at" when the key has no copy on the CPU; `save` throws the same then
    unsigned long getGadgetRank() const;

    /// The first of the `gadget_rank` elements on `device` (contiguous).
    /// @throws std::out_of_range "map::at" when the key has no copy there
    Polynomial* getAxIter(const Device& device);
    const Polynomial* getAxIter(const Device& device) const;
    Polynomial* getBxIter(const Device& device);
    const Polynomial* getBxIter(const Device& device) const;

    /// Copies the key to `device` unless it has a copy there.
    /// @throws RuntimeException "Value-device map is empty."
    void copyTo(const Device& device);
    /// Keeps the key on `device` only.
    /// @throws RuntimeException "Value-device map is empty."
    void removeExcept(const Device& device);

    /// Format: docs/files.md; the uniform parts are stored as their seeds.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects."; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

    EvaluationKeyImpl& impl() { return *impl_; }
    const EvaluationKeyImpl& impl() const { return *impl_; }

private:
    std::unique_ptr<EvaluationKeyImpl> impl_;
};

// New keys of each kind, all zeros, to generate or to load into.

/// Tag `m`: switches from s * s to s.
TORVO_API std::unique_ptr<EvaluationKey> makeEmptyMultKey(const Context& context);
/// Tag `c`: switches from the conjugate of s to s.
TORVO_API std::unique_ptr<EvaluationKey> makeEmptyConjKey(const Context& context);
/// Tag `r`: switches from s rotated to the left by `rotationIndex` to s.
TORVO_API std::unique_ptr<EvaluationKey> makeEmptyRotKey(const Context& context, unsigned long rotationIndex);
/// Tag `p`: a packing key.
TORVO_API std::unique_ptr<EvaluationKey> makeEmptyModPackKey(const Context& context);
/// Tag `w`: a ring-switching key.
TORVO_API std::unique_ptr<EvaluationKey> makeEmptyRingSwitchKey(const Context& context);

TORVO_API void save(const EvaluationKey& key, std::ostream& stream);
TORVO_API void load(EvaluationKey& key, std::istream& stream);

} // namespace Torvo
