#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "core/Integers.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "encoding/Encoding.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "evaluator/KeySwitcher.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plaintext.hpp>

#include <complex>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Torvo {

/// A complex constant in RNS form; without the imaginary part where that is zero.
struct EncodedConstant {
    LevelledElement real;
    std::optional<LevelledElement> imag;

    /// Calls `use` with the parts that are present.
    template <class Use>
    void apply(Use&& use) const {
        imag ? use(real, *imag) : use(real);
    }
};

/// The implementation of `HomEvaluator`, whose documentation holds for the members of the same name. Spread
/// over the units HomEvaluatorMessage, HomEvaluatorPlaintext, HomEvaluatorLinear, HomEvaluatorMult and
/// HomEvaluatorRotation.
class HomEvaluatorImpl {
public:
    HomEvaluatorImpl(const Context& context, const std::string& keyDirPath);
    HomEvaluatorImpl(const Context& context, KeyPack keyPack);

    const Context& getContext() const { return context_; }
    const KeyPack& getKeyPack() const { return keyPack_; }
    const std::shared_ptr<EnDecoder>& getEnDecoder() const { return enDecoder_; }
    const KeySwitcher& getKeySwitcher() const { return *keySwitcher_; }

    // ---- messages

    void negate(const Message& in, Message& out) const;
    void add(const Message& in, std::complex<double> c, Message& out) const;
    void add(const Message& a, const Message& b, Message& out) const;
    void sub(const Message& in, std::complex<double> c, Message& out) const;
    void sub(const Message& a, const Message& b, Message& out) const;
    void mult(const Message& in, std::complex<double> c, Message& out) const;
    void mult(const Message& a, const Message& b, Message& out) const;
    void square(const Message& in, Message& out) const;
    void multImagUnit(const Message& in, Message& out) const;
    void leftRotate(const Message& in, u64 index, Message& out) const;
    void rightRotate(const Message& in, u64 index, Message& out) const;
    void conjugate(const Message& in, Message& out) const;
    void leftRotateReduce(const Message& in, u64 gap, u64 count, Message& out) const;
    void rightRotateReduce(const Message& in, u64 gap, u64 count, Message& out) const;

    // ---- plaintexts and both kinds of ciphertexts alike

    template <Owing Operand>
    void negate(const Operand& in, Operand& out) const;
    template <Owing Operand>
    void add(const Operand& in, std::complex<double> c, Operand& out) const;
    template <Owing Operand>
    void sub(const Operand& in, std::complex<double> c, Operand& out) const;
    template <Owing Operand>
    void multWithoutRescale(const Operand& in, std::complex<double> c, Operand& out) const;
    template <Owing Operand>
    void multImagUnit(const Operand& in, Operand& out) const;
    template <Owing Operand>
    void multInteger(const Operand& in, long n, Operand& out) const;
    template <Owing Operand>
    void rescale(Operand& in_out) const;
    template <Owing Operand>
    void inverseRescale(Operand& in_out) const;

    // ---- plaintexts

