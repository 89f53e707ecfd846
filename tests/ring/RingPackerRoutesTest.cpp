#include "support/BootScheme.hpp"
#include "support/Expect.hpp"
#include "support/PackingRoutes.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <gtest/gtest.h>

// The routes between plain LWE, the single-level partners of FGb, and FGb itself, each as a user would take
// it.

namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;

constexpr RingPacker packer;

/// log2 of the scale of FGb and its partners at level 0.
double logScale() {
    static const double scale = getDefaultScaleFactorList(contextOf(ParameterPreset::FGbD12L0)).at(0);
    return scale;
}

/// Coefficient k below half the degree is the real part and coefficient N/2 + k the imaginary part of the
/// slot with the bits of k reversed: what `halfBoot` makes of coefficients, and `slotToCoeff` of slots.
Message slotsOf(const std::vector<double>& coefficients, u64 logSlots) {
    Message message(logSlots);
    for (u64 k = 0; k < message.getSize(); ++k)
        message[reversedSlot(k, logSlots)] = {coefficients[k], coefficients[message.getSize() + k]};
    return message;
}

} // namespace

TEST(RingPackerRoutes, ThePartnersOfFGbTakeItsScaleAtLevelZeroAndTheSwitchRingDoesNot) {
    const auto scaleOf = [](ParameterPreset preset) {
        return getDefaultScaleFactorList(contextOf(preset)).at(0);
    };
    for (const auto preset : {ParameterPreset::FGbD12L0, ParameterPreset::FGbD8R4L0,
                              ParameterPreset::FGbD6R6L0, ParameterPreset::FX})
        EXPECT_EQ(scaleOf(preset), getDefaultScaleFactorList(contextOf(ParameterPreset::FX)).at(0));
    EXPECT_EQ(LWE::getDefaultScaleFactorList(LWE::makeContext(LWE::ParameterPreset::FGbD12L0)).at(0),
              logScale());
    EXPECT_NEAR(logScale(), 42.03839, 1e-5);
    EXPECT_NEAR(scaleOf(ParameterPreset::FGbL0), 58, 1e-5);
}

TEST(RingPackerRoutes, SixtyFourNumbersBecomeTheSlotsOfABootstrappedToy) {
    const BootScheme& toy = BootScheme::toy();
    const PlainNumbers numbers;
    const KeyedRing<MLWE> module(ParameterPreset::FGbD6R6L0);
    const Context& middle = contextOf(ParameterPreset::FGbD12L0);
    const auto toModule = KeyGenerator(middle).genModPackKeyBundle(numbers.key, module.key);
    const auto toToy = KeyGenerator(toy.scheme.context).genModPackKeyBundle(module.key, toy.scheme.secretKey);
    ASSERT_EQ(toModule.getNumKeys(), 64U);
    ASSERT_EQ(toToy.getNumKeys(), 64U);

    Seeded random(961);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(64, random);
    const auto encrypted = numbers.encrypt(expected.data(), 64);
    CiphertextBase<MLWE> packed(module.context);
    packer.modPack(pointersTo(encrypted), toModule, packed);
    auto noise = RouteNoise::ofFreshNumbers().hop(middle, module.key, 64);
    expectNumbers(coefficientsUnder(packed, module.key), expected, noise, logScale(), "LWE to FGbD6R6L0");

    Ciphertext inRing(toy.scheme.context), booted(toy.scheme.context);
    packer.modPack(std::vector<const CiphertextBase<MLWE>*>{&packed}, toToy, inRing);
    noise.hop(toy.scheme.context, toy.scheme.secretKey, 64);
    EXPECT_EQ(inRing.getLevel(), 0U);
    expectNumbers(coefficientsUnder(inRing, toy.scheme.secretKey), expected, noise, logScale(),
                  "FGbD6R6L0 to FX");

    toy.batched.halfBoot(inRing, booted, true);
    EXPECT_EQ(booted.getEncodingType(), EncodingType::Slot);
    EXPECT_GT(booted.getLevel(), 3U);
    EXPECT_LT(maxError(toy.scheme.decrypt(booted), slotsOf(expected, 5)),
              toy.complexBound() + 2 * noise.bound(logScale()));
}

