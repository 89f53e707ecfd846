#include "arithmetic/elements/PolynomialArchive.hpp"

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::Bytes;
using test::smallContext;

template <class T>
std::string saved(const T& object) {
    return test::bytesOf([&](std::ostream& stream) { Serialize::save(stream, object); });
}

template <class T>
void loadFrom(const std::string& bytes, T& object) {
    std::istringstream stream(bytes);
    Serialize::load(stream, object);
}

Polynomial numbered(bool modUp, bool isNTT, u64 level, u64 first) {
    Polynomial poly(smallContext(), modUp, isNTT);
    poly.setLevel(level);
    test::fillWithNumbers(poly, first);
    return poly;
}

void expectSame(const Polynomial& a, const Polynomial& b) {
    EXPECT_EQ(a.getDegree(), b.getDegree());
    EXPECT_EQ(a.getNumBase(), b.getNumBase());
    EXPECT_EQ(a.getNumRows(), b.getNumRows());
    EXPECT_EQ(a.getLevel(), b.getLevel());
    EXPECT_EQ(a.isModUp(), b.isModUp());
    EXPECT_EQ(a.isNTT(), b.isNTT());
    EXPECT_EQ(a.getPrimes(), b.getPrimes());
    EXPECT_EQ(a.getGerm(), b.getGerm());
    EXPECT_TRUE(std::equal(a.getData().begin(), a.getData().end(), b.getData().begin(), b.getData().end()));
}

std::string savedByGerm(const Polynomial& poly) {
    return test::bytesOf([&](std::ostream& stream) {
        OutputArchive archive(stream);
        poly.saveByGerm(archive);
    });
}

bool isOfSmallRing(const Polynomial& poly) {
    return poly.hasShapeOf(ringOf(smallContext()));
}

/// Loads the uniform part of a key.
void loadByGerm(std::istream& stream, Polynomial& poly) {
    detail::CountedInputArchive archive(stream);
    poly.loadByGerm(archive, isOfSmallRing);
}

Polynomial loadedByGerm(const std::string& bytes) {
    std::istringstream stream(bytes);
    Polynomial poly;
    loadByGerm(stream, poly);
    poly.regrow();
    return poly;
}

/// Loads into any polynomial, of any ring.
void loadAny(std::istream& stream) {
    Polynomial poly;
    Serialize::load(stream, poly);
}

/// Loads what has the ring of the small context.
void loadOfRing(std::istream& stream) {
    detail::CountedInputArchive archive(stream);
    Polynomial poly;
    poly.load(archive, ringOf(smallContext()));
}

template <class Load>
void from(const std::string& file, Load&& load) {
    std::istringstream stream(file);
    load(static_cast<std::istream&>(stream));
}

TEST(PolynomialArchive, TheBytesAreThoseOfTheTable) {
    for (const bool modUp : {false, true}) {
        for (const bool isNTT : {false, true}) {
            for (const u64 level : {0UL, 1UL}) {
                const std::string file =
                    Bytes::frame().raw(test::smallPolynomial(modUp, isNTT, level, 1000)).str();
                const Polynomial poly = numbered(modUp, isNTT, level, 1000);
                EXPECT_EQ(saved(poly), file);
                Polynomial loaded;
                loadFrom(file, loaded);
                expectSame(loaded, poly);
            }
        }
    }
}

TEST(PolynomialArchive, AGermCostsAKilobyteAndTheHeaderAndIsRegrown) {
    Polynomial poly(smallContext(), true, true);
    populateUniformPoly(poly, true);
    const auto& words = poly.getGerm()->getWords();
    Bytes file = Bytes::frame().raw(test::smallPolynomialHead(true, true, 1, false).str());
    for (const u64 word : words) file.u64s({word});
    EXPECT_EQ(savedByGerm(poly), file.str());
    EXPECT_EQ(file.str().size(), 1 + 4 * 8 + 2 + 8 + 3 * 8 + 1 + 1024U);
    expectSame(loadedByGerm(file.str()), poly);
}

// Nothing has been expanded before.
TEST(PolynomialArchive, AGermCostsNoMemoryUntilItIsRegrown) {
    Polynomial poly(smallContext(), true, true);
    populateUniformPoly(poly, true);
    std::istringstream stream(savedByGerm(poly));
    Polynomial loaded(smallContext(), true, true);
    loadByGerm(stream, loaded);
    EXPECT_EQ(loaded.getData().capacity(), 0U);
    EXPECT_TRUE(loaded.isLike(poly));
    loaded.regrow();
    expectSame(loaded, poly);
}

