#pragma once

#include "core/Integers.hpp"
#include "functions/Quad.hpp"
#include "persistence/ArchiveForward.hpp"

#include <algorithm>
#include <complex>
#include <string>
#include <utility>
#include <vector>

namespace Torvo {

/// The numbers of a series. They hold to what the public header says of them.
class ChebyshevSeriesImpl {
public:
    using Complex = std::complex<double>;

    /// @throws RuntimeException unless the numbers are those of a series
    ChebyshevSeriesImpl(std::vector<Complex> coefficients, double lower, double upper);

    const std::vector<Complex>& coefficients() const { return coefficients_; }
    double lower() const { return lower_; }
    double upper() const { return upper_; }
    u64 degree() const;
    /// Whether the terms whose number is `remainder` modulo 2 are all 0, on an interval around 0.
    bool lacksTerms(u64 remainder) const;
    bool isReal() const;
    Complex evaluate(Complex x) const;

    /// Tag, bounds, coefficients (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Where the load fails, nothing has changed.
    void load(InputArchive& archive);

private:
    std::vector<Complex> coefficients_;
    double lower_, upper_;
};

/// @throws RuntimeException unless these can be the bounds of a series
void requireInterval(double lower, double upper);
/// @throws RuntimeException for a degree that no series has
void requireDegree(u64 degree);
/// "NaN" and "inf" as they are, a real number without its imaginary part.
std::string decimalOf(std::complex<double> number);

/// The series whose coefficients have these real and imaginary parts. Where one of them ends early, the rest
/// is 0.
template <class Real>
ChebyshevSeriesImpl roundedSeries(const std::vector<Real>& real, const std::vector<Real>& imaginary,
                                  double lower, double upper) {
    std::vector<std::complex<double>> rounded(std::max(real.size(), imaginary.size()));
    for (u64 k = 0; k < rounded.size(); ++k)
        rounded[k] = {k < real.size() ? static_cast<double>(real[k]) : 0.0,
                      k < imaginary.size() ? static_cast<double>(imaginary[k]) : 0.0};
    return {std::move(rounded), lower, upper};
}

} // namespace Torvo
