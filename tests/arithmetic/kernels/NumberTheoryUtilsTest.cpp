#include "arithmetic/kernels/NumberTheoryUtils.hpp"

#include "support/Expect.hpp"
#include "support/Seeded.hpp"
#include "support/WideArithmetic.hpp"

#include <gmock/gmock.h>
#include <gmp.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace Torvo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// GMP's test: trial division, then Baillie-PSW, which has no pseudoprime below 2^64.
bool isPrimeByGMP(u64 n) {
    mpz_t value;
    mpz_init_set_ui(value, n);
    const bool prime = mpz_probab_prime_p(value, 25) != 0;
    mpz_clear(value);
    return prime;
}

bool isPrimeByDivision(u64 n) {
    if (n < 2) return false;
    for (u64 d = 2; d * d <= n; ++d)
        if (n % d == 0) return false;
    return true;
}

/// The primes that divide one of the bases, for which the test is known to answer false.
bool dividesABase(u64 n) {
    return n == 193 || n == 407521 || n == 299210837;
}

TEST(IsPrime, AgreesWithTrialDivisionBelowAHundredThousand) {
    for (u64 n = 0; n < 100000; ++n) EXPECT_EQ(utils::isPrime(n), isPrimeByDivision(n) && n != 193) << n;
}

TEST(IsPrime, AgreesWithGMPOnRandomOddWords) {
    Seeded random(11);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 20000; ++i) {
        const u64 n = random.word() >> random.below(40) | 1;
        EXPECT_EQ(utils::isPrime(n), isPrimeByGMP(n) && !dividesABase(n)) << n;
    }
}

TEST(IsPrime, TellsTheGreatPrimes) {
    EXPECT_TRUE(utils::isPrime((1UL << 61) - 1));
    EXPECT_TRUE(utils::isPrime(18446744073709551557UL)); // the greatest below 2^64
    EXPECT_FALSE(utils::isPrime(18446744073709551615UL));
}

TEST(IsPrime, IsNotDeceivedByStrongPseudoprimesAndCarmichaelNumbers) {
    for (u64 n : {2047UL, 1373653UL, 25326001UL, 3215031751UL, 3474749660383UL, 341550071728321UL,
                  3825123056546413051UL, 561UL, 1729UL, 9746347772161UL})
        EXPECT_FALSE(utils::isPrime(n)) << n;
}

TEST(IsPrime, IsNotDeceivedBySquaresOfPrimes) {
    for (u64 q : {11UL, 13UL, 65537UL, 4294967291UL}) EXPECT_FALSE(utils::isPrime(q * q)) << q;
}

TEST(IsPrime, AnswersFalseForThePrimesThatDivideABase) {
    EXPECT_FALSE(utils::isPrime(193));
    EXPECT_FALSE(utils::isPrime(407521));
    EXPECT_FALSE(utils::isPrime(299210837));
    EXPECT_TRUE(utils::isPrime(191));
    EXPECT_TRUE(utils::isPrime(197));
}

std::set<unsigned long> factorsOf(u64 n) {
    std::set<unsigned long> factors{99}; // must be cleared
    utils::findPrimeFactors(factors, n);
    return factors;
}

TEST(FindPrimeFactors, GivesTheDistinctFactors) {
    EXPECT_THAT(factorsOf(1), IsEmpty());
    EXPECT_THAT(factorsOf(2), ElementsAre(2));
    EXPECT_THAT(factorsOf(3), ElementsAre(3));
    EXPECT_THAT(factorsOf(8), ElementsAre(2));
    EXPECT_THAT(factorsOf(9), ElementsAre(3));
    EXPECT_THAT(factorsOf(14), ElementsAre(2, 7));
    EXPECT_THAT(factorsOf(2UL * 2 * 3 * 3 * 3 * 49 * 121), ElementsAre(2, 3, 7, 11));
    EXPECT_THAT(factorsOf(1UL << 60), ElementsAre(2));
    EXPECT_THAT(factorsOf(4UL * 1000003 * 1000033), ElementsAre(2, 1000003, 1000033));
    EXPECT_THAT(factorsOf(1000003UL * 1000003), ElementsAre(1000003));
    EXPECT_THAT(factorsOf(2147483647), ElementsAre(2147483647));
}

