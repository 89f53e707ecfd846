#pragma once

#include "core/Integers.hpp"
#include "functions/Coefficient.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <utility>
#include <vector>

namespace Torvo {

/// What the powers of a polynomial are powers of.
enum class SeriesBasis {
    Chebyshev, ///< T_k(y), y in [-1, 1]
    Monomial,  ///< y^k
};

/// The coefficients of a polynomial in one basis, that of degree 0 first; the last is not 0 unless it is the only one.
class SeriesTerms {
public:
    SeriesTerms(SeriesBasis basis, std::vector<Coefficient> coefficients);

    SeriesBasis basis() const { return basis_; }
    u64 degree() const { return coefficients_.size() - 1; }
    const Coefficient& operator[](u64 k) const { return coefficients_[k]; }
    /// Whether all coefficients of degrees of this parity are 0.
    bool lacks(u64 parity) const;
    /// The terms of even degree 2k as those of degree k, in the power of index 2.
    SeriesTerms inSquares() const;
    /// All of them times a factor, which is not 0.
    SeriesTerms times(double factor) const;
    /// The terms below degree n.
    SeriesTerms below(u64 n) const;
    /// q and r with q * T_m + r, r of a degree below m. m is at least 1 and at most the degree.
    std::pair<SeriesTerms, SeriesTerms> divideByPower(u64 m) const;

private:
    SeriesBasis basis_;
    std::vector<Coefficient> coefficients_;
};

/// Those of a series.
SeriesTerms termsOf(const ChebyshevSeries& f);

} // namespace Torvo
