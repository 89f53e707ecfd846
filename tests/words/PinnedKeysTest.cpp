#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "support/Bytes.hpp"
#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/RingPackerUtils.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using namespace test;

std::vector<int> ternary(u64 count) {
    std::vector<int> coefficients(count);
    Seeded words(11);
    for (int& c : coefficients) c = static_cast<int>(words.word() % 3) - 1;
    return coefficients;
}

template <class Key>
void pinSecret(PinnedGroup& group, const Key& key) {
    group.holds("secret key", key);
    group.holds("secret key, file of its seed",
                bytesOf([&](std::ostream& stream) { key.saveSeedOnly(stream); }));
}

void pinRingKeys(ParameterPreset preset, const std::string& name) {
    PinnedGroup group(name + " keys");
    const Context& context = contextOf(preset);
    const auto key = drawnFrom(1, [&] { return SecretKey(context); });
    pinSecret(group, key);
    group.result("secret key of given coefficients", key,
                 [&](SecretKey& out) { out = SecretKey(context, ternary(getDegree(context)).data()); });
    const KeyGenerator generator(context, key);
    const KeyPack& pack = generator.getKeyPack();
    drawnFrom(2, [&] { generator.genEncKey(); });
    group.holds("encryption key", *pack.getEncKey());
    group.holds("encryption key of its own", drawnFrom(3, [&] { return EncryptionKey(context, key); }));
    drawnFrom(4, [&] { generator.genMultKey(); });
    group.holds("multiplication key", *pack.getMultKey());
    drawnFrom(5, [&] { generator.genConjKey(); });
    group.holds("conjugation key", *pack.getConjKey());
    drawnFrom(6, [&] { generator.genLeftRotKey(5); });
    group.holds("left rotation key 5", *pack.getLeftRotKey(5));
    drawnFrom(7, [&] { generator.genRightRotKey(3); });
    group.holds("right rotation key 3", *pack.getRightRotKey(3));
    drawnFrom(8, [&] { generator.genRotKeyIfNotExist(-6); });
    group.holds("rotation key -6", *pack.getRightRotKey(6));
}

/// The keys that the pack holds of these rotations, in order.
void pinRotations(PinnedGroup& group, const std::string& row, const KeyPack& pack, u64 numSlots) {
    WordDigest digest;
    for (u64 index = 1; index < numSlots; ++index)
        if (pack.isLeftRotKeyLoaded(index)) digest.add(index).add(*pack.getLeftRotKey(index));
    group.holds(row, digest.hex());
}

TEST(PinnedKeys, OfTheToyPreset) {
    pinRingKeys(ParameterPreset::FX, "FX");
}
TEST(PinnedKeysRealPreset, OfSD3) {
    pinRingKeys(ParameterPreset::SD3, "SD3");
}
TEST(PinnedKeysRealPreset, OfST7) {
    pinRingKeys(ParameterPreset::ST7, "ST7");
}

TEST(PinnedKeys, OfManyRotations) {
    PinnedGroup group("FX rotation keys");
    const Context& context = contextOf(ParameterPreset::FX);
    KeyGenerator generator(context, drawnFrom(1, [&] { return SecretKey(context); }));
    drawnFrom(2, [&] { generator.genRotKeyBundle(); });
    pinRotations(group, "of the powers of two", generator.getKeyPack(), 32);
    for (const bool compact : {false, true})
        for (const u64 logSlots : {5, 2}) {
            generator.flush();
            drawnFrom(3, [&] { generator.genRotKeysForBootstrap(logSlots, compact); });
            const std::string row = "of bootstraps of 2^" + std::to_string(logSlots) + " slots";
            pinRotations(group, row + (compact ? ", compact" : ""), generator.getKeyPack(), 32);
        }
}

/// The presets with encapsulation are large; a small pair of rings that calls itself by their names will do.
TEST(PinnedKeys, OfSparseSecretEncapsulation) {
    PinnedGroup group("encapsulation keys");
    const Context context = makeContext(6, 2, 50, 40, 60, 2), sparse = makeContext(6, 1, 50, 42, 51, 1);
    context->parameter.preset = ParameterPreset::FGd;
    context->parameter.has_sparse_encapsulation = true;
    sparse->parameter.preset = ParameterPreset::SGd0;
    sparse->parameter.hamming_weight = 8;
    const KeyGenerator generator(context, sparse, drawnFrom(1, [&] { return SecretKey(context); }));
    drawnFrom(2, [&] { generator.genSparseSecretEncapsulationKey(); });
    group.holds("both parts", *generator.getKeyPack().getSparseSecretEncapsulationKey());
}

TEST(PinnedKeys, OfAModule) {
    PinnedGroup group("module keys");
    const Context context = familyModule(6, 3, 2);
    const auto key = drawnFrom(1, [&] { return SecretKeyBase<MLWE>(context); });
    pinSecret(group, key);
    group.result("secret key of given coefficients", key, [&](SecretKeyBase<MLWE>& out) {
        out = SecretKeyBase<MLWE>(context, ternary(2 * getDegree(context)).data());
    });
}

TEST(PinnedKeys, OfPlainLWE) {
    PinnedGroup group("plain SD3 keys");
    const LWE::Context context = LWE::makeContext(LWE::ParameterPreset::SD3);
    const auto key = drawnFrom(1, [&] { return LWE::SecretKey(context); });
    pinSecret(group, key);
    group.result("secret key of given coefficients", key, [&](LWE::SecretKey& out) {
        out = LWE::SecretKey(context, ternary(LWE::getDimension(context)).data());
    });
}

TEST(PinnedKeys, BetweenRings) {
    PinnedGroup group("keys between rings");
    const Context small = familyRing(6, 3), large = familyRing(8, 3);
    const auto smallKey = drawnFrom(1, [&] { return SecretKey(small); });
    const auto largeKey = drawnFrom(2, [&] { return SecretKey(large); });
    const KeyGenerator generator(large, largeKey);
    group.holds("to compose", drawnFrom(3, [&] { return generator.genComposeKey(smallKey); }));
    group.holds("to decompose", drawnFrom(4, [&] { return generator.genDecomposeKey(large, smallKey); }));

    const Context rankFour = familyModule(6, 3, 4), rankTwo = familyModule(7, 3, 2);
    const auto from = drawnFrom(5, [&] { return SecretKeyBase<MLWE>(rankFour); });
    const auto to = drawnFrom(6, [&] { return SecretKeyBase<MLWE>(rankTwo); });
    const auto pack = [&](const auto& target) {
        return drawnFrom(7, [&] { return generator.genModPackKeyBundle(from, target); });
    };
    group.holds("to pack modules into a ring", pack(largeKey));
    group.holds("to pack modules into a module", pack(to));
}

TEST(PinnedKeys, BetweenPlainLWEAndARing) {
    PinnedGroup group("keys between plain LWE and a ring");
    const Context ring = smallRingOfSD3();
    const LWE::Context numbers = LWE::makeContext(LWE::ParameterPreset::SD3);
    const auto ringKey = drawnFrom(1, [&] { return SecretKey(ring); });
    const auto numberKey = drawnFrom(2, [&] { return LWE::SecretKey(numbers); });
    group.holds("to pack numbers into a ring",
                drawnFrom(3, [&] { return KeyGenerator(ring).genModPackKeyBundle(numberKey, ringKey); }));
    const LWE::Context unpacked = LWE::makeContext(LWE::ParameterPreset::SD3);
    unpacked->parameter.dimension = getDegree(ring);
    group.holds("the secret of unpacked numbers", genLWESecretKeyAfterUnPack(unpacked, ringKey));
}

} // namespace
} // namespace Torvo
