#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <complex>
#include <memory>
#include <string>
#include <vector>

namespace Torvo {

class HomEvaluatorImpl;

/// Computes on ciphertexts. The same member names exist for plaintexts and for messages, so that a circuit
/// can be traced in the clear.
///
/// Every operation writes its last argument, which may be the same object as an input. The output takes log
/// slots, rescale counter and encoding type from the first operand, except where a member says otherwise. All
/// members are const and may run at once on different outputs; each shares its work among OpenMP threads.
///
/// No object stores a scale: data at level l that owes no rescale has the scale 2^log_scale[l] of
/// `getDefaultScaleFactorList`. A product owes one rescale, which `mult` pays at once and
/// `multWithoutRescale` leaves to the caller. The operands of an addition must owe equally many rescales.
///
/// Ciphertext members of the linear family are defined for both encryption types; those that need a key
/// (`mult` of ciphertexts, rotations, conjugation) for RLWE only.
///
/// @throws RuntimeException from any member, with these texts:
///   - "The operand have to encode the message on its slots": coefficient-encoded operand;
///   - "The operands have to encode the message on its slots": the same, in `sub`, `tensor` and `mult` of two
///     ciphertexts;
///   - "Two operands have different logSlots", "Two operands have different RescaleCounter",
///     "Two operands are in different devices", "Two operands are encoding messages in different way":
///     operands that do not match, tested in this order;
///   - "The level of the operand is zero": no prime left to rescale by;
///   - "The Operand should have rescale counter zero", "The Operands should have rescale counter zero":
///     multiplication of operands that owe a rescale;
///   - "Operands have different levels.": in operations that do not match the levels themselves;
///   - "Message that is GPU-allocated is not supported.": messages are processed on the CPU;
///   - "[encode] Cannot encode the ...": a constant or a message, combined with a plaintext or a ciphertext,
///     is too large for level and scale, infinite or NaN (`EnDecoder` gives the rule and the whole text; "the
///     number" is a part of the constant). The output is then unchanged;
///   - "Operands are not of the ring of the generated context.": an operand of another degree, of other
///     primes, or at a level that its chain does not have (`setLevel` does not prevent that). The ring
///     counts, not the context: operands of a context that was made twice or loaded from its file, or of a
///     preset with the same primes, are accepted. These two rules are tested last, before anything is
///     written.
class TORVO_API HomEvaluator {
public:
    /// An evaluator with the keys of a key directory. Each key is read when it is first needed, the
    /// multiplication key at once if the directory has one.
    /// @throws RuntimeException "Cannot find path " and the path
    HomEvaluator(const Context& context, const std::string& keyDirPath);
    /// An evaluator that shares `keyPack`. Its keys must have been made with this context, or with one of the
    /// same degree, the same primes, the same split into ciphertext and temporary primes, and the same number
    /// of digits.
    /// @throws RuntimeException "keys are of another ring: degree 64, 4 + 2 primes, 2 digits (CUSTOM), but
    ///         the evaluator's context is degree 64, 4 + 1 primes, 4 digits (CUSTOM); make the evaluator with
    ///         the context the keys were made with", with the numbers of the two at hand
    HomEvaluator(const Context& context, const KeyPack& keyPack);

    /// @name Messages
    /// Slot by slot, in double precision; the number of slots is that of the first operand.
    /// @{
    void negate(const Message& in, Message& out) const;
    void add(const Message& in, std::complex<double> c, Message& out) const;
    void add(const Message& a, const Message& b, Message& out) const;
    void sub(const Message& in, std::complex<double> c, Message& out) const;
    void sub(const Message& a, const Message& b, Message& out) const;
    void mult(const Message& in, std::complex<double> c, Message& out) const;
    void mult(const Message& a, const Message& b, Message& out) const;
    void square(const Message& in, Message& out) const;
    void multImagUnit(const Message& in, Message& out) const;
    /// Slot i of the output is slot i + index of the input, cyclically; any index is allowed.
    void leftRotate(const Message& in, unsigned long index, Message& out) const;
    void rightRotate(const Message& in, unsigned long index, Message& out) const;
    void conjugate(const Message& in, Message& out) const;
    /// Sum of the rotations by 0, gap, ..., (count - 1) * gap, with at most 2 log2(count) additions per slot;
    /// a count of 0 gives the message itself. Gap and count may be any numbers.
    void leftRotateReduce(const Message& in, unsigned long gap, unsigned long count, Message& out) const;
    void rightRotateReduce(const Message& in, unsigned long gap, unsigned long count, Message& out) const;
    /// @}

