#include <Torvo/Encryptor.hpp>

#include "context/ContextContent.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/NumbersOutOfRange.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/RingEquation.hpp"
#include "support/Seeded.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/Decryptor.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <omp.h>

#include <functional>
#include <thread>

namespace Torvo {
namespace {

using test::contextOf;
using test::sameWords;
using test::Seeded;

constexpr std::array<unsigned long, 4> seed = {1, 2, 3, 4};

/// A context with a secret key and, for RLWE, a pack with its encryption key.
template <EncryptionType E>
struct Party {
    explicit Party(ParameterPreset preset) : context(contextOf(preset)), secretKey(context), keys(context) {
        if constexpr (E == EncryptionType::RLWE) KeyGenerator(context, secretKey, keys).genEncKey();
    }

    static const Party& toy() {
        static const Party party(E == EncryptionType::RLWE ? ParameterPreset::FX : ParameterPreset::SD3D6R2);
        return party;
    }

    Context context;
    SecretKeyBase<E> secretKey;
    KeyPack keys;
};

const Party<EncryptionType::RLWE>& fx() {
    return Party<EncryptionType::RLWE>::toy();
}

const Party<EncryptionType::MLWE>& module() {
    return Party<EncryptionType::MLWE>::toy();
}

template <EncryptionType E>
Plaintext decrypted(const Party<E>& party, const CiphertextBase<E>& ciphertext) {
    Plaintext out(party.context);
    Decryptor(party.context).decrypt(ciphertext, party.secretKey, out);
    return out;
}

/// Plaintexts in both forms, at levels from 0 to that of encryption.
template <EncryptionType E>
std::vector<Plaintext> samplePlaintexts(const Party<E>& party) {
    Seeded random(51);
    std::vector<Plaintext> plaintexts;
    const EnDecoder encoder(party.context);
    for (const u64 level : {u64{0}, u64{2}, getEncryptionLevel(party.context)}) {
        plaintexts.push_back(encoder.encode(random.message(5), level, 0));
        plaintexts.push_back(encoder.encodeWithoutNTT(random.message(3), level, static_cast<int>(level) / 2));
    }
    return plaintexts;
}

template <EncryptionType E>
void expectStamp(const CiphertextBase<E>& ciphertext, const Plaintext& plaintext, u64 numPoly) {
    EXPECT_EQ(ciphertext.getNumPoly(), numPoly);
    EXPECT_EQ(ciphertext.getLevel(), plaintext.getLevel());
    EXPECT_EQ(ciphertext.getLogSlots(), plaintext.getLogSlots());
    EXPECT_EQ(ciphertext.getRescaleCounter(), plaintext.getRescaleCounter());
    EXPECT_EQ(ciphertext.getEncodingType(), EncodingType::Slot);
    EXPECT_TRUE(ciphertext.isNTT());
    EXPECT_FALSE(ciphertext.isModUp());
}

/// Used outputs, and those that an encryption takes besides: of another context, on another device, with two
/// elements.
template <EncryptionType E>
std::vector<CiphertextBase<E>> outputsOfAnyUse(const Context& context, const Context& otherContext) {
    auto outputs = test::usedOutputs<E>(context);
    outputs.emplace_back(otherContext);
    outputs.emplace_back(context).to(Device{DeviceType::CPU, 1});
    outputs.emplace_back(context).setNumPoly(2);
    return outputs;
}

/// Encrypts from one random stream, on one thread so that uniform rows come from it too.
template <class Encrypt>
void encryptFromSeed(Encrypt&& encrypt) {
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    setSeed(seed);
    encrypt();
    omp_set_num_threads(threads);
}

// ---- under the secret key

template <EncryptionType E>
void expectOneErrorUnderTheSecretKey(const Party<E>& party) {
    for (const Plaintext& plaintext : samplePlaintexts(party)) {
        SCOPED_TRACE(testing::Message() << "level=" << plaintext.getLevel());
        CiphertextBase<E> ciphertext(party.context);
        Encryptor(party.context).encrypt(plaintext, party.secretKey, ciphertext);
        expectStamp(ciphertext, plaintext, getRank(party.context) + 1);
        test::expectIsError(
            test::differenceOf(party.context, decrypted(party, ciphertext).getMx(), plaintext.getMx()));
    }
}

TEST(Encryptor, AddsOneErrorUnderTheSecretKey) {
    expectOneErrorUnderTheSecretKey(fx());
}

TEST(Encryptor, AddsOneErrorUnderASecretKeyOfHigherRank) {
    expectOneErrorUnderTheSecretKey(module());
}

/// ct[i] uniform, drawn first and taken as they come; then e; ct[0] = m + e - sum of ct[i] * s[i-1].
template <EncryptionType E>
void expectEquationUnderTheSecretKey(const Party<E>& party) {
    const Context& context = party.context;
    for (const Plaintext& plaintext : samplePlaintexts(party)) {
        const u64 level = plaintext.getLevel();
        CiphertextBase<E> ciphertext(context), drawn(context);
        Polynomial error(context, false, true);
        error.setLevel(level);
        drawn.setLevel(level);
        encryptFromSeed([&] { Encryptor(context).encrypt(plaintext, party.secretKey, ciphertext); });
        encryptFromSeed([&] {
            for (u64 i = 1; i < drawn.getNumPoly(); ++i)
                RandomSampler().sampleUniform(drawn.getPoly(i), context);
            RandomSampler().sampleGaussian(error, context);
        });
        for (u64 i = 1; i < drawn.getNumPoly(); ++i)
            EXPECT_TRUE(sameWords(ciphertext.getPoly(i), drawn.getPoly(i))) << "i=" << i;
        for (u64 row = 0; row <= level; ++row) {
            auto expected = test::coefficientsOfRow(context, plaintext.getMx(), row);
            test::addTo(expected, test::coefficientsOfRow(context, error, row), getPrimeList(context)[row]);
            EXPECT_EQ(test::rowUnder(context, ciphertext, party.secretKey, row), expected) << "row " << row;
        }
    }
}

TEST(Encryptor, DrawsMasksThenTheErrorUnderTheSecretKey) {
    expectEquationUnderTheSecretKey(fx());
    expectEquationUnderTheSecretKey(module());
}

TEST(Encryptor, MasksEveryEncryptionAnew) {
    const Plaintext plaintext = samplePlaintexts(fx())[0];
    Ciphertext first(fx().context), second(fx().context);
    Encryptor(fx().context).encrypt(plaintext, fx().secretKey, first);
    Encryptor(fx().context).encrypt(plaintext, fx().secretKey, second);
    EXPECT_FALSE(sameWords(first.getPoly(1), second.getPoly(1)));
    EXPECT_FALSE(sameWords(first.getPoly(0), second.getPoly(0)));
}

// ---- under the public key

// Decryption gives m + v * e + e0 + e1 * s. With errors of at most 21 and v, s of coefficients -1, 0, 1, of
// which s has h that are not 0, no coefficient is off by more than 21 * (N + 1 + h).
TEST(Encryptor, AddsThreeErrorsUnderThePublicKey) {
    const auto& parameter = fx().context->parameter;
    const long bound = 21 * static_cast<long>(parameter.degree + 1 + parameter.hamming_weight);
    for (const Plaintext& plaintext : samplePlaintexts(fx())) {
        SCOPED_TRACE(testing::Message() << "level=" << plaintext.getLevel());
        Ciphertext ciphertext(fx().context);
        Encryptor(fx().context).encrypt(plaintext, fx().keys, ciphertext);
        expectStamp(ciphertext, plaintext, 2);
        const auto error =
            test::differenceOf(fx().context, decrypted(fx(), ciphertext).getMx(), plaintext.getMx());
        EXPECT_LE(test::largestOf(error), bound);
        EXPECT_GT(test::largestOf(error), 21);
    }
}

// v, e1, e0 in this order; ct[1] = ax * v + e1, ct[0] = bx * v + e0 + m.
TEST(Encryptor, DrawsTheEphemeralSecretThenTheErrorsUnderThePublicKey) {
    const Context& context = fx().context;
    const auto key = fx().keys.getEncKey();
    for (const Plaintext& plaintext : samplePlaintexts(fx())) {
        const u64 level = plaintext.getLevel();
        Ciphertext ciphertext(context);
        Polynomial v(context, false, true), e1 = v, e0 = v;
        for (Polynomial* poly : {&v, &e1, &e0}) poly->setLevel(level);
        encryptFromSeed([&] { Encryptor(context).encrypt(plaintext, fx().keys, ciphertext); });
        encryptFromSeed([&] {
            RandomSampler().sampleZO(v, context);
            RandomSampler().sampleGaussian(e1, context);
            RandomSampler().sampleGaussian(e0, context);
        });
        for (u64 row = 0; row <= level; ++row) {
            const u64 p = getPrimeList(context)[row];
            const auto coefficients = [&](const Polynomial& poly) {
                return test::coefficientsOfRow(context, poly, row);
            };
            auto a = test::negacyclicProduct(coefficients(key->getAx()), coefficients(v), p);
            auto b = test::negacyclicProduct(coefficients(key->getBx()), coefficients(v), p);
            test::addTo(a, coefficients(e1), p);
            test::addTo(b, coefficients(e0), p);
            test::addTo(b, coefficients(plaintext.getMx()), p);
            EXPECT_EQ(coefficients(ciphertext.getPoly(1)), a) << "row " << row;
            EXPECT_EQ(coefficients(ciphertext.getPoly(0)), b) << "row " << row;
        }
    }
}

double varianceOf(const test::SmallPolynomial& poly) {
    double sum = 0;
    for (const long c : poly) sum += static_cast<double>(c) * static_cast<double>(c);
    return sum / static_cast<double>(poly.size());
}

// An error of deviation 3.2 rounded to integers has variance w = 3.2^2 + 1/12. Under the public key the error
// is v * e + e0 + e1 * s: N coefficients of v have variance 1/2, h of s are -1 or 1, so its variance is
// w * (N/2 + 1 + h). The measured variance of N values of a Gaussian spreads by sqrt(2/N) of itself; of a
// product of two random polynomials by sqrt(3/N) at most, since it is the mean of N/2 products of two
// exponential variables. Six of these spreads are allowed; the seed is fixed.
TEST(Encryptor, HasErrorsOfTheDerivedVarianceOnARealRing) {
    setSeed(seed);
    const Party<EncryptionType::RLWE> party(ParameterPreset::ST7);
    const double n = static_cast<double>(party.context->parameter.degree);
    const double h = static_cast<double>(party.context->parameter.hamming_weight);
    const double w = 3.2 * 3.2 + 1.0 / 12;
    const Plaintext zero = EnDecoder(party.context).encode(Message(14, {0.0, 0.0}), 0, 0);
    Ciphertext secret(party.context), open(party.context);
    Encryptor(party.context).encrypt(zero, party.secretKey, secret);
    Encryptor(party.context).encrypt(zero, party.keys, open);
    const auto errorOf = [&](const Ciphertext& ciphertext) {
        return test::differenceOf(party.context, decrypted(party, ciphertext).getMx(), zero.getMx());
    };
    test::expectIsError(errorOf(secret));
    EXPECT_NEAR(varianceOf(errorOf(secret)) / w, 1.0, 6 * std::sqrt(2 / n));
    EXPECT_NEAR(varianceOf(errorOf(open)) / (w * (n / 2 + 1 + h)), 1.0, 6 * std::sqrt(3 / n));
}

// ---- messages and coefficients

TEST(Encryptor, EncryptsAMessageAsItsPlaintextWithoutTransform) {
    Seeded random(52);
    const Message message = random.message(4);
    const Encryptor encryptor(fx().context);
    const Plaintext plaintext = EnDecoder(fx().context).encodeWithoutNTT(message, 5, 2);
    const Plaintext byDefault = EnDecoder(fx().context).encodeWithoutNTT(message, 12, 0);
    Ciphertext expected(fx().context), got(fx().context);
    encryptFromSeed([&] { encryptor.encrypt(plaintext, fx().keys, expected); });
    encryptFromSeed([&] { encryptor.encrypt(message, fx().keys, got, 5, 2); });
    EXPECT_TRUE(sameWords(got, expected));
    encryptFromSeed([&] { encryptor.encrypt(plaintext, fx().secretKey, expected); });
    encryptFromSeed([&] { encryptor.encrypt(message, fx().secretKey, got, 5, 2); });
    EXPECT_TRUE(sameWords(got, expected));
    encryptFromSeed([&] { encryptor.encrypt(byDefault, fx().keys, expected); });
    encryptFromSeed([&] { encryptor.encrypt(message, fx().keys, got); });
    EXPECT_TRUE(sameWords(got, expected));
    encryptFromSeed([&] { encryptor.encrypt(byDefault, fx().secretKey, expected); });
    encryptFromSeed([&] { encryptor.encrypt(message, fx().secretKey, got); });
    EXPECT_TRUE(sameWords(got, expected));
}

TEST(Encryptor, GivesTheSameForBothFormsOfAPlaintext) {
    Seeded random(53);
    const Message message = random.message(5);
    const EnDecoder encoder(fx().context);
    const Encryptor encryptor(fx().context);
    Ciphertext a(fx().context), b(fx().context);
    encryptFromSeed([&] { encryptor.encrypt(encoder.encode(message, 7, 1), fx().keys, a); });
    encryptFromSeed([&] { encryptor.encrypt(encoder.encodeWithoutNTT(message, 7, 1), fx().keys, b); });
    EXPECT_TRUE(sameWords(a, b));
    encryptFromSeed([&] { encryptor.encrypt(encoder.encode(message, 7, 1), fx().secretKey, a); });
    encryptFromSeed([&] { encryptor.encrypt(encoder.encodeWithoutNTT(message, 7, 1), fx().secretKey, b); });
    EXPECT_TRUE(sameWords(a, b));
}

template <EncryptionType E>
void expectCoefficientsBack(const Party<E>& party) {
    Seeded random(54);
    SCOPED_TRACE(random.describe());
    const u64 top = getEncryptionLevel(party.context);
    for (u64 size = 2; size <= 64; size *= 2) {
        SCOPED_TRACE(testing::Message() << "size=" << size);
        std::vector<double> values(size), got;
        for (double& value : values) value = random.real(-1, 1);
        CiphertextBase<E> ciphertext(party.context);
        Encryptor(party.context).encrypt(values, party.secretKey, ciphertext, top, 1);
        EXPECT_EQ(ciphertext.getRescaleCounter(), 1);
        Encryptor(party.context).encrypt(values, party.secretKey, ciphertext);
        EXPECT_EQ(ciphertext.getEncodingType(), EncodingType::Coefficient);
        EXPECT_FALSE(ciphertext.isNTT());
        EXPECT_EQ(ciphertext.getLevel(), top);
        EXPECT_EQ(ciphertext.getRescaleCounter(), 0);
        EXPECT_EQ(u64{2} << ciphertext.getLogSlots(), size);
        Decryptor(party.context).decrypt(ciphertext, party.secretKey, got);
        ASSERT_EQ(got.size(), size);
        // One error of at most 21, half a unit for the encoding, and the doubles' own rounding of a number
        // of at most 1, all in units of the scale, which is far below 2^50.
        const double bound = 22 * std::pow(2.0, -party.context->scale_factors.log_scale[top]);
        for (u64 k = 0; k < size; ++k) EXPECT_NEAR(got[k], values[k], bound);
    }
}

TEST(Encryptor, PutsRealsOnTheCoefficients) {
    expectCoefficientsBack(fx());
    expectCoefficientsBack(module());
}

// ---- outputs that were in use

template <EncryptionType E, class Encrypt>
void expectSameIntoUsedOutputs(const Party<E>& party, const Context& other, EncodingType type,
                               Encrypt&& encrypt) {
    CiphertextBase<E> fresh(party.context);
    encryptFromSeed([&] { encrypt(fresh); });
    u64 i = 0;
    for (auto& used : outputsOfAnyUse<E>(party.context, other)) {
        SCOPED_TRACE(testing::Message() << "output " << i++);
        encryptFromSeed([&] { encrypt(used); });
        EXPECT_TRUE(sameWords(used, fresh));
        EXPECT_EQ(used.getEncodingType(), type);
        EXPECT_EQ(used.getContext()->parameter.preset, party.context->parameter.preset);
        EXPECT_EQ(used.getDevice(), Device{});
    }
}

TEST(Encryptor, TakesOutputsOfAnyEarlierUse) {
    const Encryptor encryptor(fx().context), moduleEncryptor(module().context);
    const Plaintext owesNothing = samplePlaintexts(fx())[2], plaintext = samplePlaintexts(fx())[3];
    const Plaintext modulePlaintext = samplePlaintexts(module())[3];
    const std::vector<double> values(8, 0.5);
    expectSameIntoUsedOutputs(fx(), test::smallContext(), EncodingType::Slot,
                              [&](Ciphertext& out) { encryptor.encrypt(owesNothing, fx().keys, out); });
    expectSameIntoUsedOutputs(fx(), test::smallContext(), EncodingType::Slot,
                              [&](Ciphertext& out) { encryptor.encrypt(plaintext, fx().secretKey, out); });
    expectSameIntoUsedOutputs(fx(), test::smallContext(), EncodingType::Coefficient,
                              [&](Ciphertext& out) { encryptor.encrypt(values, fx().secretKey, out); });
    expectSameIntoUsedOutputs(module(), contextOf(ParameterPreset::FGbD6R6L0), EncodingType::Slot,
                              [&](CiphertextBase<EncryptionType::MLWE>& out) {
                                  moduleEncryptor.encrypt(modulePlaintext, module().secretKey, out);
                              });
}

TEST(Encryptor, HoldsTheCounterAgainstTheLevelThatTheOutputHadUnderThePublicKey) {
    const Encryptor encryptor(fx().context);
    const Plaintext owesTwo = EnDecoder(fx().context).encode(Message(2, {1.0, 0.0}), 3, 2);
    Ciphertext used(fx().context);
    used.setLevel(1);
    EXPECT_REFUSED(encryptor.encrypt(owesTwo, fx().keys, used),
                   "Rescale counter should be less than or equal to the level");
    used.setLevel(2);
    encryptor.encrypt(owesTwo, fx().keys, used);
    expectStamp(used, owesTwo, 2);
    // Under the secret key the output takes the level of the plaintext first.
    used.setLevel(0);
    encryptor.encrypt(owesTwo, fx().secretKey, used);
    expectStamp(used, owesTwo, 2);
}

TEST(Encryptor, LeavesThePlaintextAsItWas) {
    for (const Plaintext& plaintext : samplePlaintexts(fx())) {
        const Plaintext copy = plaintext;
        Ciphertext out(fx().context);
        Encryptor(fx().context).encrypt(plaintext, fx().keys, out);
        Encryptor(fx().context).encrypt(plaintext, fx().secretKey, out);
        EXPECT_TRUE(sameWords(plaintext, copy));
    }
}

// ---- what is refused

/// Expects the refusal to come before anything is drawn or changed.
template <EncryptionType E, class Encrypt>
void expectRefusedUntouched(CiphertextBase<E>& out, Encrypt&& encrypt, const char* refusal) {
    const CiphertextBase<E> before = out;
    const std::string state = threadGenerator().getState();
    EXPECT_REFUSED(encrypt(), refusal);
    EXPECT_EQ(threadGenerator().getState(), state);
    EXPECT_TRUE(sameWords(out, before));
}

Plaintext plaintextAt(const Context& context, u64 level) {
    return EnDecoder(context).encode(Message(2, {1.0, 0.0}), level, 0);
}

TEST(Encryptor, RefusesUnderThePublicKeyInTheOrderOfTheRules) {
    const Encryptor encryptor(fx().context);
    const KeyPack none(fx().context);
    Ciphertext out(fx().context);
    Plaintext high = plaintextAt(fx().context, 13);
    high.to(Device{DeviceType::CPU, 1});
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(high, none, out); }, "[encrypt] Failed to load the encryption key");
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(high, fx().keys, out); }, "Operands are in different devices.");
    high.to(Device{});
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(high, fx().keys, out); },
        "[encrypt] Level of an input Plaintext cannot be greater than encryption level.");
    EXPECT_NO_THROW(encryptor.encrypt(plaintextAt(fx().context, 12), fx().keys, out));
}

