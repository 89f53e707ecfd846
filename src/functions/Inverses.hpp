#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"
#include "functions/SeriesStage.hpp"

#include <Torvo/ChebyshevSeries.hpp>

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

/// 1 / x up to a relative error, as a stage of a function: its route is chosen once, for its levels and all of its values.
template <class Value>
class InverseStage {
public:
    /// For numbers from `lower` to `upper`, of one sign. Keeps a reference to the operations.
    InverseStage(const Operations<Value>& operations, double lower, double upper, double relativeError);

    /// Of the polynomial and the steps.
    u64 levels() const { return start_.levels() + levelsOfSteps(); }
    /// `function` is whom a refusal names.
    Value evaluate(const std::string& function, const Value& in);

private:
    InverseStage(const Operations<Value>& operations, const IterationRoute& route, double smallest,
                 double largest);
    u64 levelsOfSteps() const { return steps_ == 0 ? 0 : steps_ + 1; }

    const Operations<Value>& operations_;
    u64 steps_;
    double argumentBound_, bound_;
    SeriesStage<Value> start_;
};

enum class Root { Plain, Inverse };

/// sqrt(x) or 1 / sqrt(x) in the same way, up to an absolute error: a series where one comes down to it.
template <class Value>
class RootStage {
public:
    /// For numbers from `lower` to `upper`, which are positive, but for a plain root from 0 on. Keeps a reference to the
    /// operations.
    /// @throws RuntimeException of `requireRatio`, where there have to be steps
    RootStage(const Operations<Value>& operations, const std::string& function, double lower, double upper,
              double error, Root root);

    u64 levels() const { return start_.levels() + levelsOfSteps(); }
    Value evaluate(const std::string& function, const Value& in);

private:
    /// What begins it, the root itself or the half of an inverse one, and what it doesn't exceed.
    struct Route {
        ChebyshevSeries start;
        double startBound;
        bool isRootItself;
        u64 steps;
    };
    static Route routeOf(const Operations<Value>& operations, const std::string& function, double lower,
                         double upper, double error, Root root);
    RootStage(const Operations<Value>& operations, const Route& route, double upper, Root root);
    u64 levelsOfSteps() const;

    const Operations<Value>& operations_;
    Root root_;
    bool isRootItself_;
    u64 steps_;
    double upper_, startBound_;
    SeriesStage<Value> start_;
};

} // namespace Torvo