TEST(FindPrimeFactors, GivesPrimesThatDivideOutToOne) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 200; ++i) {
        const u64 n = random.below(1UL << 40) + 1;
        u64 rest = n;
        for (u64 f : factorsOf(n)) {
            EXPECT_TRUE(isPrimeByGMP(f)) << f << " of " << n;
            EXPECT_EQ(n % f, 0U) << f << " of " << n;
            while (rest % f == 0) rest /= f;
        }
        EXPECT_EQ(rest, 1U) << n;
    }
}

/// The order of g modulo p, by walking through its powers.
u64 orderByWalking(u64 g, u64 p) {
    u64 order = 1;
    for (u64 x = g; x != 1; x = x * g % p) ++order;
    return order;
}

TEST(FindPrimitiveRoot, IsTheSmallestElementOfFullOrder) {
    for (u64 p = 3; p < 1000; ++p) {
        if (!isPrimeByDivision(p)) continue;
        u64 expected = 2;
        while (orderByWalking(expected, p) != p - 1) ++expected;
        EXPECT_EQ(utils::findPrimitiveRoot(p), expected) << p;
    }
}

TEST(FindPrimitiveRoot, KnowsTheRootsOfFamousPrimes) {
    EXPECT_EQ(utils::findPrimitiveRoot(65537), 3U);
    EXPECT_EQ(utils::findPrimitiveRoot(998244353), 3U);
    EXPECT_EQ(utils::findPrimitiveRoot(1000000007), 5U);
    EXPECT_EQ(utils::findPrimitiveRoot(0x1ffffffffc000001), 3U);
}

TEST(FindPrimitiveRoot, IsZeroWhereNoneIsFound) {
    EXPECT_EQ(utils::findPrimitiveRoot(2), 0U);
}

/// The walk as one would do it by hand: every candidate in order of distance, tested by GMP.
std::vector<unsigned long> walk(u64 center, u64 gap, u64 number, bool onlySmaller) {
    std::vector<unsigned long> found;
    for (u64 distance = 0; found.size() < number; distance += gap) {
        if (!onlySmaller && isPrimeByGMP(center + 1 + distance)) found.push_back(center + 1 + distance);
        if (distance != 0 && found.size() < number && isPrimeByGMP(center + 1 - distance))
            found.push_back(center + 1 - distance);
    }
    return found;
}

TEST(SeekPrimes, WalksUpAndDownInOrderOfDistance) {
    for (u64 bits : {30UL, 36UL, 51UL, 60UL})
        EXPECT_EQ(utils::seekPrimes(1UL << bits, 1UL << 14, 9, false),
                  walk(1UL << bits, 1UL << 14, 9, false));
}

TEST(SeekPrimes, OnlyWalksDownWhenAskedForSmallerOnes) {
    const auto primes = utils::seekPrimes(1UL << 45, 1UL << 12, 12, true);
    EXPECT_EQ(primes, walk(1UL << 45, 1UL << 12, 12, true));
    EXPECT_TRUE(std::is_sorted(primes.rbegin(), primes.rend()));
    for (u64 p : primes) {
        EXPECT_LT(p, 1UL << 45);
        EXPECT_EQ(p % (1UL << 12), 1U);
    }
}

TEST(SeekPrimes, TakesTheCentreFirstWhenItIsPrime) {
    // 65537 = 65536 + 1; the next are 90 below and 120 above it.
    EXPECT_THAT(utils::seekPrimes(65536, 30, 3, false), ElementsAre(65537, 65447, 65657));
    EXPECT_EQ(utils::seekPrimes(65536, 30, 1, true).front(), 65447U);
}

TEST(SeekPrimes, StopsBetweenTheUpwardAndTheDownwardCandidate) {
    // 11 + 6 = 17 and 11 - 6 = 5 are both prime: the second result fills the list.
    EXPECT_THAT(utils::seekPrimes(10, 6, 2, false), ElementsAre(11, 17));
    EXPECT_THAT(utils::seekPrimes(10, 6, 3, false), ElementsAre(11, 17, 5));
}

TEST(SeekPrimes, GivesNoneWhenAskedForNone) {
    EXPECT_THAT(utils::seekPrimes(65536, 2, 0, false), IsEmpty());
}

TEST(SeekPrimes, RefusesANumberThatNoVectorHolds) {
    EXPECT_THROW_TEXT(utils::seekPrimes(65536, 2, 1UL << 60, false), std::length_error, "vector::reserve");
}

} // namespace
} // namespace Torvo::test
