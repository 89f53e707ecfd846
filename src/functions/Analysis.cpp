#include <Torvo/Analysis.hpp>

#include "functions/AnalysisGuards.hpp"
#include "functions/Inverses.hpp"
#include "functions/SeriesStage.hpp"
#include "functions/SlotSums.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// The terms of one parity of a series on an interval around 0: what is left of the others is rounding. The even or odd
/// part of what the series errs by is no larger than that.
ChebyshevSeries termsOfParity(const ChebyshevSeries& f, u64 parity) {
    std::vector<std::complex<double>> c = f.getCoefficients();
    for (u64 k = 1 - parity; k < c.size(); k += 2) c[k] = 0;
    return ChebyshevSeries(std::move(c), f.getLowerBound(), f.getUpperBound());
}

/// An even or odd function on [-bound, bound].
template <class Value, class Function>
void evaluateSymmetric(Evaluating<Value> on, const std::string& name, const Value& in, double bound,
                       double error, Function f, u64 parity, Value& out) {
    requireBound(name, bound);
    requireErrorOf(name, error);
    on.operations().requireOperand(in);
    const ChebyshevSeries series = ChebyshevSeries::interpolateWithin(f, error, -bound, bound);
    out = SeriesStage<Value>(on.operations(), termsOfParity(series, parity), std::abs(f(bound)))
              .evaluate(name, in);
}

template <class Value, class Function>
void evaluateOn(Evaluating<Value> on, const std::string& name, const Value& in, double lower, double upper,
                Domain domain, double error, Function f, Value& out) {
    requireInterval(name, lower, upper, domain);
    requireErrorOf(name, error);
    on.operations().requireOperand(in);
    const double largest = std::max(std::abs(f(lower)), std::abs(f(upper)));
    out = SeriesStage<Value>(on.operations(), ChebyshevSeries::interpolateWithin(f, error, lower, upper),
                             largest)
              .evaluate(name, in);
}

} // namespace

template <class Value>
void exp(Evaluating<Value> on, const Value& in, double lower, double upper, double error, Value& out) {
    evaluateOn(
        on, "exp", in, lower, upper, Domain::All, error, [](double x) { return std::exp(x); }, out);
}

template <class Value>
void log(Evaluating<Value> on, const Value& in, double lower, double upper, double error, Value& out) {
    evaluateOn(
        on, "log", in, lower, upper, Domain::Positive, error, [](double x) { return std::log(x); }, out);
}

template <class Value>
void sigmoid(Evaluating<Value> on, const Value& in, double bound, double error, Value& out) {
    Value odd = on.operations().unset();
    evaluateSymmetric(
        on, "sigmoid", in, bound, error, [](double x) { return std::tanh(x / 2) / 2; }, 1, odd);
    on.operations().add(odd, 0.5, odd);
    out = std::move(odd);
}

template <class Value>
void tanh(Evaluating<Value> on, const Value& in, double bound, double error, Value& out) {
    evaluateSymmetric(
        on, "tanh", in, bound, error, [](double x) { return std::tanh(x); }, 1, out);
}

/// x / 2 + an even function.
template <class Value>
void gelu(Evaluating<Value> on, const Value& in, double bound, double error, Value& out) {
    const Operations<Value>& operations = on.operations();
    Value even = operations.unset();
    evaluateSymmetric(
        on, "gelu", in, bound, error, [](double x) { return x * std::erf(x / std::numbers::sqrt2) / 2; }, 0,
        even);
    Value half = in;
    operations.prepare("gelu", 1, {bound, true}, {&half});
    operations.mult(half, 0.5, half);
    operations.add(even, half, even);
    out = std::move(even);
}

template <class Value>
void sin(Evaluating<Value> on, const Value& in, double bound, double error, Value& out) {
    evaluateSymmetric(
        on, "sin", in, bound, error, [](double x) { return std::sin(x); }, 1, out);
}

template <class Value>
void cos(Evaluating<Value> on, const Value& in, double bound, double error, Value& out) {
    evaluateSymmetric(
        on, "cos", in, bound, error, [](double x) { return std::cos(x); }, 0, out);
}

/// With E = e^(x - bound), the sums lie between n e^(-2 bound) and n. Where each E errs by d, a quotient errs by at
/// most 2 d e^(2 bound): d / S itself, and n d / S through the sum.
template <class Value>
void softmax(Evaluating<Value> on, const Value& in, double bound, double error, Value& out,
             unsigned long length) {
    const std::string name = "softmax";
    const Operations<Value>& operations = on.operations();
    requireBound(name, bound);
    requireErrorOf(name, error);
    operations.requireOperand(in);
    const SlotSums<Value> sums(operations, name, length, operations.logSlots(in));
    const double smallest = std::exp(-2 * bound);
    const auto power = [bound](double x) { return std::exp(x - bound); };
    SeriesStage<Value> exponential(
        operations, ChebyshevSeries::interpolateWithin(power, error / 4 * smallest, -bound, bound), 1);
    const auto n = static_cast<double>(sums.length());
    // Sums that err by a hundredth leave the interval no more than this.
    InverseStage<Value> inverse(operations, 0.99 * n * smallest, 1.01 * n, error / 4);
    operations.requireAtOnce(name, exponential.levels() + sums.levels(1) + inverse.levels() + 1, in);
    operations.requireRotations(sums.rotations());
    Value powers = exponential.evaluate(name, in), sum = powers;
    prepareFor(operations, name, sums.levels(1), {1, true}, n, {&sum});
    sums.sum(sum);
    Value quotient = inverse.evaluate(name, sum);
    prepareFor(operations, name, 1, {1, true}, 1, {&powers});
    prepareFor(operations, name, 1, {1.02 / (n * smallest), true}, 1, {&quotient});
    operations.mult(powers, quotient, powers);
    out = std::move(powers);
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void exp(Evaluating<Value>, const Value&, double, double, double, Value&);            \
    template TORVO_API void log(Evaluating<Value>, const Value&, double, double, double, Value&);            \
    template TORVO_API void sigmoid(Evaluating<Value>, const Value&, double, double, Value&);                \
    template TORVO_API void tanh(Evaluating<Value>, const Value&, double, double, Value&);                   \
    template TORVO_API void gelu(Evaluating<Value>, const Value&, double, double, Value&);                   \
    template TORVO_API void sin(Evaluating<Value>, const Value&, double, double, Value&);                    \
    template TORVO_API void cos(Evaluating<Value>, const Value&, double, double, Value&);                    \
    template TORVO_API void softmax(Evaluating<Value>, const Value&, double, double, Value&, unsigned long)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
