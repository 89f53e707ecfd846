#include <Torvo/Comparisons.hpp>

#include "encoding/EncodingBound.hpp"
#include "functions/Messages.hpp"
#include "functions/SignEvaluation.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// Guards, and the signs of x - threshold for one threshold or for both ends of an interval.
template <class Value>
class Comparison {
public:
    Comparison(Evaluating<Value> on, std::string what, std::initializer_list<const Value*> operands,
               double bound)
        : operations_(on.operations()), what_(std::move(what)) {
        for (const Value* operand : operands) operations_.requireOperand(*operand);
        requireBoundOfNumbers(what_, bound);
    }

    const Operations<Value>& operations() const { return operations_; }

    /// The sign of numbers like x, with the levels of all stages and `more`.
    SignEvaluation<Value> sign(const Value& x, const Accuracy& accuracy, double bound, u64 more) const {
        SignEvaluation<Value> evaluation(operations_, what_, x, accuracy, bound);
        evaluation.requireLevels(more, x);
        return evaluation;
    }

    /// x times a sign or a step.
    Value product(Value& x, Value& y) const {
        operations_.prepare(what_, 1, {1, true}, {&y});
        Value out = operations_.unset();
        operations_.mult(x, y, out);
        return out;
    }

    Value difference(const Value& a, const Value& b) const {
        Value out = operations_.unset();
        operations_.sub(a, b, out);
        return out;
    }

    /// The larger end of an interval within the bound of the numbers.
    double largerEnd(double lower, double upper, double bound) const {
        const bool isAllowed = -bound <= lower && lower < upper && upper <= bound; // does not hold for NaN
        if (!isAllowed) throw RuntimeException(message::clampInterval(what_, decimal(lower), decimal(upper)));
        return std::max(std::abs(lower), std::abs(upper));
    }

    Value shifted(const Value& x, double c) const {
        Value out = operations_.unset();
        operations_.add(x, c, out);
        return out;
    }

private:
    const Operations<Value>& operations_;
    std::string what_;
};

/// factor * sign(x) + constant
template <class Value>
void affineSign(const Comparison<Value>& comparison, Value x, double bound, const Accuracy& accuracy,
                double factor, double constant, Value& out) {
    const SignEvaluation<Value> sign = comparison.sign(x, accuracy, bound, 0);
    sign.prepare({&x});
    out = comparison.shifted(sign.evaluate(x, factor), constant);
}

/// x (factor * sign(x) + constant)
template <class Value>
void signedMultiple(Evaluating<Value> on, const char* what, const Value& in, double bound,
                    const Accuracy& accuracy, double factor, double constant, Value& out) {
    const Comparison<Value> comparison(on, what, {&in}, bound);
    Value x = in;
    const SignEvaluation<Value> sign = comparison.sign(x, accuracy, bound, 1);
    sign.prepare({&x});
    Value y = comparison.shifted(sign.evaluate(x, factor), constant);
    out = comparison.product(x, y);
}

/// With d = a - b, the larger number is b + d step(d) and the smaller one a - d step(d).
template <class Value>
void extremum(Evaluating<Value> on, const char* what, const Value& a, const Value& b, double bound,
              const Accuracy& accuracy, bool isLargest, Value& out) {
    const Comparison<Value> comparison(on, what, {&a, &b}, bound);
    Value d = comparison.difference(a, b), other = isLargest ? b : a;
    const SignEvaluation<Value> sign = comparison.sign(d, accuracy, 2 * bound, 1);
    sign.prepare({&d, &other});
    Value y = comparison.shifted(sign.evaluate(d, isLargest ? 0.5 : -0.5), isLargest ? 0.5 : -0.5);
    comparison.operations().add(other, comparison.product(d, y), out);
}

/// x less both ends of an interval.
template <class Value>
struct Ends {
    double largest; ///< of their magnitudes
    Value u, v;

    Ends(const Comparison<Value>& comparison, const Value& x, double lower, double upper, double bound)
        : largest(bound + comparison.largerEnd(lower, upper, bound)), u(comparison.shifted(x, -lower)),
          v(comparison.shifted(x, -upper)) {}

