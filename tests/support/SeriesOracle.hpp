#pragma once

#include "core/Integers.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <cmath>
#include <complex>
#include <vector>

/// Chebyshev series by their definition, in numbers of 64 bits.
namespace Torvo::test {

using LongComplex = std::complex<long double>;

/// Where x lies when the interval is stretched to [-1, 1].
inline long double stretched(long double x, long double lower, long double upper) {
    return (2 * x - (lower + upper)) / (upper - lower);
}

/// T_k(y) for y in [-1, 1].
inline long double chebyshev(u64 k, long double y) {
    return std::cos(static_cast<long double>(k) * std::acos(y));
}

/// The series at a place of its interval.
inline LongComplex valueOf(const ChebyshevSeries& series, long double x) {
    const long double y = stretched(x, series.getLowerBound(), series.getUpperBound());
    LongComplex sum = 0;
    for (u64 k = 0; k < series.getCoefficients().size(); ++k)
        sum += LongComplex(series.getCoefficients()[k]) * chebyshev(k, y);
    return sum;
}

/// `count` + 1 points from end to end.
inline std::vector<long double> evenly(u64 count, long double lower, long double upper) {
    std::vector<long double> points;
    for (u64 i = 0; i <= count; ++i)
        points.push_back(lower +
                         (upper - lower) * static_cast<long double>(i) / static_cast<long double>(count));
    return points;
}

inline double sumOfMagnitudes(const ChebyshevSeries& series) {
    double sum = 0;
    for (const auto& c : series.getCoefficients()) sum += std::abs(c);
    return sum;
}

} // namespace Torvo::test
