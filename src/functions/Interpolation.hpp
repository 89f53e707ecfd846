#pragma once

#include "core/Integers.hpp"
#include "functions/ChebyshevSeriesImpl.hpp"
#include "functions/SampledFunction.hpp"

namespace Torvo {

/// See `ChebyshevSeries::interpolate`. The degree and the bounds are those of a series.
ChebyshevSeriesImpl interpolation(const ComplexFunction& f, u64 degree, double lower, double upper);

/// See `ChebyshevSeries::largestError`. The bounds are an interval.
double largestError(const ChebyshevSeriesImpl& series, const ComplexFunction& f, double lower, double upper);

} // namespace Torvo
