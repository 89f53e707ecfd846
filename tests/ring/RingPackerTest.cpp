#include "context/LWEContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"
#include "support/RingPhases.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>

#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <sstream>

namespace Torvo {

namespace {

using namespace test;

constexpr u64 chainLength = 3;
constexpr RingPacker packer;

const char* const notOnCoefficients = "The operand have to encode the message on its coefficients";
const char* const deviceNotServed =
    "The generated context does not support the operation with current operands; check the device.";
const char* const inNTTForm = "Polynomials should be of non-NTT form in ring switching.";

/// A ring of degree 256 with its key, and smaller rings of the same primes, each with a key of its own.
struct Rings {
    Context large = familyRing(8, chainLength);
    SecretKey key{large};
    KeyGenerator generator{large, key};

    static const Rings& get() {
        static const Rings rings;
        return rings;
    }
    static const SecretKey& small(u64 logDegree) {
        static std::map<u64, SecretKey> keys;
        const auto found = keys.find(logDegree);
        if (found != keys.end()) return found->second;
        return keys.emplace(logDegree, SecretKey(familyRing(logDegree, chainLength))).first->second;
    }
    const RingSwitchKey& composeKey(u64 logDegree) const {
        static std::map<u64, RingSwitchKey> keys;
        if (!keys.contains(logDegree)) keys.emplace(logDegree, generator.genComposeKey(small(logDegree)));
        return keys.at(logDegree);
    }
    const RingSwitchKey& decomposeKey(u64 logDegree) const {
        static std::map<u64, RingSwitchKey> keys;
        if (!keys.contains(logDegree))
            keys.emplace(logDegree, generator.genDecomposeKey(large, small(logDegree)));
        return keys.at(logDegree);
    }
};

double weightOf(const SecretKey& key) {
    return static_cast<double>(key.getContext()->parameter.hamming_weight);
}

std::vector<Ciphertext> randomCiphertexts(const Context& context, u64 count, u64 level, Seeded& random) {
    std::vector<Ciphertext> ciphertexts;
    for (u64 j = 0; j < count; ++j)
        ciphertexts.push_back(randomOnCoefficients<EncryptionType::RLWE>(context, level, random));
    return ciphertexts;
}

std::vector<Phases> phasesOfAll(const std::vector<Ciphertext>& ciphertexts, const SecretKey& key) {
    std::vector<Phases> phases;
    for (const Ciphertext& ciphertext : ciphertexts) phases.push_back(test::phasesOf(ciphertext, key));
    return phases;
}

void expectStamp(const Ciphertext& out, const Context& context, u64 level, int rescaleCounter) {
    EXPECT_EQ(out.getContext(), context);
    EXPECT_EQ(out.getNumPoly(), 2U);
    EXPECT_EQ(out.getLevel(), level);
    EXPECT_EQ(out.getRescaleCounter(), rescaleCounter);
    EXPECT_EQ(out.getLogSlots(), getLogFullSlots(context));
    EXPECT_EQ(out.getEncodingType(), EncodingType::Coefficient);
    EXPECT_FALSE(out.isNTT());
    EXPECT_FALSE(out.isModUp());
}

} // namespace

// ---- compose

TEST(RingPackerCompose, InterleavesTheMessagesUnderTheKeyOfTheLargeRing) {
    const Rings& rings = Rings::get();
    Seeded random(931);
    SCOPED_TRACE(random.describe());
    for (const u64 logDegree : {6, 7}) {
        for (u64 level = 0; level < chainLength; ++level) {
            SCOPED_TRACE(testing::Message() << "degree 2^" << logDegree << ", level " << level);
            const Context small = familyRing(logDegree, chainLength);
            const u64 count = getNumCiphertextsToFullCompose(small, rings.large);
            EXPECT_EQ(count, 256U >> logDegree);
            auto in = randomCiphertexts(small, count, level, random);
            for (Ciphertext& ciphertext : in) ciphertext.setRescaleCounter(static_cast<int>(level));
            Ciphertext out = level == 0 ? usedModUp(rings.large) : usedLonger(rings.large);
            packer.compose(pointersTo(std::as_const(in)), rings.composeKey(logDegree), out);
            expectStamp(out, rings.large, level, static_cast<int>(level));
            expectPhases(phasesOf(out, rings.key), interleaved(phasesOfAll(in, Rings::small(logDegree))),
                         getPrimeList(rings.large),
                         SwitchNoise(rings.large, weightOf(rings.key)).bound(level));
        }
    }
}

TEST(RingPackerCompose, EmbedsASingleCiphertextWithNothingBetweenItsCoefficients) {
    const Rings& rings = Rings::get();
    Seeded random(932);
    SCOPED_TRACE(random.describe());
    for (const u64 logDegree : {6, 7}) {
        const auto in = randomCiphertexts(familyRing(logDegree, chainLength), 1, 2, random);
        auto expected = phasesOfAll(in, Rings::small(logDegree));
        // The other coefficients are phases of zero.
        Phases zero = expected[0];
        for (auto& row : zero) std::fill(row.begin(), row.end(), 0);
        expected.resize(256U >> logDegree, zero);
        Ciphertext out(rings.large);
        packer.compose(pointersTo(in), rings.composeKey(logDegree), out);
        expectStamp(out, rings.large, 2, 0);
        expectPhases(phasesOf(out, rings.key), interleaved(expected), getPrimeList(rings.large),
                     SwitchNoise(rings.large, weightOf(rings.key)).bound(2));
    }
}

TEST(RingPackerCompose, OfTheSameDegreeSwitchesTheKeyAndMayWriteOverItsInput) {
    const Rings& rings = Rings::get();
    Seeded random(933);
    SCOPED_TRACE(random.describe());
    const SecretKey other(rings.large);
    const RingSwitchKey key = rings.generator.genComposeKey(other);
    auto in = randomCiphertexts(rings.large, 1, 1, random);
    const auto expected = test::phasesOf(in[0], other);
    Ciphertext out(rings.large);
    packer.compose(pointersTo(std::as_const(in)), key, out);
    expectPhases(test::phasesOf(out, rings.key), expected, getPrimeList(rings.large),
                 SwitchNoise(rings.large, weightOf(rings.key)).bound(1));
    packer.compose(pointersTo(std::as_const(in)), key, in[0]);
    EXPECT_TRUE(sameWords(in[0], out));
}

TEST(RingPackerCompose, LeavesTheOutputInAContextOfItsOwn) {
    const Rings& rings = Rings::get();
    Seeded random(934);
    SCOPED_TRACE(random.describe());
    const Context shorter = familyRing(8, 2);
    const SecretKey key(shorter, rings.key.getCoefficients());
    const auto in = randomCiphertexts(familyRing(6, 2), 4, 1, random);
    const SecretKey small(familyRing(6, 2), Rings::small(6).getCoefficients());
    Ciphertext out(shorter);
    packer.compose(pointersTo(in), rings.composeKey(6), out);
    expectStamp(out, shorter, 1, 0);
    EXPECT_EQ(out.getPoly(1).getPrimes(), Ciphertext(shorter).getPoly(1).getPrimes());
    expectPhases(test::phasesOf(out, key), interleaved(phasesOfAll(in, small)), getPrimeList(shorter),
                 SwitchNoise(rings.large, weightOf(rings.key)).bound(1));
}

TEST(RingPackerCompose, RefusesInItsOrder) {
    const Rings& rings = Rings::get();
    Seeded random(935);
    const RingSwitchKey& key = rings.composeKey(6);
    auto in = randomCiphertexts(rings.large, 3, 2, random);
    auto four = randomCiphertexts(familyRing(6, chainLength), 4, 2, random);
    const auto compose = [&](const std::vector<Ciphertext>& operands, Ciphertext& out) {
        packer.compose(pointersTo(operands), key, out);
    };
    const char* const dimension = "[compose] The dimension of input ciphertext(s) should be equal to output "
                                  "ciphertext unless the case of embedding a single ciphertext";

    // From a large ring to a small one, three of them, on slots and unlike each other.
    in[0].setEncodingType(EncodingType::Slot);
    in[1].setLogSlots(1);
    Ciphertext small(familyRing(7, chainLength));
    EXPECT_REFUSED(compose(in, small),
                   "[compose] Degree of input ciphertext(s) should divide of degree output ciphertext");
    Ciphertext out(rings.large);
    EXPECT_REFUSED(compose(in, out), dimension);
    EXPECT_REFUSED(compose({}, out), dimension);
    auto mixed = four;
    mixed[1] = small;
    mixed[0].setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(compose(mixed, out), dimension);

    // Each rule as the first broken one; the later ones stay broken.
    four[0].setEncodingType(EncodingType::Slot);
    four[1].setLogSlots(1);
    four[2].setRescaleCounter(1);
    four[3].setLevel(1);
    four[3].setNumPoly(3);
    for (Ciphertext& ciphertext : four) ciphertext.getPolys().getPoly(0).setNTT(true);
    EXPECT_REFUSED(compose(four, out), notOnCoefficients);
    four[0].setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(compose(four, out), "Two operands have different logSlots");
    four[1].setLogSlots(5);
    EXPECT_REFUSED(compose(four, out), "Two operands have different RescaleCounter");
    four[2].setRescaleCounter(0);
    four[2].setEncodingType(EncodingType::Slot);
    four[2].to({DeviceType::CPU, 1});
    EXPECT_REFUSED(compose(four, out), "Two operands are in different devices");
    four[2].to({});
    EXPECT_REFUSED(compose(four, out), "Two operands are encoding messages in different way");
    four[2].setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(compose(four, out), "Operands have different levels.");
    four[3].setLevel(2);
    EXPECT_REFUSED(compose(four, out), "Size should be 2");
    four[3].setNumPoly(2);
    Ciphertext tooShort(familyRing(8, 2));
    EXPECT_REFUSED(compose(four, tooShort), "The level of input ciphertext does not fit in current context");
    EXPECT_REFUSED(compose(four, out), inNTTForm);
    for (Ciphertext& ciphertext : four) {
        ciphertext.getPolys().getPoly(0).setNTT(false);
        ciphertext.to({DeviceType::CPU, 1});
    }
    EXPECT_REFUSED(compose(four, out), deviceNotServed);
    // Nothing of the output has changed so far.
    EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
    EXPECT_TRUE(out.isNTT());
    for (Ciphertext& ciphertext : four) ciphertext.to({});
    EXPECT_NO_THROW(compose(four, out));
}

TEST(RingPackerCompose, RefusesKeysOfAnotherRingAndACounterAboveTheLevel) {
    const Rings& rings = Rings::get();
    Seeded random(936);
    auto in = randomCiphertexts(familyRing(6, chainLength), 1, 2, random);
    Ciphertext half(familyRing(7, chainLength)), out(rings.large);
    const char* const doesNotFit = "The level of input ciphertext does not fit in current context";
    EXPECT_REFUSED(packer.compose(pointersTo(std::as_const(in)), rings.composeKey(6), half), doesNotFit);
    EXPECT_REFUSED(packer.compose(pointersTo(std::as_const(in)), RingSwitchKey(familyRing(8, 2)), out),
                   doesNotFit);
    in[0].setRescaleCounter(2);
    in[0].setLevel(1);
    EXPECT_REFUSED(packer.compose(pointersTo(std::as_const(in)), rings.composeKey(6), out),
                   "Rescale counter should be less than or equal to the level");
}

// ---- decompose

TEST(RingPackerDecompose, CutsTheMessageIntoPiecesUnderTheKeyOfTheSmallRing) {
    const Rings& rings = Rings::get();
    Seeded random(937);
    SCOPED_TRACE(random.describe());
    for (const u64 logDegree : {6, 7}) {
        for (u64 level = 0; level < chainLength; ++level) {
            SCOPED_TRACE(testing::Message() << "degree 2^" << logDegree << ", level " << level);
            const Context small = familyRing(logDegree, chainLength);
            auto in = randomOnCoefficients<EncryptionType::RLWE>(rings.large, level, random);
            in.setRescaleCounter(static_cast<int>(level));
            std::vector<Ciphertext> out(getNumCiphertextsAfterFullDecompose(rings.large, small),
                                        level == 0 ? usedModUp(small) : usedLonger(small));
            out[1] = usedModUp(rings.large); // all become objects of the ring of the first
            auto pointers = pointersTo(out);
            packer.decompose(in, rings.decomposeKey(logDegree), pointers);
            for (const Ciphertext& part : out) expectStamp(part, small, level, static_cast<int>(level));
            expectPhases(interleaved(phasesOfAll(out, Rings::small(logDegree))), phasesOf(in, rings.key),
                         getPrimeList(small),
                         SwitchNoise(rings.large, weightOf(Rings::small(logDegree))).bound(level));
        }
    }
}

TEST(RingPackerDecompose, ExtractsIntoASingleCiphertext) {
    const Rings& rings = Rings::get();
    Seeded random(938);
    SCOPED_TRACE(random.describe());
    const auto in = randomOnCoefficients<EncryptionType::RLWE>(rings.large, 2, random);
    std::vector<Ciphertext> all(4, Ciphertext(familyRing(6, chainLength))), one(1, all[0]);
    auto pointers = pointersTo(all), pointer = pointersTo(one);
    packer.decompose(in, rings.decomposeKey(6), pointers);
    packer.decompose(in, rings.decomposeKey(6), pointer);
    EXPECT_TRUE(sameWords(one[0], all[0]));
}

TEST(RingPackerDecompose, MayWriteOverItsInput) {
    const Rings& rings = Rings::get();
    Seeded random(939);
    auto in = randomOnCoefficients<EncryptionType::RLWE>(rings.large, 1, random);
    Ciphertext same(rings.large);
    std::vector<Ciphertext*> out{&same}, over{&in};
    const RingSwitchKey key = rings.generator.genDecomposeKey(rings.large, SecretKey(rings.large));
    packer.decompose(in, key, out);
    // The second of two outputs, too, may be the input, which then changes its ring.
    Ciphertext first(familyRing(7, chainLength)), second = in, expected(familyRing(7, chainLength));
    std::vector<Ciphertext*> separate{&first, &expected}, overSecond{&first, &second};
    packer.decompose(in, rings.decomposeKey(7), separate);
    packer.decompose(second, rings.decomposeKey(7), overSecond);
    EXPECT_TRUE(sameWords(second, expected));
    packer.decompose(in, key, over);
    EXPECT_TRUE(sameWords(in, same));
}

TEST(RingPackerDecompose, BringsTheMessageThroughASwitchContextOfFewerPrimes) {
    const Rings& rings = Rings::get();
    Seeded random(940);
    SCOPED_TRACE(random.describe());
    const Context switchContext = familyRing(8, 1), small = familyRing(6, 1);
    const SecretKey smallKey(small);
    const RingSwitchKey key = rings.generator.genDecomposeKey(switchContext, smallKey);
    const auto in = randomOnCoefficients<EncryptionType::RLWE>(rings.large, 0, random);
    std::vector<Ciphertext> out(4, Ciphertext(small));
    auto pointers = pointersTo(out);
    packer.decompose(in, key, pointers);
    expectPhases(interleaved(phasesOfAll(out, smallKey)), test::phasesOf(in, rings.key), getPrimeList(small),
                 SwitchNoise(switchContext, weightOf(smallKey)).bound(0));
}

TEST(RingPackerDecompose, RefusesInItsOrder) {
    const Rings& rings = Rings::get();
    Seeded random(941);
    auto in = randomOnCoefficients<EncryptionType::RLWE>(familyRing(7, chainLength), 2, random);
    in.setEncodingType(EncodingType::Slot);
    in.setNumPoly(3);
    for (const u64 j : {0, 1, 2}) in.getPoly(j).setNTT(true);
    const auto decompose = [&](const Context& context, u64 count) {
        std::vector<Ciphertext> out(count, Ciphertext(context));
        auto pointers = pointersTo(out);
        packer.decompose(in, rings.decomposeKey(6), pointers);
    };
    const char* const dimension =
        "[decompose] The dimension of output ciphertext(s) should be equal to input "
        "ciphertext unless the case of extracting a single ciphertext";
    EXPECT_REFUSED(decompose(familyRing(8, 2), 3),
                   "[decompose] Degree of output ciphertext(s) should divide of degree input ciphertext");
    EXPECT_REFUSED(decompose(familyRing(6, 2), 3), dimension);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 0), dimension);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 2), notOnCoefficients);
    in.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 2),
                   "[decompose] The level of given ciphertext is more than the level of max encryption level "
                   "of the output ciphertext(s)");
    in.setRescaleCounter(2);
    in.setLevel(1);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 2), "Size should be 2");
    in.setNumPoly(2);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 2),
                   "Rescale counter should be less than or equal to the level");
    in.setRescaleCounter(1);
    // The key's ring has another degree.
    EXPECT_REFUSED(decompose(familyRing(6, 2), 2),
                   "The level of input ciphertext does not fit in current context");
    in = randomOnCoefficients<EncryptionType::RLWE>(rings.large, 1, random);
    for (const u64 j : {0, 1}) in.getPoly(j).setNTT(true);
    EXPECT_REFUSED(decompose(familyRing(6, 2), 4), inNTTForm);
    for (const u64 j : {0, 1}) in.getPoly(j).setNTT(false);
    in.to({DeviceType::CPU, 1});
    EXPECT_REFUSED(decompose(familyRing(6, 2), 4), deviceNotServed);
    in.to({});
    EXPECT_NO_THROW(decompose(familyRing(6, 2), 4));
}

