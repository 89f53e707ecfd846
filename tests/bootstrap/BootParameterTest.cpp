#include "bootstrap/BootParameter.hpp"

#include "bootstrap/BootstrapperImpl.hpp"
#include "context/ContextContent.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace Torvo {
namespace {

struct Row {
    ParameterPreset preset;
    const char* name;
    u64 preRaise, postRaise;
    double rangeBound;
    Rational r;
    u64 degree;
    bool separate;
    u64 g, m, arcsineDegree, highShift, lowShift;
    u64 levelAfter;
};

// An unset shift is 0 here.
const Row table[] = {
    {ParameterPreset::FVa, "FVa", 5, 1, 16.0, {8, 1}, 32, false, 3, 2, 3, 20, 0, 16},
    {ParameterPreset::FVb, "FVb", 1, 16, 24.0, {3, 1}, 16, true, 2, 4, 3, 20, 7, 14},
    {ParameterPreset::FGa, "FGa", 8, 1, 25.6, {16, 5}, 16, false, 2, 4, 3, 20, 6, 9},
    {ParameterPreset::FGb, "FGb", 8, 1, 28.0, {7, 1}, 32, false, 3, 3, 1, 20, 2, 12},
    {ParameterPreset::FTa, "FTa", 16, 11, 256.0 / 11, {128, 11}, 32, false, 3, 2, 1, 0, 0, 8},
    {ParameterPreset::FTb, "FTb", 8, 11, 256.0 / 11, {128, 11}, 32, false, 3, 2, 1, 0, 0, 4},
    {ParameterPreset::FVc, "FVc", 1, 16, 24.0, {3, 1}, 16, true, 2, 4, 7, 20, 10, 13},
    {ParameterPreset::FX, "FX", 8, 1, 28.0, {7, 1}, 32, false, 3, 3, 1, 20, 2, 12},
    {ParameterPreset::FGd, "FGd", 8, 1, 28.0, {7, 1}, 32, false, 3, 3, 1, 20, 2, 12},
};

void expectSettings(const BootParameter& p, const Row& row) {
    EXPECT_EQ(p.pre_raise_factor, row.preRaise);
    EXPECT_EQ(p.post_raise_factor, row.postRaise);
    EXPECT_EQ(p.range_bound, row.rangeBound);
    EXPECT_EQ(p.cosine_coefficients, getCosineCoeff(row.r, row.degree));
    EXPECT_EQ(p.separate_normalization, row.separate);
    EXPECT_EQ(p.log_cosine_blocks, row.g);
    EXPECT_EQ(p.double_angle_count, row.m);
    EXPECT_EQ(p.arcsine_degree, row.arcsineDegree);
    EXPECT_EQ(p.extended_high_shift, row.highShift);
    EXPECT_EQ(p.extended_low_shift, row.lowShift);
    EXPECT_EQ(p.coeff_to_slot_depth, 3U);
    EXPECT_EQ(p.slot_to_coeff_depth, 3U);
}

long double sumOfCorrections(const ContextContent& context, u64 first, u64 last) {
    long double sum = 0;
    for (u64 i = first; i <= last; ++i) sum += context.scale_factors.level_correction[i];
    return sum;
}

/// The constants of the two transforms, in long double from the scales, the primes and the corrections. The
/// library's few double operations are each right to 2^-53, and so are its powers of two.
void expectTransformConstants(const BootParameter& p, const ContextContent& context) {
    const u64 top = context.parameter.chain_length - 1;
    const long double ratio = std::exp2l(context.scale_factors.log_scale[top]) / context.primes.getPrime(0);
    long double expected = std::exp2l(sumOfCorrections(context, top - 2, top));
    if (!p.separate_normalization)
        expected *= ratio / (2 * static_cast<long double>(p.range_bound) * p.post_raise_factor);
    EXPECT_NEAR(static_cast<double>(p.coeff_to_slot_constant / expected), 1.0, 0x1p-50);
    // To the last bit: divided once, by a divisor made from left to right.
    const double top2 = std::pow(2.0, context.scale_factors.log_scale[top]),
                 q0 = static_cast<double>(context.primes.getPrime(0)),
                 lift = std::pow(2.0, static_cast<double>(sumOfCorrections(context, top - 2, top)));
    const double divisor = (2.0 * p.range_bound) * static_cast<double>(p.post_raise_factor);
    EXPECT_EQ(p.coeff_to_slot_constant, p.separate_normalization ? lift : (top2 / q0 * lift) / divisor);
    EXPECT_EQ(p.slot_to_coeff_constant, static_cast<double>(std::exp2l(sumOfCorrections(context, 1, 3))));
}

TEST(BootParameterOfRealPreset, HasTheNumbersOfItsPreset) {
    for (const Row& row : table) {
        SCOPED_TRACE(row.name);
        const Context context = makeContext(row.preset);
        const BootParameter p(context);
        expectSettings(p, row);
        expectTransformConstants(p, *context);
        if (row.preset == ParameterPreset::FVa) {
            EXPECT_EQ(p.slot_to_coeff_constant, 1.0);
        }
    }
}

TEST(BootParameterOfRealPreset, LeavesTheLevelsOfTheTable) {
    for (const Row& row : table) {
        SCOPED_TRACE(row.name);
        const Context context = makeContext(row.preset);
        const HomEvaluator evaluator(context, KeyPack(context));
        const BootstrapperImpl bootstrapper(evaluator, std::nullopt, u64{0}, false); // no constants to build
        EXPECT_EQ(bootstrapper.getLevelAfterFullSlotBootstrap(), row.levelAfter);
        EXPECT_EQ(bootstrapper.getMinLevelForBootstrap(), 3U);
        if (row.preset != ParameterPreset::FVa) {
            EXPECT_EQ(row.levelAfter, getEncryptionLevel(context));
        }
    }
}

TEST(BootParameterOfRealPreset, NeedsNoCorrectionsOnFGb) {
    for (const ParameterPreset preset : {ParameterPreset::FGb, ParameterPreset::FGd}) {
        const Context context = makeContext(preset);
        for (const u64 level : {1, 2, 3, 22, 23, 24})
            EXPECT_EQ(context->scale_factors.level_correction[level], 0);
        const BootParameter p(context);
        EXPECT_EQ(p.slot_to_coeff_constant, 1.0);
        EXPECT_NEAR(p.coeff_to_slot_constant * 56, 1.0, 0x1p-45);
    }
}

TEST(BootParameter, HasTheNumbersOfTheToyPreset) {
    const BootParameter p(test::contextOf(ParameterPreset::FX));
    expectSettings(p, table[7]);
    expectTransformConstants(p, *test::contextOf(ParameterPreset::FX));
}

TEST(BootParameter, ObeysItsInvariants) {
    for (const Row& row : table) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.degree, u64{4} << row.g);
        const double r = static_cast<double>(row.r.numerator) / row.r.denominator;
        EXPECT_NEAR(r, 2 * row.rangeBound / std::exp2(row.m), 0x1p-48);
    }
}