    void add(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void sub(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void mult(const Plaintext& in, std::complex<double> c, Plaintext& out) const;
    void mult(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void multWithoutRescale(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void square(const Plaintext& in, Plaintext& out) const;
    void relevel(const Plaintext& in, u64 targetLevel, Plaintext& out) const;
    /// `index` may be any number of slots of the ring.
    void leftRotate(const Plaintext& in, u64 index, Plaintext& out) const;
    void rightRotate(const Plaintext& in, u64 index, Plaintext& out) const;
    void conjugate(const Plaintext& in, Plaintext& out) const;

    // ---- ciphertexts, linear operations

    template <EncryptionType E>
    void add(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void add(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void add(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void sub(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const;

    /// Sums of ciphertexts whose levels the caller knows to be equal. The elements that the shorter operand
    /// lacks count as zero.
    /// @throws RuntimeException of `utils::requireMatching`; "Operands have different mod-up states."
    template <EncryptionType E>
    void addWithoutCheck(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                         CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void subWithoutCheck(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                         CiphertextBase<E>& out) const;

    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void mult(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void multWithoutRescale(const CiphertextBase<E>& in, const Plaintext& plaintext,
                            CiphertextBase<E>& out) const;

    template <EncryptionType E>
    void levelDown(const CiphertextBase<E>& in, u64 targetLevel, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void levelDownOne(const CiphertextBase<E>& in, CiphertextBase<E>& out) const;

    // ---- ciphertexts, products

    void tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void relinearize(const Ciphertext& in, Ciphertext& out) const;
    void multWithoutRescale(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void mult(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;
    void square(const Ciphertext& in, Ciphertext& out) const;
    /// Sum of the products of [plainBegin, plainEnd) with the ciphertexts from `cipherBegin` on, owing one
    /// rescale.
    /// @throws RuntimeException "Operand is empty so device is not defined"; for each ciphertext "Size should
    ///         be 2", then "The operand have to encode the message on its slots"; "Operands have different
    ///         levels."
    void innerProduct(const Plaintext* plainBegin, const Plaintext* plainEnd, const Ciphertext* cipherBegin,
                      Ciphertext& out) const;

    // ---- ciphertexts at a lower level than their own
    // The rows above `level` are passed over. What is left has the scale of the operand's own level, which the
    // caller has to account for.

    /// `in` at `level` times `c`, owing one rescale.
    void multAtLevel(const Ciphertext& in, std::complex<double> c, u64 level, Ciphertext& out) const;
    /// The same with a number of its own for each slot.
    void multAtLevel(const Ciphertext& in, const Message& factors, u64 level, Ciphertext& out) const;
    /// The sum of cts[k] at `level` times c[k], owing one rescale: the words of the sum of the products, in one pass.
    /// There is at least one; the output may be one of them.
    void sumMultiplesAtLevel(const std::vector<const Ciphertext*>& cts,
                             const std::vector<std::complex<double>>& c, u64 level, Ciphertext& out) const;
    /// The raw product of two ciphertexts of two elements at the lower of their levels, owing one rescale.
    void tensorAtLowerLevel(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    // ---- ciphertexts, rotations

    enum class Direction { Left, Right };

    void leftRotate(const Ciphertext& in, u64 index, Ciphertext& out) const;
    void rightRotate(const Ciphertext& in, u64 index, Ciphertext& out) const;
    /// `outs[k]` is `in` rotated to the left by `indices[k]`, with the same words as single rotations and one
    /// decomposition for all of them. Needs the key of every index that is not 0.
    /// @throws RuntimeException as the single form; "Failed to load the left rotation key for index " and the
    ///         index
    void leftRotate(const Ciphertext& in, const std::vector<u64>& indices,
                    std::vector<Ciphertext>& outs) const;
    /// As that, in either direction and with indices modulo the slots in use; all missing keys are named.
    void rotate(Direction direction, const Ciphertext& in, const std::vector<u64>& indices,
                std::vector<Ciphertext>& outs) const;
    /// The key, in use as long as it is held, whatever happens to the pack.
    /// @throws RuntimeException "Failed to load the left rotation key for index " and the index
    std::shared_ptr<EvaluationKey> leftRotationKey(u64 index) const;
    /// Names every index, but 0, that has no key.
    /// @throws RuntimeException "Failed to load the left rotation key for index " and the index; "Failed to load the
    ///         left rotation keys for indices " and all of them, in ascending order
    void requireLeftRotationKeys(const std::vector<u64>& indices) const;
    void conjugate(const Ciphertext& in, Ciphertext& out) const;
    void killImag(const Ciphertext& in, Ciphertext& out) const;
    void leftRotateReduce(const Ciphertext& in, u64 gap, u64 count, Ciphertext& out) const;
    void rightRotateReduce(const Ciphertext& in, u64 gap, u64 count, Ciphertext& out) const;
    void rotSum(const std::vector<Ciphertext>& cts, const std::vector<u64>& indices, Ciphertext& out) const;
    /// `index` as out[0] - out[1] + out[2] - ... of falling powers of two, an odd number `count` of them;
    /// none for 0. `index` is at most 2^63.
    void getRotIdxDecomposition(const u64& index, std::vector<u64>& out, u64& count) const;

private:
    // HomEvaluatorImpl.cpp
    template <class... Operands>
    void requireOwn(const Operands&... operands) const {
        requireOfRing(context_, operands...);
    }
    EncodedConstant encodeConstant(std::complex<double> c, u64 level, int rescale_counter,
                                   const Device& device) const;
    Encoding reencode(const Plaintext& plaintext, u64 level, int rescale_counter) const;
    long galoisElement(u64 index, const Device& device) const;

    // HomEvaluatorPlaintext.cpp
    template <class Sign>
    void combine(const Plaintext& a, const Plaintext& b, Plaintext& out) const;
    void applyAutomorphism(const Plaintext& in, long g, Plaintext& out) const;

    // HomEvaluatorLinear.cpp
    template <class Operand, class... Constant>
    void multElements(const Operand& in, Operand& out, const Constant&... constant) const;
    template <class Operand>
    void multUnsigned(const Operand& in, u64 n, Operand& out) const;
    template <EncryptionType E>
    void multIntegral(const CiphertextBase<E>& in, double n, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void multGaussianInteger(const CiphertextBase<E>& in, double re, double im, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void multEncoded(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    template <EncryptionType E>
    void multEncoded(const CiphertextBase<E>& in, Encoding encoding, CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combineEncoded(const CiphertextBase<E>& in, const Plaintext& plaintext,
                        CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combineEncoded(const CiphertextBase<E>& in, Encoding encoding, CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combine(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combine(const CiphertextBase<E>& in, const Plaintext& plaintext, CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combine(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const;
    template <class Sign, EncryptionType E>
    void combineElements(const CiphertextBase<E>& a, const CiphertextBase<E>& b,
                         CiphertextBase<E>& out) const;

    // HomEvaluatorMult.cpp
    void tensorOfAnyLength(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    // HomEvaluatorRotation.cpp
    void requireRotatable(const Ciphertext& in) const;
    void composeRotation(const Ciphertext& in, u64 index, Ciphertext& out) const;
    Ciphertext applyAutomorphism(const Ciphertext& in, long g, EvaluationKey& key) const;
    Ciphertext plainSum(const std::vector<Ciphertext>& cts) const;
    Ciphertext switchedSum(const std::vector<Ciphertext>& cts, const std::vector<u64>& indices) const;
    void rotate(Direction direction, const Ciphertext& in, u64 index, Ciphertext& out) const;
    void rotateReduce(Direction direction, const Ciphertext& in, u64 gap, u64 count, Ciphertext& out) const;
    Ciphertext reducePowerOfTwo(Direction direction, const Ciphertext& in, u64 gap, u64 count) const;
    Ciphertext reduceThreefold(Direction direction, const Ciphertext& in, u64 gap, u64 count) const;
    Ciphertext reduceBySignedPowers(Direction direction, const Ciphertext& in, u64 gap, u64 count) const;

    Context context_;
    KeyPack keyPack_;
    std::shared_ptr<ConstantEnDecoder> constantEnDecoder_;
    std::shared_ptr<EnDecoder> enDecoder_;
    std::shared_ptr<KeySwitcher> keySwitcher_;
};

/// A copy of `message` with its slots moved to the right by `shift`, cyclically; to the left when negative.
Message rightRotate(const Message& message, long shift);

} // namespace Torvo
