#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "context/LWEContextContent.hpp"
#include "support/BigIntegers.hpp"

#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWESecretKey.hpp>

#include <vector>

/// Plain LWE for comparison: exact integers instead of residues.
namespace Torvo::test {

inline BigInt modulusAt(const LWE::Context& context, u64 level) {
    return productOf(slice(LWE::getPrimeList(context), 0, level + 1));
}

/// b + <a, s> in (-Q/2, Q/2].
inline BigInt phaseOf(const LWE::Ciphertext& ct, const LWE::SecretKey& key) {
    const auto primes = slice(LWE::getPrimeList(ct.getContext()), 0, ct.getLevel() + 1);
    std::vector<u64> residues;
    for (u64 i = 0; i < primes.size(); ++i) {
        BigInt sum = ct.getBx()[i];
        for (u64 k = 0; k < ct.getAx().getDimension(); ++k)
            sum += BigInt(ct.getAx().getRow(i)[k]) * key.getCoefficients()[k];
        residues.push_back(wordResidueOf(sum, primes[i]));
    }
    return chineseRemainder(residues, primes);
}

/// Level, counter and every word.
inline bool sameWords(const LWE::Ciphertext& a, const LWE::Ciphertext& b) {
    const auto equal = [](const auto& x, const auto& y) {
        return std::equal(x.begin(), x.end(), y.begin(), y.end());
    };
    return a.getLevel() == b.getLevel() && a.getBx().getLevel() == b.getBx().getLevel() &&
           a.getRescaleCounter() == b.getRescaleCounter() &&
           equal(a.getAx().getData(), b.getAx().getData()) && equal(a.getBx().getData(), b.getBx().getData());
}

/// Dimension 64; a base prime of 50 bits and two of 40.
inline const LWE::Context& smallLWEContext() {
    static const LWE::Context context = LWE::makeContext(64, 3, 50, 40);
    return context;
}

} // namespace Torvo::test
