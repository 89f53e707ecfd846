#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/ContextContent.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace Torvo::test {

constexpr double sigmaSquared = 3.2 * 3.2 + 1.0 / 12;

/// Variance of a coefficient of an error, as a plain part and products of two small polynomials, whose slots
/// have a longer tail.
struct Variance {
    double plain = 0;
    std::vector<double> products;

    double total() const { return std::accumulate(products.begin(), products.end(), plain); }
    friend Variance operator+(Variance a, const Variance& b) {
        a.plain += b.plain;
        a.products.insert(a.products.end(), b.products.begin(), b.products.end());
        return a;
    }
    friend Variance operator*(double factor, Variance v) {
        v.plain *= factor;
        for (double& product : v.products) product *= factor;
        return v;
    }
};

/// The formulas of docs/noise.md, whose letters are used here, for one preset.
struct NoiseModel {
    explicit NoiseModel(const Context& context)
        : content(*context), N(static_cast<double>(content.parameter.degree)),
          h(static_cast<double>(content.parameter.hamming_weight)),
          K(static_cast<double>(content.parameter.numTP)) {}

    double scale(u64 level) const { return std::pow(2.0, content.scale_factors.log_scale[level]); }
    Variance encryption() const {
        return {sigmaSquared + 1.0 / 12, {sigmaSquared * N / 2, sigmaSquared * h}};
    }
    Variance secretKeyEncryption() const { return {sigmaSquared + 1.0 / 12, {}}; }
    Variance rescale() const { return {1.0 / 12, {h / 12}}; }
    Variance keySwitch(u64 level) const {
        Variance v{K / 12, {K * h / 12}};
        const u64 alpha = content.parameter.numTP;
        for (u64 first = 0; first <= level; first += alpha) {
            double logRatio = 0; // log2(Q_j / P), Q_j being the product of the whole digit
            for (u64 i = 0; i < alpha; ++i)
                logRatio +=
                    std::log2(prime(first + i)) - std::log2(prime(content.parameter.chain_length + i));
            const auto live = static_cast<double>(std::min(alpha, level + 1 - first));
            v.products.push_back(N * sigmaSquared * live * std::pow(4.0, logRatio) / 12);
        }
        return v;
    }

    /// E|slot|^2, in units of the message, of a variance at `level`.
    Variance slots(const Variance& v, u64 level) const { return N / std::pow(scale(level), 2) * v; }
    /// Exceeded by a slot of a ciphertext with chance 2^-40 per part.
    double bound(const Variance& slotVariance) const {
        const double L = std::log(std::pow(2.0, 40) * N / 2);
        double sum = std::sqrt(slotVariance.plain * L);
        for (const double product : slotVariance.products) sum += (L / 2 + 1) * std::sqrt(product);
        return sum;
    }
    double prime(u64 i) const { return static_cast<double>(content.primes.getPrime(i)); }

    const ContextContent& content;
    double N, h, K;
};

} // namespace Torvo::test
