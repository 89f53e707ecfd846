#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <optional>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::toy;

constexpr long double pi = std::numbers::pi_v<long double>;
constexpr u64 sineLevel = 21; // where coefficient-to-slot leaves the toy preset

/// 32 reals in [-radius, radius], both ends and 0 among them.
Message reals(u64 seed, double radius) {
    Message m = test::realPart(test::Seeded(seed).message(5, radius));
    m[0] = radius;
    m[1] = -radius;
    m[2] = 0.0;
    return m;
}

Message mapped(const Message& m, const std::function<long double(long double)>& f) {
    Message out = m;
    for (auto& slot : out) slot = static_cast<double>(f(slot.real()));
    return out;
}

/// A rounding and a key switch at `level`.
double step(u64 level) {
    return toy().errors.atLevel(toy().errors.rescale() + toy().errors.keySwitch(), level);
}

/// Of a cosine of amplitude 1 and frequency K: fewer than 64 steps at the large scale, none taken for worse
/// than an error of y itself, which the steepest place multiplies by 2 pi K; the polynomial's own error times
/// 4 in each double-angle step; and the last rescales at the small scale.
double cosineError(double K, double doubleAngles, double polynomialError) {
    return 64 * step(sineLevel) * 2 * std::numbers::pi * K + std::exp2(2 * doubleAngles) * polynomialError +
           4 * step(12);
}

/// A separate bootstrapper, whose numbers can be changed.
struct Changeable {
    BootstrapperImpl impl{toy().evaluator, std::nullopt, 0, false};
    BootParameter& parameter = const_cast<BootParameter&>(impl.getParameter());
};

// ---- cosine

TEST(CosineApprox, IsTheCosineTimesTheFactor) {
    const Message y = reals(1, 1.0);
    const Ciphertext in = boot().encryptAt(y, sineLevel);
    // The last double-angle step crosses into the small primes: the factor makes up for the correction.
    const double lift = std::exp2(-static_cast<double>(toy().context->scale_factors.level_correction[13]));
    EXPECT_EQ(lift, 0x1p16);
    for (const double amplitude : {1.0, 0.3, -0.7}) {
        Ciphertext out(toy().context);
        boot().batched.cosineApprox(in, out, amplitude / lift);
        EXPECT_EQ(out.getLevel(), 12U);
        EXPECT_EQ(out.getRescaleCounter(), 0);
        EXPECT_EQ(out.getNumPoly(), 2U);
        const long double K = boot().parameter.range_bound;
        const Message expected =
            mapped(y, [&](long double t) { return amplitude * std::cos(2 * pi * K * t); });
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), cosineError(28, 3, 9.0e-15));
    }
}

TEST(CosineApprox, OfANegativeFactorIsTheNegative) {
    Ciphertext x = boot().encryptAt(reals(2, 1.0), sineLevel), positive(toy().context);
    boot().batched.cosineApprox(x, positive, 0x1p-17);
    boot().batched.cosineApprox(x, x, -0x1p-17); // in place
    toy().evaluator.negate(x, x);
    EXPECT_TRUE(test::sameWords(x, positive));
}

TEST(CosineApprox, TakesNoFactorWhereAnArcsineFollows) {
    Changeable own;
    own.parameter.arcsine_degree = 3;
    own.parameter.double_angle_count = 2; // stays above the small primes
    const Message y = reals(3, 1.0);
    for (const double factor : {5.0, -5.0}) {
        Ciphertext out(toy().context);
        own.impl.cosineApprox(boot().encryptAt(y, sineLevel), out, factor);
        EXPECT_EQ(out.getLevel(), 13U);
        const Message expected = mapped(y, [](long double t) { return std::cos(28 * pi * t); });
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), cosineError(14, 2, 9.0e-15));
    }
}

// Two angles double an amplitude that is the fourth root of the factor.
TEST(CosineApprox, TakesAsManyRootsOfTheFactorAsItDoublesAngles) {
    Changeable own;
    own.parameter.double_angle_count = 2;
    const Message y = reals(15, 1.0);
    for (const double factor : {0.3, -0.3}) {
        Ciphertext out(toy().context);
        own.impl.cosineApprox(boot().encryptAt(y, sineLevel), out, factor);
        EXPECT_EQ(out.getLevel(), 13U); // above the small primes: no correction
        const Message expected = mapped(y, [&](long double t) { return factor * std::cos(28 * pi * t); });
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), cosineError(14, 2, 9.0e-15));
    }
}

