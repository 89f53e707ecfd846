#include "functions/CipherOperations.hpp"
#include "functions/MessageOperations.hpp"
#include "functions/SeriesEvaluation.hpp"

#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using LongComplex = std::complex<long double>;
using test::Scheme;
using test::Seeded;

/// By the definition T_k(cos t) = cos(k t), which no recurrence is needed for.
LongComplex chebyshevSum(const std::vector<Complex>& c, long double y) {
    const long double angle = std::acos(y);
    LongComplex sum = 0;
    for (u64 k = 0; k < c.size(); ++k) sum += LongComplex(c[k]) * std::cos(static_cast<long double>(k) * angle);
    return sum;
}

std::vector<Coefficient> uniform(const std::vector<Complex>& c) {
    return {c.begin(), c.end()};
}

/// Coefficients whose moduli have the sum 1.
std::vector<Complex> coefficients(Seeded& random, u64 degree, u64 step = 1, u64 first = 0) {
    std::vector<Complex> c(degree + 1);
    double sum = 0;
    for (u64 k = first; k <= degree; k += step) sum += std::abs(c[k] = {random.real(-1, 1), random.real(-1, 1)});
    for (Complex& each : c) each /= sum;
    return c;
}

class SeriesEvaluationTest : public testing::Test {
protected:
    /// Slots in [lower, upper].
    Message points(double lower, double upper) {
        Message m(scheme.logFullSlots());
        for (auto& slot : m) slot = random.real(lower, upper);
        m[0] = lower;
        m[1] = upper;
        return m;
    }

    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const CipherOperations operations{scheme.evaluator};
    Seeded random{20261122};
};

TEST_F(SeriesEvaluationTest, EveryDegreeSpendsTheLeastLevelsThatItCan) {
    SCOPED_TRACE(random.describe());
    const Message x = points(-1, 1);
    const u64 level = scheme.encryptionLevel();
    const Ciphertext encrypted = scheme.encrypt(x, level);
    double worst = 0;
    for (u64 degree = 1; degree <= 255; ++degree) {
        const std::vector<Complex> c = coefficients(random, degree);
        const SeriesTerms terms(SeriesBasis::Chebyshev, uniform(c));
        SeriesEvaluation<Ciphertext> evaluation(operations, {&terms, 1}, {});
        const u64 levels = std::bit_width(degree);
        EXPECT_EQ(evaluation.levels(), levels);
        const Ciphertext got = evaluation.evaluate(encrypted).front();
        ASSERT_EQ(got.getLevel(), level - levels);
        EXPECT_EQ(got.getRescaleCounter(), 0);
        const Message decrypted = scheme.decrypt(got);
        double error = 0;
        for (u64 i = 0; i < x.getSize(); ++i)
            error = std::max(error, std::abs(decrypted[i] - Complex(chebyshevSum(c, x[i].real()))));
        worst = std::max(worst, error);
        if (std::has_single_bit(degree)) std::printf("%lu: %.2f\n", degree, std::log2(error));
    }
    std::printf("worst %.2f\n", std::log2(worst));
}

} // namespace
} // namespace Torvo
