#pragma once

#include "functions/ChebyshevSeriesImpl.hpp"

#include <complex>
#include <vector>

namespace Torvo {

/// See `ChebyshevSeries::fromMonomials`. There are as many monomials as a series may have coefficients, and
/// the bounds are those of one.
ChebyshevSeriesImpl fromMonomials(const std::vector<std::complex<double>>& monomials, double lower,
                                  double upper);
/// See `ChebyshevSeries::toMonomials`.
std::vector<std::complex<double>> toMonomials(const ChebyshevSeriesImpl& series);

/// See `ChebyshevSeries::derivative`.
ChebyshevSeriesImpl derivative(const ChebyshevSeriesImpl& series);

} // namespace Torvo