TEST(BootParameter, IsEmptyWithoutBootstrapping) {
    for (const ParameterPreset preset :
         {ParameterPreset::SD3, ParameterPreset::ST14, ParameterPreset::SGd0}) {
        const BootParameter p(makeContext(preset));
        EXPECT_TRUE(p.cosine_coefficients.empty());
        EXPECT_EQ(p.pre_raise_factor, 0U);
        EXPECT_EQ(p.coeff_to_slot_constant, 0.0);
        EXPECT_EQ(p.slot_to_coeff_constant, 0.0);
        EXPECT_EQ(p.coeff_to_slot_depth, 3U);
        EXPECT_EQ(p.slot_to_coeff_depth, 3U);
    }
    EXPECT_TRUE(BootParameter(makeContext(8, 4, 50, 40, 50, 2)).cosine_coefficients.empty());
}

struct CosineRow {
    Rational r;
    u64 degree;
    double first[4];
    double last;
    long double error;
};

const CosineRow cosines[] = {
    {{8, 1},
     32,
     {0.11196783453388673, 0.9763349479470929, 0.4498828065381572, -0.00649587041537214},
     7.6e-15,
     1.1e-14L},
    {{16, 5},
     16,
     {-0.2478908435467452, -0.4828715610048647, -0.5549849512509988, 0.4766598555843949},
     -1.441075e-11,
     1.1e-13L},
    {{128, 11},
     32,
     {-0.04653697117085729, -1.013935878569551, 0.07787482460087058, -0.3042717794812425},
     -3.39968944e-09,
     5.2e-11L},
    {{7, 1},
     32,
     {-0.11960936315586364, -0.8696041127385477, -0.14991859912092537, -0.6052588911771579},
     -1.1e-16,
     9.0e-15L},
    {{3, 1},
     16,
     {-0.18121145350892778, -0.4246917423480836, -0.6243680096450764, 0.08534501253558036},
     -2.30264e-12,
     1.6e-14L},
};