TEST(CosineApprox, OfFourBlocksHasTheTablesOfTheOtherPresets) {
    struct Row {
        Rational r;
        double error;
    };
    for (const Row& row : {Row{{3, 1}, 1.6e-14}, Row{{16, 5}, 1.1e-13}}) {
        Changeable own;
        own.parameter.cosine_coefficients = getCosineCoeff(row.r, 16);
        own.parameter.log_cosine_blocks = 2;
        own.parameter.double_angle_count = 2;
        own.parameter.arcsine_degree = 3;
        const double r = static_cast<double>(row.r.numerator) / row.r.denominator;
        const Message y = reals(4, 1.0);
        Ciphertext out(toy().context);
        own.impl.cosineApprox(boot().encryptAt(y, sineLevel), out, 1.0);
        EXPECT_EQ(out.getLevel(), sineLevel - 5 - 2);
        const Message expected = mapped(y, [&](long double t) { return std::cos(4 * pi * r * t); });
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), cosineError(2 * r, 2, row.error));
    }
}

TEST(CosineApprox, OfTheOtherTablesOfEightBlocksIsTheCosineToo) {
    struct Row {
        Rational r;
        double error;
    };
    for (const Row& row : {Row{{8, 1}, 1.1e-14}, Row{{128, 11}, 5.2e-11}}) {
        Changeable own;
        own.parameter.cosine_coefficients = getCosineCoeff(row.r, 32);
        own.parameter.double_angle_count = 2;
        own.parameter.arcsine_degree = 3;
        const double r = static_cast<double>(row.r.numerator) / row.r.denominator;
        const Message y = reals(5, 1.0);
        Ciphertext out(toy().context);
        own.impl.cosineApprox(boot().encryptAt(y, sineLevel), out, 1.0);
        EXPECT_EQ(out.getLevel(), 13U);
        const Message expected = mapped(y, [&](long double t) { return std::cos(4 * pi * r * t); });
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), cosineError(2 * r, 2, row.error));
    }
}

/// The blocks of any polynomial, joined two by two: neighbours by T_8, then by T_16, and so on.
long double blockPolynomial(const std::vector<double>& c, long double y) {
    const auto chebyshev = [y](u64 n) { return std::cos(static_cast<long double>(n) * std::acos(y)); };
    long double sum = 0;
    for (u64 j = 0; j < c.size() / 4; ++j) {
        long double term = c[4 * j] + c[4 * j + 1] * chebyshev(2) + c[4 * j + 2] * chebyshev(4) +
                           c[4 * j + 3] * chebyshev(6);
        for (u64 k = 0; j >> k != 0; ++k)
            if (j >> k & 1) term *= chebyshev(u64{8} << k);
        sum += term;
    }
    return sum;
}

TEST(CosineApprox, EvaluatesAnyNumberOfBlocks) {
    for (u64 g = 0; g <= 4; ++g) {
        SCOPED_TRACE(g);
        Changeable own;
        test::Seeded random(50 + g);
        auto& c = own.parameter.cosine_coefficients;
        c.resize(u64{4} << g);
        for (auto& x : c) x = random.real(-1, 1) / static_cast<double>(c.size());
        own.parameter.log_cosine_blocks = g;
        own.parameter.double_angle_count = 1;
        own.parameter.arcsine_degree = 3;
        const Message y = reals(6 + g, 1.0);
        Ciphertext out(toy().context);
        own.impl.cosineApprox(boot().encryptAt(y, sineLevel), out, 1.0);
        EXPECT_EQ(out.getLevel(), sineLevel - (3 + g) - 1);
        const Message expected = mapped(y, [&](long double t) {
            const long double p = blockPolynomial(c, t);
            return 2 * p * p - 1;
        });
        // T_n has slope n^2 at the ends, n < 2^(g + 4); the sum of the coefficients is at most 1.
        const double bound = 64 * step(sineLevel) * std::exp2(2 * (g + 4.0)) * 4;
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), bound);
    }
}

// ---- arcsine

TEST(ArcsineApprox, OfDegreeThreeAndSevenIsTheTaylorPolynomial) {
    const Message s = reals(11, 1.0);
    const Ciphertext in = toy().encrypt(s, 10);
    const double encrypted = toy().errors.atLevel(toy().errors.encryption(), 10);
    for (const double factor : {1.0, 0.5, -0.75}) {
        Ciphertext out(toy().context);
        boot().batched.arcsineApprox(in, out, 3, factor);
        EXPECT_EQ(out.getLevel(), 8U);
        EXPECT_EQ(out.getRescaleCounter(), 0);
        Message expected = mapped(s, [&](long double x) { return factor * (x + x * x * x / 6); });
        // Slopes are at most 1 + 1/2; partial products at most 7.
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), 2 * encrypted + 4 * 7 * step(8));

        boot().batched.arcsineApprox(in, out, 7, factor);
        EXPECT_EQ(out.getLevel(), 7U);
        expected = mapped(s, [&](long double x) {
            const long double x2 = x * x;
            return factor * x * (1 + x2 / 6 + 3 * x2 * x2 / 40 + 5 * x2 * x2 * x2 / 112);
        });
        // Slopes at most 1 + 1/2 + 3/8 + 5/16; s^4 + q s^2 + r is at most 7.6, and s^2 + p at most 4.
        EXPECT_LT(test::maxError(toy().decrypt(out), expected), 3 * encrypted + 8 * 30 * step(7));
    }
}