TEST(PolynomialArchive, OnlyTheUniformPartOfAKeyMayBeAGerm) {
    Polynomial poly(smallContext(), false, true);
    populateUniformPoly(poly, true);
    const std::string file = savedByGerm(poly);
    EXPECT_REFUSED(from(file, loadAny), test::notVerified);
    EXPECT_REFUSED(from(file, loadOfRing), test::notVerified);
    PolynomialVector polys(smallContext(), 1, false, true);
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({1}).raw(file.substr(1)).str(), polys), test::notVerified);
}

TEST(PolynomialArchive, WithoutItsGermAPolynomialIsSavedWhole) {
    Polynomial poly(smallContext(), true, true);
    populateUniformPoly(poly, true);
    const std::string inFull = saved(poly);
    EXPECT_EQ(inFull.size(), savedByGerm(poly).size() - 1024 + 8 + 8 * poly.getData().size());
    poly.disableGerm();
    EXPECT_EQ(savedByGerm(poly), inFull);
    EXPECT_EQ(saved(poly), inFull);
    Polynomial loaded;
    loadFrom(inFull, loaded);
    expectSame(loaded, poly);
    expectSame(loadedByGerm(inFull), poly);
}

// A key at the encryption level is regenerated at full height, and keeps it when its germ is dropped.
TEST(PolynomialArchive, RegrownDataBelowTheTopLevelStaysAtFullHeight) {
    Polynomial poly(smallContext(), false, true);
    poly.setLevel(0);
    populateUniformPoly(poly, true);
    ASSERT_EQ(poly.getData().size(), 128U);
    expectSame(loadedByGerm(savedByGerm(poly)), poly);
    poly.disableGerm();
    Polynomial loaded;
    loadFrom(saved(poly), loaded);
    expectSame(loaded, poly);
}

TEST(PolynomialArchive, LoadingReplacesGermAndShape) {
    Polynomial loaded(smallContext(), true, true);
    populateUniformPoly(loaded, true);
    const Polynomial poly = numbered(false, false, 0, 5);
    loadFrom(saved(poly), loaded);
    expectSame(loaded, poly);
}

/// A head that differs from that of a polynomial of the small context in one field.
struct Head {
    u64 degree = 64, numBase = 2, numRows = 2, level = 1;
    std::uint8_t modUp = 0, isNTT = 1;
    std::vector<u64> primes{getPrimeList(smallContext())[0], getPrimeList(smallContext())[1]};
    u64 words = 128;

    std::string file() const {
        Bytes bytes = Bytes::frame().u64s({degree, numBase, numRows, level}).u8(modUp).u8(isNTT);
        bytes.u64s({primes.size()});
        for (const u64 prime : primes) bytes.u64s({prime});
        bytes.u8(1).u64s({words}).raw(std::string(words * 8, '\0'));
        return bytes.str();
    }
};

TEST(PolynomialArchive, RefusesWhatNoContextMakes) {
    EXPECT_NO_THROW(from(Head().file(), loadOfRing));
    const std::vector<Head> forged{
        {.degree = 0},
        {.degree = 63},
        {.degree = u64{1} << 21},
        {.degree = u64{1} << 63},
        {.numBase = 0, .numRows = 0, .level = 0, .primes = {}, .words = 0},
        {.numBase = 3},
        {.numBase = 1, .level = 0},
        {.numBase = 101, .numRows = 101},
        {.numRows = 1},
        {.numRows = 101, .modUp = 1},
        {.numRows = ~u64{0}, .modUp = 1},
        {.numRows = 1, .modUp = 1},
        {.level = 2},
        {.level = ~u64{0}},
        {.level = ~u64{0}, .words = 0},
        {.level = 2, .modUp = 1},
        {.modUp = 2},
        {.isNTT = 2},
        {.primes = {97}},
        {.primes = {97, 101, 103}},
        {.primes = {0, 97}},
        {.primes = {97, 1}},
        {.primes = {97, 64}},
        {.primes = {97, (u64{1} << 62) + 1}},
        {.words = 0},
        {.words = 64},
        {.words = 127},
        {.words = 129},
    };
    for (u64 i = 0; i < forged.size(); ++i) {
        SCOPED_TRACE(i);
        const std::string file = forged[i].file();
        EXPECT_REFUSED(from(file, loadAny), test::notVerified);
        EXPECT_REFUSED(from(file, loadOfRing), test::notVerified);
    }
}