// ---- both

TEST(RingPacker, ComposeAndDecomposeGiveTheMessageBack) {
    const Rings& rings = Rings::get();
    Seeded random(942);
    SCOPED_TRACE(random.describe());
    const auto in = randomCiphertexts(familyRing(6, chainLength), 4, 2, random);
    std::vector<Ciphertext> out(4, Ciphertext(familyRing(6, chainLength)));
    Ciphertext whole(rings.large);
    packer.compose(pointersTo(in), rings.composeKey(6), whole);
    auto pointers = pointersTo(out);
    packer.decompose(whole, rings.decomposeKey(6), pointers);
    const double noise = SwitchNoise(rings.large, weightOf(rings.key)).variance(2) +
                         SwitchNoise(rings.large, weightOf(Rings::small(6))).variance(2);
    expectPhases(interleaved(phasesOfAll(out, Rings::small(6))),
                 interleaved(phasesOfAll(in, Rings::small(6))), getPrimeList(rings.large),
                 8 * std::sqrt(noise));
}

TEST(RingPacker, GivesTheSameWordsWithOneThreadAndWithMany) {
    const Rings& rings = Rings::get();
    Seeded random(943);
    const auto in = randomCiphertexts(familyRing(6, chainLength), 4, 2, random);
    const int threads = omp_get_max_threads();
    std::vector<Ciphertext> composed, extracted;
    for (const int team : {1, 2, 7}) {
        omp_set_num_threads(team);
        composed.emplace_back(rings.large);
        packer.compose(pointersTo(in), rings.composeKey(6), composed.back());
        Ciphertext part(familyRing(6, chainLength));
        std::vector<Ciphertext*> out{&part};
        packer.decompose(composed.back(), rings.decomposeKey(6), out);
        extracted.push_back(part);
    }
    omp_set_num_threads(threads);
    for (const u64 i : {1, 2}) {
        EXPECT_TRUE(sameWords(composed[i], composed[0]));
        EXPECT_TRUE(sameWords(extracted[i], extracted[0]));
    }
}

