#include "arithmetic/chain/PrimeLists.hpp"

#include "core/Integers.hpp"
#include "support/Expect.hpp"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using enum ParameterPreset;

u64 powerMod(u64 base, u64 exponent, u64 p) {
    u64 result = 1;
    for (u128 square = base % p; exponent != 0; exponent >>= 1, square = square * square % p)
        if (exponent & 1) result = static_cast<u64>(static_cast<u128>(result) * square % p);
    return result;
}

/// Miller-Rabin with the first twelve primes as bases, which is a proof below 3.3e24.
bool isPrime(u64 n) {
    u64 odd = n - 1, twos = 0;
    for (; odd % 2 == 0; odd /= 2) ++twos;
    for (const u64 base : {2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37}) {
        u64 x = powerMod(base, odd, n);
        bool passes = x == 1;
        for (u64 i = 0; i < twos && !passes; ++i) {
            passes = x == n - 1;
            x = static_cast<u64>(static_cast<u128>(x) * x % n);
        }
        if (!passes) return false;
    }
    return true;
}

/// `count` primes in a row of `bits` bits each.
struct Run {
    u64 bits;
    u64 count;
};

struct Sizes {
    ParameterPreset preset;
    std::string name;
    u64 logDegree;
    std::vector<Run> chain; ///< base prime first
    std::vector<Run> temporary;
};

std::vector<Sizes> sizesOfEveryPreset() {
    const std::vector<Run> fgb{{58, 1}, {42, 12}, {58, 12}}, fgbTemporary{{59, 3}, {60, 2}};
    const std::vector<Run> sd3{{47, 1}, {41, 3}}, sd3Temporary{{47, 1}};
    const std::vector<Run> single{{58, 1}}, singleTemporary{{51, 1}};
    return {
        {FVa, "FVa", 17, {{61, 1}, {51, 29}}, {{53, 10}}},
        {FVb, "FVb", 17, {{61, 1}, {55, 1}, {51, 13}, {61, 12}, {57, 3}}, {{61, 10}}},
        {FVc, "FVc", 17, {{61, 1}, {58, 1}, {54, 12}, {61, 13}, {57, 3}}, {{61, 10}}},
        {FGa, "FGa", 16, {{60, 1}, {45, 3}, {48, 6}, {60, 11}, {56, 3}}, {{61, 4}}},
        {FGb, "FGb", 16, fgb, fgbTemporary},
        {FGd, "FGd", 16, fgb, fgbTemporary},
        {FX, "FX", 16, fgb, fgbTemporary},
        {FTa, "FTa", 15, {{38, 1}, {32, 1}, {28, 7}, {38, 8}, {41, 3}}, {{42, 2}}},
        {FTb, "FTb", 15, {{49, 1}, {33, 3}, {36, 1}, {49, 8}, {47, 3}}, {{54, 1}}},
        {ST19, "ST19", 15, {{50, 1}, {40, 19}}, {{50, 1}}},
        {ST14, "ST14", 15, {{48, 1}, {42, 14}}, {{46, 5}}},
        {ST11, "ST11", 15, {{61, 1}, {51, 11}}, {{61, 4}}},
        {ST8, "ST8", 15, {{61, 1}, {51, 8}}, {{61, 3}}},
        {ST7, "ST7", 15, {{61, 1}, {51, 7}}, {{61, 4}}},
        {SS7, "SS7", 14, {{50, 1}, {42, 7}}, {{46, 2}}},
        {SD3, "SD3", 13, sd3, sd3Temporary},
        {SD3D6R2, "SD3D6R2", 13, sd3, sd3Temporary},
        {SGd0, "SGd0", 16, {{58, 1}}, {{59, 1}}},
        {FGbL0, "FGbL0", 16, single, singleTemporary},
        {FGbD12L0, "FGbD12L0", 16, single, singleTemporary},
        {FGbD8R4L0, "FGbD8R4L0", 16, single, singleTemporary},
        {FGbD6R6L0, "FGbD6R6L0", 16, single, singleTemporary},
    };
}

std::vector<u64> spread(std::vector<Run> runs, const std::vector<Run>& more) {
    runs.insert(runs.end(), more.begin(), more.end());
    std::vector<u64> sizes;
    for (const Run& run : runs) sizes.insert(sizes.end(), run.count, run.bits);
    return sizes;
}

std::vector<u64> bitsOf(const std::vector<unsigned long>& primes) {
    std::vector<u64> bits;
    for (const u64 p : primes) bits.push_back(static_cast<u64>(std::lround(std::log2(p))));
    return bits;
}

void expectDistinctPrimesOneModulo(u64 modulus, const std::vector<unsigned long>& primes) {
    EXPECT_EQ(std::set<u64>(primes.begin(), primes.end()).size(), primes.size());
    for (const u64 p : primes) {
        EXPECT_EQ(p % modulus, 1u) << std::hex << p;
        EXPECT_LT(p, u64{1} << 61) << std::hex << p;
        EXPECT_TRUE(isPrime(p)) << std::hex << p;
    }
}

TEST(PrimeLists, TheTestOfPrimalityKnowsPrimesFromProducts) {
    EXPECT_TRUE(isPrime((u64{1} << 61) - 1));
    EXPECT_FALSE(isPrime(u64{4294967291} * 4294967279)); // two primes
    EXPECT_FALSE(isPrime(3215031751));                   // passes the bases 2, 3, 5 and 7
}

