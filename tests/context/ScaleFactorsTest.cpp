#include "context/ScaleFactors.hpp"

#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/LWEParameter.hpp"
#include "context/Parameter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

namespace Torvo {
namespace {

using enum ParameterPreset;
using Corrections = std::vector<std::int64_t>;

constexpr ParameterPreset twoSizePresets[] = {FVb, FVc, FGa, FGb, FGd, FX, FTa, FTb};
constexpr ParameterPreset uniformPresets[] = {FVa, ST19, ST14, ST11,    ST8,  ST7,
                                              SS7, SD3,  SGd0, SD3D6R2, FGbL0};

/// To the six decimals that the known answers are printed with.
double rounded(double logScale) {
    return std::round(logScale * 1e6) / 1e6;
}

/// In extended precision, then rounded once to a double.
double logOf(u64 p) {
    return static_cast<double>(std::log2(static_cast<long double>(p)));
}

/// One level of a scale list, exact up to the last bits: values stay below 128, where a double's bits end at
/// 2^-46; two roundings of the sum and one of the logarithm (below 64, in its last two bits) leave less than
/// this.
constexpr double stepError = 0x1p-44;

void expectStep(const ScaleFactors& factors, const std::vector<unsigned long>& primes, u64 level,
                std::int64_t correction) {
    const double expected =
        2 * factors.log_scale[level] - logOf(primes[level]) + static_cast<double>(correction);
    EXPECT_NEAR(factors.log_scale[level - 1], expected, stepError) << "level " << level;
}

/// Nonzero corrections by level, worked out by hand from the sizes of the primes: intended size of the part
/// (that of its prime next to the step) less the size of the prime, and the whole step at the first large
/// prime.
const std::map<ParameterPreset, std::map<u64, std::int64_t>> handCorrections{
    // 61 | 55, 51 x 13 | 61 x 12, 57 x 3
    {FVb, {{1, 4}, {15, -10}, {27, -4}, {28, -4}, {29, -4}}},
    // 61 | 58, 54 x 12 | 61 x 13, 57 x 3
    {FVc, {{1, 4}, {14, -7}, {27, -4}, {28, -4}, {29, -4}}},
    // 60 | 45 x 3, 48 x 6 | 60 x 11, 56 x 3
    {FGa, {{1, -3}, {2, -3}, {3, -3}, {10, -12}, {21, -4}, {22, -4}, {23, -4}}},
    // 58 | 42 x 12 | 58 x 12
    {FGb, {{13, -16}}},
    {FGd, {{13, -16}}},
    {FX, {{13, -16}}},
    // 38 | 32, 28 x 7 | 38 x 8, 41 x 3
    {FTa, {{1, 4}, {9, -10}, {17, 3}, {18, 3}, {19, 3}}},
    // 49 | 33 x 3, 36 | 49 x 8, 47 x 3
    {FTb, {{1, -3}, {2, -3}, {3, -3}, {5, -13}, {13, -2}, {14, -2}, {15, -2}}},
};

Corrections correctionsByHand(ParameterPreset preset) {
    Corrections corrections(Parameter(preset).chain_length);
    for (const auto& [level, correction] : handCorrections.at(preset)) corrections[level] = correction;
    return corrections;
}

TEST(ScaleFactors, FgbGivesThePrintedScales) {
    const ScaleFactors factors(FGb);
    ASSERT_EQ(factors.log_scale.size(), 25u);
    EXPECT_EQ(rounded(factors.log_scale[0]), 42.03839);
    EXPECT_EQ(rounded(factors.log_scale[1]), 42.019195);
    EXPECT_EQ(rounded(factors.log_scale[2]), 42.009597);
    EXPECT_EQ(rounded(factors.log_scale[12]), 42.000001);
    for (u64 level = 13; level <= 24; ++level) EXPECT_EQ(rounded(factors.log_scale[level]), 58.0) << level;
}

TEST(ScaleFactors, FgaGivesThePrintedScales) {
    const ScaleFactors factors(FGa);
    ASSERT_EQ(factors.log_scale.size(), 24u);
    EXPECT_EQ(rounded(factors.log_scale[0]), 48.000476);
    EXPECT_EQ(rounded(factors.log_scale[9]), 48.000001);
    for (u64 level = 10; level <= 23; ++level) EXPECT_EQ(rounded(factors.log_scale[level]), 60.0) << level;
}

TEST(ScaleFactors, CorrectionsOfEveryBootstrappablePresetAreThoseWorkedOutByHand) {
    for (const auto preset : twoSizePresets)
        EXPECT_EQ(ScaleFactors(preset).level_correction, correctionsByHand(preset)) << Parameter(preset).name;
}

TEST(ScaleFactors, ASquaredScaleLandsOnTheNextLevelUpToItsCorrection) {
    for (const auto preset : twoSizePresets) {
        SCOPED_TRACE(Parameter(preset).name);
        const ScaleFactors factors(preset);
        const auto corrections = correctionsByHand(preset);
        ASSERT_EQ(factors.log_scale.size(), corrections.size());
        for (u64 level = corrections.size() - 1; level > 0; --level)
            expectStep(factors, getPrimeList(preset), level, corrections[level]);
    }
}

/// The top scale is of the size of the first prime above the encryption level, with the fraction of the base
/// prime.
TEST(ScaleFactors, TopScaleOfTwoSizesTakesTheFractionOfTheBasePrime) {
    const std::map<ParameterPreset, std::pair<double, double>> highAndBase{
        {FVb, {61, 61}}, {FVc, {61, 61}}, {FGa, {60, 60}}, {FGb, {58, 58}},
        {FGd, {58, 58}}, {FX, {58, 58}},  {FTa, {38, 38}}, {FTb, {49, 49}}};
    for (const auto& [preset, sizes] : highAndBase) {
        const double top = sizes.first - sizes.second + logOf(getPrimeList(preset)[0]);
        EXPECT_NEAR(ScaleFactors(preset).log_scale.back(), top, stepError) << Parameter(preset).name;
    }
}

TEST(ScaleFactors, UniformPresetsStartFromTheTopPrimeAndNeedNoCorrection) {
    for (const auto preset : uniformPresets) {
        const Parameter parameter(preset);
        SCOPED_TRACE(parameter.name);
        const ScaleFactors factors(preset);
        const auto& primes = getPrimeList(preset);
        EXPECT_EQ(factors.level_correction, Corrections(parameter.chain_length));
        ASSERT_EQ(factors.log_scale.size(), parameter.chain_length);
        EXPECT_NEAR(factors.log_scale.back(), logOf(primes[parameter.numQP]), stepError);
        for (u64 level = parameter.numQP; level > 0; --level) expectStep(factors, primes, level, 0);
    }
}

TEST(ScaleFactors, FvaIsUniformThoughBootstrappable) {
    const ScaleFactors factors(FVa);
    for (const double logScale : factors.log_scale) EXPECT_NEAR(logScale, 51.0, 0.00001);
    EXPECT_EQ(factors.level_correction, Corrections(30));
}

TEST(ScaleFactors, AChainOfOnePrimeHasItsSize) {
    for (const auto preset : {SGd0, FGbL0}) {
        const ScaleFactors factors(preset);
        ASSERT_EQ(factors.log_scale.size(), 1u);
        EXPECT_NEAR(factors.log_scale[0], logOf(0x3ffffffffbe0001), stepError);
        EXPECT_EQ(factors.level_correction, Corrections{0});
    }
}

TEST(ScaleFactors, PartnersOfFgbTakeItsScales) {
    const ScaleFactors fgb(FGb);
    for (const auto preset : {FGbD12L0, FGbD8R4L0, FGbD6R6L0}) {
        const ScaleFactors factors(preset);
        EXPECT_EQ(factors.log_scale, (std::vector<double>{fgb.log_scale[0], fgb.log_scale[1]}));
        EXPECT_EQ(rounded(factors.log_scale[0]), 42.03839);
        EXPECT_EQ(rounded(factors.log_scale[1]), 42.019195);
        EXPECT_TRUE(factors.level_correction.empty());
    }
}

/// The purpose of the user's levels of every bootstrappable preset: scales of constant size.
TEST(ScaleFactors, ScalesOfTheUsersLevelsKeepTheirSize) {
    for (const auto preset : twoSizePresets) {
        const Parameter parameter(preset);
        const ScaleFactors factors(preset);
        const double nominal = std::round(logOf(getPrimeList(preset)[parameter.encryption_level]));
        for (u64 level = 0; level <= parameter.encryption_level; ++level)
            EXPECT_NEAR(factors.log_scale[level], nominal, 0.0384) << parameter.name << " " << level;
    }
}

TEST(ScaleFactors, CustomSetFillsTheFirstEntriesOfTheWholeChain) {
    const CustomSizes sizes{6, 6, 60, 40, 61, 3};
    const Parameter parameter(sizes);
    const PrimeModuli primes(sizes, {});
    const ScaleFactors factors(parameter, primes);
    std::vector<unsigned long> values;
    for (u64 i = 0; i < primes.size(); ++i) values.push_back(primes.getPrime(i));
    ASSERT_EQ(values.size(), 8u);
    ASSERT_EQ(factors.log_scale.size(), 8u);
    EXPECT_EQ(factors.level_correction, Corrections(8));
    EXPECT_NEAR(factors.log_scale[5], logOf(values[5]), stepError);
    for (u64 level = 5; level > 0; --level) expectStep(factors, values, level, 0);
    EXPECT_EQ(factors.log_scale[6], 0.0);
    EXPECT_EQ(factors.log_scale[7], 0.0);
}

TEST(ScaleFactors, PlainLweIsUniformWithoutCorrections) {
    for (const auto preset : {LWE::ParameterPreset::SS7, LWE::ParameterPreset::SD3}) {
        const LWE::Parameter parameter(preset);
        SCOPED_TRACE(parameter.name);
        const ScaleFactors factors(preset);
        const auto& primes = getPrimeList(preset);
        ASSERT_EQ(factors.log_scale.size(), parameter.chain_length);
        EXPECT_NEAR(factors.log_scale.back(), logOf(primes.back()), stepError);
        for (u64 level = parameter.numQP; level > 0; --level) expectStep(factors, primes, level, 0);
        EXPECT_TRUE(factors.level_correction.empty());
    }
}

TEST(ScaleFactors, PlainLwePartnerOfFgbTakesItsLowestScale) {
    const ScaleFactors factors(LWE::ParameterPreset::FGbD12L0);
    EXPECT_EQ(factors.log_scale, std::vector<double>{ScaleFactors(FGb).log_scale[0]});
    EXPECT_TRUE(factors.level_correction.empty());
}

TEST(ScaleFactors, PlainLweCustomSetIsUniformWithoutCorrections) {
    const LWE::CustomSizes sizes{64, 3, 60, 40};
    const LWE::Parameter parameter(sizes);
    const PrimeModuli primes(sizes, {});
    const ScaleFactors factors(parameter, primes);
    ASSERT_EQ(factors.log_scale.size(), 3u);
    EXPECT_NEAR(factors.log_scale[2], logOf(primes.getPrime(2)), stepError);
    EXPECT_NEAR(factors.log_scale[1], 2 * factors.log_scale[2] - logOf(primes.getPrime(2)), stepError);
    EXPECT_NEAR(factors.log_scale[0], 2 * factors.log_scale[1] - logOf(primes.getPrime(1)), stepError);
    EXPECT_TRUE(factors.level_correction.empty());
}

} // namespace
} // namespace Torvo
