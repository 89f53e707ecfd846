#include "support/SecondHost.hpp"

#include "support/CiphertextWords.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/Decryptor.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

/// Errors and ephemeral secrets are drawn on the CPU, and go to where the operands are.
namespace Torvo {
namespace {

using namespace test;

template <EncryptionType E>
struct Keyed {
    explicit Keyed(ParameterPreset preset) : context(servingSecondHost(preset)) {}

    Context context;
    SecretKeyBase<E> key{context}, keyThere = onSecondHost(key);
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    Plaintext plaintext = wordsOfPlaintext(context, getEncryptionLevel(context), 1);
    Plaintext plaintextThere = onSecondHost(plaintext);

    template <class Encrypt>
    CiphertextBase<E> drawn(Encrypt encrypt) const {
        CiphertextBase<E> out(context);
        drawnFrom(2, [&] { encrypt(out); });
        return out;
    }
};

template <EncryptionType E>
void expectThere(const CiphertextBase<E>& there, const CiphertextBase<E>& here) {
    EXPECT_EQ(here.getDevice(), Device{});
    EXPECT_EQ(there.getDevice(), secondHost);
    EXPECT_TRUE(sameWords(there, here));
}

template <EncryptionType E>
void expectEncryptsThere(ParameterPreset preset) {
    const Keyed<E> k(preset);
    const auto here = k.drawn([&](auto& out) { k.encryptor.encrypt(k.plaintext, k.key, out); });
    const auto there = k.drawn([&](auto& out) { k.encryptor.encrypt(k.plaintextThere, k.keyThere, out); });
    expectThere(there, here);
}

TEST(SecondHost, EncryptionUnderTheSecretKeyIsDoneThere) {
    expectEncryptsThere<RLWE>(ParameterPreset::FX);
    expectEncryptsThere<MLWE>(ParameterPreset::SD3D6R2);
}

TEST(SecondHost, EncryptionUnderThePublicKeyIsDoneThere) {
    const Keyed<RLWE> k(ParameterPreset::FX);
    const KeyGenerator generator(k.context, k.key);
    generator.genEncKey();
    KeyPack pack = generator.getKeyPack();
    const auto here = k.drawn([&](auto& out) { k.encryptor.encrypt(k.plaintext, pack, out); });
    pack.to(secondHost);
    const auto there = k.drawn([&](auto& out) { k.encryptor.encrypt(k.plaintextThere, pack, out); });
    expectThere(there, here);
}

TEST(SecondHost, SharesOfADecryptionAreMadeThere) {
    const Keyed<RLWE> k(ParameterPreset::FX);
    const auto ciphertext = wordsOfCiphertext<RLWE>(k.context, 3, 3);
    const auto here = k.drawn([&](auto& out) { k.decryptor.partialDecrypt(ciphertext, k.key, out); });
    const auto there =
        k.drawn([&](auto& out) { k.decryptor.partialDecrypt(onSecondHost(ciphertext), k.keyThere, out); });
    expectThere(there, here);
}

TEST(SecondHost, DecryptionIsDoneThere) {
    const Keyed<RLWE> k(ParameterPreset::FX);
    const auto ciphertext = wordsOfCiphertext<RLWE>(k.context, 3, 3);
    Plaintext here(k.context), there(k.context);
    k.decryptor.decrypt(ciphertext, k.key, here);
    k.decryptor.decrypt(onSecondHost(ciphertext), k.keyThere, there);
    EXPECT_EQ(there.getDevice(), secondHost);
    EXPECT_TRUE(sameWords(there, here));
}

} // namespace
} // namespace Torvo
