#include "functions/Monomials.hpp"

#include "functions/Messages.hpp"
#include "functions/Quad.hpp"

#include <Torvo/RuntimeException.hpp>

#include <cmath>

namespace Torvo {

namespace {

using Complex = std::complex<double>;
using Quads = std::vector<Quad>;

/// x = middle + half y.
struct Interval {
    Interval(double lower, double upper)
        : middle((Quad(lower) + upper) / 2), half((Quad(upper) - lower) / 2) {}
    Quad middle, half;
};

/// The real or the imaginary parts: every change of basis is real, and so acts on each of them by itself.
Quads partsOf(const std::vector<Complex>& numbers, double (*part)(const Complex&)) {
    Quads parts;
    for (const Complex& number : numbers) parts.push_back(part(number));
    return parts;
}

double realPart(const Complex& number) {
    return number.real();
}

double imaginaryPart(const Complex& number) {
    return number.imag();
}

/// Horner's rule: p = p x + m_k, where y T_k is the mean of T_(k + 1) and T_(k - 1), and y T_0 is T_1.
Quads fromMonomials(const Quads& monomials, const Interval& x) {
    const u64 count = monomials.size();
    Quads p(count + 2), next(count + 2);
    for (u64 i = count; i-- > 0;) {
        const u64 length = count - i;
        for (u64 k = 0; k < length; ++k)
            next[k] = x.middle * p[k] + x.half * ((k == 0   ? Quad(0)
                                                   : k == 1 ? p[0]
                                                            : p[k - 1] / 2) +
                                                  p[k + 1] / 2);
        next[0] += monomials[i];
        std::swap(p, next);
    }
    p.resize(count);
    return p;
}

/// Clenshaw's recurrence on polynomials in x: b_k = c_k + 2 y b_(k + 1) - b_(k + 2) with y = (x - middle) /
/// half, and the sum is c_0 + y b_1 - b_2.
Quads toMonomials(const Quads& c, const Interval& x) {
    const u64 count = c.size();
    Quads b(count), older(count), current(count);
    for (u64 k = count; k-- > 0;) {
        const Quad slope = (k == 0 ? 1 : 2) / x.half;
        for (u64 i = 0; i < count - k; ++i)
            current[i] = slope * ((i == 0 ? Quad(0) : b[i - 1]) - x.middle * b[i]) - older[i];
        current[0] += c[k];
        std::swap(older, b);
        std::swap(b, current);
    }
    return b;
}

/// d_(k - 1) = d_(k + 1) + 2 k c_k, where d_0 is halved at the end.
Quads derivative(const Quads& c, const Interval& x) {
    Quads d(c.size() + 1);
    for (u64 k = c.size(); k-- > 1;) d[k - 1] = d[k + 1] + 2 * static_cast<Quad>(k) * c[k];
    d[0] /= 2;
    for (Quad& number : d) number /= x.half;
    d.resize(c.size() > 1 ? c.size() - 1 : 1);
    return d;
}

} // namespace

ChebyshevSeriesImpl fromMonomials(const std::vector<Complex>& monomials, double lower, double upper) {
    const Interval x(lower, upper);
    return roundedSeries(fromMonomials(partsOf(monomials, realPart), x),
                         fromMonomials(partsOf(monomials, imaginaryPart), x), lower, upper);
}

std::vector<Complex> toMonomials(const ChebyshevSeriesImpl& series) {
    const Interval x(series.lower(), series.upper());
    const Quads real = toMonomials(partsOf(series.coefficients(), realPart), x),
                imaginary = toMonomials(partsOf(series.coefficients(), imaginaryPart), x);
    std::vector<Complex> monomials;
    for (u64 k = 0; k < real.size(); ++k) {
        monomials.emplace_back(static_cast<double>(real[k]), static_cast<double>(imaginary[k]));
        if (!std::isfinite(monomials[k].real()) || !std::isfinite(monomials[k].imag()))
            throw RuntimeException(message::monomialTooLarge(k));
    }
    return monomials;
}

ChebyshevSeriesImpl derivative(const ChebyshevSeriesImpl& series) {
    const Interval x(series.lower(), series.upper());
    return roundedSeries(derivative(partsOf(series.coefficients(), realPart), x),
                         derivative(partsOf(series.coefficients(), imaginaryPart), x), series.lower(),
                         series.upper());
}

} // namespace Torvo
