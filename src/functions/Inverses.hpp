#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/FunctionEvaluator.hpp>

#include <string>

namespace Torvo {

/// The highest degree of the polynomial that a function begins with, where its steps could spare it some. A bootstrap
/// leaves 8 or 9 levels to spend on most sets, of which the polynomial with its interval then takes 8 at most.
template <class Value>
u64 highestDegree(const Operations<Value>& operations) {
    return operations.givesLevelsBack() ? 127 : ChebyshevSeries::maxDegree;
}

/// How an inverse or a square root is computed: a polynomial, and steps after it.
struct IterationRoute {
    ChebyshevSeries start;
    u64 steps;
    double startError; ///< what the first step begins with; see there
};

/// For 1/x on [lower, upper]: the polynomial p of degree n - 1 with 1 - x p(x) = T_n(y(x)) / T_n(y(0)), the smallest
/// relative error, and steps that square that error. `highest` is the highest degree.
IterationRoute routeOfInverse(double lower, double upper, double relativeError, u64 highest);
/// For 1/sqrt(x): the polynomial p with the smallest |1 - sqrt(x) p(x)|, and steps e -> e^2 (3 + e) / 4 of
/// e = 1 - x p(x)^2.
IterationRoute routeOfInverseSqrt(double lower, double upper, double relativeError, u64 highest);

/// 1 / x up to a relative error. `function` is whom a refusal names, and who spends `levelsBehind` on the result.
template <class Value>
Value inverseWithin(Evaluating<Value> on, const std::string& function, const Value& in, double lower,
                    double upper, double relativeError, u64 levelsBehind = 0);

} // namespace Torvo
