#include <Torvo/ChebyshevSeries.hpp>

#include "core/Failure.hpp"
#include "encoding/EncodingBound.hpp"
#include "functions/ChebyshevSeriesImpl.hpp"
#include "functions/Exchange.hpp"
#include "functions/Interpolation.hpp"
#include "functions/Messages.hpp"
#include "functions/Monomials.hpp"
#include "functions/SampledFunction.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <Torvo/Message.hpp>
#include <Torvo/RuntimeException.hpp>

#include <cmath>
#include <limits>
#include <optional>

namespace Torvo {

namespace {

using Complex = std::complex<double>;

ChebyshevSeries seriesOf(const ChebyshevSeriesImpl& impl) {
    return ChebyshevSeries(impl.coefficients(), impl.lower(), impl.upper());
}

void requireBoundsOf(ChebyshevSeries::Symmetry symmetry, double lower, double upper) {
    requireInterval(lower, upper);
    if (symmetry != ChebyshevSeries::Symmetry::None && lower < 0)
        throw RuntimeException(
            message::seriesInterval(decimal(lower), decimal(upper), message::boundsOfSymmetry));
}

void requireError(double error) {
    if (!(error > 0)) throw RuntimeException(message::errorWanted(decimal(error), message::errorNotPositive));
}

/// A series and its largest error.
struct Approximation {
    ChebyshevSeriesImpl series;
    double error;
};

/// The approximation of the lowest degree, from `lowest` on, whose error is at most `error`: `ofDegree` is
/// tried for degrees that double, and then halfway between the last that failed and the first that did not.
template <class OfDegree>
ChebyshevSeries lowestWithin(double error, u64 lowest, OfDegree&& ofDegree) {
    double best = std::numeric_limits<double>::infinity();
    const auto succeeded = [&](u64 degree) -> std::optional<ChebyshevSeriesImpl> {
        Approximation found = ofDegree(degree);
        best = std::min(best, found.error);
        if (found.error <= error) return std::move(found.series);
        return std::nullopt;
    };
    u64 failed = lowest, degree = lowest;
    auto series = succeeded(degree);
    for (; !series; series = succeeded(degree)) {
        failed = degree;
        if (degree == ChebyshevSeries::maxDegree)
            throw RuntimeException(
                message::errorWanted(decimal(error), message::errorNotReached(decimal(best))));
        degree = std::min(2 * degree + 1, ChebyshevSeries::maxDegree);
    }
    while (failed + 1 < degree) {
        const u64 middle = failed + (degree - failed) / 2;
        auto halfway = succeeded(middle);
        (halfway ? degree : failed) = middle;
        if (halfway) series = std::move(halfway);
    }
    return seriesOf(*series);
}

Minimax bestOf(const LongFunction& f, u64 degree, double lower, double upper,
               ChebyshevSeries::Symmetry symmetry) {
    return minimaxOf({[&](long double x) { return Quad(f(x)); }, degree, lower, upper, symmetry});
}

ChebyshevSeriesImpl seriesOf(const Minimax& best, double lower, double upper,
                             ChebyshevSeries::Symmetry symmetry) {
    const bool isAround0 = symmetry != ChebyshevSeries::Symmetry::None;
    return roundedSeries(best.coefficients, {}, isAround0 ? -upper : lower, upper);
}

/// With what the rounding of the coefficients may add.
double errorOf(const Minimax& best) {
    Quad error = best.largest;
    for (const Quad& c : best.coefficients)
        error += magnitude(c) * std::numeric_limits<double>::epsilon() / 2;
    return static_cast<double>(error);
}

} // namespace

ChebyshevSeries::ChebyshevSeries() : ChebyshevSeries({Complex(0)}) {}

ChebyshevSeries::ChebyshevSeries(std::vector<Complex> coefficients, double lower, double upper)
    : impl_(new ChebyshevSeriesImpl(std::move(coefficients), lower, upper)) {}

ChebyshevSeries::ChebyshevSeries(const ChebyshevSeries& other) = default;
ChebyshevSeries::ChebyshevSeries(ChebyshevSeries&& other) noexcept = default;
ChebyshevSeries& ChebyshevSeries::operator=(const ChebyshevSeries& other) = default;
ChebyshevSeries& ChebyshevSeries::operator=(ChebyshevSeries&& other) noexcept = default;
ChebyshevSeries::~ChebyshevSeries() = default;

ChebyshevSeries ChebyshevSeries::interpolate(const Function& f, unsigned long degree, double lower,
                                             double upper) {
    const ComplexFunction sampled(f);
    requireDegree(degree);
    requireInterval(lower, upper);
    return seriesOf(interpolation(sampled, degree, lower, upper));
}

ChebyshevSeries ChebyshevSeries::interpolateWithin(const Function& f, double error, double lower,
                                                   double upper) {
    const ComplexFunction sampled(f);
    requireError(error);
    requireInterval(lower, upper);
    return lowestWithin(error, 0, [&](u64 degree) -> Approximation {
        ChebyshevSeriesImpl series = interpolation(sampled, degree, lower, upper);
        const double found = Torvo::largestError(series, sampled, lower, upper);
        return {std::move(series), found};
    });
}

ChebyshevSeries ChebyshevSeries::minimax(const RealFunction& f, unsigned long degree, double lower,
                                         double upper, Symmetry symmetry) {
    const LongFunction sampled(f);
    requireDegree(degree);
    requireBoundsOf(symmetry, lower, upper);
    if (symmetry == Symmetry::Odd && degree == 0) return ChebyshevSeries({Complex(0)}, -upper, upper);
    const Minimax best = bestOf(sampled, degree, lower, upper, symmetry);
    if (!best.isBest)
        throw RuntimeException(message::exchangeDiverges(degree, exchangeSteps,
                                                         decimal(static_cast<double>(best.largest)),
                                                         decimal(static_cast<double>(best.possible))));
    return seriesOf(seriesOf(best, lower, upper, symmetry));
}

ChebyshevSeries ChebyshevSeries::minimaxWithin(const RealFunction& f, double error, double lower,
                                               double upper, Symmetry symmetry) {
    const LongFunction sampled(f);
    requireError(error);
    requireBoundsOf(symmetry, lower, upper);
    return lowestWithin(error, symmetry == Symmetry::Odd ? 1 : 0, [&](u64 degree) -> Approximation {
        const Minimax best = bestOf(sampled, degree, lower, upper, symmetry);
        return {seriesOf(best, lower, upper, symmetry), errorOf(best)};
    });
}

ChebyshevSeries ChebyshevSeries::fromMonomials(const std::vector<Complex>& monomials, double lower,
                                               double upper) {
    // What a series cannot have, its monomials cannot have either.
    return seriesOf(
        Torvo::fromMonomials(ChebyshevSeriesImpl(monomials, lower, upper).coefficients(), lower, upper));
}

std::vector<Complex> ChebyshevSeries::toMonomials() const {
    return Torvo::toMonomials(*impl_);
}

const std::vector<Complex>& ChebyshevSeries::getCoefficients() const {
    return impl_->coefficients();
}

double ChebyshevSeries::getLowerBound() const {
    return impl_->lower();
}

double ChebyshevSeries::getUpperBound() const {
    return impl_->upper();
}

unsigned long ChebyshevSeries::getDegree() const {
    return impl_->degree();
}

bool ChebyshevSeries::isEven() const {
    return impl_->lacksTerms(1);
}

bool ChebyshevSeries::isOdd() const {
    return impl_->lacksTerms(0);
}

bool ChebyshevSeries::isReal() const {
    return impl_->isReal();
}

Complex ChebyshevSeries::evaluate(Complex x) const {
    return impl_->evaluate(x);
}

Message ChebyshevSeries::evaluate(const Message& message) const {
    Message result(message);
    for (Complex& slot : result) slot = impl_->evaluate(slot);
    return result;
}

double ChebyshevSeries::largestError(const Function& f) const {
    return largestError(f, getLowerBound(), getUpperBound());
}

double ChebyshevSeries::largestError(const Function& f, double lower, double upper) const {
    const ComplexFunction sampled(f);
    requireInterval(lower, upper);
    return Torvo::largestError(*impl_, sampled, lower, upper);
}

ChebyshevSeries ChebyshevSeries::derivative() const {
    return seriesOf(Torvo::derivative(*impl_));
}

void ChebyshevSeries::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void ChebyshevSeries::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long ChebyshevSeries::savedSize() const {
    return detail::savedSize(*this);
}

void ChebyshevSeries::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void ChebyshevSeries::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo
