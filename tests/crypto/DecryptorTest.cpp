#include <Torvo/Decryptor.hpp>

#include "context/ContextContent.hpp"
#include "crypto/RandomSampler.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/RingEquation.hpp"
#include "support/Seeded.hpp"

#include <Torvo/EnDecoder.hpp>
#include <Torvo/Randomseeds.hpp>

#include <thread>

namespace Torvo {
namespace {

using test::contextOf;
using test::rowUnder;
using test::sameWords;
using test::Seeded;

using ModuleCiphertext = CiphertextBase<EncryptionType::MLWE>;
using ModuleSecretKey = SecretKeyBase<EncryptionType::MLWE>;

constexpr const char* notOnSlots = "The operand have to encode the message on its slots";
constexpr const char* notOnCoefficients = "The operand have to encode the message on its coefficients";

const Context& fx() {
    return contextOf(ParameterPreset::FX);
}

const Context& module() {
    return contextOf(ParameterPreset::SD3D6R2);
}

const SecretKey& key() {
    static const SecretKey secretKey(fx());
    return secretKey;
}

const ModuleSecretKey& moduleKey() {
    static const ModuleSecretKey secretKey(module());
    return secretKey;
}

/// A ciphertext of random words, in NTT form.
template <EncryptionType E>
CiphertextBase<E> randomCiphertext(const Context& context, Seeded& random, u64 level, u64 numPoly,
                                   bool isModUp = false) {
    CiphertextBase<E> ciphertext(context, isModUp);
    ciphertext.setNumPoly(numPoly);
    ciphertext.setLevel(level);
    ciphertext.setLogSlots(3);
    ciphertext.setRescaleCounter(static_cast<int>(level / 2));
    for (Polynomial& poly : ciphertext.getPolys().getPolys()) test::fillWithResidues(context, poly, random);
    return ciphertext;
}

template <EncryptionType E>
void expectUnder(const Context& context, const Plaintext& plaintext, const CiphertextBase<E>& ciphertext,
                 const SecretKeyBase<E>& secretKey) {
    EXPECT_EQ(plaintext.getLevel(), ciphertext.getLevel());
    EXPECT_EQ(plaintext.getLogSlots(), ciphertext.getLogSlots());
    EXPECT_EQ(plaintext.getRescaleCounter(), ciphertext.getRescaleCounter());
    EXPECT_EQ(plaintext.getMx().isModUp(), ciphertext.isModUp());
    EXPECT_EQ(plaintext.getDevice(), ciphertext.getDevice());
    ASSERT_TRUE(plaintext.getMx().isNTT());
    for (u64 row = 0; row < plaintext.getMx().rowEnd(); ++row) {
        if (!plaintext.getMx().isLiveRow(row)) continue;
        EXPECT_EQ(test::coefficientRow(context, plaintext.getMx(), row),
                  rowUnder(context, ciphertext, secretKey, row))
            << "row " << row;
    }
}

// ---- the core

TEST(Decryptor, EvaluatesTheCiphertextAtTheSecret) {
    Seeded random(61);
    SCOPED_TRACE(random.describe());
    for (const u64 level : {0, 3, 24})
        for (const u64 numPoly : {2, 3, 4}) {
            SCOPED_TRACE(testing::Message() << "level=" << level << " numPoly=" << numPoly);
            const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, level, numPoly);
            const Ciphertext before = ciphertext;
            Plaintext out(fx());
            Decryptor(fx()).decrypt(ciphertext, key(), out);
            expectUnder(fx(), out, ciphertext, key());
            EXPECT_TRUE(sameWords(ciphertext, before));
        }
}

TEST(Decryptor, AddsTheProductsWithTheComponentsOfTheSecret) {
    Seeded random(62);
    SCOPED_TRACE(random.describe());
    for (const u64 level : {0, 1, 3}) {
        const auto ciphertext =
            randomCiphertext<EncryptionType::MLWE>(module(), random, level, getRank(module()) + 1);
        Plaintext out(module());
        Decryptor(module()).decrypt(ciphertext, moduleKey(), out);
        expectUnder(module(), out, ciphertext, moduleKey());
    }
}

TEST(Decryptor, EvaluatesAllLiveRowsOfAModUpCiphertext) {
    Seeded random(63);
    const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, 4, 2, true);
    const auto onModule =
        randomCiphertext<EncryptionType::MLWE>(module(), random, 1, getRank(module()) + 1, true);
    Plaintext out(fx()), moduleOut(module());
    Decryptor(fx()).decrypt(ciphertext, key(), out);
    expectUnder(fx(), out, ciphertext, key());
    Decryptor(module()).decrypt(onModule, moduleKey(), moduleOut);
    expectUnder(module(), moduleOut, onModule, moduleKey());
}

