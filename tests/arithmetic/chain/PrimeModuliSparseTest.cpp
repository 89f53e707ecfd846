#include "arithmetic/chain/PrimeModuliSparse.hpp"

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

namespace Torvo::test {
namespace {

/// A polynomial in X^gap on coefficients. Every fifth word is the prime itself, which stands for 0 too.
Polynomial sparse(const Context& context, u64 level, u64 gap, Seeded& random) {
    Polynomial p(context, false, false, level);
    p.clear();
    for (u64 i = 0; i <= level; ++i)
        for (u64 k = 0; k < p.getDegree(); k += gap)
            p.getRow(i)[k] = k / gap % 5 == 4 ? p.getPrimes()[i] : random.row(1, p.getPrimes()[i])[0];
    return p;
}

void expectTheWordsOfTheFullTransform(const Context& context, u64 level, u64 smallestGap, u64 seed) {
    Seeded random(seed);
    for (u64 gap = smallestGap; gap < context->parameter.degree; gap *= 2) {
        Polynomial fast = sparse(context, level, gap, random), full = fast;
        context->primes.forwardNTT(full, full);
        forwardNTTOfSparse(context->primes, fast, gap);
        EXPECT_TRUE(sameWords(fast, full)) << "gap " << gap << ' ' << random.describe();
    }
}

TEST(PrimeModuliSparse, MakesTheWordsOfTheFullOneForEveryGap) {
    for (u64 seed = 1; seed <= 5; ++seed)
        expectTheWordsOfTheFullTransform(makeContext(6, 4, 58, 45, 61, 2), seed % 4, 1, seed);
}

TEST(PrimeModuliSparseRealPreset, MakesTheWordsOfTheFullOneForEveryGap) {
    expectTheWordsOfTheFullTransform(makeContext(ParameterPreset::FGb), 2, 2, 6);
}

// A negative multiple of a prime is embedded as the prime itself.
TEST(PrimeModuliSparse, MakesZerosOfZerosInEitherForm) {
    const Context context = makeContext(6, 4, 58, 45, 61, 2);
    for (u64 gap = 1; gap < 64; gap *= 2) {
        Polynomial zero(context, false, false, 3);
        zero.clear();
        for (u64 i = 0; i <= 3; ++i)
            for (u64 k = 0; k < 64; k += gap) zero.getRow(i)[k] = k / gap % 3 == 0 ? zero.getPrimes()[i] : 0;
        forwardNTTOfSparse(context->primes, zero, gap);
        EXPECT_TRUE(context->primes.isZero(zero)) << gap;
    }
}

TEST(PrimeModuliSparse, RefusesAPolynomialOfOtherPrimes) {
    Polynomial foreign(ringOfOtherPrimes(), false, false, 1);
    foreign.clear();
    EXPECT_REFUSED(forwardNTTOfSparse(ringOfDigits(2)->primes, foreign, 2),
                   "Operands are not of the ring of the generated context.");
    EXPECT_FALSE(foreign.isNTT());
}

} // namespace
} // namespace Torvo::test
