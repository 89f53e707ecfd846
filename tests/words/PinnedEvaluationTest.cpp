#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/EnDecoder.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <limits>
#include <sstream>

namespace Torvo {
namespace {

using namespace test;
using Complex = std::complex<double>;

/// The constants for each form of multiplication: whole, real, imaginary, and general.
const Complex constants[] = {{3, 0}, {-2, 1}, {0, -1}, {0.640625, 0}, {0, 0.3}, {-0.7, 0.1}};
constexpr long integers[] = {0, 1, -1, 2, -3, 1000003, -(1L << 40), std::numeric_limits<long>::min()};

std::string rowOf(const std::string& operation, Complex c) {
    std::ostringstream row;
    row << operation << " " << c;
    return row.str();
}

/// Pins the results of operations in outputs of one kind, which held other words before.
template <class T>
class Results {
public:
    Results(PinnedGroup& group, T used) : group_(group), used_(std::move(used)) {}

    template <class Operation>
    void operator()(const std::string& row, Operation operation) const {
        group_.result(row, used_, operation);
    }
    template <class Operation>
    void inPlace(const std::string& row, const T& operand, Operation operation) const {
        group_.result(row, operand, operation);
    }

private:
    PinnedGroup& group_;
    T used_;
};

// ---- messages: doubles, added and multiplied one by one

TEST(PinnedMessages, AreTheSameDoubles) {
    PinnedGroup group("messages");
    const Context& context = contextOf(ParameterPreset::FX);
    const HomEvaluator e(context, KeyPack(context));
    const Message a = slotsOf(5, 1), b = slotsOf(5, 2);
    const Complex c(-0.7, 0.1);
    const Results pin(group, slotsOf(2, 3));
    pin("negate", [&](Message& out) { e.negate(a, out); });
    pin("add constant", [&](Message& out) { e.add(a, c, out); });
    pin("add", [&](Message& out) { e.add(a, b, out); });
    pin("sub constant", [&](Message& out) { e.sub(a, c, out); });
    pin("sub", [&](Message& out) { e.sub(a, b, out); });
    pin("mult constant", [&](Message& out) { e.mult(a, c, out); });
    pin("mult", [&](Message& out) { e.mult(a, b, out); });
    pin("square", [&](Message& out) { e.square(a, out); });
    pin("multImagUnit", [&](Message& out) { e.multImagUnit(a, out); });
    pin("conjugate", [&](Message& out) { e.conjugate(a, out); });
    pin("leftRotate", [&](Message& out) { e.leftRotate(a, 7, out); });
    pin("rightRotate", [&](Message& out) { e.rightRotate(a, 39, out); });
    // Sums of more terms may come to be added in another order.
    for (const u64 count : {0, 1, 2, 3}) {
        const std::string row = std::to_string(count);
        pin("leftRotateReduce " + row, [&](Message& out) { e.leftRotateReduce(a, 3, count, out); });
        pin("rightRotateReduce " + row, [&](Message& out) { e.rightRotateReduce(a, 3, count, out); });
    }
}

// ---- plaintexts

void pinPlaintexts(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " plaintexts");
    const Context& context = contextOf(preset);
    const HomEvaluator e(context, KeyPack(context));
    const u64 top = getEncryptionLevel(context);
    const Plaintext a = wordsOfPlaintext(context, top, 1), b = wordsOfPlaintext(context, top, 2);
    Plaintext owing = wordsOfPlaintext(context, top - 1, 3);
    owing.setRescaleCounter(1);
    const Results pin(group, wordsOfPlaintext(context, 0, 4));
    pin("negate", [&](Plaintext& out) { e.negate(a, out); });
    pin("add", [&](Plaintext& out) { e.add(a, b, out); });
    pin("sub", [&](Plaintext& out) { e.sub(a, b, out); });
    pin("mult", [&](Plaintext& out) { e.mult(a, b, out); });
    pin("square", [&](Plaintext& out) { e.square(a, out); });
    pin("multImagUnit", [&](Plaintext& out) { e.multImagUnit(a, out); });
    for (const long n : integers)
        pin("multInteger " + std::to_string(n), [&](Plaintext& out) { e.multInteger(a, n, out); });
    pin.inPlace("rescale", owing, [&](Plaintext& out) { e.rescale(out); });
    pin.inPlace("inverseRescale", owing, [&](Plaintext& out) { e.inverseRescale(out); });
    pin("leftRotate", [&](Plaintext& out) { e.leftRotate(a, 7, out); });
    pin("rightRotate", [&](Plaintext& out) { e.rightRotate(a, 7, out); });
    pin("conjugate", [&](Plaintext& out) { e.conjugate(a, out); });
}

TEST(PinnedPlaintexts, OfTheToyPreset) {
    pinPlaintexts(ParameterPreset::FX, "FX");
}
TEST(PinnedPlaintextsRealPreset, OfSD3) {
    pinPlaintexts(ParameterPreset::SD3, "SD3");
}
TEST(PinnedPlaintextsRealPreset, OfST7) {
    pinPlaintexts(ParameterPreset::ST7, "ST7");
}

/// Numbers come in at a scale that is a power of 2.
void pinPlaintextNumbers(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " plaintexts and numbers");
    const Context& context = contextOf(preset);
    const HomEvaluator e(context, KeyPack(context));
    const u64 top = getEncryptionLevel(context);
    const Plaintext a = wordsOfPlaintext(context, top, 1);
    const Plaintext encoded = EnDecoder(context).encode(slotsOf(getLogFullSlots(context), 1), top, 0);
    const Results pin(group, wordsOfPlaintext(context, 0, 4));
    for (const Complex c : constants) {
        pin(rowOf("add", c), [&](Plaintext& out) { e.add(a, c, out); });
        pin(rowOf("sub", c), [&](Plaintext& out) { e.sub(a, c, out); });
        pin(rowOf("mult", c), [&](Plaintext& out) { e.mult(a, c, out); });
    }
    pin("relevel downwards", [&](Plaintext& out) { e.relevel(encoded, top - 1, out); });
    const Plaintext low = EnDecoder(context).encode(slotsOf(2, 2), 0, 0);
    pin("relevel upwards", [&](Plaintext& out) { e.relevel(low, top, out); });
}

