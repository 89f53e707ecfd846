#include "evaluator/HomEvaluatorImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <functional>
#include <string>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

/// Four primes and two temporary ones, with all keys: `setLevel` takes 4 and more all the same.
class HandSetLevels : public testing::TestWithParam<u64> {
protected:
    HandSetLevels() {
        const KeyGenerator generator(context, key, keys);
        generator.genMultKey();
        generator.genConjKey();
        generator.genRotKeyBundle();
    }

    Ciphertext encrypt(double x) const {
        Ciphertext out(context);
        Encryptor(context).encrypt(Message(5, x), key, out);
        return out;
    }
    /// At the level of the test, above what has rows with meaning.
    Ciphertext tooHigh(bool isModUp = false) const {
        Ciphertext ciphertext = isModUp ? Ciphertext(context, true) : encrypt(0.5);
        ciphertext.setLevel(GetParam());
        return ciphertext;
    }

    using Operation = std::function<void(const Ciphertext&, Ciphertext&)>;
    std::vector<std::pair<const char*, Operation>> operations() const {
        return {
            {"negate", [&](const auto& in, auto& out) { evaluator.negate(in, out); }},
            {"add constant", [&](const auto& in, auto& out) { evaluator.add(in, 0.5, out); }},
            {"sub constant", [&](const auto& in, auto& out) { evaluator.sub(in, Complex(1, 1), out); }},
            {"add", [&](const auto& in, auto& out) { evaluator.add(in, in, out); }},
            {"sub", [&](const auto& in, auto& out) { evaluator.sub(in, in, out); }},
            {"add of another level", [&](const auto& in, auto& out) { evaluator.add(in, low, out); }},
            {"mult constant", [&](const auto& in, auto& out) { evaluator.mult(in, 0.5, out); }},
            {"mult integral", [&](const auto& in, auto& out) { evaluator.mult(in, Complex(1, -3), out); }},
            {"multWithoutRescale",
             [&](const auto& in, auto& out) { evaluator.multWithoutRescale(in, 0.5, out); }},
            {"multImagUnit", [&](const auto& in, auto& out) { evaluator.multImagUnit(in, out); }},
            {"times 1", [&](const auto& in, auto& out) { evaluator.multInteger(in, 1, out); }},
            {"times -1", [&](const auto& in, auto& out) { evaluator.multInteger(in, -1, out); }},
            {"times 3", [&](const auto& in, auto& out) { evaluator.multInteger(in, 3, out); }},
            {"times -3", [&](const auto& in, auto& out) { evaluator.multInteger(in, -3, out); }},
            {"levelDown", [&](const auto& in, auto& out) { evaluator.levelDown(in, 1, out); }},
            {"levelDown to its own",
             [&](const auto& in, auto& out) { evaluator.levelDown(in, in.getLevel(), out); }},
            {"levelDownOne", [&](const auto& in, auto& out) { evaluator.levelDownOne(in, out); }},
            {"tensor", [&](const auto& in, auto& out) { evaluator.tensor(in, in, out); }},
            {"mult", [&](const auto& in, auto& out) { evaluator.mult(in, in, out); }},
            {"mult of another level", [&](const auto& in, auto& out) { evaluator.mult(low, in, out); }},
            {"square", [&](const auto& in, auto& out) { evaluator.square(in, out); }},
            {"leftRotate", [&](const auto& in, auto& out) { evaluator.leftRotate(in, 1, out); }},
            {"leftRotate composed", [&](const auto& in, auto& out) { evaluator.leftRotate(in, 3, out); }},
            {"leftRotate by 0", [&](const auto& in, auto& out) { evaluator.leftRotate(in, 32, out); }},
            {"rightRotate", [&](const auto& in, auto& out) { evaluator.rightRotate(in, 1, out); }},
            {"conjugate", [&](const auto& in, auto& out) { evaluator.conjugate(in, out); }},
            {"killImag", [&](const auto& in, auto& out) { evaluator.killImag(in, out); }},
            {"leftRotateReduce",
             [&](const auto& in, auto& out) { evaluator.leftRotateReduce(in, 1, 4, out); }},
            {"rightRotateReduce",
             [&](const auto& in, auto& out) { evaluator.rightRotateReduce(in, 1, 5, out); }},
            {"leftRotateReduce of one",
             [&](const auto& in, auto& out) { evaluator.leftRotateReduce(in, 1, 1, out); }},
            {"rotSum",
             [&](const auto& in, auto& out) {
                 evaluator.rotSum({in, in}, {1, 0}, out);
             }},
            {"plain rotSum",
             [&](const auto& in, auto& out) {
                 evaluator.rotSum({in, in}, {0, 0}, out);
             }},
        };
    }

    const char* const foreign = "Operands are not of the ring of the generated context.";
    const char* const encodeTooHigh = "[encode] The target level is greater than the maximum possible level";
    const Context context = ringOfDigits(2);
    const SecretKey key{context};
    const KeyPack keys{context};
    const HomEvaluator evaluator{context, keys};
    const Ciphertext low = [this] {
        Ciphertext lowered(context);
        evaluator.levelDown(encrypt(0.5), 1, lowered);
        return lowered;
    }();
};

} // namespace

