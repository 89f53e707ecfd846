#pragma once

#include "core/Integers.hpp"
#include "functions/Quad.hpp"

#include <vector>

namespace Torvo {

/// The zeros of T_n, and the interpolation at them.
template <class Real>
class ChebyshevNodes {
public:
    /// @param n  at least 1
    explicit ChebyshevNodes(u64 n) : n_(n) {
        for (u64 i = 0; i <= n; ++i) quarter_.push_back(cosine(i));
    }

    /// Zero number j < n: cos(pi (2j + 1) / (2n)), from the largest down.
    Real node(u64 j) const { return cosineOf(2 * j + 1); }

    /// The coefficient of T_k, k < n, in the polynomial of degree below n that has the value values[j] at
    /// zero j: (2 / n) sum over j of values[j] cos(pi k (2j + 1) / (2n)), and half of that for k = 0.
    Real coefficient(const std::vector<Real>& values, u64 k) const {
        Real sum = 0;
        for (u64 j = 0; j < n_; ++j) sum += values[j] * cosineOf(k * (2 * j + 1));
        return (k == 0 ? 1 : 2) * sum / static_cast<Real>(n_);
    }

private:
    /// cos(pi i / (2n)) for i <= n, by Taylor's series around the closer end of the quarter turn. There all
    /// terms behind x^28 are below 2^-117.
    Real cosine(u64 i) const {
        const bool isSine = 2 * i > n_;
        const Real x = pi<Real>() * static_cast<Real>(isSine ? n_ - i : i) / static_cast<Real>(2 * n_);
        Real term = isSine ? x : 1, sum = term;
        for (int k = isSine ? 2 : 1; k < 30; k += 2) {
            term *= -x * x / static_cast<Real>(k * (k + 1));
            sum += term;
        }
        return sum;
    }

    /// cos(pi m / (2n)) for any m.
    Real cosineOf(u64 m) const {
        m %= 4 * n_;
        if (m > 2 * n_) m = 4 * n_ - m;
        return m > n_ ? -quarter_[2 * n_ - m] : quarter_[m];
    }

    u64 n_;
    std::vector<Real> quarter_;
};

} // namespace Torvo
