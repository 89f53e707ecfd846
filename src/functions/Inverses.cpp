#include "functions/Inverses.hpp"

#include "core/Failure.hpp"
#include "functions/AnalysisGuards.hpp"

#include <Torvo/Analysis.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// A value on the way, and what its numbers do not exceed.
template <class Value>
struct Bounded {
    Value value;
    double bound;
};

/// Products of real numbers, each of whose operands gets its level where it runs out.
template <class Value>
class Steps {
public:
    Steps(const Operations<Value>& operations, std::string function)
        : operations_(operations), function_(std::move(function)) {}

    /// a b, which does not exceed `bound`.
    Bounded<Value> product(Bounded<Value>& a, Bounded<Value>& b, double bound) const {
        prepareFor(operations_, function_, 1, {a.bound, true}, bound, {&a.value});
        prepareFor(operations_, function_, 1, {b.bound, true}, bound, {&b.value});
        Value out = operations_.unset();
        operations_.mult(a.value, b.value, out);
        return {std::move(out), bound};
    }
    /// n x + c, which does not exceed `bound`.
    Bounded<Value> affine(const Bounded<Value>& x, long n, double c, double bound) const {
        Value out = operations_.unset();
        operations_.multInteger(x.value, n, out);
        operations_.add(out, c, out);
        return {std::move(out), bound};
    }

private:
    const Operations<Value>& operations_;
    std::string function_;
};

} // namespace

// ---- 1/x

template <class Value>
InverseStage<Value>::InverseStage(const Operations<Value>& operations, double lower, double upper,
                                  double relativeError)
    : InverseStage(operations, routeOfInverse(lower, upper, relativeError, highestDegree(operations)),
                   std::min(std::abs(lower), std::abs(upper)), std::max(std::abs(lower), std::abs(upper))) {}

template <class Value>
InverseStage<Value>::InverseStage(const Operations<Value>& operations, const IterationRoute& route,
                                  double smallest, double largest)
    : operations_(operations), steps_(route.steps), argumentBound_(largest),
      bound_((1 + route.startError) / smallest), start_(operations, route.start, bound_) {}

/// From y with e = 1 - x y: y (1 + e) errs by e^2, and so on. (Goldschmidt, Applications of Division by Convergence,
/// 1964.)
template <class Value>
Value InverseStage<Value>::evaluate(const std::string& function, const Value& in) {
    Bounded<Value> y{start_.evaluate(function, in, levelsOfSteps()), bound_};
    if (steps_ == 0) return std::move(y.value);
    const Steps<Value> steps(operations_, function);
    Bounded<Value> x{in, argumentBound_};
    // The numbers between 0 and 2 are 1 + e, so that e keeps a level for them.
    Bounded<Value> e = steps.affine(steps.product(x, y, 2), -1, 1, 1);
    for (u64 k = 0; k < steps_; ++k) {
        if (k > 0) e = steps.product(e, e, 2);
        e.bound = 1;
        Bounded<Value> factor = steps.affine(e, 1, 1, 2);
        y = steps.product(y, factor, bound_);
    }
    return std::move(y.value);
}

// ---- square roots

namespace {

double rootOf(double x, Root root) {
    return root == Root::Plain ? std::sqrt(x) : 1 / std::sqrt(x);
}

/// Whether a series up to degree `highest` comes within `error`. It surely does where the rate suffices by which the
/// coefficients fall because of the singularity at 0: their sizes sum up to what the function has at an end, and those
/// from degree d on to that times rate^d; an interpolation errs by twice that. Otherwise some are tried.
bool hasSeries(double lower, double upper, double error, Root root, u64 highest) {
    if (lower > 0) {
        const double ratio = std::sqrt(upper / lower), rate = (ratio - 1) / (ratio + 1);
        const double size = 2 * std::max(rootOf(lower, root), rootOf(upper, root));
        if (std::log(error / size) / std::log(rate) < static_cast<double>(highest)) return true;
    } else if (root == Root::Inverse) {
        return false;
    }
    const auto f = [root](double x) { return rootOf(x, root); };
    for (u64 degree = 63; degree <= highest; degree = 2 * degree + 1)
        if (ChebyshevSeries::interpolate(f, degree, lower, upper).largestError(f) <= error) return true;
    return false;
}

/// Half of a polynomial for 1 / sqrt(x).
ChebyshevSeries halfOf(const ChebyshevSeries& f) {
    std::vector<std::complex<double>> halves = f.getCoefficients();
    for (std::complex<double>& c : halves) c /= 2;
    return ChebyshevSeries(std::move(halves), f.getLowerBound(), f.getUpperBound());
}

} // namespace