/// p(y) from T_2(y) alone: T_2n = 2 T_n^2 - 1 and T_6 = 2 T_2 T_4 - T_2.
long double cosinePolynomial(const std::vector<double>& c, long double y) {
    const auto twice = [](long double t) { return 2 * t * t - 1; };
    const long double t2 = twice(y), t4 = twice(t2), t6 = 2 * t2 * t4 - t2;
    std::vector<long double> sums;
    for (std::size_t j = 0; j < c.size(); j += 4)
        sums.push_back(c[j] + c[j + 1] * t2 + c[j + 2] * t4 + c[j + 3] * t6);
    // Neighbours differ in the lowest bit of j, then in the next.
    for (long double u = twice(t4); sums.size() > 1; u = twice(u)) {
        for (std::size_t j = 0; j < sums.size() / 2; ++j) sums[j] = sums[2 * j] + u * sums[2 * j + 1];
        sums.resize(sums.size() / 2);
    }
    return sums[0];
}

TEST(CosineTables, BeginAndEndAsPrinted) {
    for (const CosineRow& row : cosines) {
        const auto c = getCosineCoeff(row.r, row.degree);
        ASSERT_EQ(c.size(), row.degree);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(c[i], row.first[i]);
        EXPECT_EQ(c.back(), row.last);
    }
}

TEST(CosineTables, DescribeTheCosineWithinTheErrorPrinted) {
    for (const CosineRow& row : cosines) {
        const auto c = getCosineCoeff(row.r, row.degree);
        const long double frequency = std::numbers::pi_v<long double> * row.r.numerator / row.r.denominator;
        long double largest = 0;
        constexpr int points = 100000;
        for (int i = 0; i < points; ++i) {
            const long double y = 2.0L * i / (points - 1) - 1;
            largest = std::max(largest, std::fabs(cosinePolynomial(c, y) - std::cos(frequency * y)));
        }
        EXPECT_GE(largest, 0.7L * row.error) << row.r.numerator << "/" << row.r.denominator;
        EXPECT_LE(largest, row.error) << row.r.numerator << "/" << row.r.denominator;
    }
}

TEST(CosineTables, AreFoundByTheValueOfTheFraction) {
    EXPECT_EQ(getCosineCoeff({32, 10}, 16), getCosineCoeff({16, 5}, 16));
}

TEST(CosineTables, RefuseAnyOtherKey) {
    EXPECT_THROW_TEXT(getCosineCoeff({8, 1}, 16), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(getCosineCoeff({9, 1}, 32), std::out_of_range, "map::at");
}

} // namespace
} // namespace Torvo
