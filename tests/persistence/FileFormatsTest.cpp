// Files written by hand from the tables of docs/files.md, for a ring of degree 64 with two ciphertext primes
// and one temporary one. Those of secret keys and of the generator are in their own tests.

#include "arithmetic/elements/PolynomialVector.hpp"
#include "context/ContextContent.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/ObjectFiles.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::Bytes;
using test::contentOf;
using test::expectFile;
using test::expectRobust;
using test::loadFrom;
using test::saved;
using test::smallContext;

u64 hash() {
    return smallContext()->context_hash;
}

TEST(ContextFile, IsTheRecipeIn69Bytes) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/context.bin";
    saveContextToFile(smallContext(), path);
    EXPECT_EQ(contentOf(path), Bytes::frame().u32(13).u64s({6, 1, 2, 50, 60, 40, 2, 1}).str());
    for (const auto preset : {ParameterPreset::FX, ParameterPreset::SD3}) {
        const Context context = makeContext(preset);
        const auto& p = context->parameter;
        saveContextToFile(context, path);
        EXPECT_EQ(contentOf(path), Bytes::frame()
                                       .u32(static_cast<std::uint32_t>(preset))
                                       .u64s({p.log_degree, p.encryption_level, p.gadget_rank, 0, 0, 0,
                                              p.chain_length, p.rank})
                                       .str());
        EXPECT_EQ(std::filesystem::file_size(path), 69U);
    }
}

TEST(MessageFile, IsAnArrayOfSlots) {
    const Message message(std::vector<std::complex<double>>{{0.5, -2.0}, {1.0, 3.25}});
    const std::string file = Bytes::frame().u64s({2}).f64(0.5).f64(-2.0).f64(1.0).f64(3.25).str();
    Message other(5, {9.0, 9.0});
    expectFile(message, file, other);
    EXPECT_EQ(other.getSize(), 2U);
    EXPECT_EQ(other[1], std::complex<double>(1.0, 3.25));
    Message three;
    loadFrom(Bytes::frame().u64s({3}).raw(std::string(48, '\0')).str(), three);
    EXPECT_EQ(three.getSize(), 3U);
    expectRobust(file, file.size(), other);
}

std::string plaintextHead(u64 contextHash, std::uint32_t tag) {
    return Bytes::frame().u64s({contextHash}).u32(tag).u64s({3}).u32(1).str();
}

TEST(PlaintextFile, IsThatOfItsTable) {
    Plaintext plaintext(smallContext());
    plaintext.setLogSlots(3);
    plaintext.setRescaleCounter(1);
    test::fillWithNumbers(plaintext.getMx(), 70);
    const bool isNTT = plaintext.getMx().isNTT();
    const std::string polynomial = test::smallPolynomial(false, isNTT, 1, 70);
    const std::string file = plaintextHead(hash(), 4) + polynomial;
    Plaintext other(smallContext());
    expectFile(plaintext, file, other);
    EXPECT_EQ(other.getLogSlots(), 3U);
    EXPECT_EQ(other.getRescaleCounter(), 1);
    EXPECT_REFUSED(loadFrom(plaintextHead(hash() + 1, 4) + polynomial, other), test::notVerified);
    EXPECT_REFUSED(loadFrom(plaintextHead(hash(), 3) + polynomial, other), test::notVerified);
    expectRobust(file, 120, other);
}

std::string ciphertextHead(u64 contextHash, std::uint32_t tag) {
    return Bytes::frame().u64s({contextHash}).u32(tag).u64s({2}).u32(0).u32(1).u64s({2}).str();
}

TEST(CiphertextFile, IsThatOfItsTable) {
    Ciphertext ciphertext(smallContext());
    ciphertext.setLogSlots(2);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    ciphertext.setLevel(0);
    test::fillWithNumbers(ciphertext.getPoly(0), 10);
    test::fillWithNumbers(ciphertext.getPoly(1), 900);
    const std::string polynomials =
        test::smallPolynomial(false, true, 0, 10) + test::smallPolynomial(false, true, 0, 900);
    const std::string file = ciphertextHead(hash(), 3) + polynomials;
    Ciphertext other(smallContext());
    other.setNumPoly(3);
    expectFile(ciphertext, file, other);
    EXPECT_EQ(other.getNumPoly(), 2U);
    EXPECT_EQ(other.getLevel(), 0U);
    EXPECT_EQ(other.getLogSlots(), 2U);
    EXPECT_EQ(other.getEncodingType(), EncodingType::Coefficient);
    EXPECT_REFUSED(loadFrom(ciphertextHead(hash() + 1, 3) + polynomials, other), test::notVerified);
    EXPECT_REFUSED(loadFrom(ciphertextHead(hash(), 4) + polynomials, other), test::notVerified);
    expectRobust(file, 130, other);
}

