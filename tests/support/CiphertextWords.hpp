#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Plaintext.hpp>

#include <gtest/gtest.h>

#include <algorithm>

namespace Torvo::test {

/// Whether two polynomials agree in level, flags and every word of every live row.
inline testing::AssertionResult sameWords(const Polynomial& a, const Polynomial& b) {
    if (a.getLevel() != b.getLevel())
        return testing::AssertionFailure() << "levels " << a.getLevel() << " and " << b.getLevel();
    if (a.isModUp() != b.isModUp()) return testing::AssertionFailure() << "mod-up states differ";
    if (a.isNTT() != b.isNTT()) return testing::AssertionFailure() << "NTT states differ";
    for (u64 i = 0; i < a.rowEnd(); ++i)
        if (a.isLiveRow(i) && !std::equal(a.getRow(i), a.getRow(i) + a.getDegree(), b.getRow(i)))
            return testing::AssertionFailure() << "row " << i << " differs";
    return testing::AssertionSuccess();
}

inline testing::AssertionResult sameWords(const Plaintext& a, const Plaintext& b) {
    if (a.getLogSlots() != b.getLogSlots()) return testing::AssertionFailure() << "log slots differ";
    if (a.getRescaleCounter() != b.getRescaleCounter())
        return testing::AssertionFailure() << "rescale counters differ";
    return sameWords(a.getMx(), b.getMx());
}

/// Whether two ciphertexts agree in all but the encoding type.
template <EncryptionType E>
testing::AssertionResult sameWords(const CiphertextBase<E>& a, const CiphertextBase<E>& b) {
    if (a.getNumPoly() != b.getNumPoly())
        return testing::AssertionFailure() << a.getNumPoly() << " and " << b.getNumPoly() << " elements";
    if (a.getLogSlots() != b.getLogSlots()) return testing::AssertionFailure() << "log slots differ";
    if (a.getRescaleCounter() != b.getRescaleCounter())
        return testing::AssertionFailure()
               << "rescale counters " << a.getRescaleCounter() << " and " << b.getRescaleCounter();
    for (u64 i = 0; i < a.getNumPoly(); ++i)
        if (const auto same = sameWords(a.getPoly(i), b.getPoly(i)); !same)
            return testing::AssertionFailure() << "element " << i << ": " << same.message();
    return testing::AssertionSuccess();
}

} // namespace Torvo::test