    /// Those of u and v, with the levels of all stages and `more`.
    std::vector<Value> halfSigns(const Comparison<Value>& comparison, const Accuracy& accuracy, u64 more) {
        const SignEvaluation<Value> sign = comparison.sign(u, accuracy, largest, more);
        sign.prepare({&u, &v});
        return sign.evaluate({&u, &v}, 0.5);
    }
};

} // namespace

template <class Value>
void sign(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    affineSign<Value>({on, "sign", {&in}, bound}, in, bound, accuracy, 1, 0, out);
}

template <class Value>
void step(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    affineSign<Value>({on, "step", {&in}, bound}, in, bound, accuracy, 0.5, 0.5, out);
}

template <class Value>
void isBelow(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
             const Accuracy& accuracy) {
    const Comparison<Value> comparison(on, "isBelow", {&a, &b}, bound);
    affineSign<Value>(comparison, comparison.difference(b, a), 2 * bound, accuracy, 0.5, 0.5, out);
}

template <class Value>
void max(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
         const Accuracy& accuracy) {
    extremum<Value>(on, "max", a, b, bound, accuracy, true, out);
}

template <class Value>
void min(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
         const Accuracy& accuracy) {
    extremum<Value>(on, "min", a, b, bound, accuracy, false, out);
}

template <class Value>
void abs(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    signedMultiple<Value>(on, "abs", in, bound, accuracy, 1, 0, out);
}

template <class Value>
void relu(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    signedMultiple<Value>(on, "relu", in, bound, accuracy, 0.5, 0.5, out);
}

/// lower + u step(u) - v step(v) with u = x - lower and v = x - upper.
template <class Value>
void clamp(Evaluating<Value> on, const Value& in, double lower, double upper, double bound, Value& out,
           const Accuracy& accuracy) {
    const Comparison<Value> comparison(on, "clamp", {&in}, bound);
    Ends<Value> ends(comparison, in, lower, upper, bound);
    std::vector<Value> signs = ends.halfSigns(comparison, accuracy, 1);
    const Operations<Value>& operations = comparison.operations();
    operations.prepare("clamp", 1, {1, true}, {&signs.front(), &signs.back()});
    Value first = comparison.shifted(signs.front(), 0.5), second = comparison.shifted(signs.back(), 0.5);
    first = comparison.product(ends.u, first);
    second = comparison.product(ends.v, second);
    operations.sub(first, second, first);
    out = comparison.shifted(first, lower);
}

template <class Value>
void isInInterval(Evaluating<Value> on, const Value& in, double lower, double upper, double bound, Value& out,
                  const Accuracy& accuracy) {
    const Comparison<Value> comparison(on, "isInInterval", {&in}, bound);
    const std::vector<Value> signs =
        Ends<Value>(comparison, in, lower, upper, bound).halfSigns(comparison, accuracy, 0);
    comparison.operations().sub(signs.front(), signs.back(), out);
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void sign(Evaluating<Value>, const Value&, double, Value&, const Accuracy&);          \
    template TORVO_API void step(Evaluating<Value>, const Value&, double, Value&, const Accuracy&);          \
    template TORVO_API void isBelow(Evaluating<Value>, const Value&, const Value&, double, Value&,           \
                                    const Accuracy&);                                                        \
    template TORVO_API void max(Evaluating<Value>, const Value&, const Value&, double, Value&,               \
                                const Accuracy&);                                                            \
    template TORVO_API void min(Evaluating<Value>, const Value&, const Value&, double, Value&,               \
                                const Accuracy&);                                                            \
    template TORVO_API void abs(Evaluating<Value>, const Value&, double, Value&, const Accuracy&);           \
    template TORVO_API void relu(Evaluating<Value>, const Value&, double, Value&, const Accuracy&);          \
    template TORVO_API void clamp(Evaluating<Value>, const Value&, double, double, double, Value&,           \
                                  const Accuracy&);                                                          \
    template TORVO_API void isInInterval(Evaluating<Value>, const Value&, double, double, double, Value&,    \
                                         const Accuracy&)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
