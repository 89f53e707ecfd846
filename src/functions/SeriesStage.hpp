#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"
#include "functions/SeriesEvaluation.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <span>
#include <string>

namespace Torvo {

/// What numbers of the interval are to one who bootstraps them.
Range rangeOf(const ChebyshevSeries& f);
/// The largest value on the interval, or a bound of it up to 1; less what an approximation of a function up to 1 may
/// exceed that by.
double largestOf(std::span<const ChebyshevSeries> f);

/// A series as a stage of a function of real numbers: made ready once, for its levels and for all of its values.
template <class Value>
class SeriesStage {
public:
    /// Keeps a reference to the operations. `resultBound` is what the function that `f` stands for does not exceed.
    SeriesStage(const Operations<Value>& operations, const ChebyshevSeries& f, double resultBound);

    u64 levels() const { return evaluation_.levels(); }
    /// f(in), for `function`, which spends `levelsBehind` on the result. Where no levels are given back on the way, a
    /// refusal names those of both together.
    Value evaluate(const std::string& function, const Value& in, u64 levelsBehind = 0);

private:
    const Operations<Value>& operations_;
    SeriesEvaluation<Value> evaluation_;
    Range range_;
    double resultBound_;
};

} // namespace Torvo
