// A germ of a kilobyte expands to megabytes. The limits for files are tested by the memory that a load takes.

#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/AllocationBudget.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/CompactCiphertext.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>
#include <Torvo/Plaintext.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::AllocationBudget;
using test::Bytes;
using test::notVerified;
using test::saved;

/// Six primes and two temporary ones of degree 1024, three digits: 64 KiB for a polynomial in the mod-up
/// state, 384 KiB for a key.
const Context& ring() {
    static const Context context = makeContext(10, 6, 50, 40, 51, 3);
    return context;
}

constexpr u64 constantCost = u64{1} << 20; ///< an unset key, and what streams and exceptions take

/// The most memory that `load` of `file` held at once.
template <class Load>
u64 costOf(const std::string& file, Load&& load) {
    std::istringstream stream(file);
    const AllocationBudget meter(u64{1} << 40);
    load(static_cast<std::istream&>(stream));
    return meter.peak();
}

template <class Load>
void expectRefusedCheaply(const std::string& file, Load&& load) {
    const u64 cost = costOf(file, [&](std::istream& stream) { EXPECT_REFUSED(load(stream), notVerified); });
    EXPECT_LE(cost, 2 * file.size() + constantCost);
}

template <class Load>
void expectTakenCheaply(const std::string& file, Load&& load) {
    EXPECT_LE(costOf(file, load), 2 * file.size() + constantCost);
}

/// The fields of a polynomial.
struct Shape {
    u64 degree, numBase, numRows, level;
    bool modUp;
    std::vector<u64> primes;

    std::string head(bool withoutGerm) const {
        Bytes bytes;
        bytes.u64s({degree, numBase, numRows, level}).u8(modUp ? 1 : 0).u8(1).u64s({numRows});
        for (u64 i = 0; i < numRows; ++i) bytes.u64s({primes[i]});
        return bytes.u8(withoutGerm ? 1 : 0).str();
    }
    std::string germ() const { return head(false) + std::string(1024, 'g'); }
    std::string inFull() const {
        const u64 words = degree * (modUp ? numRows : level + 1);
        return head(true) + Bytes().u64s({words}).raw(std::string(words * 8, '\0')).str();
    }
};

/// Of keys of `ring()`.
Shape keyShape() {
    return {1024, 6, 8, 5, true, getPrimeList(ring())};
}

/// The largest that is possible without a context: 800 MiB.
Shape largestShape() {
    return {u64{1} << 20, 99, 100, 98, true, std::vector<u64>(100, 97)};
}

Shape smallestShape() {
    return {1, 1, 1, 0, true, {97}};
}

/// An evaluation key without its frame.
std::string keyFields(char kind, u64 index, u64 count, const std::string& ax, const std::string& bx) {
    Bytes bytes;
    bytes.u32(1).u64s({ring()->context_hash}).u8(static_cast<std::uint8_t>(kind)).u64s({index});
    for (const std::string& part : {ax, bx}) {
        bytes.u64s({count});
        for (u64 j = 0; j < count; ++j) bytes.raw(part);
    }
    return bytes.str();
}

void loadKeyWithoutContext(std::istream& stream) {
    EvaluationKey key;
    key.load(stream);
}

void loadPack(std::istream& stream) {
    KeyPack pack(ring());
    pack.load(stream);
}

std::string packOfRotations(u64 count, const std::string& ax, const std::string& bx) {
    Bytes bytes = Bytes::frame().u8(0).u8(0).u8(0).u64s({count});
    for (u64 i = 0; i < count; ++i) bytes.raw(keyFields('r', i, 3, ax, bx));
    return bytes.u8(0).str();
}

TEST(ForgedGerms, AllOfAKeyAreRefused) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const auto load = [](std::istream& stream) { makeEmptyMultKey(ring())->load(stream); };
    expectRefusedCheaply(Bytes::frame().raw(keyFields('m', 0, 3, keyShape().germ(), keyShape().germ())).str(),
                         load);
    const Shape largest = largestShape();
    expectRefusedCheaply(Bytes::frame().raw(keyFields('m', 0, 100, largest.germ(), largest.germ())).str(),
                         loadKeyWithoutContext);
}

