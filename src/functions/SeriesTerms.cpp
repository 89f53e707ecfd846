#include "functions/SeriesTerms.hpp"

#include <algorithm>

namespace Torvo {

SeriesTerms::SeriesTerms(SeriesBasis basis, std::vector<Coefficient> coefficients)
    : basis_(basis), coefficients_(std::move(coefficients)) {
    while (coefficients_.size() > 1 && coefficients_.back().isZero()) coefficients_.pop_back();
    if (coefficients_.empty()) coefficients_.emplace_back();
}

bool SeriesTerms::lacks(u64 parity) const {
    for (u64 k = parity; k < coefficients_.size(); k += 2)
        if (!coefficients_[k].isZero()) return false;
    return true;
}

SeriesTerms SeriesTerms::inSquares() const {
    std::vector<Coefficient> halved;
    for (u64 k = 0; k < coefficients_.size(); k += 2) halved.push_back(coefficients_[k]);
    return {basis_, std::move(halved)};
}

SeriesTerms SeriesTerms::times(double factor) const {
    std::vector<Coefficient> products;
    for (const Coefficient& c : coefficients_) products.push_back(c.times(factor));
    return {basis_, std::move(products)};
}

SeriesTerms SeriesTerms::below(u64 n) const {
    return {basis_, {coefficients_.begin(), coefficients_.begin() + static_cast<std::ptrdiff_t>(n)}};
}

SeriesTerms termsOf(const ChebyshevSeries& f) {
    const std::vector<std::complex<double>>& c = f.getCoefficients();
    return {SeriesBasis::Chebyshev, {c.begin(), c.end()}};
}

/// From the highest degree down, with T_(k-m) T_m = (T_k + T_|k-2m|) / 2 in the Chebyshev basis.
std::pair<SeriesTerms, SeriesTerms> SeriesTerms::divideByPower(u64 m) const {
    std::vector<Coefficient> rest = coefficients_, quotient(rest.size() - m);
    for (u64 k = degree(); k >= m; --k) {
        const bool isDoubled = basis_ == SeriesBasis::Chebyshev && k > m;
        quotient[k - m] = isDoubled ? rest[k].times(2) : rest[k];
        if (isDoubled) {
            const u64 mirrored = k > 2 * m ? k - 2 * m : 2 * m - k;
            const Coefficient taken = rest[k];
            rest[mirrored].subtract(taken, 1);
        }
    }
    rest.resize(m);
    return {SeriesTerms(basis_, std::move(quotient)), SeriesTerms(basis_, std::move(rest))};
}

} // namespace Torvo
