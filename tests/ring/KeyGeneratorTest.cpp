#include "arithmetic/elements/PolyGerm.hpp"
#include "context/ContextContent.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/KeyGeneratorImplBase.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/KeyEquation.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

namespace Torvo {

namespace {

using namespace test;

constexpr u64 degree = 64;
constexpr u64 slots = 32;
const char* const withoutSecretKey =
    "[KeyGenerator] The KeyGenerator was constructed without a default secret key";
const char* const wrongIndex = "Wrong rotation index";

Context smallContext() {
    static const Context context = makeContext(6, 4, 50, 42, 50, 2);
    return context;
}

/// Digits of one prime, of two, of five; one digit for all.
std::vector<Context> contexts() {
    return {makeContext(6, 3, 50, 42, 51, 3), smallContext(), contextOf(ParameterPreset::FX),
            makeContext(6, 4, 50, 42, 50, 1)};
}

u64 powerOfFive(u64 r) {
    u64 power = 1;
    for (; r > 0; --r) power = power * 5 % (2 * degree);
    return power;
}

std::set<u64> rotationsOf(const KeyPack& pack) {
    std::set<u64> found;
    for (u64 r = 0; r < slots; ++r)
        if (pack.isLeftRotKeyLoaded(r)) found.insert(r);
    return found;
}

} // namespace

TEST(KeyGenerator, TheMultiplicationKeySwitchesFromTheSquareOfTheSecret) {
    for (const Context& context : contexts()) {
        const SecretKey secretKey(context);
        const KeyGenerator generator(context, secretKey);
        generator.genMultKey();
        const auto key = generator.getKeyPack().getMultKey();
        const auto s = coefficientsOf(secretKey, degree);
        EXPECT_EQ(key->getType(), 'm');
        expectSwitches(context, *key, s, product(s, s));
    }
}

TEST(KeyGenerator, TheConjugationKeySwitchesFromTheConjugateOfTheSecret) {
    for (const Context& context : contexts()) {
        const SecretKey secretKey(context);
        const KeyGenerator generator(context, secretKey);
        generator.genConjKey();
        const auto key = generator.getKeyPack().getConjKey();
        const auto s = coefficientsOf(secretKey, degree);
        EXPECT_EQ(key->getType(), 'c');
        expectSwitches(context, *key, s, substituted(s, 2 * degree - 1));
    }
}

TEST(KeyGenerator, RotationKeysSwitchFromTheRotatedSecret) {
    for (const Context& context : contexts()) {
        const SecretKey secretKey(context);
        const KeyGenerator generator(context, secretKey);
        const auto s = coefficientsOf(secretKey, degree);
        for (const u64 r : {u64{1}, u64{5}, slots - 1}) {
            generator.genLeftRotKey(r);
            const auto key = generator.getKeyPack().getLeftRotKey(r);
            EXPECT_EQ(key->getType(), 'r');
            EXPECT_EQ(key->getRotationIndex(), r);
            expectSwitches(context, *key, s, substituted(s, powerOfFive(r)));
        }
    }
}

TEST(KeyGenerator, TheEncryptionKeyEncryptsZero) {
    const Context context = smallContext();
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    generator.genEncKey();
    const auto key = generator.getKeyPack().getEncKey();
    const auto s = coefficientsOf(secretKey, degree);
    expectIsError(centred(decryptedRow(context, key->getBx(), key->getAx(), s, 1), getPrimeList(context)[1]));
}

TEST(KeyGenerator, UniformPartsKeepTheirGermsWhichAreDrawnFirst) {
    const Context context = smallContext();
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    setSeed({9, 8, 7, 6});
    const PolyGerm first, second;
    setSeed({9, 8, 7, 6});
    generator.genMultKey();
    const auto key = generator.getKeyPack().getMultKey();
    EXPECT_EQ(key->getAxIter(Device{})[0].getGerm(), first);
    EXPECT_EQ(key->getAxIter(Device{})[1].getGerm(), second);
    EXPECT_FALSE(key->getBxIter(Device{})[0].getGerm().has_value());
    setSeed({9, 8, 7, 6});
    generator.genMultKey();
    const auto again = generator.getKeyPack().getMultKey();
    EXPECT_NE(again, key);
    for (u64 row = 0; row < getPrimeList(context).size(); ++row)
        EXPECT_EQ(wordsOf(again->getBxIter(Device{})[1], row), wordsOf(key->getBxIter(Device{})[1], row));
}

TEST(KeyGeneratorImplBase, SwitchesBetweenAnyTwoSecretsWithSampledUniformParts) {
    const Context context = smallContext();
    const SecretKey from(context), to(context);
    const KeyGeneratorImplBase base(context);
    EvaluationKey key(context, 'x', 0);
    base.genSwitchingKeyAx(context, key.getAxIter(Device{}));
    base.genSwitchingKeyBx(context, RNSDecomposeData(context), from.getSx(), to.getSx(),
                           key.getAxIter(Device{}), key.getBxIter(Device{}));
    expectSwitches(context, key, coefficientsOf(to, degree), coefficientsOf(from, degree));
    for (u64 j = 0; j < key.getGadgetRank(); ++j) {
        const Polynomial& ax = key.getAxIter(Device{})[j];
        EXPECT_FALSE(ax.getGerm().has_value());
        for (u64 row = 0; row < getPrimeList(context).size(); ++row) {
            const auto words = wordsOf(ax, row);
            EXPECT_LT(*std::max_element(words.begin(), words.end()), getPrimeList(context)[row]);
            EXPECT_NE(words[0], words[1]);
        }
    }
}

TEST(KeyGenerator, WrongRotationIndicesAreRefused) {
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    for (const u64 index : {u64{0}, slots, slots + 1, ~u64{0}}) {
        EXPECT_REFUSED(generator.genLeftRotKey(index), wrongIndex);
        EXPECT_REFUSED(generator.genRightRotKey(index), wrongIndex);
    }
    EXPECT_TRUE(rotationsOf(generator.getKeyPack()).empty());
}

TEST(KeyGenerator, ARightRotationIsTheComplementaryLeftOne) {
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    generator.genRightRotKey(1);
    EXPECT_EQ(rotationsOf(generator.getKeyPack()), std::set<u64>{slots - 1});
    EXPECT_EQ(generator.getKeyPack().getRightRotKey(1)->getRotationIndex(), slots - 1);
}

TEST(KeyGenerator, MissingRotationKeysAreMadeForIndicesOfEitherSign) {
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    const KeyPack& pack = generator.getKeyPack();
    for (const long nothing : {0L, 32L, -32L, 64L}) generator.genRotKeyIfNotExist(nothing);
    EXPECT_TRUE(rotationsOf(pack).empty());
    generator.genRotKeyIfNotExist(-1);
    EXPECT_EQ(rotationsOf(pack), std::set<u64>{slots - 1});
    const auto key = pack.getLeftRotKey(slots - 1);
    generator.genRotKeyIfNotExist(31);
    generator.genRotKeyIfNotExist(63);
    EXPECT_EQ(pack.getLeftRotKey(slots - 1), key);
    generator.genRotKeyIfNotExist(33);
    EXPECT_EQ(rotationsOf(pack), (std::set<u64>{1, slots - 1}));
}

TEST(KeyGenerator, TheBundleHoldsPowersOfTwoAndTheirComplements) {
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    const KeyPack& pack = generator.getKeyPack();
    generator.genRotKeyBundle();
    const std::set<u64> bundle{1, 2, 4, 8, 16, 24, 28, 30, 31};
    EXPECT_EQ(rotationsOf(pack), bundle);
    std::vector<std::shared_ptr<EvaluationKey>> keys;
    for (const u64 r : bundle) keys.push_back(pack.getLeftRotKey(r));
    const std::string stateBefore = threadGenerator().getState();
    generator.genRotKeyBundle();
    std::size_t i = 0;
    for (const u64 r : bundle) EXPECT_EQ(pack.getLeftRotKey(r), keys[i++]);
    EXPECT_EQ(threadGenerator().getState(), stateBefore); // nothing was drawn
}

TEST(KeyGenerator, FixedKeysAreReplacedAndRotationKeysStay) {
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    const KeyPack& pack = generator.getKeyPack();
    const auto generateAll = [&] {
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        generator.genLeftRotKey(3);
    };
    generateAll();
    const auto enc = pack.getEncKey();
    const auto mult = pack.getMultKey(), conj = pack.getConjKey(), rot = pack.getLeftRotKey(3);
    generateAll();
    EXPECT_NE(pack.getEncKey(), enc);
    EXPECT_NE(pack.getMultKey(), mult);
    EXPECT_NE(pack.getConjKey(), conj);
    EXPECT_EQ(pack.getLeftRotKey(3), rot);
}

TEST(KeyGenerator, WithoutASecretKeyNothingIsGenerated) {
    const KeyGenerator generator(smallContext());
    EXPECT_REFUSED(generator.genEncKey(), withoutSecretKey);
    EXPECT_REFUSED(generator.genMultKey(), withoutSecretKey);
    EXPECT_REFUSED(generator.genConjKey(), withoutSecretKey);
    EXPECT_REFUSED(generator.genLeftRotKey(0), withoutSecretKey); // before the index is checked
    EXPECT_REFUSED(generator.genRightRotKey(0), withoutSecretKey);
    EXPECT_REFUSED(generator.genRotKeyBundle(), withoutSecretKey);
    EXPECT_REFUSED(generator.genRotKeyIfNotExist(0), withoutSecretKey);
    EXPECT_FALSE(generator.getKeyPack().isMultKeyLoaded());
}

TEST(KeyGenerator, ContextsAreCheckedInOrder) {
    const Context context = contextOf(ParameterPreset::FX);
    const SecretKey foreign(smallContext());
    EXPECT_REFUSED(KeyGenerator(context, foreign), "[KeyGenerator] context and secret key don't match");
    EXPECT_REFUSED(KeyGenerator(context, foreign, KeyPack(context)),
                   "[KeyGenerator] context and secret key don't match");
    EXPECT_REFUSED(KeyGenerator(context, context, foreign),
                   "[KeyGenerator] context and secret key don't match");
    EXPECT_REFUSED(KeyGenerator(context, context, SecretKey(context)),
                   "[KeyGenerator] context does not support sparse secret encapsulation");
    EXPECT_REFUSED(KeyGenerator(context, context, SecretKey(context), KeyPack(context)),
                   "[KeyGenerator] context does not support sparse secret encapsulation");
}

TEST(KeyGeneratorRealPreset, TheSecondContextMustBeThePartner) {
    const Context context = makeContext(ParameterPreset::FGd);
    const SecretKey secretKey(context);
    EXPECT_REFUSED(KeyGenerator(context, contextOf(ParameterPreset::FX), secretKey),
                   "[KeyGenerator] parameter of context and context_sparse does not match");
    EXPECT_NO_THROW(KeyGenerator(context, makeContext(ParameterPreset::SGd0), secretKey));
}

TEST(KeyGenerator, ContextsOfEqualParametersMatch) {
    const Context context = contextOf(ParameterPreset::FX);
    const KeyGenerator generator(context, SecretKey(makeContext(ParameterPreset::FX)));
    EXPECT_NO_THROW(generator.genMultKey());
}

TEST(KeyGenerator, KeysGoToTheGivenPack) {
    const Context context = smallContext();
    const KeyPack pack(context);
    const KeyGenerator generator(context, SecretKey(context), pack);
    generator.genConjKey();
    EXPECT_TRUE(pack.isConjKeyLoaded());
}

TEST(KeyGenerator, FlushStartsANewPackAndLeavesTheOldOneToItsHolders) {
    const Context context = smallContext();
    KeyGenerator generator(context, SecretKey(context));
    generator.genMultKey();
    const KeyPack old = generator.getKeyPack();
    generator.flush();
    EXPECT_FALSE(generator.getKeyPack().isMultKeyLoaded());
    EXPECT_TRUE(old.isMultKeyLoaded());
    generator.genConjKey();
    EXPECT_TRUE(generator.getKeyPack().isConjKeyLoaded());
    EXPECT_FALSE(old.isConjKeyLoaded());
}

TEST(KeyGenerator, SaveWritesTheKeysHeld) {
    const Context context = smallContext();
    const KeyGenerator generator(context, SecretKey(context));
    generator.genMultKey();
    generator.genLeftRotKey(7);
    const auto directory = std::filesystem::path(testing::TempDir()) / "KeyGeneratorTest";
    std::filesystem::remove_all(directory);
    std::filesystem::create_directory(directory);
    generator.save(directory.string());
    EXPECT_TRUE(std::filesystem::exists(directory / "PK" / "MultKey.bin"));
    EXPECT_TRUE(std::filesystem::exists(directory / "PK" / "RotKey7.bin"));
    const KeyPack pack(context, directory.string());
    const auto s = pack.getLeftRotKey(7);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(wordsOf(s->getBxIter(Device{})[0], 0),
              wordsOf(generator.getKeyPack().getLeftRotKey(7)->getBxIter(Device{})[0], 0));
    std::filesystem::remove_all(directory);
}

TEST(KeyGenerator, GeneratorsMayRunSideBySideOnOnePack) {
    const Context context = smallContext();
    const SecretKey secretKey(context);
    const KeyPack pack(context);
    std::vector<std::thread> threads;
    for (u64 part = 0; part < 4; ++part)
        threads.emplace_back([&, part] {
            const KeyGenerator generator(context, secretKey, pack);
            for (u64 r = 1 + part % 2; r < slots; r += 2) generator.genLeftRotKey(r);
            generator.genMultKey();
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(rotationsOf(pack).size(), slots - 1);
    const auto s = coefficientsOf(secretKey, degree);
    expectSwitches(context, *pack.getMultKey(), s, product(s, s));
    for (u64 r = 1; r < slots; ++r)
        expectSwitches(context, *pack.getLeftRotKey(r), s, substituted(s, powerOfFive(r)));
}

TEST(KeyGenerator, ASecretOnADeviceWithoutBackendIsRefusedAndTheKeyHeldStays) {
    const Context context = smallContext();
    SecretKey secretKey(context);
    const KeyPack pack(context);
    KeyGenerator(context, secretKey, pack).genMultKey();
    const auto held = pack.getMultKey();
    secretKey.to({DeviceType::CPU, 1});
    const KeyGenerator generator(context, secretKey, pack);
    EXPECT_REFUSED(generator.genMultKey(),
                   "The generated context does not support the operation with current "
                   "operands; check the device.");
    EXPECT_REFUSED(generator.genEncKey(), "Operands are in different devices.");
    EXPECT_EQ(pack.getMultKey(), held);
    EXPECT_EQ(pack.getEncKey(), nullptr); // and the slot's mutex was given back
}

} // namespace Torvo
