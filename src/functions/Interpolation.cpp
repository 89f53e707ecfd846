#include "functions/Interpolation.hpp"

#include "functions/ChebyshevNodes.hpp"
#include "functions/Extremum.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Torvo {

namespace {

/// The point of [lower, upper] for y in [-1, 1].
double pointOf(long double y, double lower, double upper) {
    const long double x = ((1 - y) * lower + (1 + y) * upper) / 2;
    return std::clamp(static_cast<double>(x), lower, upper);
}

/// `count` + 1 points from end to end, closer towards the ends, where the peaks of errors are closer too.
std::vector<double> gridOf(u64 count, double lower, double upper) {
    std::vector<double> points(count + 1);
    for (u64 i = 0; i <= count; ++i)
        points[i] = pointOf(-std::cos(std::numbers::pi_v<long double> * static_cast<long double>(i) /
                                      static_cast<long double>(count)),
                            lower, upper);
    points.erase(std::unique(points.begin(), points.end()), points.end());
    return points;
}

} // namespace

ChebyshevSeriesImpl interpolation(const ComplexFunction& f, u64 degree, double lower, double upper) {
    const ChebyshevNodes<long double> nodes(degree + 1);
    std::vector<long double> real, imaginary, realParts, imaginaryParts;
    for (u64 j = 0; j <= degree; ++j) {
        const std::complex<double> value = f(pointOf(nodes.node(j), lower, upper));
        real.push_back(value.real());
        imaginary.push_back(value.imag());
    }
    const bool isReal = std::all_of(imaginary.begin(), imaginary.end(), [](long double b) { return b == 0; });
    for (u64 k = 0; k <= degree; ++k) {
        realParts.push_back(nodes.coefficient(real, k));
        if (!isReal) imaginaryParts.push_back(nodes.coefficient(imaginary, k));
    }
    return roundedSeries(realParts, imaginaryParts, lower, upper);
}

double largestError(const ChebyshevSeriesImpl& series, const ComplexFunction& f, double lower, double upper) {
    const auto errorAt = [&](double x) { return std::abs(f(x) - series.evaluate(x)); };
    const std::vector<double> points =
        gridOf(std::max<u64>(1024, 16 * series.coefficients().size()), lower, upper);
    std::vector<double> errors(points.size());
    std::transform(points.begin(), points.end(), errors.begin(), errorAt);
    double largest = *std::max_element(errors.begin(), errors.end());
    // Between 16 points a wave, the one closest to a peak comes within 2 % of it.
    const double worthClimbing = 0.9 * largest;
    for (u64 i = 1; i + 1 < points.size(); ++i)
        if (errors[i] >= worthClimbing && errors[i] >= errors[i - 1] && errors[i] >= errors[i + 1])
            largest = std::max(largest, climb<double>(errorAt, {points[i - 1], errors[i - 1]},
                                                      {points[i], errors[i]}, {points[i + 1], errors[i + 1]})
                                            .second);
    return largest;
}

} // namespace Torvo