// ---- unPack

namespace {

/// Plain LWE of dimension 64 over the primes of `SD3`, as no preset has it.
LWE::Context numbersOfDimension64() {
    LWE::Context context = LWE::makeContext(LWE::ParameterPreset::SD3);
    context->parameter.dimension = 64;
    return context;
}

} // namespace

TEST(RingPackerUnPack, TakesOutEveryCoefficientWordForWord) {
    const Context ring = smallRingOfSD3();
    const LWE::Context numbers = numbersOfDimension64();
    const SecretKey key(ring);
    const LWE::SecretKey numberKey = genLWESecretKeyAfterUnPack(numbers, key);
    Seeded random(944);
    SCOPED_TRACE(random.describe());
    for (u64 level = 0; level < 4; ++level) {
        auto in = randomOnCoefficients<EncryptionType::RLWE>(ring, level, random);
        in.setRescaleCounter(static_cast<int>(level));
        ASSERT_EQ(getNumCiphertextsAfterUnPack(ring), 64U);
        std::vector<LWE::Ciphertext> out(64, LWE::Ciphertext(numbers));
        out[3] = LWE::Ciphertext(LWE::makeContext(LWE::ParameterPreset::SD3)); // of another dimension
        out[5].setLevel(0);
        packer.unPack(in, pointersTo(out));
        const auto expected = test::phasesOf(in, key);
        for (u64 i = 0; i < 64; ++i) {
            ASSERT_EQ(out[i].getContext(), numbers);
            ASSERT_EQ(out[i].getLevel(), level);
            ASSERT_EQ(out[i].getAx().getLevel(), level);
            ASSERT_EQ(out[i].getRescaleCounter(), static_cast<int>(level));
            ASSERT_EQ(out[i].getBx().getData().size(), level + 1);
            ASSERT_EQ(out[i].getAx().getData().size(), 64 * (level + 1));
            for (u64 row = 0; row <= level; ++row)
                ASSERT_EQ(numberUnder(out[i], numberKey, row), expected[row][i]) << i << " row " << row;
        }
    }
}

