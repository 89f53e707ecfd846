#include "context/ContextContent.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "support/Bytes.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/KeyEquation.hpp"

#include <Torvo/EncryptionKey.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <cereal/cereal.hpp>
#include <filesystem>

namespace Torvo {

namespace {

using namespace test;

const char* const notVerified = "[Verifier::load] Validation failed during deserializing objects.";

/// Custom rings of degree 64: encryption level 2, 29 or so of FX.
std::vector<Context> contexts() {
    return {contextOf(ParameterPreset::FX), makeContext(6, 3, 50, 42, 51, 3)};
}

std::string germOf(const Polynomial& poly) {
    const auto& words = poly.getGerm().value().getWords();
    return {reinterpret_cast<const char*>(words.data()), sizeof words};
}

std::string dataOf(const Polynomial& poly) {
    const auto& data = poly.getData();
    return {reinterpret_cast<const char*>(data.getData()), data.sizeInBytes()};
}

/// The header of a polynomial of a key of `context`.
Bytes& appendHeader(Bytes& bytes, const Context& context, u64 level) {
    const auto primes = slice(getPrimeList(context), 0, ringOf(context).numBase);
    bytes.u64s({64, primes.size(), primes.size(), level}).u8(0).u8(1).u64s({primes.size()});
    for (const u64 p : primes) bytes.u64s({p});
    return bytes;
}

/// A file of `key`, field by field.
std::string expectedFile(const Context& context, const EncryptionKey& key, u64 hash) {
    const u64 level = getEncryptionLevel(context);
    Bytes bytes = Bytes::frame().u32(0).u64s({hash});
    appendHeader(bytes, context, level).u8(1);
    bytes.u64s({key.getBx().getData().size()}).raw(dataOf(key.getBx()));
    appendHeader(bytes, context, level);
    if (key.getAx().getGerm())
        bytes.u8(0).raw(germOf(key.getAx()));
    else
        bytes.u8(1).u64s({key.getAx().getData().size()}).raw(dataOf(key.getAx()));
    return bytes.str();
}

std::string fileOf(const EncryptionKey& key) {
    return bytesOf([&](std::ostream& stream) { key.save(stream); });
}

EncryptionKey loaded(const Context& context, const std::string& file) {
    EncryptionKey key(context);
    std::istringstream stream(file);
    key.load(stream);
    return key;
}

void expectSameKey(const EncryptionKey& a, const EncryptionKey& b) {
    EXPECT_EQ(dataOf(a.getAx()), dataOf(b.getAx()));
    EXPECT_EQ(dataOf(a.getBx()), dataOf(b.getBx()));
    EXPECT_EQ(a.getAx().getLevel(), b.getAx().getLevel());
    EXPECT_EQ(a.getBx().getLevel(), b.getBx().getLevel());
    EXPECT_EQ(a.getAx().getGerm(), b.getAx().getGerm());
    EXPECT_EQ(a.getContextHash(), b.getContextHash());
}

} // namespace

TEST(EncryptionKey, AnUnsetKeyHasTheShapeOfItsContext) {
    const Context context = contextOf(ParameterPreset::FX);
    const EncryptionKey key(context);
    for (const Polynomial* poly : {&key.getAx(), &key.getBx()}) {
        EXPECT_EQ(poly->getLevel(), ringOf(context).numBase - 1);
        EXPECT_FALSE(poly->isModUp());
        EXPECT_TRUE(poly->isNTT());
        EXPECT_FALSE(poly->getGerm().has_value());
    }
    EXPECT_EQ(key.getContextHash(), context->context_hash);
    EXPECT_EQ(key.getDevice(), Device{});
}

TEST(EncryptionKey, BxPlusAxTimesTheSecretIsOneSmallErrorOnEveryRow) {
    for (const Context& context : contexts()) {
        const SecretKey secretKey(context);
        const EncryptionKey key(context, secretKey);
        const auto s = coefficientsOf(secretKey, 64);
        const auto errorOf = [&](u64 row) {
            return centred(decryptedRow(context, key.getBx(), key.getAx(), s, row),
                           getPrimeList(context)[row]);
        };
        const SmallPolynomial error = errorOf(0);
        expectIsError(error);
        for (u64 row = 1; row <= getEncryptionLevel(context); ++row) EXPECT_EQ(errorOf(row), error) << row;
    }
}

TEST(EncryptionKey, AKeyCoversTheEncryptionLevel) {
    const Context context = contextOf(ParameterPreset::FX);
    const u64 level = getEncryptionLevel(context);
    ASSERT_LT(level + 1, ringOf(context).numBase);
    const EncryptionKey key(context, SecretKey(context));
    EXPECT_EQ(key.getAx().getLevel(), level);
    EXPECT_EQ(key.getBx().getLevel(), level);
    EXPECT_TRUE(key.getAx().isNTT());
    EXPECT_TRUE(key.getBx().isNTT());
    EXPECT_FALSE(key.getBx().isModUp());
    EXPECT_EQ(key.getBx().getData().size(), (level + 1) * 64);
    // The uniform part is grown from its germ at full height.
    EXPECT_EQ(key.getAx().getData().size(), ringOf(context).numBase * 64);
    Polynomial regrown = key.getAx();
    populateUniformPoly(regrown, false);
    EXPECT_EQ(dataOf(regrown), dataOf(key.getAx()));
}

TEST(EncryptionKey, TheGermIsDrawnBeforeTheErrorAndNothingElse) {
    const Context context = contextOf(ParameterPreset::FX);
    const SecretKey secretKey(context);
    setSeed({1, 2, 3, 4});
    const PolyGerm germ;
    setSeed({1, 2, 3, 4});
    const EncryptionKey first(context, secretKey);
    EXPECT_EQ(first.getAx().getGerm(), germ);
    setSeed({1, 2, 3, 4});
    expectSameKey(EncryptionKey(context, secretKey), first);
    const EncryptionKey next(context, secretKey);
    EXPECT_NE(dataOf(next.getAx()), dataOf(first.getAx()));
}

TEST(EncryptionKey, FilesHoldTheFieldsInOrder) {
    for (const Context& context : contexts()) {
        EncryptionKey key(context, SecretKey(context));
        const std::string withGerm = fileOf(key);
        EXPECT_EQ(withGerm, expectedFile(context, key, context->context_hash));
        EXPECT_EQ(bytesOf([&](std::ostream& stream) { save(key, stream); }), withGerm);

        key.getAx().disableGerm();
        const std::string whole = fileOf(key);
        EXPECT_EQ(whole, expectedFile(context, key, context->context_hash));
        // The germ of 1024 bytes gives way to a count and the words.
        EXPECT_EQ(whole.size() + 1024, withGerm.size() + 8 + ringOf(context).numBase * 64 * 8);
    }
}

TEST(EncryptionKey, WhatWasSavedIsLoaded) {
    const Context context = contextOf(ParameterPreset::FX);
    EncryptionKey key(context, SecretKey(context));
    expectSameKey(loaded(context, fileOf(key)), key);
    key.getAx().disableGerm();
    expectSameKey(loaded(context, fileOf(key)), key);

    const auto path = std::filesystem::path(testing::TempDir()) / "EncryptionKeyTest.bin";
    key.save(path.string());
    EncryptionKey fromFile(context);
    fromFile.load(path.string());
    expectSameKey(fromFile, key);
    std::istringstream stream(fileOf(key));
    EncryptionKey fromFree(context);
    load(fromFree, stream);
    expectSameKey(fromFree, key);
    std::filesystem::remove(path);
}

TEST(EncryptionKey, TheHashOfAFileIsTakenOverAndTheTagIsNot) {
    const Context context = contextOf(ParameterPreset::FX);
    const EncryptionKey key(context, SecretKey(context));
    EXPECT_EQ(loaded(context, expectedFile(context, key, 42)).getContextHash(), 42u);
    std::string otherTag = fileOf(key);
    otherTag[1] = 1;
    EXPECT_REFUSED(loaded(context, otherTag), notVerified);
}

TEST(EncryptionKey, FilesOfOtherRingsOrShapesAreRefused) {
    const Context context = contextOf(ParameterPreset::FX);
    const Context other = makeContext(6, 3, 50, 42, 51, 3);
    EXPECT_REFUSED(loaded(context, fileOf(EncryptionKey(other, SecretKey(other)))), notVerified);

    const EncryptionKey key(context, SecretKey(context));
    const std::string file = fileOf(key);
    constexpr std::size_t head = 1 + 4 + 8;
    for (const std::size_t field : {0, 8, 16}) { // degree, numBase, numRows beyond all bounds
        std::string forged = file;
        forged[head + field + 7] = 0x10;
        EXPECT_REFUSED(loaded(context, forged), notVerified);
    }
    for (const std::size_t flag : {32, 33}) { // mod-up, NTT
        std::string forged = file;
        forged[head + flag] ^= 1;
        EXPECT_REFUSED(loaded(context, forged), notVerified);
    }
    EncryptionKey uneven(context, SecretKey(context));
    uneven.getBx().setLevel(1);
    EXPECT_REFUSED(loaded(context, fileOf(uneven)), notVerified);
}

TEST(EncryptionKey, ShortFilesFailInTheArchive) {
    const Context context = makeContext(6, 3, 50, 42, 51, 3);
    const std::string file = fileOf(EncryptionKey(context, SecretKey(context)));
    EXPECT_THROW_TEXT(loaded(context, ""), cereal::Exception, shortRead(1, 0));
    EXPECT_THROW_TEXT(loaded(context, file.substr(0, 3)), cereal::Exception, shortRead(4, 2));
    EXPECT_THROW_TEXT(loaded(context, file.substr(0, 10)), cereal::Exception, shortRead(8, 5));
    for (std::size_t length = 0; length < file.size(); length += 37)
        EXPECT_THROW(loaded(context, file.substr(0, length)), cereal::Exception) << length;
    EXPECT_THROW_TEXT(loaded(context, file.substr(0, file.size() - 1)), cereal::Exception,
                      shortRead(1024, 1023));
}

TEST(EncryptionKey, FilesThatDoNotOpenAreNamed) {
    const Context context = contextOf(ParameterPreset::FX);
    EncryptionKey key(context);
    EXPECT_REFUSED(key.load(std::string("/no/such/directory/key")),
                   "Cannot open file /no/such/directory/key");
    EXPECT_REFUSED(key.save(std::string("/no/such/directory/key")),
                   "Cannot open file /no/such/directory/key");
}

TEST(EncryptionKey, BothPartsMoveTogether) {
    const Context context = contextOf(ParameterPreset::FX);
    EncryptionKey key(context, SecretKey(context));
    const std::string ax = dataOf(key.getAx()), bx = dataOf(key.getBx());
    const Device other{DeviceType::CPU, 1};
    key.to(other);
    EXPECT_EQ(key.getDevice(), other);
    EXPECT_EQ(dataOf(key.getAx()), ax);
    EXPECT_EQ(dataOf(key.getBx()), bx);
    key.allocate(Device{});
    EXPECT_EQ(key.getDevice(), Device{});
    EXPECT_EQ(key.getAx().getData().sizeInBytes(), ax.size());
    key.getBx().to(other);
    EXPECT_REFUSED(key.getDevice(), "Polynomials in a ciphertext are in different devices");
    EXPECT_REFUSED(key.to({DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(EncryptionKey, MovesTakeTheKeyAlong) {
    const Context context = contextOf(ParameterPreset::FX);
    EncryptionKey key(context, SecretKey(context));
    const std::string bx = dataOf(key.getBx());
    EncryptionKey moved(std::move(key));
    EXPECT_EQ(dataOf(moved.getBx()), bx);
    EncryptionKey assigned(context);
    assigned = std::move(moved);
    EXPECT_EQ(dataOf(std::as_const(assigned).getBx()), bx);
}

} // namespace Torvo
