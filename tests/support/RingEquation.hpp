#pragma once

#include "arithmetic/elements/PolynomialVector.hpp"
#include "support/KeyEquation.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Plaintext.hpp>
#include <Torvo/SecretKey.hpp>

#include <gtest/gtest.h>

/// The parts of ciphertexts, on coefficients with plain integers.
namespace Torvo::test {

/// Row `row` of a polynomial in either form, as coefficients.
inline std::vector<u64> coefficientsOfRow(const Context& context, const Polynomial& poly, u64 row) {
    return poly.isNTT() ? coefficientRow(context, poly, row) : wordsOf(poly, row);
}

inline void addTo(std::vector<u64>& sum, const std::vector<u64>& term, u64 p) {
    for (std::size_t k = 0; k < sum.size(); ++k) sum[k] = wideAdd(sum[k], term[k], p);
}

template <EncryptionType E>
std::vector<u64> secretRow(const Context& context, const SecretKeyBase<E>& secretKey, u64 index, u64 p) {
    const int* coefficients = secretKey.getCoefficients() + index * getDegree(context);
    return residuesOf({coefficients, coefficients + getDegree(context)}, p);
}

/// Row `row` of the polynomial under a ciphertext: ct[0] + ct[1] * s + ct[2] * s^2 + ... for RLWE, and
/// ct[0] + sum of ct[i] * s[i-1] for MLWE; on coefficients, term by term.
template <EncryptionType E>
std::vector<u64> rowUnder(const Context& context, const CiphertextBase<E>& ct,
                          const SecretKeyBase<E>& secretKey, u64 row) {
    const u64 p = getPrimeList(context)[row];
    auto sum = coefficientsOfRow(context, ct.getPoly(0), row);
    auto power = secretRow(context, secretKey, 0, p);
    for (u64 i = 1; i < ct.getNumPoly(); ++i) {
        if (i > 1)
            power = E == EncryptionType::MLWE
                        ? secretRow(context, secretKey, i - 1, p)
                        : negacyclicProduct(power, secretRow(context, secretKey, 0, p), p);
        addTo(sum, negacyclicProduct(coefficientsOfRow(context, ct.getPoly(i), row), power, p), p);
    }
    return sum;
}

/// a - b on coefficients: small signed integers, expected to be the same in all rows.
inline SmallPolynomial differenceOf(const Context& context, const Polynomial& a, const Polynomial& b) {
    EXPECT_EQ(a.getLevel(), b.getLevel());
    SmallPolynomial first;
    for (u64 row = 0; row <= a.getLevel(); ++row) {
        const u64 p = getPrimeList(context)[row];
        auto words = coefficientsOfRow(context, a, row);
        const auto subtrahend = coefficientsOfRow(context, b, row);
        for (std::size_t k = 0; k < words.size(); ++k) words[k] = wideSub(words[k], subtrahend[k], p);
        if (row == 0) first = centred(words, p);
        EXPECT_EQ(centred(words, p), first) << "row " << row;
    }
    return first;
}

inline long largestOf(const SmallPolynomial& poly) {
    long largest = 0;
    for (const long c : poly) largest = std::max(largest, std::labs(c));
    return largest;
}

/// Fills the live rows with residues.
template <class Random>
void fillWithResidues(const Context& context, Polynomial& poly, Random& random) {
    for (u64 i = 0; i < poly.rowEnd(); ++i)
        if (poly.isLiveRow(i))
            for (u64 k = 0; k < poly.getDegree(); ++k)
                poly.getRow(i)[k] = random.below(getPrimeList(context)[i]);
}

} // namespace Torvo::test
