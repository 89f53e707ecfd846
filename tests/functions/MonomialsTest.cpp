#include "support/Expect.hpp"
#include "support/Seeded.hpp"
#include "support/SeriesOracle.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using Numbers = std::vector<Complex>;

Numbers randomNumbers(test::Seeded& random, u64 count) {
    Numbers numbers;
    for (u64 i = 0; i < count; ++i) numbers.emplace_back(random.real(-1, 1), random.real(-1, 1));
    return numbers;
}

TEST(Monomials, OfKnownPolynomials) {
    // 8x^4 - 8x^2 + 1 is T_4.
    const auto t4 = ChebyshevSeries::fromMonomials({1.0, 0.0, -8.0, 0.0, 8.0});
    EXPECT_EQ(t4.getCoefficients(), (Numbers{0.0, 0.0, 0.0, 0.0, 1.0}));
    EXPECT_EQ(t4.toMonomials(), (Numbers{1.0, 0.0, -8.0, 0.0, 8.0}));
    // On [1, 5] x is 3 + 2y.
    EXPECT_EQ(ChebyshevSeries::fromMonomials({0.0, 1.0}, 1, 5).getCoefficients(), (Numbers{3.0, 2.0}));
    EXPECT_EQ(ChebyshevSeries({3.0, 2.0}, 1, 5).toMonomials(), (Numbers{0.0, 1.0}));
    EXPECT_EQ(ChebyshevSeries::fromMonomials({Complex(2, 3)}, -4, 1).getCoefficients(), (Numbers{{2, 3}}));
    EXPECT_EQ(ChebyshevSeries(Numbers{{2, 3}}, -4, 1).toMonomials(), (Numbers{{2, 3}}));
}

TEST(Monomials, HaveTheValuesOfThePolynomial) {
    test::Seeded random(201);
    SCOPED_TRACE(random.describe());
    for (const u64 count : {1, 2, 3, 10, 25}) {
        for (const auto& [lower, upper] :
             {std::pair(-1.0, 1.0), std::pair(0.0, 1.5), std::pair(-2.0, -0.5)}) {
            const Numbers monomials = randomNumbers(random, count);
            const auto series = ChebyshevSeries::fromMonomials(monomials, lower, upper);
            for (const long double x : test::evenly(40, lower, upper)) {
                test::LongComplex expected = 0;
                long double sizes = 0;
                for (u64 i = count; i-- > 0;) {
                    expected = expected * x + test::LongComplex(monomials[i]);
                    sizes = sizes * std::fabs(x) + std::abs(test::LongComplex(monomials[i]));
                }
                const auto bound =
                    static_cast<double>(sizes) * 0x1p-51 + test::sumOfMagnitudes(series) * 0x1p-51;
                EXPECT_LE(std::abs(test::valueOf(series, x) - expected), bound);
            }
        }
    }
}

// Each way rounds once, and the way back may enlarge that by as much as the basis is ill conditioned.
TEST(Monomials, ThereAndBackAreTheSame) {
    test::Seeded random(202);
    SCOPED_TRACE(random.describe());
    const Numbers monomials = randomNumbers(random, 12);
    const auto back = ChebyshevSeries::fromMonomials(monomials, -1, 2).toMonomials();
    ASSERT_EQ(back.size(), monomials.size());
    for (u64 i = 0; i < 12; ++i) EXPECT_LE(std::abs(back[i] - monomials[i]), 1e-9) << i;
}

TEST(Monomials, OfEvenPolynomialsGiveEvenSeries) {
    EXPECT_TRUE(ChebyshevSeries::fromMonomials({1.0, 0.0, 3.0, 0.0, 0.1}, -3, 3).isEven());
    EXPECT_TRUE(ChebyshevSeries::fromMonomials({0.0, 1.0, 0.0, 0.1}, -3, 3).isOdd());
}

TEST(Monomials, AreRefusedAsCoefficientsAre) {
    EXPECT_REFUSED(
        ChebyshevSeries::fromMonomials({}),
        "[ChebyshevSeries] The number of coefficients is 0; give 1 to 1024 of them, that of T_0 first");
    EXPECT_REFUSED(ChebyshevSeries::fromMonomials({1.0}, 2, 1),
                   "[ChebyshevSeries] The interval is from 2 to 1; give the lower bound first, and both of "
                   "magnitude 2^1000 at most");
    EXPECT_REFUSED(ChebyshevSeries::fromMonomials({0.0, 0.0, 1.0}, 0, 1e200),
                   "[ChebyshevSeries] The coefficient of T_0 is inf; give finite numbers");
}

// The coefficient of x^1022 in T_1022 is 2^1021, and others are far larger.
TEST(Monomials, AreRefusedWhereNoDoubleHoldsThem) {
    Numbers last(1023);
    last.back() = 1.0;
    try {
        ChebyshevSeries(last).toMonomials();
        ADD_FAILURE() << "not refused";
    } catch (const RuntimeException& refusal) {
        const std::string text = refusal.what();
        EXPECT_EQ(text.rfind("[ChebyshevSeries] The coefficient of x^", 0), 0u) << text;
        EXPECT_TRUE(text.ends_with(" is larger than any double; evaluate the series as it is")) << text;
    }
    Numbers lower(301);
    lower.back() = 1.0;
    EXPECT_EQ(ChebyshevSeries(lower).toMonomials().back(), Complex(0x1p299));
}

// ---- derivatives

TEST(Derivative, OfKnownPolynomials) {
    // (3x^2 + 2x + 7)' = 6x + 2.
    const auto slope = ChebyshevSeries::fromMonomials({7.0, 2.0, 3.0}, -1, 3).derivative();
    EXPECT_EQ(slope.toMonomials(), (Numbers{2.0, 6.0}));
    EXPECT_EQ(slope.getLowerBound(), -1);
    EXPECT_EQ(slope.getUpperBound(), 3);
    EXPECT_EQ(ChebyshevSeries({5.0}).derivative().getCoefficients(), Numbers{0.0});
    // T_n'(1) = n^2.
    Numbers last(1024);
    last.back() = {0, 1};
    EXPECT_EQ(ChebyshevSeries(last).derivative().evaluate(1), Complex(0, 1023.0 * 1023));
}

TEST(Derivative, OfASineIsItsCosine) {
    const auto sine = ChebyshevSeries::interpolate([](double x) { return std::sin(x); }, 40, -4, 4);
    EXPECT_LE(sine.derivative().largestError([](double x) { return std::cos(x); }), 1e-12);
}

TEST(Derivative, IsRefusedWhereNoDoubleHoldsIt) {
    EXPECT_REFUSED(ChebyshevSeries({0.0, 1.0}, 0, 1e-310).derivative(),
                   "[ChebyshevSeries] The coefficient of T_0 is inf; give finite numbers");
}

} // namespace
} // namespace Torvo
