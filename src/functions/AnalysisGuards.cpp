#include "functions/AnalysisGuards.hpp"

#include "encoding/EncodingBound.hpp"
#include "functions/SeriesEvaluation.hpp"

#include <Torvo/Polynomials.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>

namespace Torvo {

namespace {

struct Rule {
    bool isKept;
    const char* text;
};

Rule ruleOf(Domain domain, double lower, double upper) {
    switch (domain) {
    case Domain::OneSign:
        return {lower > 0 || upper < 0, message::boundsOfOneSign};
    case Domain::Positive:
        return {lower > 0, message::positiveBounds};
    case Domain::FromZero:
        return {lower >= 0, message::boundsFromZero};
    default:
        return {true, message::finiteBounds};
    }
}

bool isPositive(double x) {
    return x > 0 && std::isfinite(x);
}

} // namespace

void requireInterval(const std::string& function, double lower, double upper, Domain domain) {
    const Rule rule = ruleOf(domain, lower, upper);
    if (!(std::isfinite(lower) && std::isfinite(upper) && lower < upper && rule.isKept))
        throw RuntimeException(message::intervalGiven(function, decimal(lower), decimal(upper), rule.text));
}

void requireRatio(const std::string& function, double lower, double upper) {
    const double smaller = std::min(std::abs(lower), std::abs(upper));
    if (std::max(std::abs(lower), std::abs(upper)) > 0x1p32 * smaller)
        throw RuntimeException(
            message::intervalGiven(function, decimal(lower), decimal(upper), message::boundsTooWide));
}

void requireBound(const std::string& function, double bound) {
    if (!isPositive(bound)) throw RuntimeException(message::boundGiven(function, decimal(bound)));
}

void requireErrorOf(const std::string& function, double error) {
    if (!isPositive(error)) throw RuntimeException(message::errorGiven(function, decimal(error)));
}

namespace {

/// What `evaluate` spends.
template <class Value>
u64 levelsOf(const Operations<Value>& operations, const ChebyshevSeries& f) {
    const SeriesTerms terms = termsOf(f);
    return SeriesEvaluation<Value>(operations, {&terms, 1}, intervalOf(f)).levels();
}

} // namespace

template <class Value>
Value evaluateFor(Evaluating<Value> on, const std::string& function, const Value& in,
                  const ChebyshevSeries& f, double resultBound, u64 levelsBehind) {
    const Operations<Value>& operations = on.operations();
    const double bound = std::max(std::abs(f.getLowerBound()), std::abs(f.getUpperBound()));
    Value x = in;
    prepareFor(operations, function,
               levelsOf(operations, f) + (operations.givesLevelsBack() ? 0 : levelsBehind), {bound, true},
               resultBound, {&x});
    evaluate(on, x, f, x);
    return x;
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template Value evaluateFor(Evaluating<Value>, const std::string&, const Value&, const ChebyshevSeries&,  \
                               double, u64)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
