#include "support/ForeignRings.hpp"
#include "crypto/KeyGeneratorImpl.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/RingFamily.hpp"
#include "support/Scheme.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace Torvo;
using namespace Torvo::test;

namespace {

const char* const foreignOperand = "Operands are not of the ring of the generated context.";

/// Expects the refusal before anything is drawn.
void expectNothingDrawn(const std::function<void()>& call, const std::string& text) {
    const std::string before = threadGenerator().getState();
    EXPECT_REFUSED(call(), text);
    EXPECT_EQ(threadGenerator().getState(), before) << text;
}

/// A context with a secret key and a public one.
struct Keyed {
    explicit Keyed(const Context& itsContext) : context(itsContext) {
        KeyGenerator(context, key, pack).genEncKey();
    }

    Ciphertext encrypt(double x) const {
        Ciphertext out(context);
        Encryptor(context).encrypt(Message(2, x), key, out);
        return out;
    }

    Context context;
    SecretKey key{context};
    KeyPack pack{context};
};

std::string encryptorRefusal(const std::string& key, const Context& theirs, const Context& ours) {
    return refusalOf("the " + key + " key is of another ring", theirs, "the encryptor's context", ours,
                     "make the encryptor with the context the key was made with");
}

std::string decryptorRefusal(const Context& theirs, const Context& ours) {
    return refusalOf("the secret key is of another ring", theirs, "the decryptor's context", ours,
                     "make the decryptor with the context the key was made with");
}

} // namespace

TEST(ForeignRings, AKeyGeneratorRefusesAPackOfAnotherRingAfterASecretKeyThatDoesNotMatch) {
    for (const auto& [ours, theirs] : foreignRings()) {
        const SecretKey key(ours);
        const KeyPack pack(theirs);
        const std::string text =
            refusalOf("the key pack is of another ring", theirs, "the key generator's context", ours,
                      "make the generator with a pack of its own context");
        EXPECT_REFUSED(KeyGenerator(ours, key, pack), text);
        EXPECT_REFUSED(KeyGenerator(ours, SecretKey(theirs), pack),
                       "[KeyGenerator] context and secret key don't match");
    }
}

TEST(ForeignRings, AKeyGeneratorRefusesASparseContextThatDoesNotMatchBeforeAForeignPack) {
    const Context context = ringOfDigits(2), sparse = makeContext(6, 1, 50, 42, 51, 1);
    const SecretKey key(context);
    const KeyPack pack(ringOfDigits(4));
    EXPECT_REFUSED(KeyGenerator(context, sparse, key, pack),
                   "[KeyGenerator] context does not support sparse secret encapsulation");
    context->parameter.has_sparse_encapsulation = true;
    context->parameter.preset = ParameterPreset::FGd;
    EXPECT_REFUSED(KeyGenerator(context, sparse, key, pack),
                   "[KeyGenerator] parameter of context and context_sparse does not match");
    sparse->parameter.preset = ParameterPreset::SGd0;
    EXPECT_REFUSED(KeyGenerator(context, sparse, key, pack),
                   refusalOf("the key pack is of another ring", ringOfDigits(4),
                             "the key generator's context", context,
                             "make the generator with a pack of its own context"));
}

TEST(ForeignRings, AKeyGeneratorTakesAPackOfATwin) {
    const Context own = ringOfDigits(2);
    const SecretKey key(own);
    for (const Context& twin : twinsOf(own)) {
        const KeyPack pack(twin);
        KeyGenerator(own, key, pack).genMultKey();
        EXPECT_TRUE(pack.isMultKeyLoaded());
    }
}

