#pragma once

#include "support/Contexts.hpp"
#include "support/Pointers.hpp"
#include "support/RingPhases.hpp"
#include "support/WideArithmetic.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>
#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

/// The routes that lead plain LWE of dimension 4096 through the single-level partners of `FGb`, and what the
/// message's error is on the way.
namespace Torvo::test {

/// Variance of the error of one coefficient in units of the scale, in the letters of docs/noise.md. The sum
/// of the hops, since their errors are independent.
class RouteNoise {
public:
    /// A fresh number: the error, and the truncation to an integer, which changes it by less than 1.
    static RouteNoise ofFreshNumbers() { return RouteNoise(3.2 * 3.2 + 1.0 / 12 + 1); }
    /// Fresh coefficients, rounded.
    static RouteNoise ofFreshCoefficients() { return RouteNoise(3.2 * 3.2 + 1.0 / 6); }

    template <EncryptionType E>
    RouteNoise& hop(const Context& keys, const SecretKeyBase<E>& target, u64 numKeys = 1, u64 level = 0) {
        const auto weight = static_cast<double>(target.getContext()->parameter.hamming_weight);
        variance_ += SwitchNoise(keys, weight, static_cast<double>(numKeys)).variance(level);
        return *this;
    }
    /// 8 deviations of a normal variable, which are exceeded with a chance of 2e-15.
    double bound(double logScale) const { return 8 * rms(logScale); }
    double rms(double logScale) const { return std::sqrt(variance_) * std::exp2(-logScale); }

private:
    explicit RouteNoise(double variance) : variance_(variance) {}
    double variance_;
};

/// Numbers in [-1, 1].
inline std::vector<double> randomNumbers(u64 count, Seeded& random) {
    std::vector<double> numbers(count);
    for (double& number : numbers) number = random.real(-1, 1);
    return numbers;
}

struct RouteError {
    double largest = 0, rms = 0;
};

inline RouteError errorOf(const std::vector<double>& got, const std::vector<double>& expected) {
    EXPECT_EQ(got.size(), expected.size());
    RouteError error;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double distance = std::abs(got.at(i) - expected[i]);
        error.largest = std::max(error.largest, std::isnan(distance) ? HUGE_VAL : distance);
        error.rms += distance * distance / static_cast<double>(expected.size());
    }
    error.rms = std::sqrt(error.rms);
    return error;
}

/// The error lies below the bound, and its root mean square near what was derived: within the 5 hundredths
/// that the model is given and 6 deviations of a root mean square of so many numbers.
inline void expectNumbers(const std::vector<double>& got, const std::vector<double>& expected,
                          const RouteNoise& noise, double logScale, const char* route) {
    const RouteError error = errorOf(got, expected);
    const double derived = noise.rms(logScale);
    const double slack = 0.05 + 6 / std::sqrt(2 * static_cast<double>(expected.size()));
    EXPECT_LT(error.largest, noise.bound(logScale)) << route;
    EXPECT_NEAR(error.rms / derived, 1, slack) << route;
    std::printf("%s: rms error 2^%.2f, derived 2^%.2f\n", route, std::log2(error.rms), std::log2(derived));
}

template <EncryptionType E>
std::vector<double> coefficientsUnder(const CiphertextBase<E>& ciphertext, const SecretKeyBase<E>& key) {
    std::vector<double> coefficients;
    Decryptor(ciphertext.getContext()).decrypt(ciphertext, key, coefficients);
    return coefficients;
}

/// Plain LWE of dimension 4096.
struct PlainNumbers {
    LWE::Context context = LWE::makeContext(LWE::ParameterPreset::FGbD12L0);
    LWE::SecretKey key{context};

    std::vector<LWE::Ciphertext> encrypt(const double* numbers, u64 count) const {
        const LWE::Encryptor encryptor(context);
        std::vector<LWE::Ciphertext> out;
        for (u64 i = 0; i < count; ++i) encryptor.encrypt(numbers[i], key, out.emplace_back(context));
        return out;
    }
};

/// One preset with its key.
template <EncryptionType E>
struct KeyedRing {
    explicit KeyedRing(ParameterPreset preset) : context(contextOf(preset)), key(context) {}
    Context context;
    SecretKeyBase<E> key;
};

} // namespace Torvo::test