std::string compactCiphertextHead(u64 contextHash, std::uint32_t tag) {
    Bytes bytes = Bytes::frame().u64s({contextHash}).u32(tag).u64s({3}).u32(1);
    for (u64 i = 0; i < 128; ++i) bytes.u64s({i * 0x0102030405060708});
    return bytes.str();
}

TEST(CompactCiphertextFile, IsThatOfItsTable) {
    const std::string polynomial = test::smallPolynomial(false, true, 1, 70);
    const std::string file = compactCiphertextHead(hash(), 5) + polynomial;
    EXPECT_EQ(file.size(), 1U + 8 + 4 + 8 + 4 + 1024 + polynomial.size());
    CompactCiphertext compact(smallContext()), other(smallContext());
    loadFrom(file, compact);
    EXPECT_EQ(compact.getLogSlots(), 3U);
    EXPECT_EQ(compact.getRescaleCounter(), 1);
    EXPECT_EQ(compact.getLevel(), 1U);
    const Ciphertext expanded = compact.expand();
    for (u64 i = 0; i < 128; ++i) EXPECT_EQ(expanded.getPoly(0).getData()[i], 70 + i);
    expectFile(compact, file, other);
    EXPECT_REFUSED(loadFrom(compactCiphertextHead(hash() + 1, 5) + polynomial, other), test::notVerified);
    EXPECT_REFUSED(loadFrom(compactCiphertextHead(hash(), 3) + polynomial, other), test::notVerified);
    expectRobust(file, 25, other);
    // Behind the germ, which may be anything.
    const auto load = [&](std::istream& stream) { other.load(stream); };
    for (u64 i = 25 + 1024; i < file.size() - polynomial.size() + 70; ++i)
        for (const char bits : {'\1', '\x80', '\xff'}) {
            std::string damaged = file;
            damaged[i] = static_cast<char>(damaged[i] ^ bits);
            test::expectTakenOrRefused(damaged, load, {test::notVerified});
        }
}

TEST(CiphertextFile, OfAHigherRankDiffersInNothing) {
    const Context context = makeContext(ParameterPreset::SD3D6R2);
    CiphertextBase<EncryptionType::MLWE> ciphertext(context), other(context);
    for (u64 i = 0; i < ciphertext.getNumPoly(); ++i) test::fillWithNumbers(ciphertext.getPoly(i), 1000 * i);
    const std::string file = saved(ciphertext);
    EXPECT_EQ(file.substr(0, 37), Bytes::frame()
                                      .u64s({context->context_hash})
                                      .u32(3)
                                      .u64s({5})
                                      .u32(0)
                                      .u32(0)
                                      .u64s({context->parameter.rank + 1})
                                      .str());
    loadFrom(file, other);
    EXPECT_EQ(saved(other), file);
}

// Equal primes and degree make an equal hash, whatever else differs. Other hashes are refused.
TEST(CiphertextFile, LoadsWhereThePrimesAndTheDegreeAreTheSame) {
    const Context same = makeContext(6, 2, 50, 40, 60, 2), other = makeContext(7, 2, 50, 40, 60, 2);
    ASSERT_NE(same.get(), smallContext().get());
    Ciphertext ciphertext(smallContext()), loaded(same), refused(other);
    test::fillWithNumbers(ciphertext.getPoly(0), 1);
    test::fillWithNumbers(ciphertext.getPoly(1), 2);
    loadFrom(saved(ciphertext), loaded);
    EXPECT_EQ(saved(loaded), saved(ciphertext));
    EXPECT_REFUSED(loadFrom(saved(ciphertext), refused), test::notVerified);
}

TEST(ObjectTags, KeepTheKindsApart) {
    const SecretKey secretKey(smallContext());
    Plaintext plaintext(smallContext());
    Ciphertext ciphertext(smallContext());
    EncryptionKey encryptionKey(smallContext());
    const auto evaluationKey = makeEmptyMultKey(smallContext());
    std::fill(plaintext.getMx().getData().begin(), plaintext.getMx().getData().end(), 0);
    EXPECT_REFUSED(loadFrom(saved(plaintext), ciphertext), test::notVerified);
    EXPECT_REFUSED(loadFrom(saved(plaintext), encryptionKey), test::notVerified);
    EXPECT_REFUSED(loadFrom(saved(*evaluationKey), encryptionKey), test::notVerified);
    EXPECT_REFUSED(loadFrom(saved(encryptionKey), *evaluationKey), test::notVerified);
    EXPECT_REFUSED(loadFrom(saved(encryptionKey), plaintext), test::notVerified);
    std::istringstream stream(saved(plaintext));
    EXPECT_REFUSED(SecretKey(smallContext(), stream), test::notVerified);
}