TEST(Decryptor, TakesCiphertextsOnCoefficientFormToo) {
    Seeded random(64);
    const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, 3, 3);
    Ciphertext transformed = ciphertext;
    for (Polynomial& poly : transformed.getPolys().getPolys()) fx()->primes.backwardNTT(poly, poly);
    Plaintext out(fx()), other(fx());
    Decryptor(fx()).decrypt(ciphertext, key(), out);
    Decryptor(fx()).decrypt(transformed, key(), other);
    EXPECT_TRUE(sameWords(out, other));
    EXPECT_FALSE(transformed.isNTT());
}

TEST(Decryptor, TakesOutputsOfAnyEarlierUse) {
    Seeded random(65);
    const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, 5, 2);
    std::vector<Plaintext> outputs(6, Plaintext(fx()));
    outputs[0].setLevel(0);
    outputs[1].getMx() = Polynomial(fx(), true, false);
    outputs[2] = Plaintext(test::smallContext());
    outputs[3].setRescaleCounter(9);
    outputs[3].setLevel(2);
    outputs[4].to(Device{DeviceType::CPU, 1});
    outputs[5] = EnDecoder(fx()).encodeWithoutNTT(random.message(2), 7, 3);
    for (Plaintext& out : outputs) {
        Decryptor(fx()).decrypt(ciphertext, key(), out);
        EXPECT_EQ(out.getContext()->parameter.preset, ParameterPreset::FX);
        expectUnder(fx(), out, ciphertext, key());
    }
}

// ---- messages and coefficients

template <EncryptionType E>
void expectDecodedPlaintext(const Context& context, const SecretKeyBase<E>& secretKey,
                            const CiphertextBase<E>& ciphertext) {
    Plaintext plaintext(context);
    Message message(u64{0}), expected;
    Decryptor(context).decrypt(ciphertext, secretKey, plaintext);
    Decryptor(context).decrypt(ciphertext, secretKey, message);
    expected = EnDecoder(context).decode(plaintext);
    ASSERT_EQ(message.getSize(), expected.getSize());
    EXPECT_TRUE(std::equal(message.begin(), message.end(), expected.begin()));
}

TEST(Decryptor, DecodesThePlaintextToAMessage) {
    Seeded random(66);
    expectDecodedPlaintext(fx(), key(), randomCiphertext<EncryptionType::RLWE>(fx(), random, 4, 3));
    expectDecodedPlaintext(
        module(), moduleKey(),
        randomCiphertext<EncryptionType::MLWE>(module(), random, 2, getRank(module()) + 1));
}

template <EncryptionType E>
void expectDecodedCoefficients(const Context& context, const SecretKeyBase<E>& secretKey,
                               CiphertextBase<E> ciphertext) {
    Plaintext plaintext(context);
    Decryptor(context).decrypt(ciphertext, secretKey, plaintext);
    const auto expected = EnDecoder(context).decodeWithoutFFT(plaintext);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    std::vector<double> inNTT = {1, 2, 3}, onCoefficients;
    Decryptor(context).decrypt(ciphertext, secretKey, inNTT);
    for (Polynomial& poly : ciphertext.getPolys().getPolys()) context->primes.backwardNTT(poly, poly);
    Decryptor(context).decrypt(ciphertext, secretKey, onCoefficients);
    EXPECT_EQ(onCoefficients, expected);
    EXPECT_EQ(inNTT, expected);
}

TEST(Decryptor, ReadsCoefficientsWithoutTheEmbedding) {
    Seeded random(67);
    expectDecodedCoefficients(fx(), key(), randomCiphertext<EncryptionType::RLWE>(fx(), random, 4, 2));
    expectDecodedCoefficients(
        module(), moduleKey(),
        randomCiphertext<EncryptionType::MLWE>(module(), random, 2, getRank(module()) + 1));
}

/// Whoever decodes a ciphertext that owes no rescale pays for two rows: the others may hold anything.
template <EncryptionType E>
void expectDecodedFromTwoRows(const Context& context, const SecretKeyBase<E>& secretKey,
                              CiphertextBase<E> ciphertext) {
    ciphertext.setRescaleCounter(0);
    Message expected, got;
    Decryptor(context).decrypt(ciphertext, secretKey, expected);
    expectDecodedPlaintext(context, secretKey, ciphertext);
    for (Polynomial& poly : ciphertext.getPolys().getPolys())
        std::fill(poly.getRow(2), poly.getData().end(), 0);
    Decryptor(context).decrypt(ciphertext, secretKey, got);
    ASSERT_EQ(got.getSize(), expected.getSize());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), expected.begin()));
}