TEST(PolynomialArchive, WithARingRefusesAnotherShape) {
    const auto primes = getPrimeList(smallContext());
    const std::vector<Head> others{
        {.degree = 128, .words = 256},
        {.numRows = 2, .modUp = 1},
        {.primes = {primes[0], primes[2]}},
        {.primes = {primes[0], 97}},
    };
    for (u64 i = 0; i < others.size(); ++i) {
        SCOPED_TRACE(i);
        const std::string file = others[i].file();
        EXPECT_NO_THROW(from(file, loadAny));
        EXPECT_REFUSED(from(file, loadOfRing), test::notVerified);
    }
}

// The level is that of the rows in the file.
TEST(PolynomialArchive, TakesALevelAtOrAboveTheChain) {
    for (const u64 level : {2, 3, 40}) {
        const Polynomial poly = numbered(false, true, level, 9);
        Polynomial loaded;
        loadFrom(saved(poly), loaded);
        expectSame(loaded, poly);
        EXPECT_NO_THROW(from(saved(poly), loadOfRing));
    }
    // 64 words of the highest level, unchanged since before the level was set.
    EXPECT_REFUSED(from(Head{.level = 2, .words = 128}.file(), loadAny), test::notVerified);
}

/// The polynomial that a ring makes of a file.
Polynomial loadedOfRing(const std::string& file, const Ring& ring) {
    std::istringstream stream(file);
    detail::CountedInputArchive archive(stream);
    Polynomial poly;
    poly.load(archive, ring);
    return poly;
}

// The small ring has two ciphertext primes and one temporary one.
TEST(PolynomialArchive, OfAnotherSplitOfThePrimesBecomesOneOfTheRing) {
    const Ring ring = ringOf(smallContext());
    const auto primes = getPrimeList(smallContext());
    for (const u64 numBase : {1, 3}) {
        for (u64 level = 0; level < numBase; ++level) {
            Head head{.numBase = numBase, .numRows = numBase, .level = level};
            head.primes.assign(primes.begin(), primes.begin() + static_cast<long>(numBase));
            head.words = 64 * (level + 1);
            const Polynomial poly = loadedOfRing(head.file(), ring);
            EXPECT_TRUE(poly.hasShapeOf(ring));
            EXPECT_EQ(poly.getNumRows(), 2U);
            EXPECT_EQ(poly.getLevel(), level);
            EXPECT_EQ(poly.getData().size(), head.words);
            EXPECT_NO_THROW(from(saved(poly), loadOfRing)); // what it is saved as is taken
            head.words = 64 * numBase;                      // once grown from a germ
            EXPECT_EQ(loadedOfRing(head.file(), ring).getData().size(), 64 * (level + 1));
        }
    }
}

TEST(PolynomialArchive, OfAnotherSplitOfThePrimesStaysSoInTheModUpState) {
    const Ring ring = ringOf(smallContext());
    const auto primes = getPrimeList(smallContext());
    const Head head{.numBase = 1,
                    .numRows = 3,
                    .level = 2,
                    .modUp = 1,
                    .primes = {primes.begin(), primes.end()},
                    .words = 192};
    const Polynomial poly = loadedOfRing(head.file(), ring);
    EXPECT_EQ(poly.getNumBase(), 1U);
    EXPECT_FALSE(poly.hasShapeOf(ring));
    EXPECT_EQ(saved(poly), head.file());
    Polynomial out(smallContext(), true, true);
    EXPECT_REFUSED(smallContext()->primes.negate(poly, out),
                   "Operands are not of the ring of the generated context.");
}

TEST(PolynomialArchive, EveryPrefixIsAShortRead) {
    Polynomial seeded(smallContext(), true, true);
    populateUniformPoly(seeded, true);
    const std::string inFull = saved(numbered(true, true, 1, 7));
    test::expectShortReads(inFull, loadAny);
    test::expectShortReads(inFull, loadOfRing);
    test::expectShortReads(savedByGerm(seeded), [&](std::istream& stream) { loadByGerm(stream, seeded); });
}