TEST(EncryptionKeyFile, IsBxInFullAndTheGermOfAx) {
    const SecretKey secretKey(smallContext());
    const EncryptionKey key(smallContext(), secretKey);
    const auto& ax = key.impl().ax;
    const auto& bx = key.impl().bx;
    ASSERT_TRUE(ax.getGerm().has_value());
    Bytes file = Bytes::frame().u32(0).u64s({hash()});
    file.raw(test::smallPolynomialHead(false, true, 1, true).str()).u64s({128});
    for (const u64 word : bx.getData()) file.u64s({word});
    file.raw(test::smallPolynomialHead(false, true, 1, false).str());
    for (const u64 word : ax.getGerm()->getWords()) file.u64s({word});
    EncryptionKey other(smallContext());
    expectFile(key, file.str(), other);
    EXPECT_TRUE(std::equal(ax.getData().begin(), ax.getData().end(), other.impl().ax.getData().begin()));
    expectRobust(file.str(), 90, other);
}

TEST(EvaluationKeyFile, IsThatOfItsTable) {
    const auto key = makeEmptyRotKey(smallContext(), 5);
    test::fillWithNumbers(*key);
    const std::string file = Bytes::frame().raw(test::smallEvaluationKeyFields('r', 5)).str();
    EXPECT_EQ(saved(*key), file);
    const auto other = makeEmptyMultKey(smallContext());
    loadFrom(file, *other);
    EXPECT_EQ(other->getRotationIndex(), 5U);
    EXPECT_EQ(saved(*other), file);
    expectRobust(file, 110, *other);
}

/// The germ of a polynomial of a key, as stored in its file.
std::string germFields(const PolyGerm& germ) {
    Bytes bytes = test::smallPolynomialHead(true, true, 1, false);
    for (const u64 word : germ.getWords()) bytes.u64s({word});
    return bytes.str();
}

TEST(EvaluationKeyFile, HoldsTheGermsOfAxAsLongAsTheyAreThere) {
    const auto key = makeEmptyMultKey(smallContext());
    test::fillWithNumbers(*key);
    const u64 inFull = saved(*key).size();
    auto& ax = key->impl().ax.at(Device{});
    for (auto& poly : ax) populateUniformPoly(poly, true);
    const std::string file = saved(*key);
    EXPECT_EQ(file.size(), inFull - 2 * (8 + 8 * 192 - 1024));
    EXPECT_EQ(file.find(germFields(*ax[0].getGerm())), 1U + 4 + 8 + 1 + 8 + 8);
    const auto other = makeEmptyMultKey(smallContext());
    loadFrom(file, *other);
    const auto& regrown = other->impl().ax.at(Device{});
    for (u64 j = 0; j < 2; ++j)
        EXPECT_TRUE(std::equal(ax[j].getData().begin(), ax[j].getData().end(), regrown[j].getData().begin()));
    for (auto& poly : ax) poly.disableGerm();
    EXPECT_EQ(saved(*key).size(), inFull);
}

TEST(KeyPackStream, IsTheKeysBehindTheirPresenceInOrder) {
    const auto fields = [](char type, u64 index) { return test::smallEvaluationKeyFields(type, index); };
    const EncryptionKey encryptionKey(smallContext(), SecretKey(smallContext()));
    const std::string file = Bytes::frame()
                                 .u8(1)
                                 .raw(saved(encryptionKey).substr(1))
                                 .u8(1)
                                 .raw(fields('m', 0))
                                 .u8(0)
                                 .u64s({2})
                                 .raw(fields('r', 3))
                                 .raw(fields('r', 17))
                                 .u8(0)
                                 .str();
    KeyPack pack(smallContext());
    loadFrom(file, pack);
    EXPECT_TRUE(pack.isEncKeyLoaded());
    EXPECT_TRUE(pack.isMultKeyLoaded());
    EXPECT_FALSE(pack.isConjKeyLoaded());
    EXPECT_TRUE(pack.isLeftRotKeyLoaded(3));
    EXPECT_TRUE(pack.isLeftRotKeyLoaded(17));
    EXPECT_EQ(saved(pack), file);
    const std::string empty = Bytes::frame().u8(0).u8(0).u8(0).u64s({0}).u8(0).str();
    EXPECT_EQ(saved(KeyPack(smallContext())), empty);
    const auto load = [&](std::istream& stream) { pack.load(stream); };
    const std::set<std::string> refusals{test::notVerified,
                                         "[KeyPack] context does not support sparse secret encapsulation"};
    test::expectShortReads(empty, load);
    test::expectNoHarmFromDamage(empty, empty.size(), load, refusals);
    test::expectNoHarmFromDamage(file, 60, load, refusals);
}

} // namespace
} // namespace Torvo
