#include "arithmetic/Messages.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace Torvo;
using namespace Torvo::test;

namespace {

/// Objects of one ring handed to the services of another: another degree, or a longer chain. Without a
/// refusal they would be read past their ends.
class ForeignOperands : public testing::TestWithParam<bool> {
protected:
    /// Degree 128 in place of 64, or 25 primes in place of 3.
    const Context own = makeContext(6, 3, 50, 40, 51, 1);
    const Context foreign = GetParam() ? makeContext(7, 3, 50, 40, 51, 1) : makeContext(ParameterPreset::FX);

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
    const Ciphertext theirs = encrypted(foreign);
    Ciphertext out(own), inPlace = theirs;

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
    inPlace.setRescaleCounter(1);
    expectRefused([&] { evaluator.rescale(inPlace); });
}

TEST_P(ForeignOperands, AreRefusedByTheDecoder) {
    const Message message(getLogFullSlots(own), 0.5);
    const Plaintext theirs = EnDecoder(foreign).encode(message, 1), high = EnDecoder(foreign).encode(message);
    if (getDegree(own) != getDegree(foreign)) expectRefused([&] { EnDecoder(own).decode(theirs); });
    if (getEncryptionLevel(foreign) > getEncryptionLevel(own))
        expectRefused([&] { EnDecoder(own).decode(high); });
}

TEST_P(ForeignOperands, AreRefusedByTheDecryptor) {
    Plaintext plaintext(own);
    expectRefused([&] { Decryptor(own).decrypt(encrypted(foreign), SecretKey(own), plaintext); });
}

INSTANTIATE_TEST_SUITE_P(Rings, ForeignOperands, testing::Bool(),
                         [](const auto& test) { return test.param ? "OfAnotherDegree" : "OfMorePrimes"; });

using OperandsOfTwoDegrees = ForeignOperands;

// Rings of one degree are not told apart here: the level of the shorter chain is taken.
TEST_P(OperandsOfTwoDegrees, AreRefusedTogether) {
    const HomEvaluator evaluator(own, KeyPack(own));
    const Ciphertext ours = encrypted(own);
    Ciphertext theirs = encrypted(foreign), out(own);
    theirs.setLogSlots(ours.getLogSlots());
    expectRefused([&] { evaluator.add(ours, theirs, out); });
    expectRefused([&] { evaluator.tensor(theirs, ours, out); });

    const Message message(getLogFullSlots(foreign), 0.5);
    Plaintext plaintext(own);
    expectRefused([&] { Decryptor(own).decrypt(ours, SecretKey(foreign), plaintext); });
    expectRefused(
        [&] { Encryptor(own).encrypt(EnDecoder(foreign).encode(message, 1), SecretKey(own), out); });
    expectRefused(
        [&] { Encryptor(own).encrypt(Message(getLogFullSlots(own), 0.5), SecretKey(foreign), out); });
}

INSTANTIATE_TEST_SUITE_P(Rings, OperandsOfTwoDegrees, testing::Values(true));

} // namespace
