#include "functions/NoiseRules.hpp"

#include "context/ContextContent.hpp"

#include <algorithm>
#include <cmath>

namespace Torvo {

namespace {

/// Of a coefficient of an error polynomial, a rounded normal variable.
double errorVariance(double deviation) {
    return deviation * deviation + 1.0 / 12;
}

} // namespace

NoiseRules::NoiseRules(const Context& context)
    : context_(context), degree_(static_cast<double>(context->parameter.degree)),
      weight_(static_cast<double>(context->parameter.hamming_weight)) {}

double NoiseRules::ofSlot(double variance, u64 level, u64 slots) const {
    return 2 * static_cast<double>(slots) * variance *
           std::exp2(-2 * context_->scale_factors.log_scale[level]);
}

double NoiseRules::encoding(u64 level, u64 slots) const {
    return ofSlot(1.0 / 12, level, slots);
}

double NoiseRules::encryption(u64 level, u64 slots) const {
    const double sigma = errorVariance(context_->parameter.gaussian_stddev);
    return ofSlot(sigma + 1.0 / 12 + sigma * degree_ / 2 + sigma * weight_, level, slots);
}

double NoiseRules::rescale(u64 level, u64 slots) const {
    return ofSlot(1.0 / 12 + weight_ / 12, level, slots);
}

double NoiseRules::ofDivision() const {
    const auto temporary = static_cast<double>(context_->parameter.numTP);
    return temporary / 12 + temporary * weight_ / 12;
}

double NoiseRules::ofDigits(u64 level) const {
    const Parameter& parameter = context_->parameter;
    const PrimeModuli& primes = context_->primes;
    const u64 alpha = parameter.numTP;
    const auto logPrime = [&](u64 i) { return std::log2(static_cast<double>(primes.getPrime(i))); };
    double variance = 0;
    for (u64 first = 0; first <= level; first += alpha) {
        double logRatio = 0; // of the product of a whole digit to that of the temporary primes
        for (u64 i = 0; i < alpha; ++i)
            logRatio += logPrime(first + i) - logPrime(parameter.chain_length + i);
        const auto live = static_cast<double>(std::min(alpha, level + 1 - first));
        variance += degree_ * errorVariance(parameter.gaussian_stddev) * live * std::exp2(2 * logRatio) / 12;
    }
    return variance;
}

} // namespace Torvo