TEST(ForgedGerms, OfKeysInAPackAreRefusedAtTheFirst) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectRefusedCheaply(packOfRotations(300, keyShape().germ(), keyShape().germ()), loadPack);
}

TEST(ForgedGerms, BesideAnotherShapeAreRefused) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const auto withPartner = [](const Shape& ax, const Shape& bx) {
        return Bytes::frame().raw(keyFields('m', 0, 100, ax.germ(), bx.inFull())).str();
    };
    expectRefusedCheaply(withPartner(largestShape(), smallestShape()), loadKeyWithoutContext);
    Shape fewerRows = largestShape();
    fewerRows.degree = 1;
    expectRefusedCheaply(withPartner(largestShape(), fewerRows), loadKeyWithoutContext);
    Shape lower = keyShape(), notModUp = keyShape();
    lower.level = 0;
    notModUp.modUp = false;
    notModUp.numRows = notModUp.numBase;
    for (const Shape& other : {lower, notModUp, smallestShape()})
        expectRefusedCheaply(withPartner(keyShape(), other), loadKeyWithoutContext);
}

TEST(ForgedGerms, ManySmallOnesCostWhatTheyWeigh) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Shape smallest = smallestShape();
    expectTakenCheaply(Bytes::frame().raw(keyFields('m', 0, 100, smallest.germ(), smallest.inFull())).str(),
                       loadKeyWithoutContext);
}

TEST(ForgedGerms, APackCostsTwiceItsBytes) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const std::string pack = packOfRotations(30, keyShape().germ(), keyShape().inFull());
    ASSERT_GT(pack.size(), 5 * constantCost);
    expectTakenCheaply(pack, loadPack);
    // Thousands are announced, and nothing follows.
    std::string cut = packOfRotations(1, keyShape().germ(), keyShape().inFull());
    cut[4] = cut[5] = 'x';
    const u64 cost = costOf(cut, [](std::istream& stream) { EXPECT_ANY_THROW(loadPack(stream)); });
    EXPECT_LE(cost, 2 * cut.size() + constantCost);
}

TEST(ForgedGerms, OfAnEncryptionKeyNeedTheRowsOfAGeneratedOne) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const auto load = [](std::istream& stream) { EncryptionKey(ring()).load(stream); };
    Shape low{1024, 6, 6, 0, false, getPrimeList(ring())}, high = low;
    high.level = getEncryptionLevel(ring());
    const auto file = [](const std::string& bx, const std::string& ax) {
        return Bytes::frame().u32(0).u64s({ring()->context_hash}).raw(bx).raw(ax).str();
    };
    expectRefusedCheaply(file(low.inFull(), low.germ()), load);
    expectRefusedCheaply(file(low.inFull(), high.germ()), load);
    expectRefusedCheaply(file(low.inFull(), high.inFull()), load);
    expectRefusedCheaply(file(high.germ(), high.germ()), load);
    expectTakenCheaply(file(high.inFull(), high.germ()), load);
    expectTakenCheaply(file(low.inFull(), low.inFull()), load);
}

// A ciphertext at level 0 has a row, and the germ beside it words for all the rows of the ring.
TEST(ForgedGerms, OfACompactCiphertextGrowWhenItIsExpandedAndToItsLevel) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context large = makeContext(15, 20, 50, 40, 51, 4);
    const auto low = Encryptor(large).encryptCompact(Message(3, 0.5), SecretKey(large), 0, 0);
    const std::string file = saved(low);
    CompactCiphertext out(large);
    const u64 row = u64{8} << 15;
    EXPECT_LE(costOf(file, [&](std::istream& stream) { out.load(stream); }), row + constantCost);
    const u64 cost = costOf("", [&](std::istream&) { EXPECT_EQ(out.expand().getLevel(), 0U); });
    EXPECT_LE(cost, 4 * row + constantCost); // of 20 for one element at full height

    const Shape shape{1024, 6, 6, 5, false, getPrimeList(ring())};
    Bytes forged = Bytes::frame().u64s({ring()->context_hash}).u32(5).u64s({9}).u32(0);
    forged.raw(std::string(1024, 'g'));
    const auto load = [](std::istream& stream) { CompactCiphertext(ring()).load(stream); };
    expectTakenCheaply(Bytes(forged).raw(shape.inFull()).str(), load);
    expectRefusedCheaply(Bytes(forged).raw(shape.germ()).str(), load);
    expectRefusedCheaply(Bytes(forged).raw(largestShape().inFull().substr(0, 4096)).str(), load);
}