TEST(ForeignRings, AnEncryptorRefusesKeysOfOtherPrimesBeforeItDrawsOrWrites) {
    for (const auto& rings : ringsOfOtherPrimes()) {
        const Context &ours = rings.ours, &theirs = rings.theirs;
        const Keyed own(ours), other(theirs);
        const Encryptor encryptor(ours);
        const Message message(2, 0.5);
        const Plaintext plaintext = EnDecoder(ours).encode(message);
        const std::vector<double> coefficients(8, 0.5);
        Ciphertext out = own.encrypt(0.25);
        const Ciphertext before = out;
        const std::string publicly = encryptorRefusal("encryption", theirs, ours);
        const std::string secretly = encryptorRefusal("secret", theirs, ours);
        expectNothingDrawn([&] { encryptor.encrypt(plaintext, other.pack, out); }, publicly);
        expectNothingDrawn([&] { encryptor.encrypt(message, other.pack, out); }, publicly);
        expectNothingDrawn([&] { encryptor.encrypt(plaintext, other.key, out); }, secretly);
        expectNothingDrawn([&] { encryptor.encrypt(message, other.key, out); }, secretly);
        expectNothingDrawn([&] { encryptor.encrypt(coefficients, other.key, out); }, secretly);
        expectNothingDrawn([&] { EncryptionKey(ours, other.key); },
                           refusalOf("the secret key is of another ring", theirs,
                                     "the context of the encryption key", ours,
                                     "make the encryption key with the context of the secret key"));
        EXPECT_TRUE(sameWords(out, before));
    }
}

TEST(ForeignRings, AnEncryptorRefusesAPlaintextOfOtherPrimesAfterItsOwnRules) {
    for (const auto& rings : ringsOfOtherPrimes()) {
        const Context &ours = rings.ours, &theirs = rings.theirs;
        const Keyed own(ours);
        Plaintext plaintext = EnDecoder(theirs).encode(Message(2, 0.5));
        Ciphertext out(ours);
        const auto encryptors = {
            std::function<void()>([&] { Encryptor(ours).encrypt(plaintext, own.pack, out); }),
            std::function<void()>([&] { Encryptor(ours).encrypt(plaintext, own.key, out); })};
        for (const auto& encrypt : encryptors) expectNothingDrawn(encrypt, foreignOperand);
        plaintext.setLevel(4);
        const std::string tooHigh =
            "[encrypt] Level of an input Plaintext cannot be greater than encryption level";
        expectNothingDrawn(*encryptors.begin(), tooHigh + ".");
        expectNothingDrawn(*(encryptors.begin() + 1), tooHigh);
    }
}

TEST(ForeignRings, ADecryptorRefusesKeysAndCiphertextsOfOtherPrimesBeforeItWrites) {
    for (const auto& rings : ringsOfOtherPrimes()) {
        const Context &ours = rings.ours, &theirs = rings.theirs;
        const Keyed own(ours), other(theirs);
        const Decryptor decryptor(ours);
        const Ciphertext mine = own.encrypt(0.5), foreign = other.encrypt(0.5);
        Ciphertext onCoefficients(ours);
        Encryptor(ours).encrypt(std::vector<double>(8, 0.5), own.key, onCoefficients);
        const std::string text = decryptorRefusal(theirs, ours);

        const Plaintext plaintextBefore = EnDecoder(ours).encode(Message(1, 0.125));
        Plaintext plaintext = plaintextBefore;
        Message message(1, 0.25);
        std::vector<double> numbers{0.75};
        Ciphertext share = own.encrypt(0.25);
        const Ciphertext shareBefore = share;
        EXPECT_REFUSED(decryptor.decrypt(mine, other.key, plaintext), text);
        EXPECT_REFUSED(decryptor.decrypt(mine, other.key, message), text);
        EXPECT_REFUSED(decryptor.decrypt(onCoefficients, other.key, numbers), text);
        expectNothingDrawn([&] { decryptor.partialDecrypt(mine, other.key, share); }, text);
        EXPECT_REFUSED(decryptor.decrypt(foreign, own.key, plaintext), foreignOperand);
        EXPECT_REFUSED(decryptor.decrypt(foreign, other.key, message), foreignOperand);
        expectNothingDrawn([&] { decryptor.partialDecrypt(foreign, own.key, share); }, foreignOperand);
        EXPECT_TRUE(sameWords(plaintext, plaintextBefore));
        EXPECT_EQ(message.getSize(), 2u);
        EXPECT_EQ(numbers.size(), 1u);
        EXPECT_TRUE(sameWords(share, shareBefore));
    }
}

