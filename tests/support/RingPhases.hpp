#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "context/ContextContent.hpp"
#include "support/RingEquation.hpp"
#include "support/Seeded.hpp"

#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWESecretKey.hpp>

#include <cmath>

/// Ciphertexts that move between rings, compared by their phases: the words of b + <a, s>, whatever the
/// ciphertexts encrypt.
namespace Torvo::test {

/// The error of one coefficient after a key switch in the ring of `keys`, as docs/noise.md derives it, with
/// its letters; `numKeys` keys switch to one result before the division by P.
class SwitchNoise {
public:
    SwitchNoise(const Context& keys, double targetWeight, double numKeys = 1)
        : primes_(getPrimeList(keys)), parameter_(keys->parameter), weight_(targetWeight), numKeys_(numKeys) {
    }

    /// N sigma^2 sum over the live digits of alpha (Q_j / P)^2 / 12 for each key, and K (1 + h) / 12 for the
    /// division.
    double variance(u64 level) const {
        const u64 K = parameter_.numTP;
        const double sigmaSquared = 3.2 * 3.2 + 1.0 / 12, N = static_cast<double>(parameter_.degree);
        double digits = 0;
        for (u64 begin = 0; begin <= level; begin += K) {
            const double live = static_cast<double>(std::min(level + 1 - begin, K));
            const double ratio =
                logProduct(begin, begin + K) - logProduct(parameter_.chain_length, primes_.size());
            digits += live * std::exp2(2 * ratio);
        }
        return numKeys_ * N * sigmaSquared * digits / 12 + static_cast<double>(K) * (1 + weight_) / 12;
    }
    /// Each error is a sum of very many independent terms, so near normal: 8 deviations are exceeded with a
    /// chance of 2e-15.
    double bound(u64 level) const { return 8 * std::sqrt(variance(level)); }

private:
    double logProduct(u64 begin, u64 end) const {
        double sum = 0;
        for (u64 i = begin; i < end; ++i) sum += std::log2(static_cast<double>(primes_[i]));
        return sum;
    }

    std::vector<unsigned long> primes_;
    const Parameter& parameter_;
    double weight_, numKeys_;
};

/// A ciphertext in coefficient form and encoding, whose words are random: sufficient for a test that compares
/// phases.
template <EncryptionType E>
CiphertextBase<E> randomOnCoefficients(const Context& context, u64 level, Seeded& random) {
    CiphertextBase<E> ciphertext(context);
    ciphertext.setLevel(level);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    for (u64 i = 0; i < ciphertext.getNumPoly(); ++i) {
        ciphertext.getPoly(i).setNTT(false);
        fillWithResidues(context, ciphertext.getPoly(i), random);
    }
    return ciphertext;
}

inline LWE::Ciphertext randomNumber(const LWE::Context& context, u64 level, Seeded& random) {
    LWE::Ciphertext ciphertext(context);
    ciphertext.setLevel(level);
    const auto primes = LWE::getPrimeList(context);
    for (u64 r = 0; r <= level; ++r) {
        for (u64 i = 0; i < LWE::getDimension(context); ++i)
            ciphertext.getAx().getRow(r)[i] = random.below(primes[r]);
        ciphertext.getBx()[r] = random.below(primes[r]);
    }
    return ciphertext;
}

/// b + <a, s> modulo prime `row`.
inline u64 numberUnder(const LWE::Ciphertext& ciphertext, const LWE::SecretKey& key, u64 row) {
    const u64 p = LWE::getPrimeList(ciphertext.getContext())[row];
    u64 sum = ciphertext.getBx()[row];
    for (u64 i = 0; i < ciphertext.getAx().getDimension(); ++i) {
        const u64 a = ciphertext.getAx().getRow(row)[i];
        const int s = key.getCoefficients()[i];
        if (s == 1) sum = wideAdd(sum, a, p);
        if (s == -1) sum = wideSub(sum, a, p);
    }
    return sum;
}

/// phases[row][c]: what `expectPhases` compares with.
using Phases = std::vector<std::vector<u64>>;

template <EncryptionType E>
Phases phasesOf(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& key) {
    Phases phases;
    for (u64 row = 0; row <= ciphertext.getLevel(); ++row)
        phases.push_back(rowUnder(ciphertext.getContext(), ciphertext, key, row));
    return phases;
}

/// Coefficient c of phase j goes to c k + j, k being the number of phases.
inline Phases interleaved(const std::vector<Phases>& parts) {
    const u64 k = parts.size();
    Phases whole;
    for (u64 row = 0; row < parts[0].size(); ++row) {
        const u64 n = parts[0][row].size();
        whole.emplace_back(n * k);
        for (u64 j = 0; j < k; ++j)
            for (u64 c = 0; c < n; ++c) whole[row][c * k + j] = parts[j][row][c];
    }
    return whole;
}

/// Whether two phases differ by one small integer per coefficient, the same in all rows, and by some.
inline void expectPhases(const Phases& got, const Phases& expected, const std::vector<unsigned long>& primes,
                         double bound) {
    ASSERT_EQ(got.size(), expected.size());
    SmallPolynomial first;
    for (u64 row = 0; row < got.size(); ++row) {
        ASSERT_EQ(got[row].size(), expected[row].size());
        std::vector<u64> difference;
        for (u64 c = 0; c < got[row].size(); ++c)
            difference.push_back(wideSub(got[row][c], expected[row][c], primes[row]));
        if (row == 0) first = centred(difference, primes[row]);
        EXPECT_EQ(centred(difference, primes[row]), first) << "row " << row;
    }
    EXPECT_LT(static_cast<double>(largestOf(first)), bound);
    EXPECT_GT(largestOf(first), 0);
}

} // namespace Torvo::test