TEST(PrimeLists, EveryPresetHasPrimesOfItsSizes) {
    for (const auto& sizes : sizesOfEveryPreset())
        EXPECT_EQ(bitsOf(getPrimeList(sizes.preset)), spread(sizes.chain, sizes.temporary)) << sizes.name;
}

TEST(PrimeLists, EveryListHoldsDistinctPrimesThatAreOneModuloTwiceTheDegree) {
    for (const auto& sizes : sizesOfEveryPreset()) {
        SCOPED_TRACE(sizes.name);
        expectDistinctPrimesOneModulo(u64{2} << sizes.logDegree, getPrimeList(sizes.preset));
    }
}

TEST(PrimeLists, BeginWithTheKnownPrimes) {
    const auto first = [](ParameterPreset preset, u64 count) {
        const auto& primes = getPrimeList(preset);
        return std::vector<u64>(primes.begin(), primes.begin() + static_cast<long>(count));
    };
    EXPECT_EQ(first(FVa, 3), (std::vector<u64>{0x1ffffffffc000001, 0x7fffffc900001, 0x7fffffe780001}));
    EXPECT_EQ(first(FVc, 3), (std::vector<u64>{0x1ffffffffc000001, 0x3ffffffff040001, 0x3fffffff000001}));
    EXPECT_EQ(first(FGb, 2), (std::vector<u64>{0x3ffffffffbe0001, 0x3ffffe80001}));
    const auto& fgb = getPrimeList(FGb);
    EXPECT_EQ(std::count(fgb.begin(), fgb.end(), 0x3fffe880001), 1);
    EXPECT_EQ(std::count(fgb.begin(), fgb.end(), 0x3fffe800001), 1);
}

TEST(PrimeLists, PresetsThatAreToMeetShareTheirPrimes) {
    EXPECT_EQ(getPrimeList(FGb), getPrimeList(FX));
    EXPECT_EQ(getPrimeList(FGb), getPrimeList(FGd));
    EXPECT_EQ(getPrimeList(SGd0), (std::vector<unsigned long>{0x3ffffffffbe0001, 0x7ffffffffcc0001}));
    EXPECT_EQ(getPrimeList(SGd0)[0], getPrimeList(FGd)[0]);
    for (const auto preset : {FGbL0, FGbD12L0, FGbD8R4L0, FGbD6R6L0})
        EXPECT_EQ(getPrimeList(preset), (std::vector<unsigned long>{0x3ffffffffbe0001, 0x7ffffffd20001}));
}

TEST(PrimeLists, AListIsOneObject) {
    EXPECT_EQ(&getPrimeList(FVb), &getPrimeList(FVb));
    EXPECT_EQ(&getPrimeList(LWE::ParameterPreset::SS7), &getPrimeList(LWE::ParameterPreset::SS7));
}

TEST(PrimeLists, CustomAndUnknownPresetsHaveNone) {
    EXPECT_THROW_TEXT(getPrimeList(CUSTOM), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(getPrimeList(ParameterPreset{23}), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(getPrimeList(LWE::ParameterPreset::CUSTOM), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(getPrimeList(LWE::ParameterPreset{4}), std::out_of_range, "map::at");
}

TEST(PrimeLists, PlainLweHasPrimesOfItsSizes) {
    using Preset = LWE::ParameterPreset;
    EXPECT_EQ(bitsOf(getPrimeList(Preset::SS7)), spread({{50, 1}, {42, 7}}, {}));
    EXPECT_EQ(bitsOf(getPrimeList(Preset::SD3)), spread({{47, 1}, {41, 3}}, {}));
    EXPECT_EQ(bitsOf(getPrimeList(Preset::FGbD12L0)), spread({{58, 1}}, {}));
    EXPECT_EQ(getPrimeList(Preset::SS7)[0], 0x3ffffffb80001u);
    EXPECT_EQ(getPrimeList(Preset::SS7)[1], 0x3ffffe80001u);
    EXPECT_EQ(getPrimeList(Preset::SD3)[0], 0x7ffffff00001u);
    EXPECT_EQ(getPrimeList(Preset::SD3)[1], 0x1ffffd80001u);
    // one modulo twice the length of the secret, as the largest ring that unpacks into the set has them
    expectDistinctPrimesOneModulo(2 * 1024, getPrimeList(Preset::SS7));
    expectDistinctPrimesOneModulo(2 * 32, getPrimeList(Preset::SD3));
    expectDistinctPrimesOneModulo(2 * 4096, getPrimeList(Preset::FGbD12L0));
}

/// Ciphertexts pass between a ring and its plain LWE partner prime by prime.
TEST(PrimeLists, PlainLweSharesTheChainOfItsRing) {
    const auto expectPrefix = [](LWE::ParameterPreset lwe, ParameterPreset ring) {
        const auto &a = getPrimeList(lwe), &b = getPrimeList(ring);
        EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin()));
    };
    expectPrefix(LWE::ParameterPreset::SS7, SS7);
    expectPrefix(LWE::ParameterPreset::SD3, SD3);
    expectPrefix(LWE::ParameterPreset::FGbD12L0, FGbD12L0);
}

} // namespace
} // namespace Torvo
