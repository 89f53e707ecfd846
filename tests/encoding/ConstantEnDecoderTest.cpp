#include "encoding/ConstantEnDecoder.hpp"

#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/Contexts.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Torvo {
namespace {

using test::BigInt;

const Context& fx() {
    return test::contextOf(ParameterPreset::FX);
}

/// trunc(|value| * 2^log_scale) with the sign of the value, times the primes owed, as an exact integer.
BigInt expectedInteger(double value, u64 level, int counter) {
    const u64 settled = level - static_cast<u64>(counter);
    const double scaled = std::abs(value) * std::pow(2.0, fx()->scale_factors.log_scale[settled]);
    const BigInt owed = test::productOf(test::slice(getPrimeList(fx()), settled + 1, level + 1));
    const BigInt magnitude = BigInt(std::trunc(scaled)) * owed;
    return value < 0 ? BigInt(-magnitude) : magnitude;
}

TEST(ConstantEnDecoder, HoldsTheTruncatedProductModuloEveryPrime) {
    test::Seeded random(31);
    SCOPED_TRACE(random.describe());
    std::vector<double> values = {0.0, 1.0, -1.0, 0.5, -0.5, 1e-3, -12345.678, 0x1p40, -0x1p40};
    for (int i = 0; i < 20; ++i) values.push_back(random.real(-10, 10));
    const ConstantEnDecoder encoder(fx());
    for (const auto& [level, counter] :
         std::vector<std::pair<u64, int>>{{0, 0}, {1, 1}, {7, 0}, {12, 2}, {24, 1}})
        for (const double value : values) {
            SCOPED_TRACE(testing::Message() << value << " level=" << level << " counter=" << counter);
            const BigInt integer = expectedInteger(value, level, counter);
            const BigInt modulus = test::productOf(test::slice(getPrimeList(fx()), 0, level + 1));
            if (2 * abs(integer) > modulus) continue; // refused
            const LevelledElement element = encoder.encodeConst(value, level, counter);
            ASSERT_EQ(element.getLevel(), level);
            ASSERT_EQ(element.getData().size(), level + 1);
            ASSERT_FALSE(element.isModUp());
            for (u64 i = 0; i <= level; ++i) {
                const u64 p = fx()->primes.getPrime(i);
                ASSERT_LE(element[i], p);
                ASSERT_EQ(element[i] % p, test::wordResidueOf(integer, p)) << "i=" << i;
            }
        }
}

TEST(ConstantEnDecoder, DropsTheFractionInsteadOfRounding) {
    const double scale = std::pow(2.0, fx()->scale_factors.log_scale[3]);
    const LevelledElement element = ConstantEnDecoder(fx()).encodeConst(1.75 / scale, 3, 0);
    for (u64 i = 0; i <= 3; ++i) EXPECT_EQ(element[i], 1U);
}

TEST(ConstantEnDecoder, KeepsThePrimeItselfForANegativeValueThatTruncatesToZero) {
    const LevelledElement element = ConstantEnDecoder(fx()).encodeConst(-0x1p-200, 5, 0);
    for (u64 i = 0; i <= 5; ++i) EXPECT_EQ(element[i], fx()->primes.getPrime(i));
}

TEST(ConstantEnDecoder, TakesMinusZeroForZero) {
    const LevelledElement element = ConstantEnDecoder(fx()).encodeConst(-0.0, 5, 0);
    for (u64 i = 0; i <= 5; ++i) EXPECT_EQ(element[i], 0U);
}

TEST(ConstantEnDecoder, IsZeroModuloThePrimesOwed) {
    const LevelledElement element = ConstantEnDecoder(fx()).encodeConst(0.75, 8, 3);
    for (u64 i = 0; i <= 8; ++i) EXPECT_EQ(element[i] == 0, i > 5) << "i=" << i;
}

TEST(ConstantEnDecoder, OfAPlainLWEContextTakesItsPrimesAndScales) {
    const LWE::Context context = LWE::makeContext(LWE::ParameterPreset::SS7);
    const auto primes = LWE::getPrimeList(context);
    const auto scales = LWE::getDefaultScaleFactorList(context);
    for (const auto& [level, counter] :
         std::vector<std::pair<u64, int>>{{0, 0}, {1, 1}, {4, 0}, {7, 3}, {7, 7}})
        for (const double value : {0.0, 1.0, -0.75, 123.5, -3e-5}) {
            SCOPED_TRACE(testing::Message() << value << " level=" << level << " counter=" << counter);
            const u64 settled = level - static_cast<u64>(counter);
            const LevelledElement element = ConstantEnDecoder(context).encodeConst(value, level, counter);
            ASSERT_EQ(element.getLevel(), level);
            ASSERT_EQ(element.getNumPrimes(), 8U);
            ASSERT_EQ(element.getData().size(), level + 1);
            const BigInt integer = BigInt(std::trunc(value * std::pow(2.0, scales[settled]))) *
                                   test::productOf(test::slice(primes, settled + 1, level + 1));
            for (u64 i = 0; i <= level; ++i)
                EXPECT_EQ(element[i] % primes[i], test::wordResidueOf(integer, primes[i])) << "i=" << i;
        }
}

} // namespace
} // namespace Torvo