TEST(PolynomialArchive, DamageDoesNoHarm) {
    Polynomial seeded(smallContext(), false, true);
    populateUniformPoly(seeded, true);
    const std::string byGerm = savedByGerm(seeded);
    for (const std::string& file : {saved(numbered(true, true, 0, 7)), byGerm}) {
        test::expectNoHarmFromDamage(file, 100, loadAny);
        test::expectNoHarmFromDamage(file, 100, loadOfRing);
    }
    test::expectNoHarmFromDamage(byGerm, 100, [&](std::istream& stream) {
        loadByGerm(stream, seeded);
        seeded.regrow();
    });
}

TEST(PolynomialVectorArchive, IsACountAndThePolynomials) {
    PolynomialVector polys(smallContext(), 2, false, true);
    test::fillWithNumbers(polys.getPoly(0), 10);
    test::fillWithNumbers(polys.getPoly(1), 500);
    const std::string file = Bytes::frame()
                                 .u64s({2})
                                 .raw(test::smallPolynomial(false, true, 1, 10))
                                 .raw(test::smallPolynomial(false, true, 1, 500))
                                 .str();
    EXPECT_EQ(saved(polys), file);
    for (const u64 before : {1UL, 2UL, 5UL}) {
        PolynomialVector loaded(smallContext(), before, true, false);
        loadFrom(file, loaded);
        ASSERT_EQ(loaded.getSize(), 2U);
        expectSame(loaded.getPoly(0), polys.getPoly(0));
        expectSame(loaded.getPoly(1), polys.getPoly(1));
    }
}

TEST(PolynomialVectorArchive, TakesAsManyAsAreThere) {
    PolynomialVector polys(smallContext(), 1, false, true), loaded(smallContext(), 1, false, true);
    test::fillWithNumbers(polys.getPoly(0), 0);
    for (const u64 count : {0, 1, 40}) {
        polys.setSize(1);
        polys.getPolys().resize(count, polys.getPoly(0));
        const std::string file = saved(polys);
        loadFrom(file, loaded);
        EXPECT_EQ(loaded.getSize(), count);
        EXPECT_EQ(saved(loaded), file);
        if (count == 0) polys.getPolys().emplace_back(smallContext(), false, true);
    }
}

TEST(PolynomialVectorArchive, RefusesAnotherRingAndCountsThatNothingFollows) {
    PolynomialVector polys(smallContext(), 1, false, true);
    PolynomialVector other(makeContext(ParameterPreset::FX), 1, false, true);
    EXPECT_REFUSED(loadFrom(saved(polys), other), test::notVerified);
    for (const u64 count : {u64{17}, ~u64{0}})
        EXPECT_THROW_TEXT(loadFrom(Bytes::frame().u64s({count}).str(), polys), cereal::Exception,
                          test::shortRead(8, 0));
}

TEST(KeyPolynomialsArchive, TakesTwoPartsOfOneShapeAndGrowsTheGermsOfTheFirst) {
    std::vector<Polynomial> ax(2, Polynomial(smallContext(), true, true));
    for (Polynomial& poly : ax) populateUniformPoly(poly, true);
    const std::vector<Polynomial> bx{numbered(true, true, 1, 0), numbered(true, true, 1, 300)};
    const std::string file = test::bytesOf([&](std::ostream& stream) {
        OutputArchive archive(stream);
        saveKeyPolynomials(archive, ax, bx);
    });
    const auto load = [&](const std::string& bytes, std::optional<u64> count) {
        std::istringstream stream(bytes);
        detail::CountedInputArchive input(stream);
        std::vector<Polynomial> first, second(5);
        loadKeyPolynomials(input, first, second, count, isOfSmallRing);
        ASSERT_EQ(first.size(), 2U);
        ASSERT_EQ(second.size(), 2U);
        for (u64 j = 0; j < 2; ++j) {
            expectSame(first[j], ax[j]);
            expectSame(second[j], bx[j]);
        }
    };
    load(file, 2);
    load(file, std::nullopt);
    EXPECT_REFUSED(load(file, 1), test::notVerified);
    EXPECT_REFUSED(load(file, 3), test::notVerified);
    EXPECT_REFUSED(load(Bytes::frame().u64s({101}).str(), std::nullopt), test::notVerified);
    std::string unequal = file; // one polynomial of bx only
    unequal[1 + 8 + 2 * (savedByGerm(ax[0]).size() - 1)] = 1;
    EXPECT_REFUSED(load(unequal, std::nullopt), test::notVerified);
}