TEST(Encryptor, RefusesMessagesUnderThePublicKeyInTheOrderOfTheRules) {
    const Encryptor encryptor(fx().context);
    const KeyPack none(fx().context);
    Ciphertext out(fx().context);
    Message tooLarge(6, {0.0, 0.0});
    tooLarge.to(Device{DeviceType::CPU, 1});
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(tooLarge, none, out, 13, 0); },
        "[encrypt] Failed to load the encryption key");
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(tooLarge, fx().keys, out, 13, 0); },
        "Operands are in different devices.");
    tooLarge.to(Device{});
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(tooLarge, fx().keys, out, 13, 0); },
        "[encode] Message size is too large.");
    expectRefusedUntouched(
        out,
        [&] {
            encryptor.encrypt(Message(2, {0.0, 0.0}), fx().keys, out, 13, 0);
        },
        "[encrypt] Level of an input Plaintext cannot be greater than encryption level.");
}

TEST(Encryptor, RefusesUnderTheSecretKeyWithoutTheFullStop) {
    const char* refusal = "[encrypt] Level of an input Plaintext cannot be greater than encryption level";
    const Encryptor encryptor(fx().context);
    Ciphertext out(fx().context);
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(plaintextAt(fx().context, 13), fx().secretKey, out); }, refusal);
    expectRefusedUntouched(
        out,
        [&] {
            encryptor.encrypt(Message(2, {0.0, 0.0}), fx().secretKey, out, 13, 0);
        },
        refusal);
    expectRefusedUntouched(
        out,
        [&] {
            encryptor.encrypt(std::vector{1.0, 2.0}, fx().secretKey, out, 13, 0);
        },
        refusal);
    EXPECT_NO_THROW(encryptor.encrypt(plaintextAt(fx().context, 12), fx().secretKey, out));
}

