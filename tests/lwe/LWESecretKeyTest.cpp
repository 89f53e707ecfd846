#include <Torvo/LWESecretKey.hpp>

#include "arithmetic/elements/PolyGerm.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "lwe/LWESecretKeyImpl.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/NewThread.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace Torvo::LWE {
namespace {

using test::Bytes;
using test::smallLWEContext;

constexpr std::array<unsigned long, 4> pinnedSeed{1, 2, 3, 4};
const std::string notRandom = "The secret key is not randomly generated";
const std::string unknownOption = "[load SecretKey] Invalid serialize option";

std::vector<int> coefficientsOf(const SecretKey& key) {
    return {key.getCoefficients(), key.getCoefficients() + getDimension(key.getContext())};
}

std::string fullFile(const SecretKey& key) {
    return test::bytesOf([&](std::ostream& stream) { key.save(stream); });
}

std::string seedFile(const SecretKey& key) {
    return test::bytesOf([&](std::ostream& stream) { key.saveSeedOnly(stream); });
}

SecretKey loaded(const Context& context, const std::string& file) {
    std::istringstream stream(file);
    return SecretKey(context, stream);
}

std::vector<int> alternating(u64 size) {
    std::vector<int> coefficients(size);
    for (u64 i = 0; i < size; ++i) coefficients[i] = static_cast<int>(i % 3) - 1;
    return coefficients;
}

void expectSameKey(const SecretKey& a, const SecretKey& b) {
    EXPECT_EQ(coefficientsOf(a), coefficientsOf(b));
    EXPECT_EQ(fullFile(a), fullFile(b));
}

TEST(LWESecretKey, HasExactlyTheHammingWeightInEveryPreset) {
    using enum ParameterPreset;
    for (const auto& [preset, weight] :
         std::vector<std::pair<ParameterPreset, long>>{{SS7, 683}, {SD3, 21}, {FGbD12L0, 2731}}) {
        const auto values = coefficientsOf(SecretKey(makeContext(preset)));
        EXPECT_EQ(static_cast<long>(values.size()) - std::count(values.begin(), values.end(), 0), weight);
        EXPECT_TRUE(std::all_of(values.begin(), values.end(), [](int v) { return v >= -1 && v <= 1; }));
    }
}

TEST(LWESecretKey, TheFileTellsNothingOfOtherKeysAndMasks) {
    test::onNewThread([] {
        const SecretKey a(smallLWEContext());
        const std::string file = seedFile(a), state = file.substr(file.size() - 49);
        const PolyGerm mask;
        const SecretKey b(smallLWEContext());
        test::onNewThread([&] {
            threadGenerator().setState(state);
            EXPECT_EQ(coefficientsOf(SecretKey(smallLWEContext())), coefficientsOf(a));
            const std::string behind = threadGenerator().getState();
            EXPECT_NE(PolyGerm(), mask);
            EXPECT_NE(coefficientsOf(SecretKey(smallLWEContext())), coefficientsOf(b));
            threadGenerator().setState(behind);
            EXPECT_NE(coefficientsOf(SecretKey(smallLWEContext())), coefficientsOf(b));
        });
    });
}

TEST(LWESecretKey, IsWhatTheSamplerDrawsFromTheStateBefore) {
    setSeed(pinnedSeed);
    const SecretKey key(smallLWEContext());
    const u64 next = threadGenerator()();
    setSeed(pinnedSeed);
    DeviceSpecificArray<int> drawn(64);
    RandomSampler().sampleHWT(drawn, 64, 43);
    EXPECT_EQ(coefficientsOf(key), std::vector<int>(drawn.begin(), drawn.end()));
    EXPECT_EQ(threadGenerator()(), next);
}

TEST(LWESecretKey, HoldsTheResiduesOfItsCoefficientsModuloEveryPrime) {
    const auto coefficients = alternating(64);
    const SecretKey key(smallLWEContext(), coefficients.data());
    EXPECT_EQ(coefficientsOf(key), coefficients);
    EXPECT_EQ(key.getContext(), smallLWEContext());
    const auto primes = getPrimeList(smallLWEContext());
    ASSERT_EQ(key.getSx().getLevel(), 2U);
    for (u64 i = 0; i < 3; ++i)
        for (u64 k = 0; k < 64; ++k)
            ASSERT_EQ(key.getSx().getRow(i)[k], test::wordResidueOf(coefficients[k], primes[i]));
}

TEST(LWESecretKey, OfGivenCoefficientsHasNoSeedToSave) {
    const SecretKey key(smallLWEContext(), alternating(64).data());
    EXPECT_REFUSED(seedFile(key), notRandom);
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/key.bin";
    EXPECT_REFUSED(key.saveSeedOnly(path), notRandom);
    EXPECT_FALSE(std::filesystem::exists(path));
    const SecretKey again = loaded(smallLWEContext(), fullFile(key));
    expectSameKey(again, key);
    EXPECT_REFUSED(seedFile(again), notRandom);
}

TEST(LWESecretKey, TheFullFileIsThatOfItsTable) {
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    const SecretKey random(smallLWEContext());
    const auto file = [&](const SecretKey& key, bool isRandom, const std::string& rngState) {
        Bytes bytes = Bytes::frame().u8(0).u32(0).u64s({smallLWEContext()->context_hash}).u32(2);
        bytes.u8(isRandom ? 1 : 0).u64s({rngState.size()}).raw(rngState).u64s({64});
        for (const int value : coefficientsOf(key)) bytes.u32(static_cast<std::uint32_t>(value));
        bytes.u64s({64, 2, 3 * 64});
        for (const u64 word : key.getSx().getData()) bytes.u64s({word});
        return bytes.str();
    };
    EXPECT_EQ(fullFile(random), file(random, true, state));
    const SecretKey given(smallLWEContext(), alternating(64).data());
    EXPECT_EQ(fullFile(given), file(given, false, ""));
}

TEST(LWESecretKey, TheSeedFileIsThatOfItsTable) {
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    const SecretKey key(smallLWEContext());
    const std::string file = Bytes::frame().u8(0).u32(1).u32(2).u64s({49}).raw(state).str();
    EXPECT_EQ(file.size(), 67U);
    EXPECT_EQ(seedFile(key), file);
}

TEST(LWESecretKey, BothFormsGiveTheKeyBackThroughStreamsAndFiles) {
    const test::TemporaryDirectory directory;
    const std::string full = directory.path() + "/full.bin", seed = directory.path() + "/seed.bin";
    for (const Context& context : {smallLWEContext(), makeContext(ParameterPreset::SD3)}) {
        const SecretKey key(context);
        expectSameKey(loaded(context, fullFile(key)), key);
        expectSameKey(loaded(context, seedFile(key)), key);
        key.save(full);
        key.saveSeedOnly(seed);
        expectSameKey(SecretKey(context, full), key);
        expectSameKey(SecretKey(context, seed), key);
    }
    const SecretKey key(smallLWEContext());
    const std::string absent = directory.path() + "/absent/key.bin";
    EXPECT_REFUSED(key.save(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(key.saveSeedOnly(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(SecretKey(smallLWEContext(), absent), "Cannot open file " + absent);
}

TEST(LWESecretKey, ItsFilesAreTheOwnersAlone) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/key.bin";
    const SecretKey key(smallLWEContext());
    using Save = void (SecretKey::*)(const std::string&) const;
    for (const Save save : {Save{&SecretKey::save}, Save{&SecretKey::saveSeedOnly}}) {
        (key.*save)(path);
        EXPECT_EQ(std::filesystem::status(path).permissions(), static_cast<std::filesystem::perms>(0600));
        expectSameKey(SecretKey(smallLWEContext(), path), key);
        std::filesystem::permissions(path, static_cast<std::filesystem::perms>(0666)); // for the next one
    }
}

TEST(LWESecretKey, LoadingTheSeedLeavesTheThreadsStreamUndisturbed) {
    setSeed(pinnedSeed);
    std::vector<u64> words(131072 - 10);
    threadGenerator().getRandomNumbers(words.data(), words.size());
    const SecretKey key(smallLWEContext());
    const std::string state = threadGenerator().getState();
    expectSameKey(loaded(smallLWEContext(), seedFile(key)), key);
    EXPECT_EQ(threadGenerator().getState(), state);
}

TEST(LWESecretKey, ASeedFileIsTakenByAnyContextAFullFileByItsOwn) {
    const SecretKey key(smallLWEContext());
    const SecretKey other = loaded(makeContext(ParameterPreset::SD3), seedFile(key));
    EXPECT_EQ(coefficientsOf(other).size(), 32U);
    EXPECT_EQ(seedFile(other), seedFile(key));
    EXPECT_REFUSED(loaded(makeContext(ParameterPreset::SD3), fullFile(key)), test::notVerified);
}

// One fault at a time, each with all that come after it.
TEST(LWESecretKey, LoadingRefusesInOrder) {
    const Context& context = smallLWEContext();
    const u64 hash = context->context_hash;
    EXPECT_REFUSED(loaded(context, Bytes::frame().u8(0).u32(2).u64s({0}).u32(9).str()), unknownOption);
    EXPECT_REFUSED(loaded(context, Bytes::frame().u8(1).str()), unknownOption);
    EXPECT_REFUSED(loaded(context, Bytes::frame().u8(0).u32(0).u64s({hash + 1}).u32(2).str()),
                   test::notVerified);
    EXPECT_REFUSED(loaded(context, Bytes::frame().u8(0).u32(0).u64s({hash}).u32(3).str()), test::notVerified);
    EXPECT_REFUSED(loaded(context, Bytes::frame().u8(0).u32(1).u32(3).str()), test::notVerified);
    const SecretKeyImpl key(context);
    std::ostringstream stream;
    EXPECT_REFUSED(Serialize::save(stream, detail::CerealAdaptor(key, 2)),
                   "[save SecretKey] Invalid serialize option");
}

TEST(LWESecretKey, AShapeOfAnotherContextIsRefused) {
    const Context context = makeContext(8, 2, 50, 40);
    struct Shape {
        u64 flag = 1, stateLength = 49, coefficients = 8, dimension = 8, level = 1, words = 16;
    };
    const auto load = [&](const Shape& shape) {
        Bytes bytes = Bytes::frame().u8(0).u32(0).u64s({context->context_hash}).u32(2);
        bytes.u8(static_cast<std::uint8_t>(shape.flag)).u64s({shape.stateLength});
        bytes.raw(std::string(shape.stateLength, '\1')).u64s({shape.coefficients});
        for (u64 i = 0; i < shape.coefficients; ++i) bytes.u32(1);
        bytes.u64s({shape.dimension, shape.level, shape.words});
        for (u64 i = 0; i < shape.words; ++i) bytes.u64s({1});
        return loaded(context, bytes.str());
    };
    EXPECT_NO_THROW(load({}));
    EXPECT_NO_THROW(load({.flag = 0, .stateLength = 0}));
    EXPECT_REFUSED(load({.flag = 2}), test::notVerified);
    for (const u64 length : {1, 48, 50}) EXPECT_REFUSED(load({.stateLength = length}), test::notVerified);
    for (const u64 count : {0, 7, 9}) EXPECT_REFUSED(load({.coefficients = count}), test::notVerified);
    EXPECT_REFUSED(load({.dimension = 7, .words = 14}), test::notVerified);
    EXPECT_REFUSED(load({.dimension = 16, .level = 0}), test::notVerified);
    EXPECT_REFUSED(load({.level = 0, .words = 8}), test::notVerified);
    EXPECT_REFUSED(load({.level = 2, .words = 24}), test::notVerified);
    EXPECT_REFUSED(load({.words = 15}), test::notVerified);
    for (const u64 length : {0, 48, 50})
        EXPECT_REFUSED(
            loaded(context,
                   Bytes::frame().u8(0).u32(1).u32(2).u64s({length}).raw(std::string(50, 'x')).str()),
            test::notVerified);
}

TEST(LWESecretKey, ShortAndDamagedFilesDoNoHarm) {
    const SecretKey key(makeContext(8, 2, 50, 40));
    const auto load = [&](std::istream& stream) { SecretKey(key.getContext(), stream); };
    const std::string full = fullFile(key), state = threadGenerator().getState();
    test::expectShortReads(seedFile(key), load);
    test::expectShortReads(full, load);
    const std::set<std::string> refusals{test::notVerified, unknownOption};
    test::expectNoHarmFromDamage(seedFile(key), 67, load, refusals);
    test::expectNoHarmFromDamage(full, full.size() - 8 * 2 * 8, load, refusals);
    EXPECT_EQ(threadGenerator().getState(), state);
}

TEST(LWESecretKey, ACopyIsAKeyOfItsOwn) {
    SecretKey key(smallLWEContext());
    const std::string file = fullFile(key), seed = seedFile(key);
    const SecretKey copy(key);
    EXPECT_NE(copy.getCoefficients(), key.getCoefficients());
    EXPECT_NE(copy.getSx().getRow(0), key.getSx().getRow(0));
    SecretKey assigned(makeContext(ParameterPreset::SD3));
    assigned = key;
    EXPECT_EQ(assigned.getContext(), smallLWEContext());
    const SecretKey moved(std::move(key));
    for (const SecretKey* each : {&copy, &std::as_const(assigned), &moved}) {
        EXPECT_EQ(fullFile(*each), file);
        EXPECT_EQ(seedFile(*each), seed);
    }
    const SecretKey& itself = assigned;
    assigned = itself;
    EXPECT_EQ(fullFile(assigned), file);
}

/// Nothing refuses a dimension of zero, which a context file may hold: a number then is its own ciphertext.
TEST(LWESecretKey, LivesOnTheCPU) {
    SecretKey key(smallLWEContext());
    EXPECT_EQ(key.getDevice(), Device{});
    EXPECT_THROW(key.to(Device{DeviceType::GPU, 0}), RuntimeException);
    key.to(Device{DeviceType::CPU, 1});
    EXPECT_EQ(key.getDevice(), (Device{DeviceType::CPU, 1}));
}

} // namespace
} // namespace Torvo::LWE