// ---- ciphertexts of both types, without keys

template <EncryptionType E>
void pinLinear(PinnedGroup& group, const Context& context, bool isModUp) {
    using Ciphertext = CiphertextBase<E>;
    const HomEvaluator e(context, KeyPack(context));
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<E>(context, top, 1, isModUp);
    const auto b = wordsOfCiphertext<E>(context, top, 2, isModUp);
    auto longer = a;
    longer.setNumPoly(a.getNumPoly() + 1);
    const std::string state = isModUp ? ", mod-up" : "";
    const Results pin(group, wordsOfCiphertext<E>(context, 0, 3));
    pin("negate" + state, [&](Ciphertext& out) { e.negate(a, out); });
    pin("add" + state, [&](Ciphertext& out) { e.add(a, b, out); });
    pin("add, of another size" + state, [&](Ciphertext& out) { e.add(b, longer, out); });
    pin("sub" + state, [&](Ciphertext& out) { e.sub(a, b, out); });
    pin("sub, of another size" + state, [&](Ciphertext& out) { e.sub(b, longer, out); });
    pin("multImagUnit" + state, [&](Ciphertext& out) { e.multImagUnit(a, out); });
    for (const long n : integers)
        pin("multInteger " + std::to_string(n) + state, [&](Ciphertext& out) { e.multInteger(a, n, out); });
}

template <EncryptionType E>
void pinPlainOperands(PinnedGroup& group, const Context& context) {
    using Ciphertext = CiphertextBase<E>;
    const HomEvaluator e(context, KeyPack(context));
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<E>(context, top, 1);
    auto owing = wordsOfCiphertext<E>(context, top - 1, 2);
    owing.setRescaleCounter(1);
    const Plaintext plaintext = wordsOfPlaintext(context, top, 3);
    const Results pin(group, wordsOfCiphertext<E>(context, 0, 4));
    pin("add plaintext", [&](Ciphertext& out) { e.add(a, plaintext, out); });
    pin("sub plaintext", [&](Ciphertext& out) { e.sub(a, plaintext, out); });
    pin("mult plaintext", [&](Ciphertext& out) { e.mult(a, plaintext, out); });
    pin("multWithoutRescale plaintext", [&](Ciphertext& out) { e.multWithoutRescale(a, plaintext, out); });
    pin.inPlace("rescale", owing, [&](Ciphertext& out) { e.rescale(out); });
    if constexpr (E == RLWE)
        pin.inPlace("inverseRescale", owing, [&](Ciphertext& out) { e.inverseRescale(out); });
}