TEST(RingPackerUnPack, RefusesInItsOrder) {
    const LWE::Context numbers = numbersOfDimension64();
    const Context ring = smallRingOfSD3();
    Seeded random(945);
    std::vector<LWE::Ciphertext> out(64, LWE::Ciphertext(LWE::makeContext(LWE::ParameterPreset::FGbD12L0)));
    auto in = randomOnCoefficients<EncryptionType::RLWE>(ring, 3, random);
    in.setEncodingType(EncodingType::Slot);
    in.setNumPoly(3);
    in.setRescaleCounter(1);
    const auto unPack = [&](u64 count) {
        auto pointers = pointersTo(out);
        pointers.resize(count);
        packer.unPack(in, pointers);
    };
    for (const u64 count : {63, 0})
        EXPECT_REFUSED(
            unPack(count),
            "[unPack] Input Ciphertext degree should be equal to the number of output LWE Ciphertexts");
    EXPECT_REFUSED(unPack(64), notOnCoefficients);
    in.setEncodingType(EncodingType::Coefficient);
    for (const u64 level : {3, 1}) {
        in.setLevel(level);
        EXPECT_REFUSED(unPack(64), "[unPack] The level of given ciphertext is more than the level of max "
                                   "encryption level of the output ciphertext(s)");
    }
    in.setLevel(0);
    EXPECT_REFUSED(unPack(64), "Size should be 2");
    in.setNumPoly(2);
    EXPECT_REFUSED(unPack(64), "Rescale counter should be less than or equal to the level");
    in.setRescaleCounter(0);
    EXPECT_REFUSED(unPack(64), "The total dimension of the operands are different");
    std::fill(out.begin(), out.end(), LWE::Ciphertext(numbers));
    for (const u64 j : {0, 1}) in.getPoly(j).setNTT(true);
    EXPECT_REFUSED(unPack(64), inNTTForm);
    for (const u64 j : {0, 1}) in.getPoly(j).setNTT(false);
    in.to({DeviceType::CPU, 1});
    EXPECT_REFUSED(unPack(64), deviceNotServed);
    in.to({});
    EXPECT_NO_THROW(unPack(64));
}

