#include "arithmetic/elements/PolyGerm.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "core/Blake3.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/ChiSquare.hpp"
#include "support/Expect.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <omp.h>
#include <optional>
#include <sstream>
#include <vector>

namespace Torvo {
namespace {

const Context& toy() {
    static const Context context = makeContext(ParameterPreset::FX);
    return context;
}

PolyGerm pinnedGerm() {
    std::array<u64, 128> words{};
    for (u64 i = 0; i < words.size(); ++i) words[i] = (i + 1) * 0x9e3779b97f4a7c15;
    return PolyGerm(words);
}

std::vector<u64> dataOf(const Polynomial& poly) {
    return {poly.getData().begin(), poly.getData().end()};
}

/// The expansion by its definition: all words hashed at once, rows one after the other, `%` for the residue,
/// 128-bit arithmetic for 2^64 mod p. Counts the words that were replaced.
std::vector<u64> expanded(const PolyGerm& germ, u64 degree, const std::vector<u64>& primes, u64& replaced) {
    const u64 words = degree * primes.size();
    std::vector<u64> stream(2 * words), out(words);
    utils::doBLAKE3Hash(stream.data(), 16 * words, germ.getWords().data(), 1024);
    for (u64 i = 0; i < primes.size(); ++i) {
        const u64 bias = static_cast<u64>((static_cast<u128>(1) << 64) % primes[i]);
        u64 spare = words + i * degree;
        for (u64 k = 0; k < degree; ++k) {
            u64 word = stream[i * degree + k];
            for (; word < bias; ++replaced) word = stream.at(spare++);
            out[i * degree + k] = word % primes[i];
        }
    }
    return out;
}

/// A polynomial of odd numbers in place of primes, which no context makes but an archive may hold.
Polynomial ofRows(u64 degree, const std::vector<u64>& moduli) {
    test::Bytes file = test::Bytes::frame();
    file.u64s({degree, moduli.size(), moduli.size(), moduli.size() - 1}).u8(0).u8(1).u64s({moduli.size()});
    for (const u64 modulus : moduli) file.u64s({modulus});
    file.u8(0).raw(std::string(1024, '\0'));
    std::istringstream stream(file.str());
    detail::CountedInputArchive archive(stream);
    Polynomial poly;
    poly.loadByGerm(archive, [](const Polynomial&) { return true; });
    return poly;
}

TEST(PolyGerm, IsFilledFromTheThreadsGenerator) {
    setSeed({1, 2, 3, 4});
    const PolyGerm first, second;
    setSeed({1, 2, 3, 4});
    const PolyGerm again;
    EXPECT_EQ(again, first);
    EXPECT_NE(first, second);
}

TEST(PopulateUniformPoly, WithoutGermIsRefused) {
    Polynomial poly(toy(), false, true);
    EXPECT_THROW_TEXT(populateUniformPoly(poly, false), std::bad_optional_access, "bad optional access");
    EXPECT_FALSE(poly.getGerm().has_value());
}

TEST(PopulateUniformPoly, FreshMakesAGermThatRegrowsTheSameWords) {
    for (const bool modUp : {false, true}) {
        Polynomial poly(toy(), modUp, true);
        populateUniformPoly(poly, true);
        ASSERT_TRUE(poly.getGerm().has_value());
        Polynomial again(toy(), modUp, true);
        again.setGerm(*poly.getGerm());
        populateUniformPoly(again, false);
        EXPECT_EQ(dataOf(again), dataOf(poly));
        EXPECT_EQ(again.getGerm(), poly.getGerm());
    }
}

TEST(PopulateUniformPoly, FreshDropsTheOldGerm) {
    Polynomial poly(toy(), false, true);
    poly.setGerm(pinnedGerm());
    populateUniformPoly(poly, true);
    EXPECT_NE(*poly.getGerm(), pinnedGerm());
}

// The first word of the expansion is the one that b3sum gives (see the test of the hash).
TEST(PopulateUniformPoly, FollowsItsDefinitionWordForWord) {
    for (const bool modUp : {false, true}) {
        Polynomial poly(toy(), modUp, true);
        poly.setGerm(pinnedGerm());
        populateUniformPoly(poly, false);
        u64 replaced = 0;
        EXPECT_EQ(dataOf(poly), expanded(pinnedGerm(), poly.getDegree(), poly.getPrimes(), replaced));
        EXPECT_EQ(poly.getRow(0)[0], 0xc989fa6f9287670c % poly.getPrimes()[0]);
    }
}

// Just above 2^64 / 5 a modulus rejects a fifth of all words, just above 2^64 / 9 a ninth, 3 next to none.
TEST(PopulateUniformPoly, TakesReplacementsFromTheRowsOwnStretch) {
    const std::vector<u64> moduli{3689348814741910325, 2049638230412172403, 3, 3689348814741910327};
    for (const u64 degree : {1UL, 2UL, 64UL, 1024UL}) {
        Polynomial poly = ofRows(degree, moduli);
        poly.setGerm(pinnedGerm());
        populateUniformPoly(poly, false);
        u64 replaced = 0;
        EXPECT_EQ(dataOf(poly), expanded(pinnedGerm(), degree, moduli, replaced)) << degree;
        // 1/5 + 1/9 + 1/5 of a row: with degree 1024 a count below 400 lies more than 6 deviations off.
        EXPECT_TRUE(degree != 1024 || replaced > 400U) << replaced;
    }
}

TEST(PopulateUniformPoly, GivesTheSameWordsFromAnyNumberOfThreads) {
    Polynomial poly = ofRows(256, {3689348814741910325, 2049638230412172403, 1152921504606846883, 7, 97});
    omp_set_num_threads(1);
    poly.setGerm(pinnedGerm());
    populateUniformPoly(poly, false);
    const auto expected = dataOf(poly);
    for (const int threads : {2, 3, 5, 8}) {
        omp_set_num_threads(threads);
        populateUniformPoly(poly, false);
        EXPECT_EQ(dataOf(poly), expected) << threads;
    }
    omp_set_num_threads(omp_get_num_procs());
}

TEST(PopulateUniformPoly, LeavesLevelAndFlagsAndFillsToFullHeight) {
    Polynomial poly(toy(), false, false);
    poly.setLevel(2);
    populateUniformPoly(poly, true);
    EXPECT_EQ(poly.getLevel(), 2U);
    EXPECT_FALSE(poly.isNTT());
    EXPECT_FALSE(poly.isModUp());
    EXPECT_EQ(poly.getData().size(), poly.getDegree() * poly.getNumRows());
    EXPECT_EQ(poly.getDevice(), (Device{DeviceType::CPU, 0}));
    for (u64 i = 0; i < poly.getNumRows(); ++i)
        for (u64 k = 0; k < poly.getDegree(); ++k) ASSERT_LT(poly.getRow(i)[k], poly.getPrimes()[i]);
}

// 2^17 residues of a modulus that rejects a fifth of all words, in 64 equal ranges.
TEST(PopulateLiveRows, GivesTheRowsUpToTheLevelAsAtFullHeight) {
    Polynomial full(toy(), false, true);
    full.setGerm(pinnedGerm());
    populateUniformPoly(full, false);
    for (const u64 level : {u64{0}, u64{3}, full.getNumRows() - 1}) {
        Polynomial poly(toy(), false, true);
        poly.setLevel(level);
        poly.setGerm(pinnedGerm());
        populateLiveRows(poly);
        const auto words = dataOf(poly), all = dataOf(full);
        ASSERT_EQ(words.size(), (level + 1) * poly.getDegree());
        EXPECT_TRUE(std::equal(words.begin(), words.end(), all.begin())) << level;
        EXPECT_EQ(poly.getLevel(), level);
    }
    // Replacements come from behind the words of all rows, whatever the level: nearly half of these are
    // replaced.
    const u64 modulus = (u64{1} << 63) + 1;
    Polynomial biased = ofRows(64, {modulus, modulus, modulus}), low = biased;
    biased.setGerm(pinnedGerm());
    populateUniformPoly(biased, false);
    low.setLevel(1);
    low.setGerm(pinnedGerm());
    populateLiveRows(low);
    const auto words = dataOf(low), all = dataOf(biased);
    ASSERT_EQ(words.size(), 128U);
    EXPECT_TRUE(std::equal(words.begin(), words.end(), all.begin()));
}

TEST(PopulateLiveRows, WithoutGermIsRefused) {
    Polynomial poly(toy(), false, true);
    EXPECT_THROW_TEXT(populateLiveRows(poly), std::bad_optional_access, "bad optional access");
}

TEST(PopulateUniformPoly, ResiduesAreUniform) {
    const u64 modulus = 3689348814741910325;
    Polynomial poly = ofRows(u64{1} << 17, {modulus});
    poly.setGerm(pinnedGerm());
    populateUniformPoly(poly, false);
    std::vector<double> counts(64);
    for (const u64 word : poly.getData())
        counts[static_cast<u64>(static_cast<u128>(word) * 64 / modulus)] += 1.0;
    EXPECT_LT(std::abs(test::chiSquareDeviation(counts)), 6.0);
}

} // namespace
} // namespace Torvo