template <EncryptionType E>
void pinCiphertexts(const Context& context, const std::string& name) {
    PinnedGroup group(name + " ciphertexts");
    pinLinear<E>(group, context, false);
    pinLinear<E>(group, context, true);
    pinPlainOperands<E>(group, context);
}

TEST(PinnedCiphertexts, OfTheToyPreset) {
    pinCiphertexts<RLWE>(contextOf(ParameterPreset::FX), "FX");
}
TEST(PinnedCiphertextsRealPreset, OfSD3) {
    pinCiphertexts<RLWE>(contextOf(ParameterPreset::SD3), "SD3");
}
TEST(PinnedCiphertextsRealPreset, OfST7) {
    pinCiphertexts<RLWE>(contextOf(ParameterPreset::ST7), "ST7");
}
TEST(PinnedCiphertexts, OfAModule) {
    pinCiphertexts<MLWE>(familyModule(6, 3, 2), "module");
}

template <EncryptionType E>
void pinCiphertextNumbers(PinnedGroup& group, const Context& context) {
    using Ciphertext = CiphertextBase<E>;
    const HomEvaluator e(context, KeyPack(context));
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<E>(context, top, 1), low = wordsOfCiphertext<E>(context, top - 1, 2);
    const Message message = slotsOf(getLogFullSlots(context), 5);
    const Plaintext elsewhere = EnDecoder(context).encode(message, top - 1, 0);
    const Results pin(group, wordsOfCiphertext<E>(context, 0, 4));
    for (const Complex c : constants) {
        pin(rowOf("add", c), [&](Ciphertext& out) { e.add(a, c, out); });
        pin(rowOf("sub", c), [&](Ciphertext& out) { e.sub(a, c, out); });
        pin(rowOf("mult", c), [&](Ciphertext& out) { e.mult(a, c, out); });
        pin(rowOf("multWithoutRescale", c), [&](Ciphertext& out) { e.multWithoutRescale(a, c, out); });
    }
    pin("add message", [&](Ciphertext& out) { e.add(a, message, out); });
    pin("sub message", [&](Ciphertext& out) { e.sub(a, message, out); });
    pin("mult message", [&](Ciphertext& out) { e.mult(a, message, out); });
    pin("add plaintext of another level", [&](Ciphertext& out) { e.add(a, elsewhere, out); });
    pin("sub plaintext of another level", [&](Ciphertext& out) { e.sub(a, elsewhere, out); });
    pin("mult plaintext of another level", [&](Ciphertext& out) { e.mult(a, elsewhere, out); });
    pin("add, of another level", [&](Ciphertext& out) { e.add(a, low, out); });
    pin("sub, of another level", [&](Ciphertext& out) { e.sub(low, a, out); });
    pin("levelDown to 0", [&](Ciphertext& out) { e.levelDown(a, 0, out); });
    pin("levelDownOne", [&](Ciphertext& out) { e.levelDownOne(a, out); });
}

// ---- ciphertexts, with keys

/// Both products, conjugation, rotations by 1, 2, 4 and 8 to either side.
KeyPack evaluationKeys(const Context& context) {
    const KeyGenerator generator(context, drawnFrom(1, [&] { return SecretKey(context); }));
    drawnFrom(2, [&] { generator.genMultKey(); });
    drawnFrom(3, [&] { generator.genConjKey(); });
    for (const u64 index : {1, 2, 4, 8}) {
        drawnFrom(10 + index, [&] { generator.genLeftRotKey(index); });
        drawnFrom(20 + index, [&] { generator.genRightRotKey(index); });
    }
    return generator.getKeyPack();
}

void pinProducts(PinnedGroup& group, const HomEvaluator& e) {
    const Context& context = e.getContext();
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<RLWE>(context, top, 1), b = wordsOfCiphertext<RLWE>(context, top, 2);
    auto product = a;
    product.setNumPoly(3);
    Seeded words(3);
    fill(product.getPoly(2), words);
    const Results pin(group, wordsOfCiphertext<RLWE>(context, 0, 4));
    pin("tensor", [&](Ciphertext& out) { e.tensor(a, b, out); });
    pin("tensor, of three elements", [&](Ciphertext& out) { e.tensor(product, b, out); });
    pin("relinearize", [&](Ciphertext& out) { e.relinearize(product, out); });
    pin("multWithoutRescale", [&](Ciphertext& out) { e.multWithoutRescale(a, b, out); });
    pin("mult", [&](Ciphertext& out) { e.mult(a, b, out); });
    pin("square", [&](Ciphertext& out) { e.square(a, out); });
}