TEST(RingPackerUtils, TheSecretOfUnpackedNumbersHasTheCoefficientsOfTheRings) {
    const SecretKey key(smallRingOfSD3());
    const LWE::SecretKey numberKey = genLWESecretKeyAfterUnPack(numbersOfDimension64(), key);
    EXPECT_TRUE(std::equal(key.getCoefficients(), key.getCoefficients() + 64, numberKey.getCoefficients()));
    std::ostringstream stream;
    EXPECT_REFUSED(numberKey.saveSeedOnly(stream), "The secret key is not randomly generated");
    for (const auto preset : {LWE::ParameterPreset::SD3, LWE::ParameterPreset::FGbD12L0}) // 32 and 4096
        EXPECT_REFUSED(genLWESecretKeyAfterUnPack(LWE::makeContext(preset), key),
                       "Operands have different dimensions.");
}

TEST(RingPackerUtils, CountTheCiphertextsThatFillOneAnother) {
    const Context small = familyRing(6, 1), large = familyRing(8, 1);
    EXPECT_EQ(getNumCiphertextsAfterFullDecompose(large, small), 4U);
    EXPECT_EQ(getNumCiphertextsToFullCompose(small, large), 4U);
    EXPECT_EQ(getNumCiphertextsToModPack(small, large), 4U);
    EXPECT_EQ(getNumCiphertextsToModPack(LWE::makeContext(LWE::ParameterPreset::SD3), large), 256U);
    EXPECT_EQ(getNumCiphertextsAfterUnPack(small), 64U);
}

} // namespace Torvo
