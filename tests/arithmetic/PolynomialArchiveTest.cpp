#include "arithmetic/PolynomialArchive.hpp"

#include "arithmetic/LevelledElement.hpp"
#include "arithmetic/LevelledVector.hpp"
#include "arithmetic/PolynomialVector.hpp"
#include "arithmetic/Ring.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
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

/// Loads into whatever is there, of any ring.
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
    EXPECT_EQ(saved(poly), file.str());
    EXPECT_EQ(file.str().size(), 1 + 4 * 8 + 2 + 8 + 3 * 8 + 1 + 1024U);
    Polynomial loaded;
    loadFrom(file.str(), loaded);
    expectSame(loaded, poly);
}

TEST(PolynomialArchive, WithoutItsGermAPolynomialIsSavedWhole) {
    Polynomial poly(smallContext(), true, true);
    populateUniformPoly(poly, true);
    const u64 withGerm = saved(poly).size();
    poly.disableGerm();
    EXPECT_EQ(saved(poly).size(), withGerm - 1024 + 8 + 8 * poly.getData().size());
    Polynomial loaded;
    loadFrom(saved(poly), loaded);
    expectSame(loaded, poly);
}

// A key at the encryption level is regrown to full height, and stays so when its germ is dropped.
TEST(PolynomialArchive, RegrownDataBelowTheTopLevelStaysAtFullHeight) {
    Polynomial poly(smallContext(), false, true);
    poly.setLevel(0);
    populateUniformPoly(poly, true);
    ASSERT_EQ(poly.getData().size(), 128U);
    Polynomial loaded;
    loadFrom(saved(poly), loaded);
    expectSame(loaded, poly);
    poly.disableGerm();
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
        {.numBase = 1, .numRows = 1, .level = 0, .primes = {primes[0]}, .words = 64},
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

TEST(PolynomialArchive, EveryPrefixIsAShortRead) {
    Polynomial seeded(smallContext(), true, true);
    populateUniformPoly(seeded, true);
    for (const std::string& file : {saved(numbered(true, true, 1, 7)), saved(seeded)}) {
        test::expectShortReads(file, loadAny);
        test::expectShortReads(file, loadOfRing);
    }
}

TEST(PolynomialArchive, DamageDoesNoHarm) {
    Polynomial seeded(smallContext(), false, true);
    populateUniformPoly(seeded, true);
    for (const std::string& file : {saved(numbered(true, true, 0, 7)), saved(seeded)}) {
        test::expectNoHarmFromDamage(file, 100, loadAny);
        test::expectNoHarmFromDamage(file, 100, loadOfRing);
    }
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

TEST(PolynomialVectorArchive, RefusesAnotherRingAndMorePolynomialsThanAnyoneUses) {
    PolynomialVector polys(smallContext(), 1, false, true);
    PolynomialVector other(makeContext(ParameterPreset::FX), 1, false, true);
    EXPECT_REFUSED(loadFrom(saved(polys), other), test::notVerified);
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({17}).str(), polys), test::notVerified);
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({~u64{0}}).str(), polys), test::notVerified);
}

TEST(PolynomialsArchive, TakesNoMoreThanTheCallerHasAUseFor) {
    const std::vector<Polynomial> polys{numbered(true, true, 1, 0), numbered(true, true, 1, 300)};
    std::ostringstream out;
    OutputArchive archive(out);
    savePolynomials(archive, polys);
    const auto load = [&](u64 maxCount) {
        std::istringstream stream(out.str());
        detail::CountedInputArchive input(stream);
        std::vector<Polynomial> loaded;
        loadPolynomials(input, loaded, maxCount);
        return loaded;
    };
    EXPECT_REFUSED(load(1), test::notVerified);
    const auto loaded = load(2);
    ASSERT_EQ(loaded.size(), 2U);
    expectSame(loaded[0], polys[0]);
    expectSame(loaded[1], polys[1]);
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
          Bytes::frame().u64s({2, 2}).u8(0).u64s({3, 5, 5, 5}),
          Bytes::frame().u64s({2, 0}).u8(2).u64s({1, 5}), Bytes::frame().u64s({3, 0}).u8(1).u64s({1, 5}),
          Bytes::frame().u64s({3, 1}).u8(0).u64s({1, 5})})
        EXPECT_REFUSED(loadFrom(forged.str(), loaded), test::notVerified);
    const std::string file = saved(LevelledElement(-9, smallContext(), true, 1));
    test::expectShortReads(file, load);
    test::expectNoHarmFromDamage(file, file.size(), load);
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