TEST(LevelledElementArchive, TheBytesAreThoseOfTheTable) {
    const LevelledElement low(5, smallContext(), false, 0);
    EXPECT_EQ(saved(low), Bytes::frame().u64s({2, 0}).u8(0).u64s({1, 5}).str());
    const LevelledElement full(5, smallContext(), true, 1);
    const std::string file = Bytes::frame().u64s({3, 1}).u8(1).u64s({3, 5, 5, 5}).str();
    EXPECT_EQ(saved(full), file);
    LevelledElement loaded = low;
    loadFrom(file, loaded);
    EXPECT_EQ(loaded.getNumPrimes(), 3U);
    EXPECT_EQ(loaded.getLevel(), 1U);
    EXPECT_TRUE(loaded.isModUp());
    EXPECT_EQ(saved(loaded), file);
}

TEST(LevelledElementArchive, RefusesWhatNoContextMakesAndStandsDamage) {
    LevelledElement loaded(0, smallContext(), false, 0);
    const auto load = [&](std::istream& stream) { Serialize::load(stream, loaded); };
    for (const Bytes& forged :
         {Bytes::frame().u64s({0, 0}).u8(0).u64s({1, 5}), Bytes::frame().u64s({101, 0}).u8(0).u64s({1, 5}),
          Bytes::frame().u64s({2, 2}).u8(0).u64s({2, 5, 5}),
          Bytes::frame().u64s({2, 2}).u8(1).u64s({2, 5, 5}),
          Bytes::frame().u64s({2, ~u64{0}}).u8(0).u64s({0}), Bytes::frame().u64s({2, 0}).u8(2).u64s({1, 5}),
          Bytes::frame().u64s({3, 0}).u8(1).u64s({1, 5}), Bytes::frame().u64s({3, 1}).u8(0).u64s({1, 5})})
        EXPECT_REFUSED(loadFrom(forged.str(), loaded), test::notVerified);
    const std::string file = saved(LevelledElement(-9, smallContext(), true, 1));
    test::expectShortReads(file, load);
    test::expectNoHarmFromDamage(file, file.size(), load);
}

TEST(LevelledElementArchive, TakesALevelAtOrAboveTheChain) {
    LevelledElement high(5, smallContext(), false, 1);
    high.setLevel(3);
    std::fill(high.getData().begin(), high.getData().end(), 7);
    LevelledElement loaded(0, smallContext(), false, 0);
    loadFrom(saved(high), loaded);
    EXPECT_EQ(loaded.getLevel(), 3U);
    EXPECT_EQ(saved(loaded), saved(high));
}

TEST(LevelledVectorArchive, TheBytesAreThoseOfTheTable) {
    LevelledVector vector(3, 1);
    for (u64 i = 0; i < 6; ++i) vector.getData()[i] = i + 1;
    const std::string file = Bytes::frame().u64s({3, 1, 6, 1, 2, 3, 4, 5, 6}).str();
    EXPECT_EQ(saved(vector), file);
    LevelledVector loaded(1, 0);
    loadFrom(file, loaded);
    EXPECT_EQ(loaded.getDimension(), 3U);
    EXPECT_EQ(loaded.getLevel(), 1U);
    EXPECT_EQ(saved(loaded), file);
}

TEST(LevelledVectorArchive, RefusesWhatNoContextMakesAndStandsDamage) {
    LevelledVector loaded(1, 0);
    const auto load = [&](std::istream& stream) { Serialize::load(stream, loaded); };
    for (const Bytes& forged :
         {Bytes::frame().u64s({3, 1, 5, 1, 2, 3, 4, 5}), Bytes::frame().u64s({3, 100, 1, 1}),
          Bytes::frame().u64s({(u64{1} << 20) + 1, 0, 1, 1}), Bytes::frame().u64s({u64{1} << 63, 1, 0}),
          Bytes::frame().u64s({1, ~u64{0}, 0})})
        EXPECT_REFUSED(loadFrom(forged.str(), loaded), test::notVerified);
    LevelledVector vector(4, 2);
    std::fill(vector.getData().begin(), vector.getData().end(), 1);
    test::expectShortReads(saved(vector), load);
    test::expectNoHarmFromDamage(saved(vector), saved(vector).size(), load);
}

} // namespace
} // namespace Torvo
