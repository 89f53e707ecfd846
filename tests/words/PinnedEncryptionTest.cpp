#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/Decryptor.hpp>
#include <Torvo/EnDecoder.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using namespace test;

/// A context with its secret key, and a level below the top of what it encrypts at.
template <EncryptionType E>
struct Keyed {
    explicit Keyed(Context itsContext) : context(std::move(itsContext)) {}

    Context context;
    SecretKeyBase<E> key = drawnFrom(1, [&] { return SecretKeyBase<E>(context); });
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    u64 top = getEncryptionLevel(context), low = top - 1, logSlots = getLogFullSlots(context);

    template <class Encrypt>
    CiphertextBase<E> encrypted(u64 seed, Encrypt encrypt) const {
        CiphertextBase<E> out(context);
        drawnFrom(seed, [&] { encrypt(out); });
        return out;
    }
};

KeyPack encryptionKeyOf(const Keyed<RLWE>& keyed) {
    const KeyGenerator generator(keyed.context, keyed.key);
    drawnFrom(2, [&] { generator.genEncKey(); });
    return generator.getKeyPack();
}

/// Two operands of encryption: at the top, and below it owing a rescale, on coefficients and of few slots.
struct Operands {
    Operands(const Context& context, u64 top, u64 low)
        : full(wordsOfPlaintext(context, top, 1)), owing(wordsOfPlaintext(context, low, 2)) {
        owing.setRescaleCounter(1);
        owing.getMx().setNTT(false);
        owing.setLogSlots(2);
    }
    Plaintext full, owing;
};

// ---- words into words

template <EncryptionType E>
void pinSecretKeyEncryption(PinnedGroup& group, const Keyed<E>& k) {
    using Ciphertext = CiphertextBase<E>;
    const Operands operands(k.context, k.top, k.low);
    const auto full = k.encrypted(3, [&](auto& out) { k.encryptor.encrypt(operands.full, k.key, out); });
    const auto owing = k.encrypted(4, [&](auto& out) { k.encryptor.encrypt(operands.owing, k.key, out); });
    group.holds("under the secret key, at the top", full);
    group.holds("under the secret key, owing a rescale", owing);
    const auto decrypt = [&](const Ciphertext& ciphertext) {
        return [&](Plaintext& out) { k.decryptor.decrypt(ciphertext, k.key, out); };
    };
    group.result("decrypted, at the top", operands.full, decrypt(full));
    group.result("decrypted, owing a rescale", operands.full, decrypt(owing));
}

void pinEncryption(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " encryption");
    const Keyed<RLWE> k(contextOf(preset));
    pinSecretKeyEncryption(group, k);
    const KeyPack pack = encryptionKeyOf(k);
    const Operands operands(k.context, k.top, k.low);
    const auto full = k.encrypted(5, [&](auto& out) { k.encryptor.encrypt(operands.full, pack, out); });
    const auto owing = k.encrypted(6, [&](auto& out) { k.encryptor.encrypt(operands.owing, pack, out); });
    group.holds("under the public key, at the top", full);
    group.holds("under the public key, owing a rescale", owing);
    group.holds("a share of a decryption",
                k.encrypted(7, [&](auto& out) { k.decryptor.partialDecrypt(owing, k.key, out); }));

    auto product = full;
    product.setNumPoly(3);
    Seeded words(8);
    fill(product.getPoly(2), words);
    group.result("decrypted, of three elements", operands.full,
                 [&](Plaintext& out) { k.decryptor.decrypt(product, k.key, out); });
}

TEST(PinnedEncryption, OfTheToyPreset) {
    pinEncryption(ParameterPreset::FX, "FX");
}
TEST(PinnedEncryptionRealPreset, OfSD3) {
    pinEncryption(ParameterPreset::SD3, "SD3");
}
TEST(PinnedEncryptionRealPreset, OfST7) {
    pinEncryption(ParameterPreset::ST7, "ST7");
}
TEST(PinnedEncryption, OfAModule) {
    PinnedGroup group("module encryption");
    pinSecretKeyEncryption(group, Keyed<MLWE>(familyModule(6, 3, 2)));
}

TEST(PinnedEncryption, OfTheCompactForm) {
    PinnedGroup group("compact encryption");
    const Keyed<RLWE> k(contextOf(ParameterPreset::FX));
    const Operands operands(k.context, k.top, k.low);
    const auto pin = [&](const std::string& row, u64 seed, const Plaintext& plaintext) {
        const auto compact = drawnFrom(seed, [&] { return k.encryptor.encryptCompact(plaintext, k.key); });
        group.result(row, Ciphertext(k.context), [&](Ciphertext& out) { out = compact.expand(); });
    };
    pin("expanded, at the top", 11, operands.full);
    pin("expanded, owing a rescale", 12, operands.owing);
}

// ---- numbers into words and back: scales are powers of 2, slots are sums over roots of unity