void pinRotations(PinnedGroup& group, const HomEvaluator& e) {
    const Context& context = e.getContext();
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<RLWE>(context, top, 1), b = wordsOfCiphertext<RLWE>(context, top, 2);
    const auto c = wordsOfCiphertext<RLWE>(context, top, 3);
    const Results pin(group, wordsOfCiphertext<RLWE>(context, 0, 4));
    for (const u64 index : {0, 1, 4, 3, 7}) { // the last two have no key of their own
        const std::string row = std::to_string(index);
        pin("leftRotate " + row, [&](Ciphertext& out) { e.leftRotate(a, index, out); });
        pin("rightRotate " + row, [&](Ciphertext& out) { e.rightRotate(a, index, out); });
    }
    pin("conjugate", [&](Ciphertext& out) { e.conjugate(a, out); });
    for (const u64 count : {0, 2, 5, 6, 7}) {
        const std::string row = std::to_string(count);
        pin("leftRotateReduce " + row, [&](Ciphertext& out) { e.leftRotateReduce(a, 1, count, out); });
        pin("rightRotateReduce " + row, [&](Ciphertext& out) { e.rightRotateReduce(a, 1, count, out); });
    }
    pin("rotSum", [&](Ciphertext& out) { e.rotSum({a, b, c}, {1, 0, 4}, out); });
    pin("rotSum without a rotation", [&](Ciphertext& out) { e.rotSum({a, b}, {0, 0}, out); });
}

void pinSwitches(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " key switches");
    const HomEvaluator evaluator(contextOf(preset), evaluationKeys(contextOf(preset)));
    pinProducts(group, evaluator);
    pinRotations(group, evaluator);
}

TEST(PinnedSwitches, OfTheToyPreset) {
    pinSwitches(ParameterPreset::FX, "FX");
}
TEST(PinnedSwitchesRealPreset, OfSD3) {
    pinSwitches(ParameterPreset::SD3, "SD3");
}
TEST(PinnedSwitchesRealPreset, OfST7) {
    pinSwitches(ParameterPreset::ST7, "ST7");
}

void pinNumbers(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " ciphertexts and numbers");
    const Context& context = contextOf(preset);
    pinCiphertextNumbers<RLWE>(group, context);
    const HomEvaluator e(context, evaluationKeys(context));
    const u64 top = getEncryptionLevel(context);
    const auto a = wordsOfCiphertext<RLWE>(context, top, 1), low = wordsOfCiphertext<RLWE>(context, 1, 2);
    const Results pin(group, wordsOfCiphertext<RLWE>(context, 0, 4));
    pin("mult, of another level", [&](Ciphertext& out) { e.mult(a, low, out); });
    pin("killImag", [&](Ciphertext& out) { e.killImag(a, out); });
    pinPlaintextNumbers(preset, name);
}

TEST(PinnedNumbers, OfTheToyPreset) {
    SKIP_UNLESS_MATHEMATICS_AGREE("FX", contextOf(ParameterPreset::FX));
    pinNumbers(ParameterPreset::FX, "FX");
}
TEST(PinnedNumbersRealPreset, OfSD3) {
    SKIP_UNLESS_MATHEMATICS_AGREE("SD3", contextOf(ParameterPreset::SD3));
    pinNumbers(ParameterPreset::SD3, "SD3");
}
TEST(PinnedNumbersRealPreset, OfST7) {
    SKIP_UNLESS_MATHEMATICS_AGREE("ST7", contextOf(ParameterPreset::ST7));
    pinNumbers(ParameterPreset::ST7, "ST7");
}
TEST(PinnedNumbers, OfAModule) {
    const Context context = familyModule(6, 3, 2);
    SKIP_UNLESS_MATHEMATICS_AGREE("module", context);
    PinnedGroup group("module ciphertexts and numbers");
    pinCiphertextNumbers<MLWE>(group, context);
}

} // namespace
} // namespace Torvo
