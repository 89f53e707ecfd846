#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <complex>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace Torvo {

class ChebyshevSeries;
class ChebyshevSeriesImpl;
class Message;

/// A polynomial f on an interval [a, b], as the sum of c_k T_k(y) over k, where T_k is the Chebyshev
/// polynomial of degree k and y = (2x - (a + b)) / (b - a). The coefficient c_0 counts whole. On the interval
/// each T_k(y) lies in [-1, 1], so the coefficients of a smooth function become small quickly, and to round
/// one by r changes f by no more than r.
///
/// A series needs no context. f(s x + t) as a function of x has the same coefficients, for s > 0 on the
/// interval from (a - t) / s to (b - t) / s.
///
/// There are 1 to 1024 coefficients, all finite, and the bounds are finite, of magnitude 2^1000 at most, the
/// lower one first. Everything that makes a series holds it to that, in this order:
/// - "[ChebyshevSeries] The number of coefficients is ", the number, "; give 1 to 1024 of them, that of T_0
///   first";
/// - "[ChebyshevSeries] The coefficient of T_", its number, " is ", the coefficient, "; give finite numbers";
/// - "[ChebyshevSeries] The interval is from ", the one bound, " to ", the other one, "; give the lower bound
///   first, and both of magnitude 2^1000 at most".
///
/// Copies copy the coefficients. One thread may write, or many read. A function of the caller is called from
/// the calling thread alone, as often as its values are needed; what it throws passes through.
class TORVO_API ChebyshevSeries {
public:
    /// A function that is interpolated, or compared with a series.
    using Function = std::function<std::complex<double>(double)>;
    /// A real function. One that computes in doubles serves as well.
    using RealFunction = std::function<long double(long double)>;
    /// Which terms a series is made of: all, those of even or those of odd number. The others are exactly 0.
    enum class Symmetry { None, Even, Odd };

    static constexpr unsigned long maxDegree = 1023;

    /// 0 on [-1, 1]: for a later load.
    ChebyshevSeries();
    /// @param coefficients  c_0, c_1 and so on
    /// @throws RuntimeException as above
    explicit ChebyshevSeries(std::vector<std::complex<double>> coefficients, double lower = -1,
                             double upper = 1);

    /// The polynomial of `degree` that has the values of `f` at the zeros of T_(degree + 1)(y). For a smooth
    /// f its largest error exceeds that of the best one by a small factor, which grows with the logarithm of
    /// the degree.
    /// @throws RuntimeException "[ChebyshevSeries] No function is given; give one that can be called";
    ///         "[ChebyshevSeries] The degree is ", the degree, "; give 1023 at most"; the text of bounds that
    ///         are refused; "[ChebyshevSeries] The function is ", its value, " at ", the place, "; give an
    ///         interval on which it is finite"
    static ChebyshevSeries interpolate(const Function& f, unsigned long degree, double lower = -1,
                                       double upper = 1);
    /// The interpolation whose `largestError(f)` is at most `error`, where that of one degree less is larger.
    /// @throws RuntimeException as `interpolate`; "[ChebyshevSeries] The error wanted is ", the number, ";
    ///         give a positive one", behind the text of no function; "[ChebyshevSeries] The error wanted is
    ///         ", the number, ", and degrees up to 1023 come down to ", the smallest one found, " only; allow
    ///         a larger error, or give a shorter interval or a smoother function"
    static ChebyshevSeries interpolateWithin(const Function& f, double error, double lower = -1,
                                             double upper = 1);