void pinCodec(PinnedGroup& group, const Context& context) {
    const EnDecoder encoder(context);
    const u64 top = getEncryptionLevel(context), logSlots = getLogFullSlots(context);
    const Message full = slotsOf(logSlots, 1), few = slotsOf(2, 2), one = slotsOf(0, 3);
    const auto numbers = numbersOf(getDegree(context), 4), fewNumbers = numbersOf(4, 5);
    const Plaintext empty(context);
    const auto encode = [&](const std::string& row, auto encoded) {
        group.result(row, empty, [&](Plaintext& out) { out = encoded(); });
    };
    group.holds("scales", getDefaultScaleFactorList(context));
    encode("encoded, all slots", [&] { return encoder.encode(full); });
    encode("encoded, owing a rescale", [&] { return encoder.encode(full, top, 1); });
    encode("encoded, four slots", [&] { return encoder.encode(few, top - 1, 0); });
    encode("encoded, one slot", [&] { return encoder.encode(one, 0, 0); });
    encode("encoded without NTT", [&] { return encoder.encodeWithoutNTT(full, top - 1, 1); });
    encode("encoded coefficients", [&] { return encoder.encodeWithoutNTT(numbers, top, 1); });
    encode("encoded, four coefficients", [&] { return encoder.encodeWithoutNTT(fewNumbers, 0, 0); });

    const Plaintext owing = encoder.encode(full, top, 1), sparse = encoder.encode(few, 0, 0);
    const auto decode = [&](const std::string& row, const Plaintext& plaintext) {
        group.result(row, Message(), [&](Message& out) { out = encoder.decode(plaintext); });
        group.result(row + ", without FFT", numbersOf(1, 1),
                     [&](auto& out) { out = encoder.decodeWithoutFFT(plaintext); });
    };
    decode("decoded, owing a rescale", owing);
    decode("decoded, four slots at level 0", sparse);
}

template <EncryptionType E>
void pinNumbers(PinnedGroup& group, const Keyed<E>& k) {
    const Message full = slotsOf(k.logSlots, 1), few = slotsOf(2, 2);
    const auto numbers = numbersOf(getDegree(k.context), 4), fewNumbers = numbersOf(4, 5);
    const auto encrypt = [&](const std::string& row, u64 seed, const auto& numbersOrSlots, auto... levels) {
        const auto ciphertext =
            k.encrypted(seed, [&](auto& out) { k.encryptor.encrypt(numbersOrSlots, k.key, out, levels...); });
        group.holds("encrypted, " + row, ciphertext);
        group.result("decrypted, " + row, numbersOrSlots,
                     [&](auto& out) { k.decryptor.decrypt(ciphertext, k.key, out); });
    };
    encrypt("all slots", 3, full);
    encrypt("all slots, owing a rescale", 4, full, k.low, 1);
    encrypt("four slots at level 0", 5, few, u64{0}, 0);
    encrypt("coefficients", 6, numbers);
    encrypt("coefficients, owing a rescale", 7, numbers, k.low, 1);
    encrypt("four coefficients at level 0", 8, fewNumbers, u64{0}, 0);
}

void pinRingNumbers(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " encoding");
    const Keyed<RLWE> k(contextOf(preset));
    pinCodec(group, k.context);
    pinNumbers(group, k);
    const KeyPack pack = encryptionKeyOf(k);
    const Message full = slotsOf(k.logSlots, 1), few = slotsOf(2, 2);
    group.holds("under the public key, all slots",
                k.encrypted(9, [&](auto& out) { k.encryptor.encrypt(full, pack, out); }));
    group.holds("under the public key, four slots, owing a rescale",
                k.encrypted(10, [&](auto& out) { k.encryptor.encrypt(few, pack, out, k.low, 1); }));
}

TEST(PinnedEncoding, OfTheToyPreset) {
    SKIP_UNLESS_MATHEMATICS_AGREE("FX", contextOf(ParameterPreset::FX));
    pinRingNumbers(ParameterPreset::FX, "FX");
}
TEST(PinnedEncodingRealPreset, OfSD3) {
    SKIP_UNLESS_MATHEMATICS_AGREE("SD3", contextOf(ParameterPreset::SD3));
    pinRingNumbers(ParameterPreset::SD3, "SD3");
}
TEST(PinnedEncodingRealPreset, OfST7) {
    SKIP_UNLESS_MATHEMATICS_AGREE("ST7", contextOf(ParameterPreset::ST7));
    pinRingNumbers(ParameterPreset::ST7, "ST7");
}
TEST(PinnedEncoding, OfAModule) {
    const Context context = familyModule(6, 3, 2);
    SKIP_UNLESS_MATHEMATICS_AGREE("module", context);
    PinnedGroup group("module encoding");
    pinNumbers(group, Keyed<MLWE>(context));
}

} // namespace
} // namespace Torvo