TEST(ArcsineApprox, OfAnyOtherDegreeIsTheInput) {
    const Ciphertext in = toy().encrypt(reals(12, 1.0), 5);
    for (const u64 degree : {0, 1, 2, 4, 5, 6, 8, 9}) {
        Ciphertext out(toy().context);
        boot().batched.arcsineApprox(in, out, degree, 3.0);
        EXPECT_TRUE(test::sameWords(out, in)) << degree;
    }
}

TEST(ArcsineApprox, WorksInPlace) {
    for (const u64 degree : {1, 3, 7}) {
        Ciphertext x = toy().encrypt(reals(13, 1.0), 6), out(toy().context);
        boot().batched.arcsineApprox(x, out, degree, 0.5);
        boot().batched.arcsineApprox(x, x, degree, 0.5);
        EXPECT_TRUE(test::sameWords(x, out));
    }
}

// ---- levels of the correction

TEST(LevelAfterBootstrap, DependsOnTheArcsineAndTheNormalization) {
    Changeable own;
    const auto level = [&] { return own.impl.getLevelAfterFullSlotBootstrap(); };
    EXPECT_EQ(level(), 12U);
    own.parameter.arcsine_degree = 3;
    EXPECT_EQ(level(), 10U);
    own.parameter.arcsine_degree = 7;
    EXPECT_EQ(level(), 9U);
    own.parameter.separate_normalization = true;
    EXPECT_EQ(level(), 8U);
    for (const u64 degree : {0, 2, 5, 9}) {
        own.parameter.arcsine_degree = degree;
        EXPECT_REFUSED(level(), "This arcsine_degree is not supported");
    }
}

// ---- removal of the multiples

/// Slots m in [-1, 1], and raised values x / q0 = eps m + I with integers below 28 in absolute value.
struct Raised {
    explicit Raised(u64 seed) : m(reals(seed, 1.0)), y(m) {
        test::Seeded random(seed);
        for (auto& slot : y)
            slot = (boot().eps() * slot.real() + static_cast<double>(random.below(55)) - 27) /
                   boot().parameter.range_bound;
    }
    Message m, y;
};

TEST(RemoveI, GivesTheMessageBackTimesTheFactor) {
    const Raised raised(21);
    const Ciphertext in = boot().encryptAt(raised.y, sineLevel);
    const long double eps = boot().eps();
    for (const double factor : {1.0, 0.25, -1.0}) {
        Ciphertext out(toy().context);
        boot().batched.removeI(in, out, factor);
        EXPECT_EQ(out.getLevel(), 12U);
        const Message sine = mapped(
            raised.m, [&](long double m) { return factor * std::sin(2 * pi * eps * m) / (2 * pi * eps); });
        const Message got = toy().decrypt(out);
        // y is encoded in doubles near 1: 2^-53 of it count K / eps times.
        EXPECT_LT(test::maxError(got, sine), boot().noise() + 0x1p-53 * 28 / boot().eps());
        Message line = raised.m;
        toy().evaluator.mult(line, factor, line);
        EXPECT_LT(test::maxError(got, line), boot().realBound() + 0x1p-53 * 28 / boot().eps());
    }
}

TEST(RemoveI, NormalizesWithALevelOfItsOwn) {
    Changeable own;
    own.parameter.separate_normalization = true;
    own.parameter.post_raise_factor = 16;
    const Raised raised(22);
    const auto& context = *toy().context;
    const double q0 = static_cast<double>(context.primes.getPrime(0));
    const double u = std::exp2(context.scale_factors.log_scale[24]) / q0 / (2 * 28 * 16);
    Message unnormalized = raised.y;
    toy().evaluator.mult(unnormalized, 1 / u, unnormalized);
    Ciphertext out = boot().encryptAt(unnormalized, sineLevel + 1);
    own.impl.removeI(out, out, 1.0);
    EXPECT_EQ(out.getLevel(), 12U);
    EXPECT_LT(test::maxError(toy().decrypt(out), raised.m), boot().realBound() + 0x1p-50 * 28 / boot().eps());
}

} // namespace
} // namespace Torvo
