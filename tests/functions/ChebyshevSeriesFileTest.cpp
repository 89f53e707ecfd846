// The file of a series, written by hand from the table of docs/files.md.

#include "support/AllocationBudget.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Torvo {
namespace {

using namespace test;
using Coefficients = std::vector<std::complex<double>>;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string head(std::uint32_t tag, double lower, double upper, u64 count) {
    return Bytes::frame().u32(tag).f64(lower).f64(upper).u64s({count}).str();
}

const std::string numbers = Bytes().f64(0.5).f64(-2.0).f64(0.0).f64(3.25).f64(1e-300).f64(0.0).str();

TEST(ChebyshevSeriesFile, IsThatOfItsTable) {
    const ChebyshevSeries series(Coefficients{{0.5, -2.0}, {0.0, 3.25}, {1e-300, 0.0}}, -1, 2.5);
    const std::string file = head(7, -1, 2.5, 3) + numbers;
    ChebyshevSeries other(Coefficients(9, 1.0), 5, 6);
    expectFile(series, file, other);
    EXPECT_EQ(other.getCoefficients(), series.getCoefficients());
    EXPECT_EQ(other.getLowerBound(), -1);
    EXPECT_EQ(other.getUpperBound(), 2.5);
    EXPECT_EQ(series.savedSize(), file.size());
    expectRobust(file, file.size(), other);
}

TEST(ChebyshevSeriesFile, OfTheOtherByteOrderIsRead) {
    std::string file(1, '\0');
    for (const auto& field : {Bytes().u32(7), Bytes().f64(-1), Bytes().f64(2), Bytes().u64s({1}),
                              Bytes().f64(0.1), Bytes().f64(-0.7)})
        file.append(field.str().rbegin(), field.str().rend());
    ChebyshevSeries series;
    loadFrom(file, series);
    EXPECT_EQ(series.getCoefficients(), (Coefficients{{0.1, -0.7}}));
    EXPECT_EQ(series.getUpperBound(), 2);
}

TEST(ChebyshevSeriesFile, OfNumbersThatNoSeriesHasIsRefusedAndChangesNothing) {
    const double nan = std::nan("");
    ChebyshevSeries series({1.0, 2.0}, 3, 4);
    const auto expectRefused = [&](const std::string& file) {
        EXPECT_REFUSED(loadFrom(file, series), notVerified);
        EXPECT_EQ(series.getCoefficients(), (Coefficients{1.0, 2.0}));
        EXPECT_EQ(series.getLowerBound(), 3);
    };
    for (const std::uint32_t tag : {0, 4, 6, 8}) expectRefused(head(tag, -1, 1, 3) + numbers);
    for (const auto& [lower, upper] :
         {std::pair(1.0, 1.0), std::pair(1.0, -1.0), std::pair(nan, 1.0), std::pair(-1.0, nan),
          std::pair(-infinity, 1.0), std::pair(-1.0, infinity), std::pair(-1.0, 0x1p1001)})
        expectRefused(head(7, lower, upper, 3) + numbers);
    for (const u64 count : {u64{0}, u64{1025}, u64{1} << 60, ~u64{0}})
        expectRefused(head(7, -1, 1, count) + numbers);
    for (const double bad : {nan, infinity, -infinity}) {
        expectRefused(head(7, -1, 1, 2) + Bytes().f64(1).f64(0).f64(bad).f64(0).str());
        expectRefused(head(7, -1, 1, 1) + Bytes().f64(1).f64(bad).str());
    }
}

TEST(ChebyshevSeriesFile, ThatEndsTooEarlyChangesNothing) {
    ChebyshevSeries series({1.0, 2.0}, 3, 4);
    EXPECT_THROW_TEXT(loadFrom(head(7, -1, 1, 1024) + numbers, series), cereal::Exception,
                      shortRead(16384, 48));
    EXPECT_EQ(series.getCoefficients(), (Coefficients{1.0, 2.0}));
    EXPECT_EQ(series.getLowerBound(), 3);
}

TEST(ChebyshevSeriesFile, TakesNoMemoryByAForgedCount) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const std::string file = head(7, -1, 1, u64{1} << 40) + numbers;
    ChebyshevSeries series;
    const AllocationBudget budget(u64{1} << 16);
    EXPECT_REFUSED(loadFrom(file, series), notVerified);
    EXPECT_FALSE(budget.isExceeded());
}

TEST(ChebyshevSeriesFile, OnAFullDiskIsRefused) {
    const ChebyshevSeries series(Coefficients(1024, 0.5));
    EXPECT_THROW(series.save("/dev/full"), std::exception);
}

} // namespace
} // namespace Torvo