TEST(RingPackerRoutesRealPreset, NumbersClimbByModulesOfFallingRank) {
    const PlainNumbers numbers;
    const KeyedRing<MLWE> first(ParameterPreset::FGbD6R6L0), second(ParameterPreset::FGbD8R4L0);
    const KeyedRing<RLWE> last(ParameterPreset::FGbD12L0);
    const KeyGenerator generator(last.context);
    const auto toFirst = generator.genModPackKeyBundle(numbers.key, first.key);
    const auto toSecond = generator.genModPackKeyBundle(first.key, second.key);
    const auto toLast = generator.genModPackKeyBundle(second.key, last.key);
    EXPECT_EQ(toFirst.getNumKeys(), 64U);
    EXPECT_EQ(toSecond.getNumKeys(), 4U);
    EXPECT_EQ(toLast.getNumKeys(), 16U);

    // Number i of small ciphertext j becomes coefficient 4 i + j of the next, and so on.
    Seeded random(962);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(4096, random);
    std::vector<CiphertextBase<MLWE>> ofFirst(64, CiphertextBase<MLWE>(first.context));
    for (u64 j = 0; j < 64; ++j) {
        std::vector<double> own;
        for (u64 i = 0; i < 64; ++i) own.push_back(expected[64 * i + j]);
        const auto encrypted = numbers.encrypt(own.data(), 64);
        packer.modPack(pointersTo(encrypted), toFirst, ofFirst[j]);
    }
    std::vector<CiphertextBase<MLWE>> ofSecond(16, CiphertextBase<MLWE>(second.context));
    for (u64 j = 0; j < 16; ++j) {
        std::vector<const CiphertextBase<MLWE>*> own;
        for (u64 i = 0; i < 4; ++i) own.push_back(&ofFirst[16 * i + j]);
        packer.modPack(own, toSecond, ofSecond[j]);
    }
    Ciphertext packed(last.context);
    packer.modPack(pointersTo(std::as_const(ofSecond)), toLast, packed);
    const auto noise = RouteNoise::ofFreshNumbers()
                           .hop(last.context, first.key, 64)
                           .hop(last.context, second.key, 4)
                           .hop(last.context, last.key, 16);
    expectNumbers(coefficientsUnder(packed, last.key), expected, noise, logScale(), "LWE in three hops");
}

TEST(RingPackerRoutesRealPreset, TheWayBackLeadsThroughTheSwitchRingToNumbers) {
    const KeyedRing<RLWE> large(ParameterPreset::FGb), small(ParameterPreset::FGbD12L0);
    const Context& switchContext = contextOf(ParameterPreset::FGbL0);
    const KeyGenerator generator(large.context, large.key);
    const RingSwitchKey key = generator.genDecomposeKey(switchContext, small.key);

    Seeded random(963);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(65536, random);
    Ciphertext whole(large.context);
    Encryptor(large.context).encrypt(expected, large.key, whole, 0, 0);
    std::vector<Ciphertext> parts(16, Ciphertext(small.context));
    auto pointers = pointersTo(parts);
    packer.decompose(whole, key, pointers);
    auto noise = RouteNoise::ofFreshCoefficients().hop(switchContext, small.key);
    std::vector<double> got(65536);
    for (u64 j = 0; j < 16; ++j) {
        const auto part = coefficientsUnder(parts[j], small.key);
        ASSERT_EQ(part.size(), 4096U);
        for (u64 c = 0; c < 4096; ++c) got[16 * c + j] = part[c];
    }
    expectNumbers(got, expected, noise, logScale(), "FGb to FGbD12L0");

    const LWE::Context context = LWE::makeContext(LWE::ParameterPreset::FGbD12L0);
    const LWE::SecretKey numberKey = genLWESecretKeyAfterUnPack(context, small.key);
    const LWE::Decryptor decryptor(context);
    std::vector<LWE::Ciphertext> numbers(getNumCiphertextsAfterUnPack(small.context),
                                         LWE::Ciphertext(context));
    packer.unPack(parts[5], pointersTo(numbers));
    for (u64 c = 0; c < 4096; ++c) {
        double number = 0;
        decryptor.decrypt(numbers[c], numberKey, number);
        ASSERT_NEAR(number, got[16 * c + 5], 0x1p-50) << c; // the same phase, decoded another way
    }
}

