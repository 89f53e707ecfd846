#include "encoding/CentredInteger.hpp"

#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/Contexts.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace Torvo {
namespace {

using test::BigInt;

/// Two primes of the FX chain, and integers modulo their product.
class TwoPrimes : public testing::Test {
protected:
    const PrimeModuli& primes = test::contextOf(ParameterPreset::FX)->primes;
    const u64 q0 = primes.getPrime(0), q1 = primes.getPrime(1);
    const BigInt product = BigInt(q0) * q1;

    double read(const BigInt& x) const {
        return TwoPrimeReader(primes)(test::wordResidueOf(x, q0), test::wordResidueOf(x, q1));
    }
    /// The magnitude is rounded to the nearest double.
    double nearest(const BigInt& x) const {
        const BigInt centred = test::centredResidueOf(x, product);
        const auto magnitude = static_cast<double>(static_cast<u128>(BigInt(abs(centred))));
        return centred < 0 ? -magnitude : magnitude;
    }
    void expectRead(const BigInt& x) const { EXPECT_EQ(read(x), nearest(x)) << x; }
};

TEST_F(TwoPrimes, AreReadAsTheIntegerNearestToZero) {
    test::Seeded random(71);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 2000; ++i) {
        const BigInt x = (BigInt(random.word()) << 64) + random.word();
        expectRead(x);
        expectRead(x >> random.below(128));
        expectRead(-(x >> random.below(128)));
    }
}

TEST_F(TwoPrimes, AreReadRightWhereOneFormOfTheSumFollowsAnother) {
    const BigInt half = product / 2;
    for (const BigInt& middle :
         std::vector<BigInt>{0, BigInt(q0), BigInt(q1), BigInt(q0) / 2, half, BigInt(2) * q0})
        for (int offset = -3; offset <= 3; ++offset) {
            expectRead(middle + offset);
            expectRead(-middle + offset);
        }
}

/// Numbers of more than 53 bits, halfway between two doubles or one beside that.
TEST_F(TwoPrimes, AreRoundedToTheNearestDouble) {
    const int bits = static_cast<int>(msb(product));
    ASSERT_GT(bits, 90);
    for (int top = 52; top < bits - 1; ++top)
        for (const u64 leading : {0x10000000000001u, 0x1fffffffffffffu, 0x15555555555554u}) {
            const int shift = top - 52;
            const BigInt x = BigInt(leading) << shift,
                         half = shift == 0 ? BigInt(0) : BigInt(1) << (shift - 1);
            for (const BigInt& y : std::vector<BigInt>{x, x + half - 1, x + half, x + half + 1}) {
                expectRead(y);
                expectRead(-y);
            }
        }
}

/// The residue of a negative multiple of a prime may be the prime itself.
TEST_F(TwoPrimes, AreReadRightWhereAResidueIsThePrimeItself) {
    const TwoPrimeReader reader(primes);
    for (int k = 1; k < 4; ++k) {
        const BigInt x = -BigInt(q0) * k, y = -BigInt(q1) * k;
        EXPECT_EQ(reader(q0, test::wordResidueOf(x, q1)), nearest(x));
        EXPECT_EQ(reader(test::wordResidueOf(y, q0), q1), nearest(y));
    }
    EXPECT_EQ(reader(0, q1), 0.0);
    EXPECT_EQ(reader(q0, 0), 0.0);
    EXPECT_EQ(reader(q0, q1), 0.0);
    EXPECT_FALSE(std::signbit(reader(q0, q1)));
}

} // namespace
} // namespace Torvo
