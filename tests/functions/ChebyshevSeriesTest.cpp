#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/Sanitizer.hpp"
#include "support/Seeded.hpp"
#include "support/SeriesOracle.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/Message.hpp>

#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <utility>

namespace Torvo {
namespace {

using test::valueOf;
using Complex = std::complex<double>;
using Coefficients = std::vector<Complex>;

constexpr double infinity = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

std::string countRefused(u64 count) {
    return "[ChebyshevSeries] The number of coefficients is " + std::to_string(count) +
           "; give 1 to 1024 of them, that of T_0 first";
}

std::string coefficientRefused(u64 k, const std::string& value) {
    return "[ChebyshevSeries] The coefficient of T_" + std::to_string(k) + " is " + value +
           "; give finite numbers";
}

std::string boundsRefused(const std::string& lower, const std::string& upper) {
    return "[ChebyshevSeries] The interval is from " + lower + " to " + upper +
           "; give the lower bound first, and both of magnitude 2^1000 at most";
}

Coefficients randomCoefficients(test::Seeded& random, u64 count) {
    Coefficients c;
    for (u64 k = 0; k < count; ++k) c.emplace_back(random.real(-1, 1), random.real(-1, 1));
    return c;
}

TEST(ChebyshevSeries, IsZeroWhereNothingIsGiven) {
    const ChebyshevSeries series;
    EXPECT_EQ(series.getCoefficients(), Coefficients{0.0});
    EXPECT_EQ(series.getLowerBound(), -1);
    EXPECT_EQ(series.getUpperBound(), 1);
    EXPECT_EQ(series.getDegree(), 0u);
    EXPECT_TRUE(series.isEven() && series.isOdd() && series.isReal());
    EXPECT_EQ(series.evaluate(0.5), Complex(0));
}

TEST(ChebyshevSeries, KeepsItsNumbersAsTheyAreGiven) {
    const Coefficients c{0.5, {1, -2}, 0.0, 0.0};
    const ChebyshevSeries series(c, -3, 7.5);
    EXPECT_EQ(series.getCoefficients(), c);
    EXPECT_EQ(series.getLowerBound(), -3);
    EXPECT_EQ(series.getUpperBound(), 7.5);
    EXPECT_EQ(series.getDegree(), 1u);
    EXPECT_FALSE(series.isReal());
    EXPECT_TRUE(ChebyshevSeries({1.0, 2.0}).isReal());
}

TEST(ChebyshevSeries, IsEvenOrOddByExactZerosAroundZero) {
    EXPECT_TRUE(ChebyshevSeries({1.0, 0.0, 2.0}, -4, 4).isEven());
    EXPECT_FALSE(ChebyshevSeries({1.0, 0.0, 2.0}, -4, 4).isOdd());
    EXPECT_TRUE(ChebyshevSeries({0.0, -1.0, -0.0, 2.0}).isOdd());
    EXPECT_FALSE(ChebyshevSeries({0.0, -1.0, 0.0, 2.0}).isEven());
    EXPECT_FALSE(ChebyshevSeries({1.0, 1e-300, 2.0}).isEven());
    EXPECT_FALSE(ChebyshevSeries(Coefficients{{0, 1e-300}, 1.0}).isOdd());
    EXPECT_FALSE(ChebyshevSeries({1.0, 0.0, 2.0}, -4, 5).isEven()) << "not around 0";
    EXPECT_FALSE(ChebyshevSeries({0.0, 1.0}, 0, 2).isOdd());
}

// Clenshaw's recurrence in doubles: at each of n steps a few roundings of numbers of at most the sum of the
// magnitudes times the steps left.
TEST(ChebyshevSeries, EvaluatesToTheSumOfItsTerms) {
    test::Seeded random(101);
    SCOPED_TRACE(random.describe());
    for (const u64 count : {1, 2, 3, 8, 65, 1024}) {
        for (const auto& [lower, upper] :
             {std::pair(-1.0, 1.0), std::pair(0.25, 8.0), std::pair(1e6, 1e6 + 1)}) {
            const ChebyshevSeries series(randomCoefficients(random, count), lower, upper);
            const double bound = test::sumOfMagnitudes(series) * 0x1p-50 * static_cast<double>(count);
            for (int i = 0; i < 50; ++i) {
                const double x = i == 0 ? lower : i == 1 ? upper : random.real(lower, upper);
                EXPECT_LE(std::abs(test::LongComplex(series.evaluate(x)) - valueOf(series, x)), bound)
                    << count;
            }
        }
    }
}

// T_3(y) = 4y^3 - 3y and T_2(y) = 2y^2 - 1 hold for every y.
TEST(ChebyshevSeries, EvaluatesAtComplexPlacesAndOutsideOfItsInterval) {
    const ChebyshevSeries series(Coefficients{0.0, 0.0, {0, 1}, 1.0}, 0, 4);
    for (const Complex x : {Complex(1, 2), Complex(-3, 0.5), Complex(10), Complex(2, -1)}) {
        const Complex y = x / 2.0 - 1.0;
        const Complex expected = 4.0 * y * y * y - 3.0 * y + Complex(0, 1) * (2.0 * y * y - 1.0);
        EXPECT_LE(std::abs(series.evaluate(x) - expected), 1e-12 * std::abs(expected)) << x;
    }
}

TEST(ChebyshevSeries, EvaluatesARealSeriesAtARealPlaceToARealNumber) {
    EXPECT_EQ(ChebyshevSeries({0.1, 0.2, 0.3}).evaluate(0.7).imag(), 0);
    EXPECT_EQ(ChebyshevSeries({0.1, 0.2, 0.3}).evaluate(1).real(), 0.1 + 0.2 + 0.3);
}

// The sum of these bounds is a double, and the difference to 2x is one unit of it.
TEST(ChebyshevSeries, FindsPlacesInANarrowIntervalFarFromZero) {
    const double lower = 0x1p40, upper = lower + 0x1p-10;
    const ChebyshevSeries series({0.0, 1.0}, lower, upper);
    EXPECT_EQ(series.evaluate(lower), Complex(-1));
    EXPECT_EQ(series.evaluate(lower + 0x1p-12), Complex(-0.5));
    EXPECT_EQ(series.evaluate(upper), Complex(1));
    EXPECT_EQ(ChebyshevSeries({0.0, 1.0}, -2, 2).evaluate(0x1p-1000), Complex(0x1p-1001))
        << "nothing is lost at 0";
}

TEST(ChebyshevSeries, EvaluatesEverySlotOfAMessage) {
    test::Seeded random(102);
    SCOPED_TRACE(random.describe());
    const ChebyshevSeries series(randomCoefficients(random, 9), -2, 2);
    const Message in = random.message(4), out = series.evaluate(in);
    ASSERT_EQ(out.getSize(), in.getSize());
    for (u64 i = 0; i < in.getSize(); ++i) EXPECT_EQ(out[i], series.evaluate(in[i])) << i;
    EXPECT_TRUE(series.evaluate(Message()).isEmpty());
    EXPECT_TRUE(std::isnan(series.evaluate(Message({nan}))[0].real())) << "a message keeps what is no number";
}

// ---- what is refused

TEST(ChebyshevSeries, RefusesCountsBeforeCoefficientsBeforeBounds) {
    EXPECT_REFUSED(ChebyshevSeries(Coefficients{}, nan, 0), countRefused(0));
    EXPECT_REFUSED(ChebyshevSeries(Coefficients(1025, nan), nan, 0), countRefused(1025));
    EXPECT_REFUSED(ChebyshevSeries({1.0, nan}, 1, -1), coefficientRefused(1, "nan"));
    EXPECT_REFUSED(ChebyshevSeries(Coefficients{{-infinity, 2}, nan}, 1, -1),
                   coefficientRefused(0, "(-inf, 2)"));
    EXPECT_REFUSED(ChebyshevSeries({1.0}, 1, -1), boundsRefused("1", "-1"));
    EXPECT_NO_THROW(ChebyshevSeries(Coefficients(1024, 1.0)));
}

TEST(ChebyshevSeries, RefusesBoundsThatAreNoInterval) {
    const Coefficients one{1.0};
    EXPECT_REFUSED(ChebyshevSeries(one, 1, 1), boundsRefused("1", "1"));
    EXPECT_REFUSED(ChebyshevSeries(one, nan, 1), boundsRefused("nan", "1"));
    EXPECT_REFUSED(ChebyshevSeries(one, -1, nan), boundsRefused("-1", "nan"));
    EXPECT_REFUSED(ChebyshevSeries(one, -infinity, 1), boundsRefused("-inf", "1"));
    EXPECT_REFUSED(ChebyshevSeries(one, -1, infinity), boundsRefused("-1", "inf"));
    EXPECT_REFUSED(ChebyshevSeries(one, -1, 0x1.8p1000), boundsRefused("-1", "1.607262910779401e+301"));
    const ChebyshevSeries widest({0.0, 1.0}, -0x1p1000, 0x1p1000);
    EXPECT_EQ(widest.evaluate(0x1p999), Complex(0.5));
    const double least = std::numeric_limits<double>::denorm_min();
    EXPECT_EQ(ChebyshevSeries({0.0, 1.0}, 0, least).evaluate(least), Complex(1));
}

// ---- values

TEST(ChebyshevSeries, ACopySharesNothingWithItsSource) {
    const Coefficients first{1.0, 2.0}, second{3.0, 4.0, 5.0};
    ChebyshevSeries source(first), copy(source), assigned;
    assigned = source;
    source = ChebyshevSeries(second, 0, 9);
    EXPECT_EQ(copy.getCoefficients(), first);
    EXPECT_EQ(assigned.getCoefficients(), first);
    EXPECT_EQ(source.getUpperBound(), 9);
    const ChebyshevSeries moved(std::move(source));
    EXPECT_EQ(moved.getCoefficients(), second);
    source = copy;
    EXPECT_EQ(source.getCoefficients(), first);
}

TEST(ChebyshevSeries, ManyThreadsReadOne) {
    test::Seeded random(103);
    SCOPED_TRACE(random.describe());
    const ChebyshevSeries series(randomCoefficients(random, 64));
    const Message in = random.message(6), expected = series.evaluate(in);
    std::vector<std::future<Message>> readers;
    for (int i = 0; i < 4; ++i)
        readers.push_back(std::async(std::launch::async, [&] { return series.evaluate(in); }));
    for (auto& reader : readers) {
        const Message out = reader.get();
        EXPECT_TRUE(std::equal(out.begin(), out.end(), expected.begin(), expected.end()));
    }
}

TEST(ChebyshevSeries, AssignmentWithoutMemoryLeavesNoDamage) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const ChebyshevSeries large(Coefficients(1000, 0.5), 2, 3);
    bool hasFailed = true;
    for (u64 before = 0; hasFailed; ++before) {
        ChebyshevSeries target({1.0, 2.0});
        const test::FailingAllocation failing(before, test::FailingAllocation::Thread::Calling);
        try {
            target = large;
            EXPECT_EQ(target.getUpperBound(), 3);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(target.getCoefficients().size(), 2u);
            EXPECT_EQ(target.getUpperBound(), 1);
        }
        hasFailed = failing.hasFailed();
    }
}

} // namespace
} // namespace Torvo