    /// The polynomial of `degree` with the smallest largest error on [lower, upper], for a continuous f; by
    /// the exchange algorithm in 113 bits, after which the coefficients are rounded. For `Symmetry::Even` and
    /// `Symmetry::Odd` it is the best of those of that symmetry, the lower bound is at least 0, and the
    /// series is one on [-upper, upper]: for sign(x) give f = 1, the bounds 2^-8 and 1, and `Odd`. An odd one
    /// is 0 at 0, so with a lower bound of 0 f(0) has to be 0 too. Extrema of the error are looked for at 16
    /// points for every coefficient, so f should not swing faster. The time grows with the square of the
    /// degree: milliseconds for 63, seconds for 1023.
    /// @throws RuntimeException as `interpolate`, and behind that for the bounds "[ChebyshevSeries] The
    ///         interval is from ", the one bound, " to ", the other one, "; give a lower bound of 0 or more
    ///         for an even or odd series"; "[ChebyshevSeries] The exchange algorithm does not converge for
    ///         degree ", the degree, ": after ", their number, " steps the largest error is ", that error, "
    ///         where ", another, " should be possible; give a smoother function or a lower degree, or
    ///         interpolate"
    static ChebyshevSeries minimax(const RealFunction& f, unsigned long degree, double lower = -1,
                                   double upper = 1, Symmetry symmetry = Symmetry::None);
    /// That of the lowest degree whose error is at most `error`. In the error the rounding of the
    /// coefficients counts.
    /// @throws RuntimeException as `minimax`, and those of `interpolateWithin` for the error
    static ChebyshevSeries minimaxWithin(const RealFunction& f, double error, double lower = -1,
                                         double upper = 1, Symmetry symmetry = Symmetry::None);

    /// The series of a polynomial in x, given by the coefficients of 1, x, x^2 and so on; each c_k is rounded
    /// once.
    /// @throws RuntimeException as above
    static ChebyshevSeries fromMonomials(const std::vector<std::complex<double>>& monomials,
                                         double lower = -1, double upper = 1);
    /// The coefficients of 1, x, x^2 and so on, as many as the series has; each is rounded once. For degrees
    /// above 30 they may be so much larger than f that no sum of doubles gives f again.
    /// @throws RuntimeException "[ChebyshevSeries] The coefficient of x^", the exponent, " is larger than any
    ///         double; evaluate the series as it is"
    std::vector<std::complex<double>> toMonomials() const;

    /// As they were given, zeros at the end too.
    const std::vector<std::complex<double>>& getCoefficients() const;
    double getLowerBound() const;
    double getUpperBound() const;
    /// The number of the highest coefficient that is not 0; 0 if there is none.
    unsigned long getDegree() const;
    /// Whether all coefficients of odd number are exactly 0, and the bounds each other's negatives.
    bool isEven() const;
    /// The same with even and odd exchanged. The series 0 is both.
    bool isOdd() const;
    /// Whether all coefficients are real.
    bool isReal() const;

    /// f(x), by Clenshaw's recurrence, in doubles. Outside the interval f grows as a polynomial does.
    std::complex<double> evaluate(std::complex<double> x) const;
    /// f of every slot, as many as the message has.
    Message evaluate(const Message& message) const;

    /// The largest |f(x) - (this series at x)| on the interval: of at least 1024 points and 16 for every
    /// coefficient, and around the largest of these of the points between. A peak of f that is narrower than
    /// the distance of two points can be missed.
    /// @throws RuntimeException the texts of `interpolate` for f, none or not finite
    double largestError(const Function& f) const;
    /// The same on another interval, such as the part of this one on which the series is meant to approximate
    /// f.
    /// @throws RuntimeException the same, and the text of bounds that are refused
    double largestError(const Function& f, double lower, double upper) const;

    /// f'(x).
    /// @throws RuntimeException the text of coefficients, where one is larger than any double
    ChebyshevSeries derivative() const;

    ChebyshevSeries(const ChebyshevSeries& other);
    ChebyshevSeries(ChebyshevSeries&& other) noexcept;
    ChebyshevSeries& operator=(const ChebyshevSeries& other);
    ChebyshevSeries& operator=(ChebyshevSeries&& other) noexcept;
    ~ChebyshevSeries();

    /// Writes bounds and coefficients (format: docs/files.md).
    /// @throws RuntimeException as `Message::save`
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes.
    unsigned long savedSize() const;
    /// Replaces the series by the saved one. Where the load fails, nothing has changed.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects." for a file of another kind, and for numbers that no series has; the
    ///         archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

    ChebyshevSeriesImpl& impl() { return *impl_; }
    const ChebyshevSeriesImpl& impl() const { return *impl_; }

private:
    Pointer<ChebyshevSeriesImpl> impl_;
};

} // namespace Torvo
