#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/LWEPhase.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"
#include "support/RingPhases.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>

#include <gtest/gtest.h>

namespace Torvo {

namespace {

using namespace test;
using enum EncryptionType;

constexpr RingPacker packer;

const char* const doesNotFit = "The level of input ciphertext does not fit in current context";

std::string inputRefusal(const std::string& input, const Context& out) {
    return "the input has other primes than the output: " + input + ", but the output's context is " +
           shapeOf(out) + ", with other primes from index ";
}
const std::string inputAdvice = " on; choose contexts that share their primes up to the level of the input";

std::string keysRefusal(const Context& keys, const Context& out) {
    return refusalOf("keys are of another ring", keys, "the output's context", out,
                     "use keys whose context shares its primes with the output up to the level of the input");
}

std::vector<Ciphertext> four(const Context& context, u64 level) {
    Seeded random(981);
    std::vector<Ciphertext> ciphertexts;
    for (u64 j = 0; j < 4; ++j) ciphertexts.push_back(randomOnCoefficients<RLWE>(context, level, random));
    return ciphertexts;
}

/// On coefficients, at a level that `setLevel` takes and the chain does not have. A mod-up one has rows for
/// its primes only: to read up to the level would lead out of it.
template <EncryptionType E = RLWE>
CiphertextBase<E> beyondChain(const Context& context, u64 level, bool isModUp) {
    CiphertextBase<E> ciphertext(context, isModUp);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    for (Polynomial& element : ciphertext.getPolys().getPolys()) element.setNTT(false);
    ciphertext.setLevel(level);
    return ciphertext;
}

} // namespace

TEST(RingPackerForeignPrimes, ComposeRefusesInputsAndKeysOfOtherPrimes) {
    const Context out = familyRing(8, 3), stranger = strangerRing(6), distant = distantRing(6);
    const SecretKey secretKey(out);
    const RingSwitchKey key = KeyGenerator(out, secretKey).genComposeKey(SecretKey(familyRing(6, 3)));
    const auto compose = [&](const std::vector<Ciphertext>& in, const RingSwitchKey& with) {
        Ciphertext result = usedOnCoefficients(out);
        const Ciphertext before = result;
        packer.compose(pointersTo(in), with, result);
        EXPECT_FALSE(sameWords(result, before));
    };
    const auto refuse = [&](const std::vector<Ciphertext>& in, const RingSwitchKey& with,
                            const std::string& text) {
        Ciphertext result = usedOnCoefficients(out);
        const Ciphertext before = result;
        EXPECT_REFUSED(packer.compose(pointersTo(in), with, result), text);
        EXPECT_TRUE(sameWords(result, before));
    };
    refuse(four(stranger, 0), key, inputRefusal(shapeOf(stranger), out) + "0" + inputAdvice);
    compose(four(distant, 0), key); // the base prime is shared
    refuse(four(distant, 1), key, inputRefusal(shapeOf(distant), out) + "1" + inputAdvice);
    refuse(four(familyRing(6, 3), 0), RingSwitchKey(strangerRing(8)), keysRefusal(strangerRing(8), out));
    refuse(four(familyRing(6, 3), 1), RingSwitchKey(distantRing(8)), keysRefusal(distantRing(8), out));
    compose(four(familyRing(6, 3), 0), RingSwitchKey(distantRing(8)));
    // One of them alone.
    auto mixed = four(familyRing(6, 3), 0);
    mixed[2] = four(stranger, 0)[2];
    refuse(mixed, key, inputRefusal(shapeOf(stranger), out) + "0" + inputAdvice);
}

TEST(RingPackerForeignPrimes, DecomposeRefusesInputsAndKeysOfOtherPrimes) {
    const Context in = familyRing(8, 3), small = familyRing(6, 3);
    const SecretKey secretKey(in);
    const RingSwitchKey key = KeyGenerator(in, secretKey).genDecomposeKey(in, SecretKey(small));
    const auto refuse = [&](const Ciphertext& from, const RingSwitchKey& with, const Context& to,
                            const std::string& text) {
        std::vector<Ciphertext> outs(4, usedOnCoefficients(to));
        const auto before = outs;
        auto pointers = pointersTo(outs);
        EXPECT_REFUSED(packer.decompose(from, with, pointers), text);
        for (u64 j = 0; j < 4; ++j) EXPECT_TRUE(sameWords(outs[j], before[j]));
    };
    const std::string advice = "use a key whose context shares its primes with the input up to its level";
    const auto inputToKey = [&](const Context& from, const Context& keys) {
        return refusalOf("the input has other primes than the key", from, "the key's context", keys, advice);
    };
    refuse(four(in, 1)[0], RingSwitchKey(distantRing(8)), small, inputToKey(in, distantRing(8)));
    refuse(four(strangerRing(8), 0)[0], key, small, inputToKey(strangerRing(8), in));
    refuse(four(in, 1)[0], key, distantRing(6), keysRefusal(in, distantRing(6)));
    refuse(four(in, 0)[0], key, strangerRing(6), keysRefusal(in, strangerRing(6)));
}

TEST(RingPackerForeignPrimes, ModPackRefusesInputsAndKeysOfOtherPrimes) {
    Seeded random(983);
    const Context module = familyModule(6, 3, 4), out = familyRing(8, 3);
    const auto inputs = [&](const Context& context, u64 level) {
        std::vector<CiphertextBase<MLWE>> ciphertexts;
        for (u64 j = 0; j < 4; ++j) ciphertexts.push_back(randomOnCoefficients<MLWE>(context, level, random));
        return ciphertexts;
    };
    const auto refuse = [&](const std::vector<CiphertextBase<MLWE>>& in, const Context& keys,
                            const Context& to, const std::string& text) {
        Ciphertext result = usedOnCoefficients(to);
        const Ciphertext before = result;
        EXPECT_REFUSED(packer.modPack(pointersTo(in), ModPackKeyBundle(keys, 4), result), text);
        EXPECT_TRUE(sameWords(result, before));
    };
    refuse(inputs(module, 0), strangerRing(8), strangerRing(8),
           inputRefusal(shapeOf(module), strangerRing(8)) + "0" + inputAdvice);
    refuse(inputs(module, 1), out, distantRing(8),
           inputRefusal(shapeOf(module), distantRing(8)) + "1" + inputAdvice);
    refuse(inputs(module, 0), strangerRing(8), out, keysRefusal(strangerRing(8), out));
    refuse(inputs(module, 1), distantRing(8), out, keysRefusal(distantRing(8), out));
}

TEST(RingPackerForeignPrimes, PlainLWEOfOtherPrimesIsRefusedBothWays) {
    Seeded random(984);
    const LWE::Context numbers = smallLWEContext(); // dimension 64
    const Context ring = familyRing(6, 3);
    std::vector<LWE::Ciphertext> in;
    for (u64 i = 0; i < 64; ++i) in.push_back(randomNumber(numbers, 0, random));
    Ciphertext out = usedOnCoefficients(ring);
    const Ciphertext before = out;
    EXPECT_REFUSED(packer.modPack(pointersTo(std::as_const(in)), ModPackKeyBundle(ring, 64), out),
                   inputRefusal("dimension 64, 3 primes (CUSTOM)", ring) + "0" + inputAdvice);
    EXPECT_TRUE(sameWords(out, before));

    const auto kept = in;
    EXPECT_REFUSED(
        packer.unPack(four(ring, 0)[0], pointersTo(in)),
        "the input has other primes than the output: " + shapeOf(ring) +
            ", but the output's context is dimension 64, 3 primes (CUSTOM), with other primes from "
            "index 0" +
            inputAdvice);
    for (u64 i = 0; i < 64; ++i) EXPECT_TRUE(sameWords(in[i], kept[i]));
}

TEST(RingPackerForeignPrimes, ALevelThatTheInputsChainDoesNotHaveIsRefused) {
    const Context small = familyRing(6, 1), large = familyRing(8, 3), module = familyModule(6, 1, 4);
    const RingSwitchKey key(large);
    const ModPackKeyBundle keys(large, 4);
    const LWE::Context numbers = smallLWEContext();
    for (const u64 level : {1, 2}) {
        for (const bool isModUp : {false, true}) {
            Ciphertext out = usedOnCoefficients(large);
            const Ciphertext before = out;
            const std::vector<Ciphertext> parts(4, beyondChain(small, level, isModUp));
            EXPECT_REFUSED(packer.compose(pointersTo(parts), key, out), doesNotFit);
            const std::vector<CiphertextBase<MLWE>> modules(4, beyondChain<MLWE>(module, level, isModUp));
            EXPECT_REFUSED(packer.modPack(pointersTo(modules), keys, out), doesNotFit);
            EXPECT_TRUE(sameWords(out, before));

            std::vector<Ciphertext> outs(4, usedOnCoefficients(familyRing(6, 3)));
            auto pointers = pointersTo(outs);
            EXPECT_REFUSED(packer.decompose(beyondChain(familyRing(8, 1), level, isModUp), key, pointers),
                           doesNotFit);
            std::vector<LWE::Ciphertext> unpacked(64, LWE::Ciphertext(numbers));
            EXPECT_REFUSED(packer.unPack(parts[0], pointersTo(unpacked)), doesNotFit);
        }
    }
    std::vector<LWE::Ciphertext> tooHigh(64, LWE::Ciphertext(LWE::makeContext(64, 1, 50, 40)));
    for (LWE::Ciphertext& number : tooHigh) number.setLevel(1);
    Ciphertext out = usedOnCoefficients(familyRing(6, 3));
    EXPECT_REFUSED(
        packer.modPack(pointersTo(std::as_const(tooHigh)), ModPackKeyBundle(familyRing(6, 3), 64), out),
        doesNotFit);
}

} // namespace Torvo
