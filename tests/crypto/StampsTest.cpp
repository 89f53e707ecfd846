#include "support/Stamps.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/UsedOutputs.hpp"

#include <gtest/gtest.h>

#include <functional>

/// Which of log slots, owed rescales and encoding type encryptions and decryptions put on their outputs.
namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;

constexpr u64 logSlots = 3, level = 3;
constexpr EncodingType bothEncodings[] = {EncodingType::Slot, EncodingType::Coefficient};

const Scheme& fx() {
    return Scheme::of(ParameterPreset::FX);
}
const ModuleScheme& module() {
    return ModuleScheme::of(ParameterPreset::SD3D6R2);
}

Message message() {
    return Seeded(53).message(logSlots);
}

template <EncryptionType E, class Encrypt>
void expectEncryption(const Context& context, const SeenStamp& left, const char* name, Encrypt&& encrypt) {
    for (const auto& used : usedOutputs<E>(context))
        for (const EncodingType encoding : bothEncodings) {
            auto out = stampedOtherwise(used, left, encoding);
            encrypt(out);
            EXPECT_EQ(stampOf(out), left) << name << ", over one on " << stampOf(used);
        }
}

template <EncryptionType E>
void expectEncryptionsUnderTheSecretKey(const SchemeBase<E>& scheme) {
    const Plaintext plaintext = scheme.encoder.encode(message(), level, 2);
    const std::vector<double> numbers(16, 0.5);
    const auto& key = scheme.secretKey;
    const Encryptor& e = scheme.encryptor;
    const SeenStamp onSlots{logSlots, 2}, onCoefficients{logSlots, 2, EncodingType::Coefficient};
    expectEncryption<E>(scheme.context, onSlots, "a plaintext",
                        [&](auto& out) { e.encrypt(plaintext, key, out); });
    expectEncryption<E>(scheme.context, onSlots, "a message",
                        [&](auto& out) { e.encrypt(message(), key, out, level, 2); });
    expectEncryption<E>(scheme.context, {logSlots, 0}, "a message at the highest level",
                        [&](auto& out) { e.encrypt(message(), key, out); });
    expectEncryption<E>(scheme.context, onCoefficients, "coefficients",
                        [&](auto& out) { e.encrypt(numbers, key, out, level, 2); });
}

TEST(Stamps, OfEncryptionsUnderTheSecretKeyAreThePlaintexts) {
    expectEncryptionsUnderTheSecretKey(fx());
    expectEncryptionsUnderTheSecretKey(module());
}

TEST(Stamps, OfEncryptionsUnderThePublicKeyAreThePlaintexts) {
    const Encryptor& e = fx().encryptor;
    const Plaintext plaintext = fx().encoder.encode(message(), level, 2);
    expectEncryption<RLWE>(fx().context, {logSlots, 2}, "a plaintext",
                           [&](Ciphertext& out) { e.encrypt(plaintext, fx().keys, out); });
    expectEncryption<RLWE>(fx().context, {logSlots, 2}, "a message",
                           [&](Ciphertext& out) { e.encrypt(message(), fx().keys, out, level, 2); });
    expectEncryption<RLWE>(fx().context, {logSlots, 0}, "a message at the highest level",
                           [&](Ciphertext& out) { e.encrypt(message(), fx().keys, out); });
}

template <EncryptionType E>
void expectDecryptions(const SchemeBase<E>& scheme) {
    const auto ciphertext = scheme.encrypt(message(), level, 2);
    const SeenStamp left{logSlots, 2};
    for (const Plaintext& used : usedPlaintexts(scheme.context)) {
        Plaintext out = stampedOtherwise(used, left);
        scheme.decryptor.decrypt(ciphertext, scheme.secretKey, out);
        EXPECT_EQ(stampOf(out), left);
    }
}

TEST(Stamps, OfDecryptionsAreTheCiphertexts) {
    expectDecryptions(fx());
    expectDecryptions(module());
}

TEST(Stamps, OfPartialDecryptionsAreTheCiphertexts) {
    const Ciphertext in = fx().encrypt(message(), level, 2);
    const auto decrypt = [&](const Ciphertext& x, Ciphertext& out) {
        fx().decryptor.partialDecrypt(x, fx().secretKey, out);
    };
    expectEncryption<RLWE>(fx().context, {logSlots, 2}, "in part",
                           [&](Ciphertext& out) { decrypt(in, out); });
    Ciphertext itself = in;
    decrypt(itself, itself);
    EXPECT_EQ(stampOf(itself), (SeenStamp{logSlots, 2}));
}

TEST(Stamps, OfEncodingsAreWhatWasAskedFor) {
    const EnDecoder& encoder = fx().encoder;
    const SeenStamp left{logSlots, 2};
    EXPECT_EQ(stampOf(encoder.encode(message(), level, 2)), left);
    EXPECT_EQ(stampOf(encoder.encodeWithoutNTT(message(), level, 2)), left);
    EXPECT_EQ(stampOf(encoder.encodeWithoutNTT(std::vector<double>(16, 0.5), level, 2)), left);
    EXPECT_REFUSED(encoder.encode(message(), level, -1),
                   "Rescale counter should be greater than or equal to zero");
}

TEST(Stamps, OfACopyIntoAnotherContextAreTheOriginals) {
    Ciphertext original = fx().encrypt(message(), level, 2);
    original.setEncodingType(EncodingType::Coefficient);
    EXPECT_EQ(stampOf(Ciphertext(fx().context, original)), stampOf(original));
}

} // namespace
} // namespace Torvo
