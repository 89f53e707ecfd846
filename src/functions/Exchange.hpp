#pragma once

#include "core/Integers.hpp"
#include "functions/Quad.hpp"

#include <Torvo/ChebyshevSeries.hpp>

#include <functional>
#include <vector>

namespace Torvo {

/// What is to be approximated: f on [lower, upper], by a polynomial of `degree` at most and of the symmetry.
/// An odd one has degree 1 at least, and where there is a symmetry, the lower bound is at least 0.
struct MinimaxProblem {
    std::function<Quad(long double)> f;
    u64 degree;
    long double lower, upper;
    ChebyshevSeries::Symmetry symmetry = ChebyshevSeries::Symmetry::None;
    /// What f rounds by, relative to its largest value: below that errors are noise.
    double noise = 0x1p-48;
};

/// A polynomial with the best largest error, or where `isBest` does not hold, with the best one found. The
/// best error is taken with alternating signs at the `extrema`, one more than the polynomial has terms: to
/// 1e-12 of it or down to the noise, less closely at a corner of f, and where f is rough to 1 %.
struct Minimax {
    std::vector<Quad> coefficients; ///< of T_k on [lower, upper], or on [-upper, upper] with a symmetry
    Quad largest = 0;
    Quad possible = 0; ///< no error is smaller than this
    bool isBest = false;
    std::vector<long double> extrema; ///< ascending
};

/// Far more than a continuous function needs.
inline constexpr int exchangeSteps = 40;

/// The exchange algorithm of Remez, which takes all extrema of the error as the next reference, with the
/// polynomials in the barycentric form of Pachon and Trefethen (BIT 49, 2009). An odd polynomial is x q(x^2)
/// and an even one q(x^2), so with u = x^2 and the weight w = x or 1 all kinds are one: f - w q(u), which has
/// a unique best q where w > 0.
Minimax minimaxOf(const MinimaxProblem& problem);

} // namespace Torvo