TEST(RingPackerRoutesRealPreset, ModulesAndNumbersOfSD3MeetInItsRing) {
    const KeyedRing<RLWE> ring(ParameterPreset::SD3);
    const KeyedRing<MLWE> module(ParameterPreset::SD3D6R2);
    const LWE::Context numberContext = LWE::makeContext(LWE::ParameterPreset::SD3);
    const LWE::SecretKey numberKey(numberContext);
    const KeyGenerator generator(ring.context);

    // From 128 modules, level by level.
    const auto keys = generator.genModPackKeyBundle(module.key, ring.key);
    ASSERT_EQ(keys.getNumKeys(), 4U);
    Seeded random(964);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(8192, random);
    for (const u64 level : {0, 3}) {
        std::vector<CiphertextBase<MLWE>> modules(128, CiphertextBase<MLWE>(module.context));
        for (u64 j = 0; j < 128; ++j) {
            std::vector<double> own;
            for (u64 c = 0; c < 64; ++c) own.push_back(expected[128 * c + j]);
            Encryptor(module.context).encrypt(own, module.key, modules[j], level, 0);
        }
        Ciphertext packed(ring.context);
        packer.modPack(pointersTo(std::as_const(modules)), keys, packed);
        EXPECT_EQ(packed.getLevel(), level);
        const auto noise = RouteNoise::ofFreshCoefficients().hop(ring.context, ring.key, 4, level);
        expectNumbers(coefficientsUnder(packed, ring.key), expected, noise,
                      getDefaultScaleFactorList(ring.context).at(level), "SD3D6R2 to SD3");
    }

    // From 8192 numbers at once.
    const auto numberKeys = generator.genModPackKeyBundle(numberKey, ring.key);
    ASSERT_EQ(numberKeys.getNumKeys(), 32U);
    std::vector<LWE::Ciphertext> numbers(8192, LWE::Ciphertext(numberContext));
    for (u64 i = 0; i < 8192; ++i) LWE::Encryptor(numberContext).encrypt(expected[i], numberKey, numbers[i]);
    Ciphertext packed(ring.context);
    packer.modPack(pointersTo(std::as_const(numbers)), numberKeys, packed);
    const auto noise = RouteNoise::ofFreshNumbers().hop(ring.context, ring.key, 32, 3);
    expectNumbers(coefficientsUnder(packed, ring.key), expected, noise,
                  getDefaultScaleFactorList(ring.context).at(3), "LWE to SD3");
}

TEST(RingPackerRoutes, NumbersOfSD3HaveNoWayIntoItsModule) {
    // The keys would be of a ring of degree 256 with the primes of SD3, which no preset has.
    const KeyedRing<MLWE> module(ParameterPreset::SD3D6R2);
    const LWE::Context numberContext = LWE::makeContext(LWE::ParameterPreset::SD3);
    const LWE::SecretKey numberKey(numberContext);
    EXPECT_REFUSED(KeyGenerator(contextOf(ParameterPreset::SD3)).genModPackKeyBundle(numberKey, module.key),
                   "[genModPackKeyBundle] Total dimension of output secret key is not equal to the RLWE "
                   "encryption dimension");
    EXPECT_REFUSED(KeyGenerator(makeContext(8, 4, 47, 41, 47, 4)).genModPackKeyBundle(numberKey, module.key),
                   "The given two contexts are not compatible at any level");
}

TEST(RingPackerRoutes, KeysForAWayThatDoesNotExistAreRefusedWhenTheyAreMade) {
    // FGbD12L0 has one prime, FX has more; and it is larger, so no context of the keys either.
    const KeyedRing<RLWE> toy(ParameterPreset::FX), small(ParameterPreset::FGbD12L0);
    EXPECT_REFUSED(KeyGenerator(small.context, small.key).genComposeKey(toy.key),
                   "[genComposeKey] The encryption primes of the ciphertext to switch from is not subset of "
                   "the primes of the RLWE encryption");
    EXPECT_REFUSED(
        KeyGenerator(toy.context, toy.key).genDecomposeKey(small.context, toy.key),
        "[genDecomposeKey] The degree of the switch key is not same to the RLWE encryption degree");
}

TEST(RingPackerRoutesRealPreset, ASmallRingEmbedsIntoFGbAndBootstraps) {
    const KeyedRing<RLWE> large(ParameterPreset::FGb), small(ParameterPreset::FGbD12L0);
    const KeyGenerator generator(large.context, large.key);
    const RingSwitchKey key = generator.genComposeKey(small.key);
    generator.genMultKey();
    generator.genConjKey();
    generator.genRotKeysForBootstrap(11, true);
    const HomEvaluator evaluator(large.context, generator.getKeyPack());
    const Bootstrapper bootstrapper(evaluator, 11, true);

    Seeded random(965);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(4096, random);
    Ciphertext encrypted(small.context), embedded(large.context);
    Encryptor(small.context).encrypt(expected, small.key, encrypted);
    packer.compose({&encrypted}, key, embedded);
    embedded.setLogSlots(11); // 4096 coefficients, 16 apart
    const auto noise = RouteNoise::ofFreshCoefficients().hop(large.context, large.key);
    expectNumbers(coefficientsUnder(embedded, large.key), expected, noise, logScale(), "FGbD12L0 to FGb");
    bootstrapper.halfBoot(embedded, embedded, true);
    Message got;
    Decryptor(large.context).decrypt(embedded, large.key, got);
    const BootErrorModel errors(large.context, BootParameter(large.context));
    EXPECT_LT(maxError(got, slotsOf(expected, 11)), errors.complexBound() + 2 * noise.bound(logScale()));
}

