#include "functions/SeriesStage.hpp"

#include "functions/AnalysisGuards.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plan.hpp>

#include <algorithm>
#include <cmath>
#include <complex>

namespace Torvo {

Range rangeOf(const ChebyshevSeries& f) {
    return {std::max(std::abs(f.getLowerBound()), std::abs(f.getUpperBound())), true};
}

double largestOf(std::span<const ChebyshevSeries> f) {
    double largest = 0;
    for (const ChebyshevSeries& each : f) {
        double sum = 0; // no value exceeds it
        for (const std::complex<double>& c : each.getCoefficients()) sum += std::abs(c);
        largest = std::max(largest, sum <= 1 ? sum : each.largestError([](double) { return 0.0; }));
    }
    return largest * (1 - 0x1p-10);
}

namespace {

template <class Value>
SeriesEvaluation<Value> evaluationOf(const Operations<Value>& operations, const ChebyshevSeries& f) {
    const SeriesTerms terms = termsOf(f);
    return SeriesEvaluation<Value>(operations, {&terms, 1}, intervalOf(f));
}

} // namespace

/// A series may exceed what it approximates. That matters where its values alone would leave the unit square.
template <class Value>
SeriesStage<Value>::SeriesStage(const Operations<Value>& operations, const ChebyshevSeries& f,
                                double resultBound)
    : operations_(operations), evaluation_(evaluationOf(operations, f)), range_(rangeOf(f)),
      resultBound_(resultBound) {
    if (dependsOnResult(operations, range_) && resultBound <= 1) resultBound_ = largestOf({&f, 1});
}

template <class Value>
Value SeriesStage<Value>::evaluate(const std::string& function, const Value& in, u64 levelsBehind) {
    Value x = in;
    prepareFor(operations_, function, levels() + operations_.levelsAtOnce(levelsBehind), range_, resultBound_,
               {&x});
    return std::move(evaluation_.evaluate(x).front());
}

template class SeriesStage<Ciphertext>;
template class SeriesStage<Message>;
template class SeriesStage<PlannedCiphertext>;

} // namespace Torvo