TEST_P(HandSetLevels, AreRefusedByEveryOperationBeforeItWrites) {
    const Ciphertext before = encrypt(0.25);
    for (const bool isModUp : {false, true}) {
        const Ciphertext in = tooHigh(isModUp);
        for (const auto& [name, operation] : operations()) {
            SCOPED_TRACE(testing::Message() << name << (isModUp ? ", mod-up" : ""));
            const bool isMixed = isModUp && std::string(name) == "add of another level";
            Ciphertext out = before;
            EXPECT_REFUSED(operation(in, out),
                           isMixed ? "Cannot add different level modUp-ed ciphertexts" : foreign);
            EXPECT_TRUE(sameWords(out, before));
        }
    }
}

TEST_P(HandSetLevels, AreRefusedInPlace) {
    Ciphertext x = tooHigh();
    x.setRescaleCounter(1);
    EXPECT_REFUSED(evaluator.rescale(x), foreign);
    EXPECT_REFUSED(evaluator.inverseRescale(x), "[inverseRescale] Cannot inverseRescale when the level is "
                                                "greater than or equal to the maximum level");
    Ciphertext three = tooHigh();
    three.setNumPoly(3);
    EXPECT_REFUSED(evaluator.relinearize(three, three), foreign);
    for (const Ciphertext* ciphertext : {&x, &three}) EXPECT_EQ(ciphertext->getLevel(), GetParam());
    std::vector<Ciphertext> outs;
    EXPECT_REFUSED(evaluator.getImpl()->leftRotate(tooHigh(), {1, 2}, outs), foreign);
    EXPECT_TRUE(outs.empty());
}

TEST_P(HandSetLevels, AreRefusedWithWhatIsNotEncrypted) {
    const Ciphertext in = tooHigh(), fresh = encrypt(0.5), before = encrypt(0.25);
    const Message message(5, 0.5);
    const Plaintext plaintext = EnDecoder(context).encode(message);
    Plaintext high = plaintext;
    high.setLevel(GetParam());
    Ciphertext out = before;
    EXPECT_REFUSED(evaluator.add(in, message, out), encodeTooHigh);
    EXPECT_REFUSED(evaluator.mult(in, message, out), encodeTooHigh);
    EXPECT_REFUSED(evaluator.add(in, plaintext, out), encodeTooHigh);
    EXPECT_REFUSED(evaluator.mult(in, plaintext, out), encodeTooHigh);
    EXPECT_REFUSED(evaluator.add(in, high, out), foreign);
    EXPECT_REFUSED(evaluator.sub(in, high, out), foreign);
    EXPECT_REFUSED(evaluator.mult(in, high, out), foreign);
    EXPECT_REFUSED(evaluator.multWithoutRescale(in, high, out), foreign);
    EXPECT_REFUSED(evaluator.add(fresh, high, out), foreign);
    EXPECT_REFUSED(evaluator.mult(fresh, high, out), foreign);
    EXPECT_TRUE(sameWords(out, before));
}

TEST_P(HandSetLevels, OfPlaintextsAreRefused) {
    const Plaintext before = EnDecoder(context).encode(Message(5, 0.5));
    Plaintext high = before, out = before;
    high.setLevel(GetParam());
    EXPECT_REFUSED(evaluator.negate(high, out), foreign);
    EXPECT_REFUSED(evaluator.add(high, 0.5, out), foreign);
    EXPECT_REFUSED(evaluator.add(high, high, out), foreign);
    EXPECT_REFUSED(evaluator.sub(high, high, out), foreign);
    EXPECT_REFUSED(evaluator.mult(high, 0.5, out), foreign);
    EXPECT_REFUSED(evaluator.mult(high, high, out), foreign);
    EXPECT_REFUSED(evaluator.square(high, out), foreign);
    EXPECT_REFUSED(evaluator.multImagUnit(high, out), foreign);
    EXPECT_REFUSED(evaluator.multInteger(high, -3, out), foreign);
    EXPECT_REFUSED(evaluator.relevel(high, 1, out), foreign);
    EXPECT_REFUSED(evaluator.relevel(before, GetParam(), out), "[relevel] target_level too big");
    EXPECT_REFUSED(evaluator.leftRotate(high, 1, out), foreign);
    EXPECT_REFUSED(evaluator.rightRotate(high, 32, out), foreign);
    EXPECT_REFUSED(evaluator.conjugate(high, out), foreign);
    EXPECT_TRUE(sameWords(out, before));
    high.setRescaleCounter(1);
    EXPECT_REFUSED(evaluator.rescale(high), foreign);
    EXPECT_EQ(high.getLevel(), GetParam());
}

/// Also when it is the output that was left at such a level.
TEST_P(HandSetLevels, OfAnOutputDoNotMatter) {
    const Ciphertext in = encrypt(0.5);
    Ciphertext expected(context), out = tooHigh(), modUp = tooHigh(true);
    evaluator.mult(in, in, expected);
    for (Ciphertext* result : {&out, &modUp}) {
        evaluator.mult(in, in, *result);
        EXPECT_TRUE(sameWords(*result, expected));
    }
}

// Between the chain and all primes, the end of these, just beyond, far beyond.
INSTANTIATE_TEST_SUITE_P(Levels, HandSetLevels, testing::Values(4, 5, 6, 7, 100));