TEST(Decryptor, DecodesFromTwoRowsWhatOwesNoRescale) {
    Seeded random(68);
    SCOPED_TRACE(random.describe());
    for (const bool isModUp : {false, true}) {
        for (const u64 level : {2, 24})
            expectDecodedFromTwoRows(fx(), key(),
                                     randomCiphertext<EncryptionType::RLWE>(fx(), random, level, 3, isModUp));
        expectDecodedFromTwoRows(
            module(), moduleKey(),
            randomCiphertext<EncryptionType::MLWE>(module(), random, 2, getRank(module()) + 1, isModUp));
    }
}

TEST(Decryptor, DecodesWhatHasOneRowOrTwo) {
    Seeded random(69);
    SCOPED_TRACE(random.describe());
    for (const u64 level : {0, 1}) {
        auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, level, 2);
        ciphertext.setRescaleCounter(0);
        expectDecodedPlaintext(fx(), key(), ciphertext);
        expectDecodedCoefficients(fx(), key(), ciphertext);
    }
}

// ---- what is refused

TEST(Decryptor, RefusesTheOtherEncoding) {
    Ciphertext onSlots(fx()), onCoefficients(fx());
    onCoefficients.setEncodingType(EncodingType::Coefficient);
    ModuleCiphertext moduleOnSlots(module()), moduleOnCoefficients(module());
    moduleOnCoefficients.setEncodingType(EncodingType::Coefficient);
    // The number of elements is checked later.
    moduleOnSlots.setNumPoly(2);
    moduleOnCoefficients.setNumPoly(2);
    Plaintext plaintext(fx());
    Message message;
    std::vector<double> values;
    const Decryptor decryptor(fx()), moduleDecryptor(module());
    EXPECT_REFUSED(decryptor.decrypt(onCoefficients, key(), plaintext), notOnSlots);
    EXPECT_REFUSED(decryptor.decrypt(onCoefficients, key(), message), notOnSlots);
    EXPECT_REFUSED(decryptor.decrypt(onSlots, key(), values), notOnCoefficients);
    EXPECT_REFUSED(moduleDecryptor.decrypt(moduleOnCoefficients, moduleKey(), plaintext), notOnSlots);
    EXPECT_REFUSED(moduleDecryptor.decrypt(moduleOnCoefficients, moduleKey(), message), notOnSlots);
    EXPECT_REFUSED(moduleDecryptor.decrypt(moduleOnSlots, moduleKey(), values), notOnCoefficients);
}

TEST(Decryptor, RefusesAModuleCiphertextOfAnotherSize) {
    const char* refusal = "[decrypt] Number of polynomials of MLWE ciphertext is invalid";
    for (const u64 numPoly : {u64{2}, getRank(module()), getRank(module()) + 2}) {
        ModuleCiphertext ciphertext(module());
        ciphertext.setNumPoly(numPoly);
        Plaintext plaintext(module());
        Message message;
        std::vector<double> values;
        EXPECT_REFUSED(Decryptor(module()).decrypt(ciphertext, moduleKey(), plaintext), refusal);
        EXPECT_REFUSED(Decryptor(module()).decrypt(ciphertext, moduleKey(), message), refusal);
        ciphertext.setEncodingType(EncodingType::Coefficient);
        EXPECT_REFUSED(Decryptor(module()).decrypt(ciphertext, moduleKey(), values), refusal);
    }
    // The rank that counts is that of the decryptor's context.
    const Context& higherRank = contextOf(ParameterPreset::FGbD6R6L0);
    Plaintext plaintext(higherRank);
    EXPECT_REFUSED(Decryptor(higherRank).decrypt(ModuleCiphertext(module()), moduleKey(), plaintext),
                   refusal);
}

TEST(Decryptor, RefusesWhatOwesMoreRescalesThanItHasLevels) {
    Ciphertext ciphertext(fx());
    ciphertext.setRescaleCounter(4);
    ciphertext.setLevel(3);
    Plaintext out(fx());
    EXPECT_REFUSED(Decryptor(fx()).decrypt(ciphertext, key(), out),
                   "Rescale counter should be less than or equal to the level");
}

TEST(Decryptor, RefusesPartialDecryptionInTheOrderOfTheRules) {
    Ciphertext ciphertext(fx()), out(fx());
    const Ciphertext before = out;
    ciphertext.setNumPoly(3);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(Decryptor(fx()).partialDecrypt(ciphertext, key(), out), notOnSlots);
    ciphertext.setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(Decryptor(fx()).partialDecrypt(ciphertext, key(), out),
                   "[partialDecrypt] Size of Ciphertext should be 2");
    EXPECT_TRUE(sameWords(out, before));
}