template <class Value>
typename RootStage<Value>::Route RootStage<Value>::routeOf(const Operations<Value>& operations,
                                                           const std::string& function, double lower,
                                                           double upper, double error, Root root) {
    const u64 highest = highestDegree(operations);
    if (hasSeries(lower, upper, error, root, highest)) {
        const auto f = [root](double x) { return rootOf(x, root); };
        return {ChebyshevSeries::interpolateWithin(f, error, lower, upper),
                std::max(f(upper), lower > 0 ? f(lower) : 0), true, 0};
    }
    // Below error^2 each step brings a plain root closer to the root from below, so that it errs by less than `error`.
    const bool isPlain = root == Root::Plain;
    const double least = isPlain ? std::max(lower, error * error) : lower;
    requireRatio(function, least, upper);
    const IterationRoute route = routeOfInverseSqrt(
        least, upper, isPlain ? error / std::sqrt(upper) : error * std::sqrt(lower), highest);
    // From 0 on the numbers may lie below `least`, where the polynomial is still smaller than twice 1/sqrt(least).
    return {halfOf(route.start), 1 / std::sqrt(least), false, route.steps};
}

template <class Value>
RootStage<Value>::RootStage(const Operations<Value>& operations, const std::string& function, double lower,
                            double upper, double error, Root root)
    : RootStage(operations, routeOf(operations, function, lower, upper, error, root), upper, root) {}

template <class Value>
RootStage<Value>::RootStage(const Operations<Value>& operations, const Route& route, double upper, Root root)
    : operations_(operations), root_(root), isRootItself_(route.isRootItself), steps_(route.steps),
      upper_(upper), startBound_(route.startBound), start_(operations, route.start, route.startBound) {}

template <class Value>
u64 RootStage<Value>::levelsOfSteps() const {
    if (isRootItself_) return 0;
    if (steps_ == 0) return root_ == Root::Plain ? 1 : 0;
    return 2 * steps_ + 1;
}

/// With h = p(x) / 2 and u = 1/4 - x h^2 = e / 4, the factor 1 + e / 2 is 1 + 2u, and the next u is u^2 (3 + 4u). The
/// first factor takes with it the 2 that h lacks.
template <class Value>
Value RootStage<Value>::evaluate(const std::string& function, const Value& in) {
    Bounded<Value> h{start_.evaluate(function, in, levelsOfSteps()), startBound_};
    if (isRootItself_) return std::move(h.value);
    const double result = root_ == Root::Plain ? std::sqrt(upper_) : startBound_;
    const Steps<Value> steps(operations_, function);
    if (levelsOfSteps() == 0) return std::move(steps.affine(h, 2, 0, 2 * startBound_).value);
    Bounded<Value> x{in, upper_};
    Bounded<Value> xh = steps.product(x, h, std::sqrt(upper_));
    Bounded<Value> y = root_ == Root::Plain ? xh : h;
    if (steps_ == 0) return std::move(steps.affine(y, 2, 0, 2 * result).value);
    // Of u, which is at most a quarter, numbers up to 4 are made without a level.
    Bounded<Value> u = steps.affine(steps.product(xh, h, 4), -1, 0.25, 1);
    for (u64 k = 0; k < steps_; ++k) {
        if (k > 0) {
            Bounded<Value> rest = steps.affine(u, 4, 3, 4), square = steps.product(u, u, 1);
            u = steps.product(square, rest, 4);
            u.bound = 1;
        }
        Bounded<Value> factor = steps.affine(u, k == 0 ? 4 : 2, k == 0 ? 2 : 1, 4);
        y = steps.product(y, factor, 1.5 * result);
    }
    return std::move(y.value);
}

namespace {

template <class Value>
void rootWithin(Evaluating<Value> on, const std::string& function, const Value& in, double lower,
                double upper, double error, Value& out, Root root) {
    requireInterval(function, lower, upper, root == Root::Plain ? Domain::FromZero : Domain::Positive);
    requireErrorOf(function, error);
    on.operations().requireOperand(in);
    out = RootStage<Value>(on.operations(), function, lower, upper, error, root).evaluate(function, in);
}

} // namespace

template <class Value>
void inverse(Evaluating<Value> on, const Value& in, double lower, double upper, double error, Value& out) {
    const std::string function = "inverse";
    requireInterval(function, lower, upper, Domain::OneSign);
    requireErrorOf(function, error);
    requireRatio(function, lower, upper);
    on.operations().requireOperand(in);
    const double relativeError = error * std::min(std::abs(lower), std::abs(upper));
    out = InverseStage<Value>(on.operations(), lower, upper, relativeError).evaluate(function, in);
}

template <class Value>
void sqrt(Evaluating<Value> on, const Value& in, double lower, double upper, double error, Value& out) {
    rootWithin(on, "sqrt", in, lower, upper, error, out, Root::Plain);
}

template <class Value>
void inverseSqrt(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                 Value& out) {
    rootWithin(on, "inverseSqrt", in, lower, upper, error, out, Root::Inverse);
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template class InverseStage<Value>;                                                                      \
    template class RootStage<Value>;                                                                         \
    template TORVO_API void inverse(Evaluating<Value>, const Value&, double, double, double, Value&);        \
    template TORVO_API void sqrt(Evaluating<Value>, const Value&, double, double, double, Value&);           \
    template TORVO_API void inverseSqrt(Evaluating<Value>, const Value&, double, double, double, Value&)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
