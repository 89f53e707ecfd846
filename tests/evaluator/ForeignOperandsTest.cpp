#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace Torvo;
using namespace Torvo::test;

namespace {

enum class Foreign { Degree, Chain, Primes };

/// Objects of one ring handed to the services of another: another degree, a longer chain, or other primes.
/// Without a refusal they would be read past their ends, or taken for other numbers.
class ForeignOperands : public testing::TestWithParam<Foreign> {
protected:
    static Context foreignContext() {
        switch (GetParam()) {
        case Foreign::Degree:
            return makeContext(7, 3, 50, 40, 51, 1);
        case Foreign::Chain:
            return makeContext(ParameterPreset::FX); // 25 primes in place of 3
        default:
            return makeContext(6, 3, 49, 39, 51, 1);
        }
    }

    const Context own = makeContext(6, 3, 50, 40, 51, 1);
    const Context foreign = foreignContext();

    Ciphertext encrypted(const Context& context) const {
        Ciphertext out(context);
        const SecretKey key(context);
        Encryptor(context).encrypt(Message(getLogFullSlots(context), 0.5), key, out);
        return out;
    }

    static void expectRefused(const std::function<void()>& call) {
        EXPECT_REFUSED(call(), "Operands are not of the ring of the generated context.");
    }
};

TEST_P(ForeignOperands, AreRefusedByTheEvaluator) {
    const SecretKey key(own);
    const KeyGenerator generator(own, key);
    generator.genMultKey();
    generator.genConjKey();
    generator.genLeftRotKey(1);
    const HomEvaluator evaluator(own, generator.getKeyPack());
    const Ciphertext theirs = encrypted(foreign), before = encrypted(own);
    Ciphertext out = before, inPlace = theirs;

    expectRefused([&] { evaluator.negate(theirs, out); });
    expectRefused([&] { evaluator.add(theirs, theirs, out); });
    expectRefused([&] { evaluator.sub(theirs, theirs, out); });
    expectRefused([&] { evaluator.add(theirs, 0.25, out); });
    expectRefused([&] { evaluator.mult(theirs, 0.25, out); });
    expectRefused([&] { evaluator.multInteger(theirs, 3, out); });
    expectRefused([&] { evaluator.mult(theirs, theirs, out); });
    expectRefused([&] { evaluator.levelDown(theirs, 0, out); });
    expectRefused([&] { evaluator.leftRotate(theirs, 1, out); });
    expectRefused([&] { evaluator.conjugate(theirs, out); });
    expectRefused([&] { evaluator.levelDown(theirs, theirs.getLevel(), out); });
    expectRefused([&] { evaluator.leftRotate(theirs, 0, out); });
    expectRefused([&] { evaluator.multInteger(theirs, 1, out); });
    EXPECT_TRUE(sameWords(out, before)) << "an output of a refused call";
    inPlace.setRescaleCounter(1);
    expectRefused([&] { evaluator.rescale(inPlace); });
}

TEST_P(ForeignOperands, AreRefusedByTheDecoder) {
    const Message message(getLogFullSlots(own), 0.5);
    const Plaintext theirs = EnDecoder(foreign).encode(message, 1), high = EnDecoder(foreign).encode(message);
    expectRefused([&] { EnDecoder(own).decode(theirs); });
    if (getEncryptionLevel(foreign) > getEncryptionLevel(own))
        expectRefused([&] { EnDecoder(own).decode(high); });
}

TEST_P(ForeignOperands, AreRefusedByTheDecryptor) {
    Plaintext plaintext(own);
    expectRefused([&] { Decryptor(own).decrypt(encrypted(foreign), SecretKey(own), plaintext); });
}

TEST_P(ForeignOperands, AreRefusedBesideOwnOnes) {
    const HomEvaluator evaluator(own, KeyPack(own));
    const Ciphertext ours = encrypted(own);
    Ciphertext theirs = encrypted(foreign), out = ours;
    theirs.setLogSlots(ours.getLogSlots());
    const Message message(getLogFullSlots(own), 0.5);
    const Plaintext foreignPlaintext = EnDecoder(foreign).encode(message, 2);
    expectRefused([&] { evaluator.add(ours, theirs, out); });
    expectRefused([&] { evaluator.add(theirs, ours, out); });
    expectRefused([&] { evaluator.add(ours, foreignPlaintext, out); });
    expectRefused([&] { evaluator.mult(ours, foreignPlaintext, out); });
    expectRefused([&] { evaluator.multWithoutRescale(ours, foreignPlaintext, out); });
    theirs.setLevel(2);
    expectRefused([&] { evaluator.tensor(theirs, ours, out); });
    expectRefused([&] { evaluator.rotSum({ours, theirs}, {0, 0}, out); });
    EXPECT_TRUE(sameWords(out, ours));
}

INSTANTIATE_TEST_SUITE_P(Rings, ForeignOperands,
                         testing::Values(Foreign::Degree, Foreign::Chain, Foreign::Primes),
                         [](const auto& test) {
                             return test.param == Foreign::Degree  ? "OfAnotherDegree"
                                    : test.param == Foreign::Chain ? "OfMorePrimes"
                                                                   : "OfOtherPrimes";
                         });

} // namespace