TEST(Encryptor, RefusesCoefficientsInTheOrderOfTheRules) {
    const Encryptor encryptor(fx().context);
    Ciphertext out(fx().context);
    const auto coefficients = [](u64 n) { return std::vector<double>(n, 1.0); };
    for (const u64 size : {0, 1})
        expectRefusedUntouched(
            out, [&] { encryptor.encrypt(coefficients(size), fx().secretKey, out, 25, 26); },
            "[encode] Cannot encode a message with a size less than 2");
    for (const u64 size : {3, 65})
        expectRefusedUntouched(
            out, [&] { encryptor.encrypt(coefficients(size), fx().secretKey, out, 25, 26); },
            "[encode] The message size should be a power of two");
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(coefficients(128), fx().secretKey, out, 25, 26); },
        "[encode] The target level is greater than the maximum possible level");
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(coefficients(128), fx().secretKey, out, 24, 25); },
        "[encode] The message size should be a power of two");
    expectRefusedUntouched(
        out, [&] { encryptor.encrypt(coefficients(64), fx().secretKey, out, 24, 25); },
        "[encode] The target rescale counter should be less than or equal to the target level.");
}

/// Every form refuses numbers that cannot be encoded last.
TEST(Encryptor, RefusesNumbersOutOfRangeLast) {
    const Encryptor encryptor(fx().context);
    Ciphertext out(fx().context);
    const auto largestAt = [](u64 level) {
        return test::largestEncodable(test::slice(getPrimeList(fx().context), 0, level + 1),
                                      getDefaultScaleFactorList(fx().context)[level]);
    };
    for (const double x : test::neverEncodable()) {
        const Message message(2, {0.5, x});
        expectRefusedUntouched(
            out, [&] { encryptor.encrypt(message, fx().keys, out, 13, 0); },
            "[encrypt] Level of an input Plaintext cannot be greater than encryption level.");
        for (const auto& encrypt : std::initializer_list<std::function<void()>>{
                 [&] { encryptor.encrypt(message, fx().secretKey, out, 13, 0); },
                 [&] {
                     encryptor.encrypt(std::vector{0.5, x}, fx().secretKey, out, 13, 0);
                 }})
            expectRefusedUntouched(
                out, encrypt,
                "[encrypt] Level of an input Plaintext cannot be greater than encryption level");
        const std::string shown = std::isfinite(x) ? "coefficient" : "number";
        const std::string before(
            test::rangeRefusalOf([&] { EnDecoder(fx().context).encode(message, 5, 1); }).text);
        EXPECT_NE(before.find("Cannot encode the " + shown), std::string::npos) << before;
        expectRefusedUntouched(
            out, [&] { encryptor.encrypt(message, fx().keys, out, 5, 1); }, before.c_str());
        expectRefusedUntouched(
            out, [&] { encryptor.encrypt(message, fx().secretKey, out, 5, 1); }, before.c_str());
        test::expectOutOfRange(
            [&] {
                encryptor.encrypt(std::vector{0.5, x}, fx().secretKey, out, 5, 1);
            },
            "number", x, 5, 1, largestAt(4));
    }
    const double largest = largestAt(4);
    EXPECT_NO_THROW(encryptor.encrypt(Message(0, {largest, -largest}), fx().keys, out, 5, 1));
    EXPECT_NO_THROW(encryptor.encrypt(std::vector{largest, -largest}, fx().secretKey, out, 5, 1));
}

// ---- threads

TEST(Encryptor, ServesManyThreads) {
    const Plaintext plaintext = samplePlaintexts(fx())[4];
    const Encryptor encryptor(fx().context);
    std::vector<Ciphertext> outputs(4, Ciphertext(fx().context));
    std::vector<std::thread> threads;
    for (Ciphertext& out : outputs)
        threads.emplace_back([&] { encryptor.encrypt(plaintext, fx().keys, out); });
    for (auto& thread : threads) thread.join();
    const long bound = 21 * (64 + 1 + 8);
    for (u64 i = 0; i < outputs.size(); ++i) {
        const auto error =
            test::differenceOf(fx().context, decrypted(fx(), outputs[i]).getMx(), plaintext.getMx());
        EXPECT_LE(test::largestOf(error), bound);
        for (u64 j = 0; j < i; ++j) EXPECT_FALSE(sameWords(outputs[i].getPoly(1), outputs[j].getPoly(1)));
    }
}

} // namespace
} // namespace Torvo
