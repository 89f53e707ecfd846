#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/Sanitizer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

namespace Torvo::test {
namespace {

const char* const foreign = "Operands are not of the ring of the generated context.";

Polynomial zero(const Context& context, u64 level, bool modUp = false, bool isNTT = true) {
    Polynomial p(context, modUp, isNTT, level);
    std::fill(p.getData().begin(), p.getData().end(), 0);
    return p;
}

/// A ring, and a longer one of one degree whose first three primes are the same.
struct Chains {
    Context own = makeContext(6, 3, 50, 40, 51, 1), longer = makeContext(6, 7, 50, 40, 51, 7);
    const PrimeModuli& primes = own->primes;
};

} // namespace

TEST(ForeignPolynomials, AreTakenWhereTheRowsInUseShareTheirPrimes) {
    const Chains chains;
    const Polynomial low = zero(chains.longer, 2), high = zero(chains.longer, 4), ours = zero(chains.own, 2);
    Polynomial out = zero(chains.own, 1);
    EXPECT_NO_THROW(chains.primes.add(low, ours, out));
    EXPECT_EQ(out.getLevel(), 2u);
    EXPECT_NO_THROW(chains.primes.hadamardMult(ours, high, out)) << "rows above the smaller level";
    EXPECT_REFUSED(chains.primes.negate(high, out), foreign);
    EXPECT_EQ(out.getLevel(), 2u) << "refused before the output was shaped";
}

TEST(ForeignPolynomials, OfOtherPrimesAreRefusedAsOperandsAndAsOutputs) {
    const Context own = ringOfDigits(2), other = ringOfOtherPrimes();
    const PrimeModuli& primes = own->primes;
    const Polynomial ours = zero(own, 3), theirs = zero(other, 3);
    Polynomial out = zero(own, 1), foreignOut = zero(other, 1), p = theirs;
    EXPECT_REFUSED(primes.add(ours, theirs, out), foreign);
    EXPECT_REFUSED(primes.sub(theirs, ours, out), foreign);
    EXPECT_REFUSED(primes.hadamardMult(ours, theirs, out), foreign);
    EXPECT_REFUSED(primes.constMult(theirs, 3, out), foreign);
    EXPECT_REFUSED(primes.forwardNTT(theirs, out), foreign);
    EXPECT_REFUSED(primes.frobeniusMapInNTT<true>(theirs, 5, out), foreign);
    EXPECT_REFUSED(primes.normalizeMod(out, theirs, 0, 1), foreign);
    EXPECT_REFUSED(primes.negate(ours, foreignOut), foreign);
    EXPECT_REFUSED(primes.rescale(p), foreign);
    EXPECT_REFUSED(primes.inverseRescale(p), foreign);
    EXPECT_REFUSED(primes.isZero(p), foreign);
    EXPECT_EQ(out.getLevel(), 1u);
    EXPECT_EQ(foreignOut.getLevel(), 1u);
    EXPECT_EQ(p.getLevel(), 3u);
}

TEST(ForeignPolynomials, OfAnotherSplitAreRefusedInTheModUpState) {
    const Context own = ringOfDigits(2), other = ringOfDigits(4);
    for (const auto& [ours, theirs] : {std::pair{own, other}, {other, own}}) {
        const PrimeModuli& primes = ours->primes;
        for (const u64 level : {0, 3}) {
            const Polynomial mine = zero(ours, level, true), foreignOne = zero(theirs, level, true);
            Polynomial out = zero(ours, level, true), second = out;
            EXPECT_REFUSED(primes.add(mine, foreignOne, out), foreign);
            EXPECT_REFUSED(primes.negate(foreignOne, out), foreign);
            const std::vector<Polynomial> digits{mine}, key{foreignOne};
            EXPECT_REFUSED(
                primes.innerProduct(digits.begin(), digits.end(), key.begin(), key.begin(), out, second),
                foreign);
        }
    }
}

TEST(ForeignPolynomials, ALevelSetByHandBeyondTheChainIsRefused) {
    const Context own = ringOfDigits(2); // four primes, and two temporary ones
    const PrimeModuli& primes = own->primes;
    for (const bool modUp : {false, true}) {
        for (const u64 level : {4, 5, 6, 100}) {
            SCOPED_TRACE(testing::Message() << "level " << level << (modUp ? ", mod-up" : ""));
            Polynomial p = zero(own, 3, modUp), out = zero(own, 1);
            p.setLevel(level);
            EXPECT_REFUSED(primes.negate(p, out), foreign);
            EXPECT_REFUSED(primes.hadamardMult(p, p, out), foreign);
            EXPECT_REFUSED(primes.rescale(p), foreign);
            EXPECT_REFUSED(primes.inverseRescale(p), foreign);
            EXPECT_REFUSED(primes.isZero(p), foreign);
            EXPECT_REFUSED(primes.normalizeMod(out, p, level, 2), foreign);
            EXPECT_EQ(p.getLevel(), level);
            EXPECT_EQ(out.getLevel(), 1u);
        }
    }
    Polynomial top = zero(own, 3);
    EXPECT_REFUSED(primes.inverseRescale(top), foreign);
    EXPECT_REFUSED(primes.normalizeMod(top, top, 0, 4), foreign);
    EXPECT_REFUSED(LevelledElement(-2, own, false, 4), foreign);
    EXPECT_REFUSED(LevelledElement(-2, own, true, 6), foreign);
    EXPECT_EQ(LevelledElement(-2, own, true, 5).getData().size(), 6u);
}

TEST(ForeignPolynomials, ALevelThatNoMemoryHoldsLeavesThePolynomialAsItWas) {
    Polynomial p = zero(ringOfDigits(2), 3);
    const u64* words = p.getRow(0);
    // (level + 1) * 64 words, which a word cannot count, and which would wrap around to none.
    EXPECT_THROW(p.setLevel((u64{1} << 58) - 1), std::bad_array_new_length);
    EXPECT_EQ(p.getLevel(), 3u);
    EXPECT_EQ(p.getData().size(), 256u);
    SKIP_WHERE_NEW_CANNOT_THROW();
    EXPECT_THROW(p.setLevel(u64{1} << 50), std::bad_alloc);
    EXPECT_EQ(p.getLevel(), 3u);
    EXPECT_EQ(p.getRow(0), words);
}

} // namespace Torvo::test
