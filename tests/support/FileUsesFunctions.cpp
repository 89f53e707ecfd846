// What functions of encrypted numbers are made of.

#include "support/FileUses.hpp"

#include <cmath>

namespace Torvo::test::uses {

void chebyshevSeries(const std::string& file) {
    ChebyshevSeries series;
    load(file, series);
    const double lower = series.getLowerBound(), upper = series.getUpperBound();
    if (!(lower < upper) || !std::isfinite(upper - lower)) throw Finding{"a series without an interval"};
    if (series.getCoefficients().empty() || series.getDegree() > ChebyshevSeries::maxDegree)
        throw Finding{"a series of no coefficients, or of too many"};
    attempt([&] { series.evaluate(archives::message(2)); });
    attempt([&] { series.toMonomials(); });
    attempt([&] { series.derivative(); });
    attempt([&] { ChebyshevSeries(series.getCoefficients(), lower, upper); });
    if (series.isEven() && series.isOdd() && series.evaluate(upper) != std::complex<double>(0))
        throw Finding{"a series other than 0 that is even and odd"};
    expectLoadsAgain(series, ChebyshevSeries());
}

} // namespace Torvo::test::uses