TEST(ForgedGerms, HaveNoPlaceInOtherObjects) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Shape shape{1024, 6, 6, 5, false, getPrimeList(ring())};
    Bytes ciphertext =
        Bytes::frame().u64s({ring()->context_hash}).u32(3).u64s({9}).u32(0).u32(0).u64s({2000});
    Bytes plaintext = Bytes::frame().u64s({ring()->context_hash}).u32(4).u64s({9}).u32(0).raw(shape.germ());
    for (int i = 0; i < 2000; ++i) ciphertext.raw(shape.germ());
    expectRefusedCheaply(ciphertext.str(), [](std::istream& stream) { Ciphertext(ring()).load(stream); });
    expectRefusedCheaply(plaintext.str(), [](std::istream& stream) { Plaintext(ring()).load(stream); });

    const Bytes secret = Bytes::frame()
                             .u8(0)
                             .u32(0)
                             .u32(1)
                             .u64s({ring()->context_hash})
                             .u32(2)
                             .u8(0)
                             .u64s({0, 1024})
                             .raw(std::string(4096, '\0'))
                             .u64s({1})
                             .raw(keyShape().germ());
    expectRefusedCheaply(secret.str(), [](std::istream& stream) { SecretKey(ring(), stream); });
}

// What a caller has put in is written in full, so that it can be loaded.
TEST(ForgedGerms, AreNotMadeByTheLibrary) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    Ciphertext ciphertext(ring()), loadedCiphertext(ring());
    Plaintext plaintext(ring()), loadedPlaintext(ring());
    for (u64 i = 0; i < 2; ++i) populateUniformPoly(ciphertext.getPoly(i), true);
    populateUniformPoly(plaintext.getMx(), true);
    test::loadFrom(saved(ciphertext), loadedCiphertext);
    test::loadFrom(saved(plaintext), loadedPlaintext);
    EXPECT_EQ(saved(loadedCiphertext), saved(ciphertext));
    EXPECT_EQ(saved(loadedPlaintext), saved(plaintext));
    EXPECT_FALSE(loadedPlaintext.getMx().getGerm().has_value());

    const auto key = makeEmptyMultKey(ring()), loadedKey = makeEmptyMultKey(ring());
    for (u64 j = 0; j < 3; ++j) {
        populateUniformPoly(key->getAxIter(Device{})[j], true);
        populateUniformPoly(key->getBxIter(Device{})[j], true);
    }
    test::loadFrom(saved(*key), *loadedKey);
    EXPECT_EQ(saved(*loadedKey), saved(*key));
}

// Before a word is read: a stream without an end would otherwise fill the memory.
TEST(ForgedCounts, AreHeldAgainstTheContext) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const std::string endless(u64{8} << 20, '\1');
    Bytes head = Bytes::frame().u32(1).u64s({ring()->context_hash}).u8('m').u64s({0, 3});
    head.raw(keyShape().head(true)).u64s({u64{1} << 40}).raw(endless);
    const auto cost = [](const Bytes& bytes, const auto& load) {
        return costOf(bytes.str(), [&](std::istream& stream) { EXPECT_REFUSED(load(stream), notVerified); });
    };
    EXPECT_LE(cost(head, [](std::istream& stream) { makeEmptyMultKey(ring())->load(stream); }), constantCost);
    Bytes secret = Bytes::frame().u8(0).u32(0).u32(1).u64s({ring()->context_hash}).u32(2).u8(0);
    secret.u64s({0, u64{1} << 40}).raw(endless);
    EXPECT_LE(cost(secret, [](std::istream& stream) { SecretKey(ring(), stream); }), constantCost);
}

} // namespace
} // namespace Torvo
