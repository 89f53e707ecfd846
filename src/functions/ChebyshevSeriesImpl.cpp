#include "functions/ChebyshevSeriesImpl.hpp"

#include "encoding/EncodingBound.hpp"
#include "functions/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"
#include "persistence/Verifier.hpp"

#include <Torvo/RuntimeException.hpp>

#include <cmath>

namespace Torvo {

namespace {

using Complex = std::complex<double>;

bool isFinite(Complex number) {
    return std::isfinite(number.real()) && std::isfinite(number.imag());
}

bool isCount(u64 count) {
    return 0 < count && count <= limit::coefficients;
}

bool isInterval(double lower, double upper) {
    return -limit::intervalBound <= lower && lower < upper && upper <= limit::intervalBound;
}

/// The sum of c_k T_k(y): b_k = c_k + 2 y b_(k + 1) - b_(k + 2), and c_0 + y b_1 - b_2 is the sum.
template <class Number>
Complex clenshaw(const std::vector<Complex>& c, Number y) {
    const Number twice = y + y;
    Complex next = 0, afterNext = 0;
    for (u64 k = c.size(); k-- > 1;) {
        const Complex current = c[k] + next * twice - afterNext;
        afterNext = next;
        next = current;
    }
    return c[0] + next * y - afterNext;
}

} // namespace

void requireInterval(double lower, double upper) {
    if (!isInterval(lower, upper))
        throw RuntimeException(
            message::seriesInterval(decimal(lower), decimal(upper), message::boundsInOrder));
}

void requireDegree(u64 degree) {
    if (degree >= limit::coefficients) throw RuntimeException(message::seriesDegree(degree));
}

std::string decimalOf(Complex number) {
    if (number.imag() == 0) return decimal(number.real());
    std::string pair(1, '('); // of a text in front g++ 12 takes the sum for an overlapping copy
    return pair.append(decimal(number.real())).append(", ").append(decimal(number.imag())).append(")");
}

ChebyshevSeriesImpl::ChebyshevSeriesImpl(std::vector<Complex> coefficients, double lower, double upper)
    : coefficients_(std::move(coefficients)), lower_(lower), upper_(upper) {
    if (!isCount(coefficients_.size())) throw RuntimeException(message::seriesOfCount(coefficients_.size()));
    for (u64 k = 0; k < coefficients_.size(); ++k)
        if (!isFinite(coefficients_[k]))
            throw RuntimeException(message::seriesCoefficient(k, decimalOf(coefficients_[k])));
    requireInterval(lower, upper);
}

u64 ChebyshevSeriesImpl::degree() const {
    u64 k = coefficients_.size() - 1;
    while (k > 0 && coefficients_[k] == Complex(0)) --k;
    return k;
}

bool ChebyshevSeriesImpl::lacksTerms(u64 remainder) const {
    bool lacks = lower_ == -upper_;
    for (u64 k = remainder; k < coefficients_.size(); k += 2) lacks = lacks && coefficients_[k] == Complex(0);
    return lacks;
}

bool ChebyshevSeriesImpl::isReal() const {
    return std::all_of(coefficients_.begin(), coefficients_.end(), [](Complex c) { return c.imag() == 0; });
}

Complex ChebyshevSeriesImpl::evaluate(Complex x) const {
    // In doubles the sum of the bounds, and its difference to 2x, could round by more than the interval.
    const Quad sum = Quad(lower_) + upper_, length = Quad(upper_) - lower_;
    const auto y = static_cast<double>((2 * Quad(x.real()) - sum) / length);
    if (x.imag() == 0) return clenshaw(coefficients_, y);
    return clenshaw(coefficients_, Complex(y, static_cast<double>(2 * Quad(x.imag()) / length)));
}

void ChebyshevSeriesImpl::save(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::ChebyshevSeries);
    archive(lower_, upper_, static_cast<u64>(coefficients_.size()));
    archive.saveBinary<sizeof(double)>(coefficients_.data(),
                                       static_cast<std::streamsize>(coefficients_.size() * sizeof(Complex)));
}

void ChebyshevSeriesImpl::load(InputArchive& archive) {
    verifyTag(archive, ObjectTag::ChebyshevSeries);
    double lower = 0, upper = 0;
    u64 count = 0;
    archive(lower, upper, count);
    verify(isInterval(lower, upper) && isCount(count));
    std::vector<Complex> coefficients;
    detail::readPieces<Complex, double>(archive, count, [&](u64 size) {
        coefficients.resize(size);
        return coefficients.data();
    });
    verify(std::all_of(coefficients.begin(), coefficients.end(), isFinite));
    *this = ChebyshevSeriesImpl(std::move(coefficients), lower, upper);
}

} // namespace Torvo