    /// @name Plaintexts
    /// @{
    void negate(const Plaintext& in, Plaintext& out) const;
    void add(const Plaintext& in, std::complex<double> c, Plaintext& out) const;
    /// Levels must be equal.
    void add(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void sub(const Plaintext& in, std::complex<double> c, Plaintext& out) const;
    void sub(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    /// Spends one level.
    void mult(const Plaintext& in, std::complex<double> c, Plaintext& out) const;
    void mult(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void square(const Plaintext& in, Plaintext& out) const;
    /// Multiplies by i. Spends no level.
    void multImagUnit(const Plaintext& in, Plaintext& out) const;
    /// Multiplies by an integer. Spends no level; the error is multiplied too.
    void multInteger(const Plaintext& in, long n, Plaintext& out) const;
    /// Divides by the top prime: one owed rescale is paid, and the level falls by one.
    /// @throws RuntimeException "[rescale] Rescale Counter of the Plaintext is zero or less"
    void rescale(Plaintext& in_out) const;
    /// Multiplies by the prime of the next level: one rescale more is owed, and the level rises by one.
    /// @throws RuntimeException
    ///   "[inverseRescale] Cannot inverseRescale when the level is greater than or equal to the maximum
    ///   level"
    void inverseRescale(Plaintext& in_out) const;
    /// Decodes and encodes again at `targetLevel`.
    /// @throws RuntimeException "[relevel] target_level too big"
    void relevel(const Plaintext& in, unsigned long targetLevel, Plaintext& out) const;
    /// As on messages. No key is needed.
    void leftRotate(const Plaintext& in, unsigned long index, Plaintext& out) const;
    void rightRotate(const Plaintext& in, unsigned long index, Plaintext& out) const;
    void conjugate(const Plaintext& in, Plaintext& out) const;
    /// @}

    /// @name Ciphertexts, linear operations
    /// @{
    template <EncryptionType E>
    void negate(const CiphertextBase<E>& in, CiphertextBase<E>& out) const;

    /// Adds a constant to every slot, at any level and rescale counter.
    template <EncryptionType E>
    void add(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void add(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    /// A plaintext at another level is decoded and encoded again at that of the ciphertext.
    template <EncryptionType E>
    void add(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    /// If the levels differ, the operand at the higher one is brought down by `levelDown`.
    /// Coefficient-encoded operands of equal level may be added.
    /// @throws RuntimeException "Cannot add different level modUp-ed ciphertexts"
    template <EncryptionType E>
    void add(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const;

    template <EncryptionType E>
    void sub(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    /// @throws RuntimeException "Cannot sub different level modUp-ed ciphertexts"
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const;

    /// Multiplies by a constant. Spends one level, or none when real and imaginary part are both within 1e-8
    /// of integers. In that case both parts are rounded to those integers, so the value changes too: 2 + 5e-9
    /// doubles, 1e-9 gives an encryption of 0, and a slot may be off by 1.5e-8 times its modulus.
    /// `multWithoutRescale` followed by `rescale` multiplies by the constant as it is.
    /// @throws RuntimeException "[mult] Cannot multiply by the integer " and the part ": the magnitude should
    ///         be at most 9223372036854774784. Give a smaller number.", for such a part that reaches 2^63
    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const;
    /// Slot-wise product with a message; spends one level.
    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    /// A plaintext at another level is decoded and encoded again at that of the ciphertext.
    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    /// The product, which owes one rescale more; no level is spent yet. The encoding type of `out` stays
    /// unchanged.
    /// @throws RuntimeException "Rescale counter should be less than or equal to the level" when the level
    ///         does not allow that rescale
    template <EncryptionType E>
    void multWithoutRescale(const CiphertextBase<E>& in, std::complex<double> c,
                            CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void multWithoutRescale(const CiphertextBase<E>& in, const Plaintext& plaintext,
                            CiphertextBase<E>& out) const;

    /// Multiplies by i. Spends no level.
    template <EncryptionType E>
    void multImagUnit(const CiphertextBase<E>& in, CiphertextBase<E>& out) const;
    /// Multiplies by an integer. Spends no level; the error is multiplied too.
    template <EncryptionType E>
    void multInteger(const CiphertextBase<E>& in, long n, CiphertextBase<E>& out) const;

    /// Divides by the top prime: one owed rescale is paid, and the level falls by one.
    /// @throws RuntimeException "[rescale] Rescale Counter of the Ciphertext is zero or less"
    template <EncryptionType E>
    void rescale(CiphertextBase<E>& in_out) const;
    /// Multiplies by the prime of the next level: one rescale more is owed, and the level rises by one.
    /// @throws RuntimeException
    ///   "[inverseRescale] Cannot inverseRescale when the level is greater than or equal to the maximum
    ///   level"
    void inverseRescale(Ciphertext& in_out) const;

    /// Brings a ciphertext to `targetLevel`, at the cost of one multiplication by a constant.
    /// @throws RuntimeException "[level down] target level is greater than level of Ciphertext."
    template <EncryptionType E>
    void levelDown(const CiphertextBase<E>& in, unsigned long targetLevel, CiphertextBase<E>& out) const;
    /// One level down, by a multiplication with 1.0.
    template <EncryptionType E>
    void levelDownOne(const CiphertextBase<E>& in, CiphertextBase<E>& out) const;
    /// @}

    /// @name Ciphertexts, products
    /// @{
    /// The raw product, of numPoly(a) + numPoly(b) - 1 elements; owes what both owed and one rescale more.
    void tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    /// Removes the top element, which belongs to the highest power of the secret, by a key switch. The result
    /// has one element fewer; value, level and counter stay. A ciphertext of more than three elements takes
    /// one call for each element above two, all with the one multiplication key.
    /// @throws RuntimeException "[relinearize] the length of the input ciphertext should be >= 3."; "The
    ///         generated context does not support the operation with current operands; check the device.";
    ///         "Failed to load the multiplication key"
    void relinearize(const Ciphertext& in, Ciphertext& out) const;
    /// `tensor` and `relinearize`, owing one rescale. Levels must be equal.
    /// @throws RuntimeException "Size > 2 is not supported yet"
    void multWithoutRescale(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    /// Slot-wise product; spends one level. If the levels differ, the operand at the higher one is brought
    /// down first.
    void mult(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void square(const Ciphertext& in, Ciphertext& out) const;
    /// @}

    /// @name Ciphertexts, rotations
    /// Operands have two elements ("Size should be 2"). On a device that the context has no table for,
    /// std::out_of_range "map::at".
    /// @{
    /// Slot i of the output is slot i + index of the input, cyclically; the index is taken modulo the slots
    /// in use. If the key for it is missing, the rotation is composed of rotations by powers of two, at one
    /// key switch each.
    /// @throws RuntimeException "[Load Rotation Key] no left rotation key for index " and the index, when a
    ///         key for those is missing too; the output is then unchanged
    void leftRotate(const Ciphertext& in, unsigned long index, Ciphertext& out) const;
    void rightRotate(const Ciphertext& in, unsigned long index, Ciphertext& out) const;
    /// `outs[k]` is `in` rotated by `indices[k]`, for every k, with the words of single rotations. The costly half
    /// of a rotation is done once for all of them: three take the time of about two. `outs` gets as many
    /// ciphertexts as there are indices, and may hold `in`. Indices are taken modulo the slots in use; each that is
    /// not 0 needs its own key.
    /// @throws RuntimeException "Failed to load the left rotation key for index " and the index, or "Failed to
    ///         load the left rotation keys for indices " and all that are missing, in ascending order, before
    ///         anything is written. A rotation to the right needs the key for the number of slots of the ring less
    ///         the index
    void leftRotate(const Ciphertext& in, const std::vector<unsigned long>& indices,
                    std::vector<Ciphertext>& outs) const;
    void rightRotate(const Ciphertext& in, const std::vector<unsigned long>& indices,
                     std::vector<Ciphertext>& outs) const;
    /// The result is encoded on slots. The operand's encoding type is not checked.
    /// @throws RuntimeException "Failed to load the conjugation key"
    void conjugate(const Ciphertext& in, Ciphertext& out) const;
    /// The real parts. Spends one level.
    void killImag(const Ciphertext& in, Ciphertext& out) const;
    /// Sum of the rotations by 0, gap, ..., (count - 1) * gap, with about log2(count) rotations; a count of 0
    /// gives the ciphertext itself. `count` is at most 2^63. Indices are taken modulo the slots of the ring,
    /// not modulo those in use: a sum that rotates a sparse ciphertext by more than its slots in use needs
    /// keys for indices above their number.
    void leftRotateReduce(const Ciphertext& in, unsigned long gap, unsigned long count,
                          Ciphertext& out) const;
    void rightRotateReduce(const Ciphertext& in, unsigned long gap, unsigned long count,
                           Ciphertext& out) const;
    /// Sum over k of `cts[k]` rotated to the left by `indices[k]`, with one division by the temporary primes
    /// for all of them. Needs the key of every index that is not 0. All ciphertexts must have the same level
    /// and match as operands of an addition do.
    /// @throws RuntimeException "ctxt and rot_idx have different size.";
    ///         "Failed to load the left rotation key for index " and the index
    void rotSum(const std::vector<Ciphertext>& cts, const std::vector<unsigned long>& indices,
                Ciphertext& out) const;
    /// @}

    const Context& getContext() const { return context_; }
    const std::shared_ptr<HomEvaluatorImpl>& getImpl() const { return impl_; }

private:
    Context context_;
    std::shared_ptr<HomEvaluatorImpl> impl_;
};

} // namespace Torvo
