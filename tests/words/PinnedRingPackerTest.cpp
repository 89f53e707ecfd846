#include "context/LWEContextContent.hpp"
#include "support/PinnedWords.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using namespace test;

constexpr u64 chainLength = 3, level = 1;
constexpr RingPacker packer;

template <EncryptionType E>
CiphertextBase<E> onCoefficients(const Context& context, u64 seed) {
    auto ciphertext = wordsOfCiphertext<E>(context, level, seed);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    ciphertext.setRescaleCounter(1);
    for (u64 i = 0; i < ciphertext.getNumPoly(); ++i) ciphertext.getPoly(i).setNTT(false);
    return ciphertext;
}

template <EncryptionType E>
std::vector<CiphertextBase<E>> several(const Context& context, u64 count, u64 seed) {
    std::vector<CiphertextBase<E>> ciphertexts;
    for (u64 j = 0; j < count; ++j) ciphertexts.push_back(onCoefficients<E>(context, seed + j));
    return ciphertexts;
}

std::vector<LWE::Ciphertext> severalNumbers(const LWE::Context& context, u64 count, u64 seed) {
    std::vector<LWE::Ciphertext> numbers;
    Seeded words(seed);
    const auto primes = LWE::getPrimeList(context);
    for (u64 j = 0; j < count; ++j) {
        auto& number = numbers.emplace_back(context);
        number.setLevel(level);
        for (u64 i = 0; i <= level; ++i) {
            for (u64 k = 0; k < LWE::getDimension(context); ++k)
                number.getAx().getRow(i)[k] = words.word() % primes[i];
            number.getBx()[i] = words.word() % primes[i];
        }
    }
    return numbers;
}

TEST(PinnedRingPacker, BetweenRings) {
    PinnedGroup group("packing of rings");
    const Context small = familyRing(6, chainLength), large = familyRing(8, chainLength);
    const auto smallKey = drawnFrom(1, [&] { return SecretKey(small); });
    const KeyGenerator generator(large, drawnFrom(2, [&] { return SecretKey(large); }));
    const auto toCompose = drawnFrom(3, [&] { return generator.genComposeKey(smallKey); });
    const auto toDecompose = drawnFrom(4, [&] { return generator.genDecomposeKey(large, smallKey); });

    const auto in = several<RLWE>(small, 4, 10), one = several<RLWE>(small, 1, 20);
    const auto whole = onCoefficients<RLWE>(large, 30);
    const auto used = wordsOfCiphertext<RLWE>(large, 2, 40);
    group.result("compose", used, [&](Ciphertext& out) { packer.compose(pointersTo(in), toCompose, out); });
    group.result("compose of one", used,
                 [&](Ciphertext& out) { packer.compose(pointersTo(one), toCompose, out); });
    const auto decompose = [&](std::vector<Ciphertext>& out) {
        auto pointers = pointersTo(out);
        packer.decompose(whole, toDecompose, pointers);
    };
    group.result("decompose", in, decompose);
    group.result("decompose into one", one, decompose);
}

TEST(PinnedRingPacker, OfModules) {
    PinnedGroup group("packing of modules");
    const Context rankFour = familyModule(6, chainLength, 4), rankTwo = familyModule(7, chainLength, 2);
    const Context ring = familyRing(8, chainLength);
    const auto from = drawnFrom(1, [&] { return SecretKeyBase<MLWE>(rankFour); });
    const auto toModule = drawnFrom(2, [&] { return SecretKeyBase<MLWE>(rankTwo); });
    const auto toRing = drawnFrom(3, [&] { return SecretKey(ring); });
    const KeyGenerator generator(ring);
    const auto moduleKeys = drawnFrom(4, [&] { return generator.genModPackKeyBundle(from, toModule); });
    const auto ringKeys = drawnFrom(5, [&] { return generator.genModPackKeyBundle(from, toRing); });

    const auto two = several<MLWE>(rankFour, 2, 10), four = several<MLWE>(rankFour, 4, 20);
    group.result("modPack into a module", wordsOfCiphertext<MLWE>(rankTwo, 2, 30),
                 [&](auto& out) { packer.modPack(pointersTo(two), moduleKeys, out); });
    group.result("modPack into a ring", wordsOfCiphertext<RLWE>(ring, 2, 30),
                 [&](auto& out) { packer.modPack(pointersTo(four), ringKeys, out); });
}

TEST(PinnedRingPacker, OfNumbers) {
    PinnedGroup group("packing of numbers");
    const Context ring = smallRingOfSD3();
    const LWE::Context numbers = LWE::makeContext(LWE::ParameterPreset::SD3);
    const auto numberKey = drawnFrom(1, [&] { return LWE::SecretKey(numbers); });
    const auto ringKey = drawnFrom(2, [&] { return SecretKey(ring); });
    const auto keys =
        drawnFrom(3, [&] { return KeyGenerator(ring).genModPackKeyBundle(numberKey, ringKey); });
    const auto in = severalNumbers(numbers, 64, 10);
    group.result("modPack", wordsOfCiphertext<RLWE>(ring, 3, 20),
                 [&](Ciphertext& out) { packer.modPack(pointersTo(in), keys, out); });

    const LWE::Context unpacked = LWE::makeContext(LWE::ParameterPreset::SD3);
    unpacked->parameter.dimension = 64; // no preset has both forms at this degree
    const auto whole = onCoefficients<RLWE>(ring, 30);
    group.result("unPack", std::vector<LWE::Ciphertext>(64, LWE::Ciphertext(unpacked)),
                 [&](auto& out) { packer.unPack(whole, pointersTo(out)); });
}

} // namespace
} // namespace Torvo
