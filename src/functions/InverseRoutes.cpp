#include "functions/Inverses.hpp"

#include "functions/SeriesSplit.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// acosh(1 + x), also for small x.
long double arcosh1p(long double x) {
    return std::log1p(x + std::sqrt(x * (2 + x)));
}

u64 productsOf(u64 degree) {
    return degree == 0 ? 0 : SeriesSplit({degree}, SeriesSplit::Terms::All).cost().relinearizations;
}

struct DegreeAndSteps {
    u64 degree, steps;
};

/// The first of those with the fewest products. A single one needs no split to be searched for.
DegreeAndSteps ofFewestProducts(const std::vector<DegreeAndSteps>& candidates) {
    if (candidates.size() == 1) return candidates.front();
    std::vector<u64> products;
    products.reserve(candidates.size());
    for (const DegreeAndSteps& each : candidates)
        products.push_back(productsOf(each.degree) + 2 * each.steps);
    return candidates[static_cast<u64>(std::ranges::min_element(products) - products.begin())];
}

/// T_n(y) / T_n(c), for |y| <= 1 or y = c, and |c| > 1.
struct ChebyshevQuotient {
    u64 n;
    long double arcosh; ///< of |c|
    bool isNegative;    ///< c

    long double operator()(long double y) const {
        const auto order = static_cast<long double>(n);
        const long double value = std::cos(order * std::acos(std::clamp<long double>(y, -1, 1)));
        return (isNegative && n % 2 == 1 ? -value : value) / std::cosh(order * arcosh);
    }
};

struct Costs {
    u64 levels, products;
    auto operator<=>(const Costs&) const = default;
};

} // namespace

// ---- 1/x

IterationRoute routeOfInverse(double lower, double upper, double relativeError, u64 highest) {
    const auto smallest = static_cast<long double>(std::min(std::abs(lower), std::abs(upper)));
    const long double width = static_cast<long double>(upper) - lower;
    const long double arcosh = arcosh1p(2 * smallest / width);
    // An error that is too small to be a number is one that no number of steps reaches.
    const long double logError =
        -std::log(std::clamp(relativeError, std::numeric_limits<double>::min(), 0.5));
    u64 fewest = std::numeric_limits<u64>::max(), degree = highest;
    std::vector<DegreeAndSteps> candidates; // of the fewest levels
    for (u64 steps = 0; degree > 1; ++steps) {
        const long double ratio =
            std::expm1(logError * std::exp2(-static_cast<long double>(steps))); // 1 / error - 1
        const long double n = std::ceil(arcosh1p(ratio) / arcosh);
        if (n - 1 > static_cast<long double>(highest)) continue;
        degree = std::max<u64>(static_cast<u64>(n), 2) - 1;
        const u64 levels = seriesDepth(degree) + (steps == 0 ? 0 : steps + 1);
        if (levels > fewest) continue;
        if (levels < fewest) candidates.clear();
        fewest = levels;
        candidates.push_back({degree, steps});
    }
    const auto [bestDegree, bestSteps] = ofFewestProducts(candidates);
    const ChebyshevQuotient quotient{bestDegree + 1, arcosh, lower > 0};
    const auto start = [&](double x) {
        const long double y = (2 * static_cast<long double>(x) - lower - upper) / width;
        return std::complex<double>(static_cast<double>((1 - quotient(y)) / static_cast<long double>(x)));
    };
    const long double error = 1 / std::cosh(static_cast<long double>(quotient.n) * arcosh);
    return {ChebyshevSeries::interpolate(start, bestDegree, lower, upper), bestSteps,
            static_cast<double>(error)};
}

// ---- 1/sqrt(x)

namespace {

/// The largest |e| after a step, where it was at most q < 1: e^2 (3 + e) / 4.
double afterStep(double q) {
    return q * q * (3 + q) / 4;
}

/// The steps after which the relative error, 1 - sqrt(1 - q) <= q, is small enough; none where a step gains nothing.
std::optional<u64> stepsFrom(double q, double relativeError) {
    u64 steps = 0;
    for (; q > relativeError; ++steps) {
        const double next = afterStep(q);
        if (!(next < q)) return std::nullopt;
        q = next;
    }
    return steps;
}

/// sqrt(x) p(x) is an odd polynomial in t = sqrt(x / upper) that approximates 1: a best approximation of the sign.
ChebyshevSeries signOfRoot(double lower, double upper, u64 degree) {
    return ChebyshevSeries::minimax([](long double) { return 1.0L; }, 2 * degree + 1,
                                    std::sqrt(lower / upper), 1, ChebyshevSeries::Symmetry::Odd);
}

} // namespace

IterationRoute routeOfInverseSqrt(double lower, double upper, double relativeError, u64 highest) {
    Costs best{std::numeric_limits<u64>::max(), 0};
    std::optional<IterationRoute> route;
    // Of those that spend as many levels, the highest degree makes the smallest error.
    for (u64 degree = 1; degree <= std::min<u64>(highest, 255); degree = 2 * degree + 1) {
        const ChebyshevSeries sign = signOfRoot(lower, upper, degree);
        const double error = sign.largestError([](double) { return 1.0; }, std::sqrt(lower / upper), 1);
        // sqrt(x) p(x) lies within 1 - error and 1 + error; divided by `middle`, its square lies around 1.
        const double middle = std::sqrt(1 + error * error), q = 2 * error / (1 + error * error);
        const std::optional<u64> steps = stepsFrom(q, relativeError);
        if (!steps) continue;
        const Costs costs{seriesDepth(degree) + (*steps == 0 ? 0 : 2 * *steps + 1),
                          productsOf(degree) + 3 * *steps};
        if (!(costs < best)) continue;
        best = costs;
        const auto start = [&](double x) {
            return sign.evaluate(std::sqrt(x / upper)) / (middle * std::sqrt(x));
        };
        route = IterationRoute{ChebyshevSeries::interpolate(start, degree, lower, upper), *steps, q};
    }
    return std::move(route).value();
}

} // namespace Torvo
