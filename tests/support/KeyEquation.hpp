#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/WideArithmetic.hpp"

#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SecretKey.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <vector>

/// The equations that public keys obey, checked on coefficients with plain integers.
namespace Torvo::test {

/// A polynomial with small signed coefficients.
using SmallPolynomial = std::vector<long>;

inline std::vector<u64> wordsOf(const Polynomial& poly, u64 row) {
    return {poly.getRow(row), poly.getRow(row) + poly.getDegree()};
}

/// A row in NTT form, as coefficients.
inline std::vector<u64> coefficientRow(const Context& context, const Polynomial& poly, u64 row) {
    auto words = wordsOf(poly, row);
    context->primes[row].getNTT().computeBackward<1>(words.data());
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

/// Row `row` of bx + ax * s, on coefficients, summed in integers: words below 2^61, at most 2^20 of them and
/// a secret with |s| < 2^40 stay below 2^121.
inline std::vector<u64> decryptedRow(const Context& context, const Polynomial& bx, const Polynomial& ax,
                                     const SmallPolynomial& s, u64 row) {
    const auto masked = coefficientRow(context, ax, row), rest = coefficientRow(context, bx, row);
    const std::size_t n = rest.size();
    std::vector<i128> sum(rest.begin(), rest.end());
    for (std::size_t j = 0; j < n; ++j) {
        if (s[j] == 0) continue;
        for (std::size_t i = 0; i < n - j; ++i) sum[i + j] += i128{s[j]} * masked[i];
        for (std::size_t i = n - j; i < n; ++i) sum[i + j - n] -= i128{s[j]} * masked[i];
    }
    const i128 p = context->primes.getPrime(row);
    std::vector<u64> residues;
    for (const i128 x : sum) residues.push_back(static_cast<u64>((x % p + p) % p));
    return residues;
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

/// P * hatQ_j modulo prime `row`: the gadget element of digit j, which is 0 on the rows outside the digit.
inline u64 gadgetResidue(const Context& context, u64 j, u64 row) {
    const auto primes = getPrimeList(context);
    const Ring ring = ringOf(context);
    const u64 numBase = ring.numBase, size = numBase / ring.gadget_rank;
    const BigInt P = productOf(slice(primes, numBase, primes.size()));
    const BigInt hatQ =
        productOf(slice(primes, 0, numBase)) / productOf(slice(primes, j * size, (j + 1) * size));
    return wordResidueOf(P * hatQ, primes[row]);
}

/// The error of digit j on a row: bx_j + ax_j * s - P * hatQ_j * sFrom.
inline SmallPolynomial errorOfDigit(const Context& context, const Polynomial& bx, const Polynomial& ax,
                                    const SmallPolynomial& s, const SmallPolynomial& sFrom, u64 j, u64 row) {
    const u64 p = getPrimeList(context)[row];
    auto error = decryptedRow(context, bx, ax, s, row);
    const auto source = residuesOf(sFrom, p);
    const u64 gadget = gadgetResidue(context, j, row);
    for (u64 k = 0; k < error.size(); ++k) error[k] = wideSub(error[k], wideMul(gadget, source[k], p), p);
    return centred(error, p);
}

/// bx_j + ax_j * s - P * hatQ_j * sFrom is one small error on all rows, a fresh one for each digit.
inline void expectSwitches(const Context& context, const Polynomial* bx, const Polynomial* ax,
                           const SmallPolynomial& s, const SmallPolynomial& sFrom) {
    std::set<SmallPolynomial> errors;
    for (u64 j = 0; j < ringOf(context).gadget_rank; ++j) {
        const SmallPolynomial error = errorOfDigit(context, bx[j], ax[j], s, sFrom, j, 0);
        expectIsError(error);
        for (u64 row = 1; row < getPrimeList(context).size(); ++row)
            EXPECT_EQ(errorOfDigit(context, bx[j], ax[j], s, sFrom, j, row), error)
                << "digit " << j << " row " << row;
        errors.insert(error);
    }
    EXPECT_EQ(errors.size(), ringOf(context).gadget_rank);
}

inline void expectSwitches(const Context& context, const EvaluationKey& key, const SmallPolynomial& s,
                           const SmallPolynomial& sFrom) {
    expectSwitches(context, key.getBxIter(Device{}), key.getAxIter(Device{}), s, sFrom);
}

} // namespace Torvo::test
