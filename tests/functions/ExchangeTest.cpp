#include "functions/Exchange.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/Sanitizer.hpp"
#include "support/SeriesOracle.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <stdexcept>

namespace Torvo {
namespace {

using Symmetry = ChebyshevSeries::Symmetry;
/// What long double rounds by, in which extrema are looked for.
constexpr double finest = 0x1p-62;

using Function = long double (*)(long double);

struct Case {
    const char* name;
    Function f;
    u64 degree;
    long double lower, upper;
    Symmetry symmetry;
    double slack = 1e-12; ///< relative; a corner of f inside is found less closely than a smooth top
};

long double one(long double) {
    return 1;
}
long double exponential(long double x) {
    return std::exp(x);
}
long double sigmoid(long double x) {
    return 1 / (1 + std::exp(-x));
}
long double root(long double x) {
    return std::sqrt(x);
}
long double size(long double x) {
    return std::fabs(x);
}

const Case cases[] = {
    {"sign7", one, 7, 0x1p-4L, 1, Symmetry::Odd},
    {"sign63", one, 63, 0x1p-4L, 1, Symmetry::Odd},
    {"closeSign63", one, 63, 0x1p-8L, 1, Symmetry::Odd},
    {"closestSign31", one, 31, 0x1p-16L, 1, Symmetry::Odd},
    {"signOfEvenDegree", one, 8, 0x1p-4L, 1, Symmetry::Odd},
    {"exponential", exponential, 6, -1, 1, Symmetry::None},
    {"wideExponential", exponential, 10, -8, 2, Symmetry::None},
    {"sigmoidOfEvenDegree", sigmoid, 12, -8, 8, Symmetry::None},
    {"sigmoidOfOddDegree", sigmoid, 15, -8, 8, Symmetry::None},
    {"root", root, 15, 0x1p-10L, 1, Symmetry::None},
    {"rootFromZero", root, 9, 0, 1, Symmetry::None},
    {"size", size, 31, 0x1p-6L, 1, Symmetry::Even},
    {"sizeFromZero", size, 12, 0, 1, Symmetry::Even},
    {"sizeOfEvenDegree", size, 10, -1, 1, Symmetry::None, 1e-9},
    {"sizeOfOddDegree", size, 11, -1, 1, Symmetry::None, 1e-9},
    {"logarithm", [](long double x) { return std::log(x); }, 20, 0x1p-8L, 1, Symmetry::None},
    {"reciprocal", [](long double x) { return 1 / x; }, 25, 0.125L, 1, Symmetry::Odd},
    {"sine", [](long double x) { return std::sin(3 * x); }, 7, 0, 1, Symmetry::Odd},
    {"wave", [](long double x) { return std::sin(50 * x); }, 60, -1, 1, Symmetry::None},
    {"constant", exponential, 0, 0, 1, Symmetry::None},
};

class Minimaxes : public testing::TestWithParam<Case> {
protected:
    Minimax best() const {
        const Case& c = GetParam();
        return minimaxOf(
            {[&](long double x) { return Quad(c.f(x)); }, c.degree, c.lower, c.upper, c.symmetry, finest});
    }
    /// f(x) less the sum of c_k T_k(y), by T_(k + 1) = 2 y T_k - T_(k - 1).
    Quad errorAt(const Minimax& best, long double x) const {
        const Case& c = GetParam();
        const Quad lower = c.symmetry == Symmetry::None ? c.lower : -c.upper;
        const Quad y = (2 * Quad(x) - (lower + c.upper)) / (c.upper - lower);
        Quad before = y, current = 1, error = c.f(x); // T_(-1) = T_1
        for (const Quad& coefficient : best.coefficients) {
            error -= coefficient * current;
            const Quad next = 2 * y * current - before;
            before = current;
            current = next;
        }
        return error;
    }
};

// Chebyshev's theorem: a polynomial of n terms is the best exactly if its error takes its largest magnitude,
// with alternating signs, at n + 1 places.
TEST_P(Minimaxes, HaveOneMoreAlternatingExtremaOfEqualSizeThanTerms) {
    const Case& c = GetParam();
    const Minimax found = best();
    EXPECT_TRUE(found.isBest);
    const u64 terms = c.symmetry == Symmetry::None  ? c.degree + 1
                      : c.symmetry == Symmetry::Odd ? (c.degree + 1) / 2
                                                    : c.degree / 2 + 1;
    ASSERT_EQ(found.extrema.size(), terms + 1);
    ASSERT_EQ(found.coefficients.size(), c.degree + 1);
    const auto largest = static_cast<double>(found.largest);
    ASSERT_GT(largest, 0);
    const double slack = c.slack * largest + 1e-28; // and the last bits of the sum
    const Quad first = errorAt(found, found.extrema.front());
    for (u64 i = 0; i <= terms; ++i) {
        if (i > 0) {
            ASSERT_LT(found.extrema[i - 1], found.extrema[i]);
        }
        const Quad error = errorAt(found, found.extrema[i]) * ((first > 0) == (i % 2 == 0) ? 1 : -1);
        EXPECT_NEAR(static_cast<double>(error), largest, slack) << i;
    }
    for (const long double x : test::evenly(20000, c.lower, c.upper))
        ASSERT_LE(static_cast<double>(magnitude(errorAt(found, x))), largest + slack)
            << static_cast<double>(x);
}

TEST_P(Minimaxes, HaveExactZerosWhereASymmetryWantsThem) {
    const Case& c = GetParam();
    const Minimax found = best();
    for (u64 k = 0; k <= c.degree; ++k) {
        if (c.symmetry == Symmetry::Odd && k % 2 == 0) {
            EXPECT_TRUE(found.coefficients[k] == 0) << k;
        }
        if (c.symmetry == Symmetry::Even && k % 2 == 1) {
            EXPECT_TRUE(found.coefficients[k] == 0) << k;
        }
    }
    const auto f = c.f;
    const auto series =
        ChebyshevSeries::minimax([f](long double x) { return f(x); }, c.degree, static_cast<double>(c.lower),
                                 static_cast<double>(c.upper), c.symmetry);
    EXPECT_EQ(series.isOdd(), c.symmetry == Symmetry::Odd);
    EXPECT_TRUE(c.symmetry != Symmetry::Even || series.isEven());
    EXPECT_EQ(series.getUpperBound(), static_cast<double>(c.upper));
    EXPECT_EQ(series.getLowerBound(), static_cast<double>(c.symmetry == Symmetry::None ? c.lower : -c.upper));
    for (u64 k = 0; k <= c.degree; ++k)
        EXPECT_NEAR(series.getCoefficients()[k].real(), static_cast<double>(found.coefficients[k]),
                    1e-9 * static_cast<double>(found.largest) + 1e-15);
}

INSTANTIATE_TEST_SUITE_P(Of, Minimaxes, testing::ValuesIn(cases),
                         [](const auto& tested) { return std::string(tested.param.name); });

// ---- errors that are known

// On [-1, 1] the best error of 1 / (x - a) is (a - sqrt(a^2 - 1))^n / (a^2 - 1) for degree n (Chebyshev).
TEST(Minimax, ReachesTheKnownErrorOfAPole) {
    for (const long double a : {1.25L, 2.0L, 5.0L})
        for (const u64 degree : {0, 1, 4, 9}) {
            const Minimax found = minimaxOf(
                {[=](long double x) { return 1 / (Quad(x) - a); }, degree, -1, 1, Symmetry::None, finest});
            const long double root = std::sqrt(a * a - 1);
            const long double expected = std::pow(a - root, static_cast<long double>(degree)) / (root * root);
            const long double scale = 1 / (a - 1);
            EXPECT_NEAR(static_cast<double>(found.largest), static_cast<double>(expected),
                        static_cast<double>(1e-12L * expected + finest * scale))
                << degree;
        }
}

// x^(n + 1) less the best polynomial of degree n is 2^-n T_(n + 1).
TEST(Minimax, ReachesTheKnownErrorOfAPower) {
    for (const u64 n : {1, 2, 7, 20}) {
        const Minimax found = minimaxOf({[=](long double x) {
                                             Quad power = 1;
                                             for (u64 i = 0; i <= n; ++i) power *= x;
                                             return power;
                                         },
                                         n, -1, 1, Symmetry::None, finest});
        EXPECT_NEAR(std::ldexp(static_cast<double>(found.largest), static_cast<int>(n)), 1, 1e-12) << n;
    }
}

// The best line for sqrt on [0, 1] is x + 1/8; the best odd line for 1 on [e, 1] is 2x / (1 + e).
TEST(Minimax, IsTheKnownLine) {
    const auto line = ChebyshevSeries::minimax([](long double x) { return std::sqrt(x); }, 1, 0, 1);
    EXPECT_NEAR(line.evaluate(0).real(), 0.125, 1e-13);
    EXPECT_NEAR(line.evaluate(1).real(), 1.125, 1e-13);
    for (const double e : {0.5, 0.01}) {
        const auto sign = ChebyshevSeries::minimax([](double) { return 1; }, 1, e, 1, Symmetry::Odd);
        EXPECT_NEAR(sign.evaluate(1).real(), 2 / (1 + e), 1e-13);
        EXPECT_NEAR(sign.evaluate(-1).real(), -2 / (1 + e), 1e-13);
    }
    EXPECT_EQ(ChebyshevSeries::minimax([](double) { return 1; }, 0, 0.5, 1, Symmetry::Odd).getCoefficients(),
              std::vector<std::complex<double>>{0.0});
}

TEST(Minimax, GivesBackAPolynomialOfItsDegree) {
    const auto cubic = [](long double x) { return 4 * x * x * x - 3 * x; };
    for (const u64 degree : {3, 4, 9}) {
        const auto series = ChebyshevSeries::minimax(cubic, degree, -1, 1);
        for (u64 k = 0; k <= degree; ++k)
            EXPECT_NEAR(series.getCoefficients()[k].real(), k == 3 ? 1 : 0, 1e-15) << k;
    }
    EXPECT_EQ(ChebyshevSeries::minimax([](double) { return 0; }, 5).getDegree(), 0u);
}

// A function in doubles has errors of its own, below which none of a polynomial can be seen.
TEST(Minimax, OfAFunctionInDoublesComesDownToItsRounding) {
    for (const u64 degree : {10, 20, 40, 100}) {
        const auto f = [](double x) { return std::exp(x); };
        const auto series = ChebyshevSeries::minimax(f, degree);
        EXPECT_LE(series.largestError(f), degree == 10 ? 2.6e-11 : 2e-15) << degree;
    }
}

// Rounding to thousandths is no continuous function. Its steps are half a thousandth high.
TEST(Minimax, OfATableIsAsGoodAsThatCanBe) {
    const auto table = [](double x) { return std::round(x * 1000) / 1000; };
    EXPECT_NEAR(ChebyshevSeries::minimax(table, 20).largestError(table), 5e-4, 2e-5);
}

TEST(Minimax, FindsTheLowestDegreeThatIsGoodEnough) {
    const auto f = [](long double x) { return std::exp(x); };
    const auto inDoubles = [](double x) { return std::exp(x); };
    for (const double error : {0.5, 1e-3, 1e-9, 1e-14}) {
        const auto found = ChebyshevSeries::minimaxWithin(f, error, -1, 2);
        EXPECT_LE(found.largestError(inDoubles), error * (1 + 1e-9) + 2e-15);
        const u64 less = found.getCoefficients().size() - 2;
        EXPECT_GT(ChebyshevSeries::minimax(f, less, -1, 2).largestError(inDoubles), error);
    }
    const auto sign =
        ChebyshevSeries::minimaxWithin([](double) { return 1; }, 0x1p-10, 0.125, 1, Symmetry::Odd);
    EXPECT_TRUE(sign.isOdd());
    EXPECT_LE(sign.largestError([](double) { return 1; }, 0.125, 1), 0x1p-10);
}

// No odd polynomial comes closer to 1 at 0 than 1. That is found without a proof that it is the best.
TEST(Minimax, TakesWhatIsGoodEnoughWhereTheAlgorithmDoesNotConverge) {
    const auto found = ChebyshevSeries::minimaxWithin([](double) { return 1; }, 1.125, 0, 1, Symmetry::Odd);
    EXPECT_LE(found.largestError([](double) { return 1; }, 0, 1), 1.125);
    EXPECT_FALSE(
        minimaxOf({[](long double) { return Quad(1); }, found.getDegree(), 0, 1, Symmetry::Odd}).isBest);
}

// ---- what is refused

TEST(Minimax, RefusesAFunctionBeforeADegreeBeforeBoundsBeforeTheSymmetrysBeforeValues) {
    const ChebyshevSeries::RealFunction none;
    const ChebyshevSeries::RealFunction pole = [](long double x) { return 1 / x; };
    const std::string noFunction = "[ChebyshevSeries] No function is given; give one that can be called";
    const std::string bounds =
        "[ChebyshevSeries] The interval is from -1 to -2; give the lower bound first, and both "
        "of magnitude 2^1000 at most";
    const std::string ofSymmetry = "[ChebyshevSeries] The interval is from -1 to 1; give a lower bound of 0 "
                                   "or more for an even or odd series";
    EXPECT_REFUSED(ChebyshevSeries::minimax(none, 1024, -1, -2, Symmetry::Odd), noFunction);
    EXPECT_REFUSED(ChebyshevSeries::minimax(pole, 1024, -1, -2, Symmetry::Odd),
                   "[ChebyshevSeries] The degree is 1024; give 1023 at most");
    EXPECT_REFUSED(ChebyshevSeries::minimax(pole, 4, -1, -2, Symmetry::Odd), bounds);
    EXPECT_REFUSED(ChebyshevSeries::minimax(pole, 4, -1, 1, Symmetry::Odd), ofSymmetry);
    EXPECT_REFUSED(ChebyshevSeries::minimax(pole, 4, -1, 1, Symmetry::Even), ofSymmetry);
    EXPECT_REFUSED(ChebyshevSeries::minimax(pole, 4, 0, 1, Symmetry::Even),
                   "[ChebyshevSeries] The function is inf at 0; give an interval on which it is finite");
    EXPECT_REFUSED(ChebyshevSeries::minimaxWithin(none, 0, -1, -2, Symmetry::Odd), noFunction);
    EXPECT_REFUSED(ChebyshevSeries::minimaxWithin(pole, 0, -1, -2, Symmetry::Odd),
                   "[ChebyshevSeries] The error wanted is 0; give a positive one");
    EXPECT_REFUSED(ChebyshevSeries::minimaxWithin(pole, 1, -1, -2, Symmetry::Odd), bounds);
    EXPECT_REFUSED(ChebyshevSeries::minimaxWithin(pole, 1, -1, 1, Symmetry::Odd), ofSymmetry);
}

// Every odd polynomial is 0 at 0, so none comes closer to 1 there than 1, and none takes that error twice.
TEST(Minimax, SaysSoWhereTheAlgorithmDoesNotConverge) {
    const auto found = minimaxOf({[](long double) { return Quad(1); }, 5, 0, 1, Symmetry::Odd});
    EXPECT_FALSE(found.isBest);
    try {
        ChebyshevSeries::minimax([](double) { return 1; }, 5, 0, 1, Symmetry::Odd);
        ADD_FAILURE() << "converged";
    } catch (const RuntimeException& refusal) {
        const std::string text = refusal.what();
        EXPECT_EQ(
            text.rfind(
                "[ChebyshevSeries] The exchange algorithm does not converge for degree 5: after 40 steps the "
                "largest error is 1 where 0.",
                0),
            0u)
            << text;
        EXPECT_TRUE(
            text.ends_with(" should be possible; give a smoother function or a lower degree, or interpolate"))
            << text;
    }
}

TEST(Minimax, WithoutMemoryThrowsNothingElse) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const auto f = [](long double x) { return std::exp(x); };
    const auto expected = ChebyshevSeries::minimax(f, 3).getCoefficients();
    bool hasFailed = true;
    for (u64 before = 0; hasFailed; ++before) {
        const test::FailingAllocation failing(before, test::FailingAllocation::Thread::Calling);
        try {
            EXPECT_EQ(ChebyshevSeries::minimax(f, 3).getCoefficients(), expected);
        } catch (const std::bad_alloc&) {
        }
        hasFailed = failing.hasFailed();
    }
}

TEST(Minimax, LetsWhatTheFunctionThrowsPass) {
    const ChebyshevSeries::RealFunction thrower = [](long double) -> long double {
        throw std::domain_error("not here");
    };
    EXPECT_THROW_TEXT(ChebyshevSeries::minimax(thrower, 3), std::domain_error, "not here");
    EXPECT_THROW_TEXT(ChebyshevSeries::minimaxWithin(thrower, 3), std::domain_error, "not here");
}

// What takes seconds at degree 1023 takes as much in any build that is not optimised.
TEST(MinimaxRealPreset, ReachesTheLargestDegree) {
    const auto size = [](long double x) { return std::fabs(x); };
    const auto series = ChebyshevSeries::minimax(size, ChebyshevSeries::maxDegree, 0, 1, Symmetry::Even);
    // Bernstein's constant over the degree (Varga and Carpenter, 1985).
    EXPECT_NEAR(series.largestError([](double x) { return std::fabs(x); }) * 1022, 0.2801694990, 1e-5);
}

} // namespace
} // namespace Torvo