TEST(Decryptor, SharesAreMadeWhereTheCiphertextIs) {
    const Device elsewhere{DeviceType::CPU, 1};
    Ciphertext ciphertext(fx()), out(fx());
    ciphertext.to(elsewhere);
    // The error goes there too, where the ring has no tables.
    EXPECT_REFUSED(Decryptor(fx()).partialDecrypt(ciphertext, key(), out),
                   "The generated context does not support the operation with current operands; check the "
                   "device.");
    Plaintext plaintext(fx());
    EXPECT_REFUSED(Decryptor(fx()).decrypt(ciphertext, key(), plaintext),
                   "Operands are in different devices.");
}

// ---- shares

/// out[0] = ct[0] + ct[1] * s + e, out[1] = ct[1], with the one error e that the stream gives.
void expectShare(const Ciphertext& share, const Ciphertext& ciphertext, const Polynomial& error) {
    EXPECT_EQ(share.getNumPoly(), 2U);
    EXPECT_EQ(share.getLogSlots(), ciphertext.getLogSlots());
    EXPECT_EQ(share.getRescaleCounter(), ciphertext.getRescaleCounter());
    EXPECT_EQ(share.getEncodingType(), EncodingType::Slot);
    EXPECT_TRUE(share.isNTT());
    EXPECT_TRUE(sameWords(share.getPoly(1), ciphertext.getPoly(1)));
    for (u64 row = 0; row <= ciphertext.getLevel(); ++row) {
        auto expected = rowUnder(fx(), ciphertext, key(), row);
        test::addTo(expected, test::wordsOf(error, row), getPrimeList(fx())[row]);
        EXPECT_EQ(test::coefficientRow(fx(), share.getPoly(0), row), expected) << "row " << row;
    }
}

TEST(Decryptor, MakesSharesWithOneError) {
    constexpr std::array<unsigned long, 4> seed = {5, 6, 7, 8};
    Seeded random(68);
    SCOPED_TRACE(random.describe());
    const SecretKey& secretKey = key(); // made before any seed is set: it draws from the same generator
    for (const u64 level : {0, 3, 24}) {
        const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, level, 2);
        Polynomial error(fx(), false, true);
        error.setLevel(level);
        setSeed(seed);
        RandomSampler().sampleGaussian(error, fx());
        EXPECT_GT(test::largestOf(test::centred(test::wordsOf(error, 0), getPrimeList(fx())[0])), 0);

        std::vector<Ciphertext> outputs(5, Ciphertext(fx()));
        outputs[0].setNumPoly(4);
        outputs[1].setLevel(0);
        outputs[2] = Ciphertext(fx(), true);
        outputs[3] = Ciphertext(test::smallContext());
        outputs[4] = ciphertext;
        for (Ciphertext& out : outputs) {
            setSeed(seed);
            Decryptor(fx()).partialDecrypt(&out == &outputs[4] ? out : ciphertext, secretKey, out);
            expectShare(out, ciphertext, error);
        }
    }
}

/// Decryption transforms a ciphertext to NTT form first; so does this, and the share has that form.
TEST(Decryptor, MakesTheSameShareOfACiphertextOutOfNTTForm) {
    constexpr std::array<unsigned long, 4> seed = {5, 6, 7, 8};
    Seeded random(70);
    SCOPED_TRACE(random.describe());
    const SecretKey& secretKey = key();
    const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, 5, 2);
    Ciphertext onCoefficients = ciphertext, expected(fx()), out(fx());
    for (Polynomial& poly : onCoefficients.getPolys().getPolys()) fx()->primes.backwardNTT(poly, poly);
    const Ciphertext before = onCoefficients;
    setSeed(seed);
    Decryptor(fx()).partialDecrypt(ciphertext, secretKey, expected);
    setSeed(seed);
    Decryptor(fx()).partialDecrypt(onCoefficients, secretKey, out);
    EXPECT_TRUE(sameWords(out, expected));
    EXPECT_TRUE(sameWords(onCoefficients, before));
    setSeed(seed);
    Decryptor(fx()).partialDecrypt(onCoefficients, secretKey, onCoefficients);
    EXPECT_TRUE(sameWords(onCoefficients, expected));
}

TEST(Decryptor, ServesManyThreads) {
    Seeded random(69);
    const auto ciphertext = randomCiphertext<EncryptionType::RLWE>(fx(), random, 12, 3);
    std::vector<Plaintext> outputs(4, Plaintext(fx()));
    std::vector<std::thread> threads;
    for (Plaintext& out : outputs)
        threads.emplace_back([&] { Decryptor(fx()).decrypt(ciphertext, key(), out); });
    for (auto& thread : threads) thread.join();
    for (const Plaintext& out : outputs) EXPECT_TRUE(sameWords(out, outputs[0]));
    expectUnder(fx(), outputs[0], ciphertext, key());
}

} // namespace
} // namespace Torvo
