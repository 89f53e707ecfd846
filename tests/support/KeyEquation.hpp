#pragma once

#include "arithmetic/PrimeModuli.hpp"
#include "arithmetic/Ring.hpp"
#include "support/BigIntegers.hpp"
#include "support/WideArithmetic.hpp"

#include <Torvo/SecretKey.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

/// The equations that public keys obey, looked at on coefficients with plain integers.
namespace Torvo::test {

/// A polynomial with small signed coefficients.
using SmallPolynomial = std::vector<long>;

inline std::vector<u64> wordsOf(const Polynomial& poly, u64 row) {
    return {poly.getRow(row), poly.getRow(row) + poly.getDegree()};
}

/// A row in NTT form, as coefficients.
inline std::vector<u64> coefficientRow(const Context& context, const Polynomial& poly, u64 row) {
    auto words = wordsOf(poly, row);
    ringOf(context).primes[row].getNTT().computeBackward<1>(words.data());
    return words;
}

inline std::vector<u64> residuesOf(const SmallPolynomial& poly, u64 p) {
    std::vector<u64> residues;
    for (const long c : poly) residues.push_back(wordResidueOf(c, p));
    return residues;
}

inline SmallPolynomial coefficientsOf(const SecretKey& key, u64 degree) {
    return {key.getCoefficients(), key.getCoefficients() + degree};
}

inline SmallPolynomial product(const SmallPolynomial& a, const SmallPolynomial& b) {
    const std::size_t n = a.size();
    SmallPolynomial out(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) out[(i + j) % n] += (i + j < n ? 1 : -1) * a[i] * b[j];
    return out;
}

/// a(X^g) modulo X^n + 1: coefficient k goes to k * g modulo 2n, with a change of sign from n on.
inline SmallPolynomial substituted(const SmallPolynomial& a, u64 g) {
    const u64 n = a.size();
    SmallPolynomial out(n);
    for (u64 k = 0; k < n; ++k) {
        const u64 power = k * g % (2 * n);
        out[power % n] = power < n ? a[k] : -a[k];
    }
    return out;
}

/// Row `row` of bx + ax * s, on coefficients.
inline std::vector<u64> decryptedRow(const Context& context, const Polynomial& bx, const Polynomial& ax,
                                     const SmallPolynomial& s, u64 row) {
    const u64 p = ringOf(context).primes.getPrime(row);
    auto sum = coefficientRow(context, bx, row);
    const auto masked = negacyclicProduct(coefficientRow(context, ax, row), residuesOf(s, p), p);
    for (std::size_t k = 0; k < sum.size(); ++k) sum[k] = wideAdd(sum[k], masked[k], p);
    return sum;
}

/// Residues as signed numbers of least absolute value.
inline SmallPolynomial centred(const std::vector<u64>& residues, u64 p) {
    SmallPolynomial out;
    for (const u64 r : residues) out.push_back(r > p / 2 ? -static_cast<long>(p - r) : static_cast<long>(r));
    return out;
}

/// Whether a polynomial can be an error. The sampler's Box-Muller radius is sqrt(-2 ln u) with u >= 2^-32, so
/// a coefficient is at most 3.2 * sqrt(64 ln 2) in absolute value, rounded: 21.
inline void expectIsError(const SmallPolynomial& error) {
    const long bound = std::lround(3.2 * std::sqrt(64 * std::log(2.0)));
    long largest = 0;
    for (const long c : error) largest = std::max(largest, std::labs(c));
    EXPECT_LE(largest, bound);
    EXPECT_GT(largest, 0);
}

} // namespace Torvo::test
