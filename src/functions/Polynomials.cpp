#include <Torvo/Polynomials.hpp>

#include "core/Failure.hpp"
#include "encoding/EncodingBound.hpp"
#include "functions/AnalysisGuards.hpp"
#include "functions/Messages.hpp"
#include "functions/SeriesEvaluation.hpp"
#include "functions/SeriesStage.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <string>
#include <utility>

namespace Torvo {

namespace {

std::string intervalText(const ChebyshevSeries& f) {
    return decimal(f.getLowerBound()) + " to " + decimal(f.getUpperBound());
}

void requireOneInterval(const std::vector<ChebyshevSeries>& f) {
    require(!f.empty(), message::noSeries);
    for (u64 k = 1; k < f.size(); ++k)
        if (f[k].getLowerBound() != f[0].getLowerBound() || f[k].getUpperBound() != f[0].getUpperBound())
            throw RuntimeException(message::differentIntervals(k, intervalText(f[k]), intervalText(f[0])));
}

/// `resultBound()` is what results don't exceed; one who bootstraps them asks for it.
template <class Value, class ResultBound>
std::vector<Value> evaluateTerms(Evaluating<Value> on, const Value& in, std::span<const SeriesTerms> terms,
                                 const IntervalMap& interval, const Range& range, ResultBound resultBound) {
    const Operations<Value>& operations = on.operations();
    operations.requireOperand(in);
    SeriesEvaluation<Value> evaluation(operations, terms, interval);
    const u64 degree = std::ranges::max(terms, {}, &SeriesTerms::degree).degree();
    Value x = in;
    prepareFor(operations, message::evaluateOfDegree + std::to_string(degree), evaluation.levels(), range,
               dependsOnResult(operations, range) ? resultBound() : 0, {&x});
    return evaluation.evaluate(x);
}

} // namespace

template <class Value>
void evaluate(Evaluating<Value> on, const Value& in, const ChebyshevSeries& f, Value& out) {
    const SeriesTerms terms = termsOf(f);
    out = std::move(evaluateTerms<Value>(on, in, {&terms, 1}, intervalOf(f), rangeOf(f), [&] {
                        return largestOf({&f, 1});
                    }).front());
}

template <class Value>
void evaluate(Evaluating<Value> on, const Value& in, const std::vector<ChebyshevSeries>& f,
              std::vector<Value>& outs) {
    requireOneInterval(f);
    std::vector<SeriesTerms> terms;
    terms.reserve(f.size());
    for (const ChebyshevSeries& each : f) terms.push_back(termsOf(each));
    outs = evaluateTerms<Value>(on, in, terms, intervalOf(f[0]), rangeOf(f[0]), [&] { return largestOf(f); });
}

template <class Value>
void evaluateBlockwise(Evaluating<Value> on, const Value& in, const std::vector<ChebyshevSeries>& f,
                       Value& out) {
    requireOneInterval(f);
    on.operations().requireOperand(in);
    const u64 slots = u64{1} << on.operations().logSlots(in);
    if (slots % f.size() != 0) throw RuntimeException(message::unequalBlocks(f.size(), slots));
    const u64 length = slots / f.size();
    const u64 degree = std::ranges::max(f, {}, &ChebyshevSeries::getDegree).getDegree();
    std::vector<Coefficient> coefficients;
    for (u64 k = 0; k <= degree; ++k) {
        std::vector<std::complex<double>> numbers(slots);
        for (u64 i = 0; i < slots; ++i) {
            const auto& c = f[i / length].getCoefficients();
            numbers[i] = k < c.size() ? c[k] : 0;
        }
        coefficients.emplace_back(std::move(numbers));
    }
    const SeriesTerms terms(SeriesBasis::Chebyshev, std::move(coefficients));
    out = std::move(evaluateTerms<Value>(on, in, {&terms, 1}, intervalOf(f[0]), rangeOf(f[0]), [&] {
                        return largestOf(f);
                    }).front());
}

template <class Value>
void evaluateMonomials(Evaluating<Value> on, const Value& in,
                       const std::vector<std::complex<double>>& coefficients, Value& out, double bound) {
    const ChebyshevSeries checked(coefficients); // numbers that a series may have
    const SeriesTerms terms(SeriesBasis::Monomial, {coefficients.begin(), coefficients.end()});
    const auto resultBound = [&] {
        double sum = 0, power = 1;
        for (const std::complex<double>& c : coefficients) {
            sum += std::abs(c) * power;
            power *= std::numbers::sqrt2 * bound;
        }
        return sum;
    };
    out = std::move(evaluateTerms<Value>(on, in, {&terms, 1}, {}, {bound, false}, resultBound).front());
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void evaluate(Evaluating<Value>, const Value&, const ChebyshevSeries&, Value&);       \
    template TORVO_API void evaluate(Evaluating<Value>, const Value&, const std::vector<ChebyshevSeries>&,   \
                                     std::vector<Value>&);                                                   \
    template TORVO_API void evaluateBlockwise(Evaluating<Value>, const Value&,                               \
                                              const std::vector<ChebyshevSeries>&, Value&);                  \
    template TORVO_API void evaluateMonomials(Evaluating<Value>, const Value&,                               \
                                              const std::vector<std::complex<double>>&, Value&, double)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
