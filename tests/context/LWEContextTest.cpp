#include <Torvo/LWEContext.hpp>

#include "context/LWEContextContent.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

namespace Torvo::LWE {
namespace {

using enum ParameterPreset;
using test::Bytes;

const std::string customNeedsParameters =
    "Need to specify some parameters in order to use CUSTOM parameters.";

TEST(LWEContext, AnswersForThePresets) {
    const struct {
        ParameterPreset preset;
        u64 dimension, level;
    } rows[]{{SS7, 1024, 7}, {SD3, 32, 3}, {FGbD12L0, 4096, 0}};
    for (const auto& row : rows) {
        const Context context = makeContext(row.preset);
        EXPECT_EQ(getDimension(context), row.dimension);
        EXPECT_EQ(getEncryptionLevel(context), row.level);
        EXPECT_EQ(getSecurityLevel(context), 128U);
        EXPECT_EQ(getPrimeList(context).size(), row.level + 1);
        EXPECT_EQ(getDefaultScaleFactorList(context).size(), row.level + 1);
        EXPECT_FALSE(context->primes[0].hasNTT());
    }
}

/// The security levels that the documentation of the presets states.
TEST(LWEContext, TheTableGivesTheStatedSecurityToOneOfThePresets) {
    const auto rating = [](const Context& context) {
        double bits = 0;
        for (const u64 prime : getPrimeList(context)) bits += std::log2(prime);
        const auto logDimension = static_cast<u64>(std::log2(getDimension(context)));
        return static_cast<u64>(computeLWESecurityLevel(logDimension, static_cast<u64>(std::lround(bits))));
    };
    EXPECT_GE(rating(makeContext(FGbD12L0)), 128U);
    EXPECT_EQ(static_cast<u64>(computeLWESecurityLevel(12, 58 + 51)), 128U);
    EXPECT_EQ(rating(makeContext(SS7)), 0U);
    EXPECT_EQ(rating(makeContext(SD3)), 0U);
}

TEST(LWEContext, OfAPresetSharesThePrimesOfTheRing) {
    EXPECT_EQ(getPrimeList(makeContext(SS7))[0], 0x3ffffffb80001U);
    EXPECT_EQ(getPrimeList(makeContext(SS7))[1], 0x3ffffe80001U);
    EXPECT_EQ(getPrimeList(makeContext(SD3))[0], 0x7ffffff00001U);
    EXPECT_EQ(getPrimeList(makeContext(SD3))[1], 0x1ffffd80001U);
    EXPECT_EQ(getPrimeList(makeContext(FGbD12L0))[0], 0x3ffffffffbe0001U);
    EXPECT_EQ(getMaxCompatibleLevel(makeContext(SS7), Torvo::makeContext(Torvo::ParameterPreset::SS7)), 7U);
    EXPECT_EQ(getMaxCompatibleLevel(makeContext(SD3), Torvo::makeContext(Torvo::ParameterPreset::SD3)), 3U);
    EXPECT_REFUSED(getMaxCompatibleLevel(makeContext(SD3), Torvo::makeContext(Torvo::ParameterPreset::SS7)),
                   "The given two contexts are not compatible at any level");
}

/// The scale at the top is the top prime, and each squared scale divided by its prime is the next.
TEST(LWEContext, ScalesFollowThePrimesFromTheTopDown) {
    for (const Context& context : {makeContext(SS7), makeContext(SD3), makeContext(48, 4, 55, 38)}) {
        const auto scales = getDefaultScaleFactorList(context);
        const auto primes = getPrimeList(context);
        const u64 top = primes.size() - 1;
        EXPECT_NEAR(scales[top], std::log2(primes[top]), 1e-12);
        for (u64 i = top; i > 0; --i)
            EXPECT_NEAR(scales[i - 1], 2 * scales[i] - std::log2(primes[i]), 1e-12) << i;
    }
    EXPECT_NEAR(getDefaultScaleFactorList(makeContext(FGbD12L0)).at(0), 42.03839, 1e-6);
}

TEST(LWEContext, OfNumbersOfItsOwnHasTheSizesAskedFor) {
    const Context context = makeContext(100, 4, 50, 40);
    EXPECT_EQ(getDimension(context), 100U);
    EXPECT_EQ(getEncryptionLevel(context), 3U);
    EXPECT_EQ(context->parameter.hamming_weight, 67U);
    const auto primes = getPrimeList(context);
    ASSERT_EQ(primes.size(), 4U);
    for (u64 i = 0; i < 4; ++i) EXPECT_EQ(std::ceil(std::log2(primes[i])), i == 0 ? 50 : 40);
    EXPECT_EQ(getPrimeList(makeContext(100, 1, 50, 40)).size(), 1U);
}

/// Two searches, each from its own size down: with one size both begin with the same prime.
TEST(LWEContext, OfOneSizeRepeatsItsBasePrime) {
    const auto primes = getPrimeList(makeContext(16, 4, 40, 40));
    EXPECT_EQ(primes[0], primes[1]);
    EXPECT_GT(primes[1], primes[2]);
    EXPECT_GT(primes[2], primes[3]);
}

TEST(LWEContext, RefusesInOrder) {
    EXPECT_REFUSED(makeContext(CUSTOM, {0}), "Invalid CUDA device ID: 0");
    EXPECT_REFUSED(makeContext(8, 0, 62, 62, {3}), "Invalid CUDA device ID: 3");
    EXPECT_REFUSED(makeContext(CUSTOM), customNeedsParameters);
    EXPECT_REFUSED(makeContext(ParameterPreset{4}), "The input parameter preset is not yet supported.");
    EXPECT_REFUSED(makeContext(8, 0, 62, 62), "[Parameter] Invalid chain_length");
    EXPECT_REFUSED(makeContext(8, 51, 62, 62), "[Parameter] Invalid chain_length");
    EXPECT_REFUSED(makeContext(0, 51, 62, 62), "[Parameter] Invalid chain_length");
    EXPECT_REFUSED(makeContext(0, 2, 34, 62), "[Parameter] Invalid dimension: it should be at least 1");
    EXPECT_REFUSED(makeContext(8, 2, 34, 62), "[PrimeModuli] Prime size is too big. It should be < 62");
    EXPECT_REFUSED(makeContext(8, 2, 62, 35), "[PrimeModuli] Prime size is too big. It should be < 62");
    EXPECT_REFUSED(makeContext(8, 2, 34, 35),
                   "[PrimeModuli] Base prime should be greater than quantize primes");
    EXPECT_REFUSED(makeContext(8, 2, 40, 35),
                   "[PrimeModuli] Quantize primes should be greater than or equal to 36 bit");
}

TEST(LWEContext, HashesItsPrimesAndItsDimension) {
    const u64 hash = makeContext(48, 3, 50, 40)->context_hash;
    EXPECT_EQ(makeContext(48, 3, 50, 40)->context_hash, hash);
    EXPECT_NE(makeContext(49, 3, 50, 40)->context_hash, hash);
    EXPECT_NE(makeContext(48, 2, 50, 40)->context_hash, hash);
    // One prime p and the dimension n: combine(combine(0, p), n), written out.
    const auto mix = [](u64 x) {
        x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
        x = (x ^ x >> 27) * 0x94d049bb133111eb;
        return x ^ x >> 31;
    };
    const u64 first = mix(0x3ffffffffbe0001) + 0x9e3779b9;
    EXPECT_EQ(makeContext(FGbD12L0)->context_hash,
              first ^ (mix(4096) + 0x9e3779b9 + (first << 6) + (first >> 2)));
}

// ---- files

class LWEContextFile : public testing::Test {
protected:
    void write(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    std::string read() const {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/lwe.context";
};

TEST_F(LWEContextFile, IsThatOfItsTable) {
    const std::string custom = Bytes::frame().u32(2).u64s({48, 50, 40, 3}).str();
    EXPECT_EQ(custom.size(), 37U);
    write(std::string(100, 'x'));
    saveContextToFile(makeContext(48, 3, 50, 40), path);
    EXPECT_EQ(read(), custom);
    saveContextToFile(makeContext(FGbD12L0), path);
    EXPECT_EQ(read(), Bytes::frame().u32(3).u64s({4096, 0, 0, 1}).str());
    saveContextToFile(makeContext(SS7), path);
    EXPECT_EQ(read(), Bytes::frame().u32(0).u64s({1024, 0, 0, 8}).str());
}

TEST_F(LWEContextFile, GivesTheContextBack) {
    for (const Context& context : {makeContext(SS7), makeContext(SD3), makeContext(48, 3, 50, 40)}) {
        saveContextToFile(context, path);
        const Context again = makeContextFromFile(path);
        EXPECT_EQ(again->context_hash, context->context_hash);
        EXPECT_EQ(again->parameter.preset, context->parameter.preset);
        EXPECT_EQ(getPrimeList(again), getPrimeList(context));
        EXPECT_EQ(getDefaultScaleFactorList(again), getDefaultScaleFactorList(context));
    }
}

TEST_F(LWEContextFile, OfAPresetIsReadByItsNumberAlone) {
    write(Bytes::frame().u32(1).u64s({7, 7, 7, 7}).str());
    EXPECT_EQ(getDimension(makeContextFromFile(path)), 32U);
}

TEST_F(LWEContextFile, LongerThanItIsIsOfAnotherKind) {
    write(Bytes::frame().u32(2).u64s({48, 50, 40, 3, 0, 0, 0, 0}).str()); // as long as that of a ring
    EXPECT_REFUSED(makeContextFromFile(path), "The file is longer than what is to be loaded: " + path +
                                                  " holds 69 bytes, not 37; give the path of a file of the "
                                                  "right kind");
}

TEST_F(LWEContextFile, ShortOrDamagedFailsCleanly) {
    const std::string file = Bytes::frame().u32(2).u64s({48, 50, 40, 3}).str();
    const auto load = [&](std::istream& stream) {
        write({std::istreambuf_iterator<char>(stream), {}});
        makeContextFromFile(path);
    };
    test::expectShortReads(file, load);
    write(Bytes::frame().u32(9).u64s({48, 50, 40, 3}).str());
    EXPECT_REFUSED(makeContextFromFile(path), "The input parameter preset is not yet supported.");
    write(Bytes::frame().u32(2).u64s({48, 50, 40, ~u64{0}}).str());
    EXPECT_REFUSED(makeContextFromFile(path), "[Parameter] Invalid chain_length");
    write(Bytes::frame().u32(2).u64s({0, 50, 40, 3}).str());
    EXPECT_REFUSED(makeContextFromFile(path), "[Parameter] Invalid dimension: it should be at least 1");
    write(file);
    EXPECT_REFUSED(makeContextFromFile(path, {1}), "Invalid CUDA device ID: 1");
    test::expectNoHarmFromDamage(file, file.size(), load,
                                 {"The input parameter preset is not yet supported.",
                                  "[Parameter] Invalid chain_length",
                                  "[Parameter] Invalid dimension: it should be at least 1",
                                  "[PrimeModuli] Prime size is too big. It should be < 62",
                                  "[PrimeModuli] Base prime should be greater than quantize primes",
                                  "[PrimeModuli] Quantize primes should be greater than or equal to 36 bit"});
    const std::string absent = directory.path() + "/none/lwe.context";
    EXPECT_REFUSED(makeContextFromFile(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(saveContextToFile(makeContext(SD3), absent), "Cannot open file " + absent);
}

TEST(LWEContextStream, HoldsTheBytesOfTheFileAndLeavesTheRest) {
    const std::string custom = Bytes::frame().u32(2).u64s({48, 50, 40, 3}).str(),
                      preset = Bytes::frame().u32(0).u64s({1024, 0, 0, 8}).str();
    std::stringstream stream;
    saveContext(makeContext(48, 3, 50, 40), stream);
    EXPECT_EQ(stream.str(), custom);
    saveContext(makeContext(SS7), stream);
    EXPECT_EQ(stream.str(), custom + preset);
    stream << "rest";
    EXPECT_EQ(getPrimeList(makeContext(stream)), getPrimeList(makeContext(48, 3, 50, 40)));
    EXPECT_EQ(getDimension(makeContext(stream)), 1024U);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "rest");
}

TEST(LWEContextStream, IsRefusedAsTheFileIs) {
    const auto load = [](std::istream& stream) { makeContext(stream); };
    test::expectShortReads(Bytes::frame().u32(2).u64s({48, 50, 40, 3}).str(), load);
    std::istringstream preset(Bytes::frame().u32(9).u64s({48, 50, 40, 3}).str());
    EXPECT_REFUSED(load(preset), "The input parameter preset is not yet supported.");
    std::istringstream dimension(Bytes::frame().u32(2).u64s({0, 50, 40, 3}).str());
    EXPECT_REFUSED(load(dimension), "[Parameter] Invalid dimension: it should be at least 1");
    std::istringstream sound(Bytes::frame().u32(0).u64s({1024, 0, 0, 8}).str());
    EXPECT_REFUSED(makeContext(sound, {1}), "Invalid CUDA device ID: 1");
}

} // namespace
} // namespace Torvo::LWE