/// Where no digits are in play, rings that share their primes share what is encrypted under them.
TEST(ForeignRings, KeysOfTheSamePrimesServeWhateverTheDigits) {
    const Keyed own(ringOfDigits(2)), other(ringOfDigits(4));
    for (const auto* pair : {&own, &other}) {
        const Keyed& theirs = pair == &own ? other : own;
        Ciphertext publicly(pair->context), secretly(pair->context);
        Encryptor(pair->context).encrypt(Message(2, 0.5), theirs.pack, publicly);
        Encryptor(pair->context).encrypt(Message(2, 0.5), theirs.key, secretly);
        const ErrorModel errors(pair->context);
        const double bound = errors.atLevel(errors.encryption(), 3) + ErrorModel::relative;
        for (const Ciphertext* ciphertext : {&publicly, &secretly}) {
            Message got;
            Decryptor(pair->context).decrypt(*ciphertext, theirs.key, got);
            EXPECT_LT(maxError(got, Message(2, 0.5)), bound);
        }
    }
    Ciphertext modUp(own.context, true);
    Message got;
    EXPECT_REFUSED(Decryptor(own.context).decrypt(modUp, other.key, got),
                   decryptorRefusal(other.context, own.context));
}

TEST(ForeignRings, TwinsEncryptAndDecryptForEachOther) {
    const Keyed own(ringOfDigits(2));
    const ErrorModel errors(own.context);
    for (const Context& twin : twinsOf(own.context)) {
        Ciphertext out(own.context);
        Encryptor(twin).encrypt(Message(2, 0.5), own.pack, out);
        Message got;
        Decryptor(twin).decrypt(out, own.key, got);
        EXPECT_LT(maxError(got, Message(2, 0.5)),
                  errors.atLevel(errors.encryption(), 3) + ErrorModel::relative);
    }
}

TEST(ForeignRings, KeysOfAnotherRankAreRefused) {
    using enum EncryptionType;
    const Context ours = familyModule(6, 3, 4), theirs = familyModule(6, 3, 2);
    const SecretKeyBase<MLWE> key(ours), other(theirs);
    CiphertextBase<MLWE> out(ours);
    Message got;
    expectNothingDrawn([&] { Encryptor(ours).encrypt(Message(2, 0.5), other, out); },
                       encryptorRefusal("secret", theirs, ours));
    Encryptor(ours).encrypt(Message(2, 0.5), key, out);
    EXPECT_REFUSED(Decryptor(ours).decrypt(out, other, got), decryptorRefusal(theirs, ours));
    EXPECT_NO_THROW(Decryptor(ours).decrypt(out, key, got));
}

/// The rows above are unset, and those beyond the data would be another object's.
TEST(ForeignRings, ALevelSetByHandBeyondTheChainIsRefused) {
    const Keyed own(ringOfDigits(2));
    const Ciphertext fresh = own.encrypt(0.5);
    const std::string tooHigh =
        "[encrypt] Level of an input Plaintext cannot be greater than encryption level";
    const std::string encodeTooHigh = "[encode] The target level is greater than the maximum possible level";
    for (const u64 level : {4, 5, 6, 100}) {
        for (const bool isModUp : {false, true}) {
            Ciphertext ciphertext = isModUp ? Ciphertext(own.context, true) : fresh;
            ciphertext.setLevel(level);
            Plaintext plaintext(own.context);
            Message message;
            Ciphertext share(own.context);
            EXPECT_REFUSED(Decryptor(own.context).decrypt(ciphertext, own.key, plaintext), foreignOperand);
            EXPECT_REFUSED(Decryptor(own.context).decrypt(ciphertext, own.key, message), foreignOperand);
            EXPECT_REFUSED(Decryptor(own.context).partialDecrypt(ciphertext, own.key, share), foreignOperand);
            EXPECT_EQ(share.getLevel(), 3u);
        }
        Plaintext plaintext = EnDecoder(own.context).encode(Message(2, 0.5));
        plaintext.setLevel(level);
        EXPECT_REFUSED(EnDecoder(own.context).decode(plaintext), foreignOperand);
        EXPECT_REFUSED(EnDecoder(own.context).decodeWithoutFFT(plaintext), foreignOperand);
        EXPECT_REFUSED(plaintext.isZero(), foreignOperand);
        EXPECT_REFUSED(EnDecoder(own.context).encode(Message(2, 0.5), level), encodeTooHigh);
        Ciphertext out(own.context);
        EXPECT_REFUSED(Encryptor(own.context).encrypt(plaintext, own.pack, out), tooHigh + ".");
        EXPECT_REFUSED(Encryptor(own.context).encrypt(plaintext, own.key, out), tooHigh);
        EXPECT_REFUSED(Encryptor(own.context).encrypt(Message(2, 0.5), own.key, out, level, 0),
                       encodeTooHigh);
    }
}
