#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/LinearTransform.hpp>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Torvo {

class EncodedTransformImpl;

/// A linear transform, encoded for ciphertexts of one ring, number of slots and level. Encoding takes several times
/// as long as applying, so it is done once; the encoded form may be saved.
///
/// Memory: level + 1 rows of the ring degree for each rotation, and one for each temporary prime. Each row has 8 bytes
/// a number: on `FGb` 9 MiB for each rotation at level 12.
///
/// The rotations are done by baby and giant steps: of r rotations about the square root of r are made, hoisted, from
/// one decomposition of the ciphertext; their products with the diagonals are summed before anything is divided by
/// the temporary primes; and each of about as many sums is rotated as a whole. Which steps follows from ring, slots,
/// level and options, by the cost of their key switches. A later version may choose otherwise and need other keys; what
/// was saved keeps its steps, and so the words of its results.
///
/// Copies share the data, which never change. Any number of threads may apply one.
class TORVO_API EncodedTransform {
public:
    /// Empty, to assign to or to load into.
    /// @throws RuntimeException "The context is null. Make one with makeContext."
    explicit EncodedTransform(const Context& context);
    /// For ciphertexts with 2^log_slots slots in use, which come to `level` or above it.
    /// @throws RuntimeException "The context is null. Make one with makeContext."; with a text that begins with
    ///         "[LinearTransform] ", in this order: for more slots than the ring has; fewer slots than the transform
    ///         maps; level 0 or a level above the chain; fewer keys than any split into steps needs. "[encode] Cannot
    ///         encode the ..." for numbers that are too large for the level
    EncodedTransform(const Context& context, const LinearTransform& transform, unsigned long log_slots,
                     unsigned long level, const TransformOptions& options = {});

    const Context& getContext() const;
    /// Whether nothing was encoded, assigned or loaded yet.
    bool isEmpty() const;
    /// 0 when empty, as the next.
    unsigned long getLogSlots() const;
    unsigned long getLevel() const;
    /// The indices of the left rotation keys that it needs, in ascending order: none, when empty.
    std::vector<unsigned long> getRotationIndices() const;

    /// Writes the transform of `in` to `out`, at one level below that of this object, with the same slots in use and
    /// nothing owed. A ciphertext above that level is brought down to it first (`HomEvaluator::levelDown`). `out` may
    /// be `in`, and is unchanged where the call is refused.
    ///
    /// The error that it adds is that of one key switch, times the root of the sum of squares of the row, and those of
    /// encoding and rescale; docs/noise.md.
    /// @throws RuntimeException in this order: "[EncodedTransform] It is empty, so there is nothing to apply or save;
    ///         assign one that was encoded, or load a file first"; "the transform is of another ring: " and so on;
    ///         "The operand have to encode the message on its slots"; "Size should be 2"; "The Operand should have
    ///         rescale counter zero"; "[EncodedTransform] the ciphertext is at level 2, but the transform is encoded
    ///         for level 3; encode it for level 2, or give a ciphertext of level 3 or above", with the numbers at hand;
    ///         "[EncodedTransform] the ciphertext has log slots 4, but the transform is encoded for 5; encode it for 4,
    ///         or set the log slots of the ciphertext to 5", with the numbers at hand; "Operands are not of the ring of
    ///         the generated context."; "Failed to load the left rotation key for index " and the index, or "Failed to
    ///         load the left rotation keys for indices " and all that are missing
    void apply(const HomEvaluator& evaluator, const Ciphertext& in, Ciphertext& out) const;
    /// Several transforms of one ciphertext: `outs[k]` is that of `transforms[k]`, with the words of single calls.
    /// They share the decomposition, and each baby step that several of them need. All are encoded for one level and
    /// number of slots. `outs` gets as many ciphertexts as there are transforms, and may hold `in`.
    /// @throws RuntimeException as the single form, for the first transform of which that is so; after "Size should be
    ///         2", "[EncodedTransform] the transforms of one call differ in level or log slots: 3 and 5, but 2 and 5;
    ///         encode them alike", with the numbers at hand; all missing keys are named
    static void apply(const HomEvaluator& evaluator, const Ciphertext& in,
                      const std::vector<EncodedTransform>& transforms, std::vector<Ciphertext>& outs);

    /// The sum over k of the transforms `transforms[k]` of `ins[k]`, divided by the temporary primes and rescaled once.
    /// The transforms are encoded for one level and number of slots; the levels of the inputs may differ. `out` may be
    /// an input.
    /// @throws RuntimeException "applySum is given no ciphertext; give at least one"; "applySum is given 3 ciphertexts,
    ///         and 2 to go with them; give as many of both", with the numbers at hand; as the form for one ciphertext,
    ///         for the first input of which that is so; "[EncodedTransform] the transforms of one call differ in level
    ///         or log slots: " and so on; all missing keys are named
    static void applySum(const HomEvaluator& evaluator, const std::vector<Ciphertext>& ins,
                         const std::vector<EncodedTransform>& transforms, Ciphertext& out);

    /// Format: docs/files.md.
    /// @throws RuntimeException "[EncodedTransform] It is empty" and so on; "Cannot open file " and the path; "Cannot
    ///         finish writing file ", the path and the reason. The file that stood there still stands then
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    /// @throws RuntimeException as `save` for an empty object
    unsigned long savedSize() const;
    /// Takes what a context of the same ring has saved. A failed load leaves the object as it was.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." when the file is of another ring or another kind; the archive's exception on a
    ///         short read
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    std::shared_ptr<const EncodedTransformImpl> impl_;
};

} // namespace Torvo