TEST(RingPackerRoutesFull, SixtyFiveThousandNumbersBecomeTheSlotsOfOneCiphertextAndComeBack) {
    const KeyedRing<RLWE> large(ParameterPreset::FGb), small(ParameterPreset::FGbD12L0);
    const PlainNumbers numbers;
    Seeded random(966);
    SCOPED_TRACE(random.describe());
    const auto expected = randomNumbers(65536, random);

    // Number i becomes coefficient i: small ciphertext j takes those at 16 c + j.
    std::vector<Ciphertext> parts(16, Ciphertext(small.context));
    auto noise = RouteNoise::ofFreshNumbers().hop(small.context, small.key, 4096);
    {
        const auto keys = KeyGenerator(small.context).genModPackKeyBundle(numbers.key, small.key);
        ASSERT_EQ(keys.getNumKeys(), 4096U);
        for (u64 j = 0; j < 16; ++j) {
            std::vector<double> own;
            for (u64 c = 0; c < 4096; ++c) own.push_back(expected[16 * c + j]);
            const auto encrypted = numbers.encrypt(own.data(), own.size());
            packer.modPack(pointersTo(encrypted), keys, parts[j]);
            expectNumbers(coefficientsUnder(parts[j], small.key), own, noise, logScale(), "LWE to FGbD12L0");
        }
    }
    const KeyGenerator generator(large.context, large.key);
    Ciphertext whole(large.context);
    packer.compose(pointersTo(std::as_const(parts)), generator.genComposeKey(small.key), whole);
    noise.hop(large.context, large.key);
    expectNumbers(coefficientsUnder(whole, large.key), expected, noise, logScale(), "LWE to FGb");

    generator.genMultKey();
    generator.genConjKey();
    generator.genRotKeysForBootstrap(15, true);
    const HomEvaluator evaluator(large.context, generator.getKeyPack());
    const Bootstrapper bootstrapper(evaluator, 15, true);
    Ciphertext slots(large.context);
    bootstrapper.halfBoot(whole, slots, true);
    Message got;
    Decryptor(large.context).decrypt(slots, large.key, got);
    const BootErrorModel errors(large.context, BootParameter(large.context));
    const double bootBound = errors.complexBound() + 2 * noise.bound(logScale());
    const double bootError = maxError(got, slotsOf(expected, 15));
    EXPECT_LT(bootError, bootBound);
    std::printf("LWE to slots: largest error 2^%.2f, bound 2^%.2f\n", std::log2(bootError),
                std::log2(bootBound));

    // Work on the slots, and down again.
    evaluator.negate(slots, slots);
    bootstrapper.slotToCoeff(slots, whole);
    EXPECT_EQ(whole.getLevel(), 0U);
    const Context& switchContext = contextOf(ParameterPreset::FGbL0);
    auto pointers = pointersTo(parts);
    packer.decompose(whole, generator.genDecomposeKey(switchContext, small.key), pointers);
    std::vector<LWE::Ciphertext> cut(4096, LWE::Ciphertext(numbers.context));
    const LWE::SecretKey key = genLWESecretKeyAfterUnPack(numbers.context, small.key);
    // slotToCoeff rounds as the first half of a bootstrap does, which `errors` count.
    const double bound = bootBound + errors.complexBound() +
                         RouteNoise::ofFreshCoefficients().hop(switchContext, small.key).bound(logScale());
    double largest = 0;
    for (u64 j = 0; j < 16; ++j) {
        packer.unPack(parts[j], pointersTo(cut));
        for (u64 c = 0; c < 4096; ++c) {
            double number = 0;
            LWE::Decryptor(numbers.context).decrypt(cut[c], key, number);
            largest = std::max(largest, std::abs(number + expected[16 * c + j]));
        }
    }
    EXPECT_LT(largest, bound);
    std::printf("LWE to slots and back: largest error 2^%.2f, bound 2^%.2f\n", std::log2(largest),
                std::log2(bound));
}

} // namespace Torvo
