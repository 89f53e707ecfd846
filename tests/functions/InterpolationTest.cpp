#include "support/Expect.hpp"
#include "support/SeriesOracle.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace Torvo {
namespace {

using test::chebyshev;
using Complex = std::complex<double>;

const double nan = std::nan("");
const ChebyshevSeries::Function none;
const ChebyshevSeries::Function nowhere = [](double) { return nan; };

const std::string noFunction = "[ChebyshevSeries] No function is given; give one that can be called";

/// I_k(x), the modified Bessel function, by its power series, whose terms are all positive.
long double bessel(u64 k, long double x) {
    long double term = 1, sum = 0;
    for (u64 i = 1; i <= k; ++i) term *= x / 2 / static_cast<long double>(i);
    for (u64 m = 1; term > 0; ++m) {
        sum += term;
        term *= x * x / 4 / static_cast<long double>(m * (m + k));
    }
    return sum;
}

// exp(s y) is I_0(s) and twice the sum of the I_k(s) T_k(y). From degree 60 on nothing is left that could
// alias.
TEST(Interpolation, OfTheExponentialHasBesselValuesAsCoefficients) {
    for (const double s : {0.5, 1.0, 6.0}) {
        const auto series = ChebyshevSeries::interpolate([](double x) { return std::exp(x); }, 60, -s, s);
        const auto bound = static_cast<double>(0x1p-51L * std::exp(s));
        ASSERT_EQ(series.getCoefficients().size(), 61u);
        for (u64 k = 0; k <= 60; ++k) {
            const long double expected = (k == 0 ? 1 : 2) * bessel(k, s);
            EXPECT_NEAR(series.getCoefficients()[k].real(), static_cast<double>(expected), bound) << k;
            EXPECT_EQ(series.getCoefficients()[k].imag(), 0) << k;
        }
    }
}

TEST(Interpolation, HasTheValuesOfTheFunctionAtTheZerosOfTheNextChebyshevPolynomial) {
    const ChebyshevSeries::Function f = [](double x) { return Complex(std::fabs(x - 1), std::cos(5 * x)); };
    for (const u64 degree : {0, 1, 2, 7, 64}) {
        const auto series = ChebyshevSeries::interpolate(f, degree, -1, 3);
        for (u64 j = 0; j <= degree; ++j) {
            const long double angle = std::numbers::pi_v<long double> * static_cast<long double>(2 * j + 1) /
                                      static_cast<long double>(2 * degree + 2);
            const auto x = static_cast<double>(1 + 2 * std::cos(angle));
            EXPECT_LE(std::abs(series.evaluate(x) - f(x)), 1e-13) << degree << " " << j;
        }
    }
}

// T_1023 itself: all that its degree can do.
TEST(Interpolation, GivesBackAPolynomialOfTheLargestDegree) {
    const auto series = ChebyshevSeries::interpolate(
        [](double x) { return static_cast<double>(chebyshev(1023, x)); }, ChebyshevSeries::maxDegree);
    EXPECT_EQ(series.getDegree(), 1023u);
    // The places are rounded to doubles, where T_1023 is as steep as 1023^2 towards the ends, but 1023 on
    // average.
    for (u64 k = 0; k <= 1023; ++k)
        EXPECT_NEAR(series.getCoefficients()[k].real(), k == 1023 ? 1 : 0, 1e-12) << k;
}

TEST(Interpolation, FindsTheLowestDegreeThatIsGoodEnough) {
    for (const double error : {0.5, 1e-3, 1e-9, 1e-13}) {
        const ChebyshevSeries::Function f = [](double x) { return std::sin(3 * x) + 0.25; };
        const auto found = ChebyshevSeries::interpolateWithin(f, error, -2, 2);
        EXPECT_LE(found.largestError(f), error);
        ASSERT_GT(found.getCoefficients().size(), 1u);
        const u64 less = found.getCoefficients().size() - 2;
        EXPECT_GT(ChebyshevSeries::interpolate(f, less, -2, 2).largestError(f), error);
    }
    EXPECT_EQ(ChebyshevSeries::interpolateWithin([](double) { return 3; }, 1e-15).getCoefficients().size(),
              1u);
}

// ---- the largest error

// A parabola with its top between all points that are looked at.
TEST(LargestError, IsFoundBetweenThePointsOfTheGrid) {
    for (const double top : {0.1234567, -0.98765, 0.0003}) {
        const double error =
            ChebyshevSeries().largestError([&](double x) { return 1 - (x - top) * (x - top); });
        EXPECT_NEAR(error, std::max(1.0, std::fabs((1 + std::fabs(top)) * (1 + std::fabs(top)) - 1)), 1e-14)
            << top;
    }
}

TEST(LargestError, OfAnInterpolationIsThatOfACloserLook) {
    const ChebyshevSeries::Function f = [](double x) { return std::exp(Complex(0, 9) * x); };
    const auto series = ChebyshevSeries::interpolate(f, 14, 0, 2);
    long double largest = 0;
    for (const long double x : test::evenly(200000, 0, 2))
        largest =
            std::max(largest, std::abs(std::exp(test::LongComplex(0, 9) * x) - test::valueOf(series, x)));
    EXPECT_GE(series.largestError(f), static_cast<double>(largest) * (1 - 1e-12));
    EXPECT_LE(series.largestError(f), static_cast<double>(largest) * (1 + 1e-8));
}

TEST(LargestError, IsThatOfTheIntervalThatIsGiven) {
    const ChebyshevSeries series({0.0, 1.0});
    const ChebyshevSeries::Function f = [](double x) { return x < 0 ? -1 : 1; };
    EXPECT_EQ(series.largestError(f, 0.25, 1), 0.75);
    EXPECT_EQ(series.largestError(f, -2, -1.5), 1);
    EXPECT_EQ(ChebyshevSeries({0.0}, 3, 4).largestError([](double x) { return x; }), 4);
}

// ---- what is refused

TEST(Interpolation, RefusesAFunctionBeforeADegreeBeforeBoundsBeforeValues) {
    const std::string degree = "[ChebyshevSeries] The degree is 1024; give 1023 at most";
    const std::string bounds =
        "[ChebyshevSeries] The interval is from 1 to 0; give the lower bound first, and both "
        "of magnitude 2^1000 at most";
    const std::string value =
        "[ChebyshevSeries] The function is nan at 0; give an interval on which it is finite";
    EXPECT_REFUSED(ChebyshevSeries::interpolate(none, 1024, 1, 0), noFunction);
    EXPECT_REFUSED(ChebyshevSeries::interpolate(nowhere, 1024, 1, 0), degree);
    EXPECT_REFUSED(ChebyshevSeries::interpolate(nowhere, 1023, 1, 0), bounds);
    EXPECT_REFUSED(ChebyshevSeries::interpolate(nowhere, 0), value);
    EXPECT_REFUSED(ChebyshevSeries().largestError(none, 1, 0), noFunction);
    EXPECT_REFUSED(ChebyshevSeries().largestError(nowhere, 1, 0), bounds);
    EXPECT_REFUSED(
        ChebyshevSeries().largestError([](double x) { return Complex(0, 1 / (x + 1)); }),
        "[ChebyshevSeries] The function is (0, inf) at -1; give an interval on which it is finite");
}

TEST(Interpolation, RefusesAnErrorThatNoSeriesCanHave) {
    const auto wanted = [](const std::string& error) {
        return "[ChebyshevSeries] The error wanted is " + error + "; give a positive one";
    };
    EXPECT_REFUSED(ChebyshevSeries::interpolateWithin(none, 0, 1, 0), noFunction);
    EXPECT_REFUSED(ChebyshevSeries::interpolateWithin(nowhere, 0, 1, 0), wanted("0"));
    EXPECT_REFUSED(ChebyshevSeries::interpolateWithin(nowhere, -1e-9, 1, 0), wanted("-1e-09"));
    EXPECT_REFUSED(ChebyshevSeries::interpolateWithin(nowhere, nan, 1, 0), wanted("nan"));
}

TEST(Interpolation, TellsTheBestErrorWhereTheWantedOneIsNotReached) {
    const ChebyshevSeries::Function step = [](double x) { return x < 0.3 ? 0 : 1; };
    try {
        ChebyshevSeries::interpolateWithin(step, 0.125);
        ADD_FAILURE() << "no polynomial is closer to a step than half of it";
    } catch (const RuntimeException& refusal) {
        const std::string text = refusal.what(),
                          front = "[ChebyshevSeries] The error wanted is 0.125, and degrees up to "
                                  "1023 come down to ";
        ASSERT_EQ(text.rfind(front, 0), 0u) << text;
        std::size_t length = 0;
        const double best = std::stod(text.substr(front.size()), &length);
        EXPECT_GE(best, 0.49);
        EXPECT_LE(best, 1);
        EXPECT_EQ(text.substr(front.size() + length),
                  " only; allow a larger error, or give a shorter interval or a smoother function");
    }
}

TEST(Interpolation, LetsWhatTheFunctionThrowsPass) {
    const ChebyshevSeries::Function thrower = [](double) -> Complex { throw std::domain_error("not here"); };
    EXPECT_THROW_TEXT(ChebyshevSeries::interpolate(thrower, 3), std::domain_error, "not here");
    EXPECT_THROW_TEXT(ChebyshevSeries().largestError(thrower), std::domain_error, "not here");
}

} // namespace
} // namespace Torvo
