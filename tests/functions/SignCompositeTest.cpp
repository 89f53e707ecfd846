#include "functions/SignComposite.hpp"
#include "functions/SignTables.hpp"
#include "support/Expect.hpp"
#include "support/Seeded.hpp"
#include "support/SeriesOracle.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

namespace Torvo {
namespace {

using Composite = std::vector<ChebyshevSeries>;
using Reals = std::vector<long double>;

constexpr u64 least = leastSignExponent, most = mostSignExponent;

long double powerOfHalf(u64 exponent) {
    return std::ldexp(1.0L, -static_cast<int>(exponent));
}

/// The sum of c_k T_k(y) by T_(k + 1) = 2 y T_k - T_(k - 1), for any y. The numbers of a stage are at most 1,
/// so what rounds is far below what is measured.
long double valueAt(const ChebyshevSeries& stage, long double y) {
    long double before = y, current = 1, sum = 0;
    for (const auto& c : stage.getCoefficients()) {
        sum += c.real() * current;
        before = std::exchange(current, 2 * y * current - before);
    }
    return sum;
}

/// Magnitudes from 2^-a to 1, evenly in their logarithm and evenly.
Reals magnitudes(u64 a) {
    Reals points = test::evenly(2000, powerOfHalf(a), 1);
    for (const long double exponent : test::evenly(2000, -static_cast<long double>(a), 0))
        points.push_back(std::exp2(exponent));
    return points;
}

u64 levelsOf(const Composite& composite) {
    u64 levels = 0;
    for (const auto& stage : composite)
        for (u64 room = 1; room < stage.getDegree() + 1; room *= 2) ++levels;
    return levels;
}

class SignComposites : public testing::TestWithParam<u64> {};

TEST_P(SignComposites, MeetTheirErrorOnTheWholeDomain) {
    const u64 a = GetParam();
    for (u64 b = least; b <= most; ++b) {
        const Composite composite = signComposite(a, b);
        for (const long double x : magnitudes(a)) {
            long double positive = x, negative = -x;
            for (const auto& stage : composite) {
                positive = valueAt(stage, positive);
                negative = valueAt(stage, negative);
            }
            ASSERT_LE(std::fabs(positive - 1), powerOfHalf(b))
                << "b=" << b << " x=" << static_cast<double>(x);
            ASSERT_LE(std::fabs(negative + 1), powerOfHalf(b))
                << "b=" << b << " x=" << static_cast<double>(x);
        }
    }
}

// The noise that helps least is not the same everywhere: both extremes of it in front of each stage, and
// random ones.
TEST_P(SignComposites, MeetTheirErrorWithNoiseInFrontOfEachStage) {
    test::Seeded random(301);
    SCOPED_TRACE(random.describe());
    const u64 a = GetParam();
    for (u64 b = least; b <= most; b += 3) {
        const Composite composite = signComposite(a, b);
        for (u64 choice = 0; choice < (u64{2} << composite.size()); ++choice)
            for (const long double x : magnitudes(a)) {
                if (random.below(8) != 0 && x != 1 && x != powerOfHalf(a)) continue;
                long double y = x;
                for (u64 i = 0; i < composite.size(); ++i) {
                    const bool isExtreme = choice >> composite.size() == 0;
                    const double noise = isExtreme ? (choice >> i & 1 ? 1 : -1) : random.real(-1, 1);
                    y = valueAt(composite[i], y + noise * 0x1p-20);
                }
                ASSERT_LE(std::fabs(y - 1), powerOfHalf(b)) << "b=" << b << " x=" << static_cast<double>(x);
            }
    }
}

// What leaves a stage, noise and all, is within the interval of the next.
TEST_P(SignComposites, StayWithinTheIntervalBetweenStages) {
    const u64 a = GetParam();
    for (u64 b = least; b <= most; ++b) {
        const Composite composite = signComposite(a, b);
        for (const long double x : magnitudes(a)) {
            long double y = x;
            for (u64 i = 0; i + 1 < composite.size(); ++i) {
                y = valueAt(composite[i], y);
                ASSERT_LE(y, 1 + 1e-15L);
                ASSERT_GT(y, 0);
            }
        }
    }
}

TEST_P(SignComposites, AreOddRealSeriesOnTheUnitInterval) {
    for (u64 b = least; b <= most; ++b) {
        const auto degrees = signDegrees(GetParam(), b);
        const Composite composite = signComposite(GetParam(), b);
        ASSERT_EQ(composite.size(), degrees.size());
        for (u64 i = 0; i < degrees.size(); ++i) {
            EXPECT_TRUE(composite[i].isOdd() && composite[i].isReal());
            EXPECT_EQ(composite[i].getUpperBound(), 1);
            EXPECT_EQ(composite[i].getDegree(), degrees[i]);
        }
    }
}

TEST_P(SignComposites, NeedMoreLevelsForMore) {
    const u64 a = GetParam();
    for (u64 b = least; b <= most; ++b) {
        const u64 levels = levelsOf(signComposite(a, b));
        if (b > least) {
            EXPECT_GE(levels, levelsOf(signComposite(a, b - 1)));
        }
        if (a > least) {
            EXPECT_GE(levels, levelsOf(signComposite(a - 1, b)));
        }
    }
}

/// Looks for a composite that comes within `error`, among all with a degree of 2^i - 1 for i levels: on the
/// same interval no lower degree does better.
class Search {
public:
    explicit Search(long double error) : error_(error) {}

