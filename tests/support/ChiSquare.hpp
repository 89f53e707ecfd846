#pragma once

#include <cmath>
#include <vector>

namespace Torvo::test {

/// How many standard deviations the chi-square statistic of `counts`, all equally likely, lies off its mean:
/// with d degrees of freedom mean d and deviation sqrt(2 d).
inline double chiSquareDeviation(const std::vector<double>& counts) {
    double total = 0.0, chiSquare = 0.0;
    for (const double count : counts) total += count;
    const double expected = total / static_cast<double>(counts.size());
    for (const double count : counts) chiSquare += (count - expected) * (count - expected) / expected;
    const double freedom = static_cast<double>(counts.size()) - 1.0;
    return (chiSquare - freedom) / std::sqrt(2.0 * freedom);
}

/// How many standard deviations `hits` out of `trials` of chance `p` lie off their mean.
inline double binomialDeviation(double hits, double trials, double p) {
    return (hits - trials * p) / std::sqrt(trials * p * (1.0 - p));
}

} // namespace Torvo::test