    bool canReach(u64 levels, long double from) {
        if (hopeless_.size() <= levels) hopeless_.resize(levels + 1, 0);
        if (from <= hopeless_[levels]) return false;
        for (u64 spent = 2; spent <= 6 && spent <= levels; ++spent) {
            const SignStage stage = signStage((u64{1} << spent) - 1, from);
            if (stage.error <= error_ || canReach(levels - spent, stage.nextLeast)) return true;
        }
        hopeless_[levels] = from;
        return false;
    }

private:
    long double error_;
    Reals hopeless_; ///< for each count of levels, from where it is known not to be enough
};

TEST_P(SignComposites, SpendAsFewLevelsAsAnyCompositeMust) {
    const long double from = firstLeast(GetParam());
    for (u64 b = least; b <= most; b += 3) {
        const u64 levels = levelsOf(signComposite(GetParam(), b));
        EXPECT_TRUE(Search(powerOfHalf(b)).canReach(levels, from)) << b;
        EXPECT_FALSE(Search(powerOfHalf(b)).canReach(levels - 1, from)) << b;
    }
}

INSTANTIATE_TEST_SUITE_P(From, SignComposites, testing::Range(least, most + 1),
                         [](const auto& tested) { return "2ToTheMinus" + std::to_string(tested.param); });

TEST(SignComposite, IsToldToWhichExponentsItKeeps) {
    const auto refused = [](const std::string& a, const std::string& b) {
        return "[signComposite] Sign is asked for from 2^-" + a + " on, within 2^-" + b +
               "; give exponents from 4 to 16";
    };
    EXPECT_REFUSED(signComposite(3, 4), refused("3", "4"));
    EXPECT_REFUSED(signComposite(4, 17), refused("4", "17"));
    EXPECT_REFUSED(signComposite(~u64{0}, 0), refused("18446744073709551615", "0"));
}

// x and x T_2(x) need T_2 alone; x^7 in four blocks of two, or two of four: T_2, T_4, T_3, and one product of
// blocks.
TEST(SignComposite, CountsLevelsAndProducts) {
    const u64 degrees[] = {1, 3, 5, 7, 9, 15, 17, 31, 33, 63};
    const u64 levels[] = {1, 2, 3, 3, 4, 4, 5, 5, 6, 6}, tensors[] = {0, 2, 4, 4, 6, 7, 9, 10, 12, 15};
    for (u64 i = 0; i < 10; ++i) {
        EXPECT_EQ(levelsOfDegree(degrees[i]), levels[i]) << degrees[i];
        EXPECT_EQ(tensorsOfOddDegree(degrees[i]), tensors[i]) << degrees[i];
    }
}

} // namespace
} // namespace Torvo
