#include "arithmetic/kernels/Modulus.hpp"

#include "support/Expect.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/Seeded.hpp"
#include "support/WideArithmetic.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace Torvo::test {
namespace {

using testing::Each;
using testing::ElementsAre;

/// 257, 65537, the greatest primes of 28, 36, 50, 51, 53, 60 and 61 bits that are 1 modulo 128, the
/// smallest one of 51 bits, and those next to the end of floating point.
constexpr u64 primes[] = {257,
                          65537,
                          268432897,
                          68719474049,
                          1125899906840833,
                          1125899906843009,
                          2251799813684737,
                          2253998836531201,
                          2253998836940801,
                          9007199254740481,
                          1152921504606844417,
                          2305843009213689601};
/// The last primes below and the first ones above the powers of two at which sums of products take other limbs.
constexpr u64 primesAtLimbEnds[] = {2251799813685269,    4503599627370449,    4503599627370517,
                                    72057594037927889,   1152921504606846577, 1152921504606846883,
                                    1152921504606847009, 2305843009213693951};
/// Where every shift of the Barrett step is at its end.
constexpr u64 tinyPrimes[] = {3, 5, 7, 11, 13};
constexpr u64 lengths[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 64, 1000};

// ---- constants and words

TEST(Modulus, HoldsTheConstantsOfItsPrime) {
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        const u128 squareRatio = ~u128{0} / p; // floor(2^128 / p): p is odd
        EXPECT_EQ(modulus.getPrime(), p);
        EXPECT_EQ(modulus.getTwoP(), 2 * p);
        EXPECT_EQ(modulus.getDegree(), 64U);
        EXPECT_LE(u128{1} << modulus.getLogP(), p);
        EXPECT_GT(u128{1} << (modulus.getLogP() + 1), p);
        EXPECT_EQ(modulus.getBarrettRatio(), static_cast<u64>((u128{1} << (63 + modulus.getLogP())) / p));
        EXPECT_EQ(modulus.getBarrettHigh(), static_cast<u64>(squareRatio >> 64));
        EXPECT_EQ(modulus.getBarrettLow(), static_cast<u64>(squareRatio));
        EXPECT_EQ(modulus.getWordRemainder(), widePower(4, 32, p));
        EXPECT_FALSE(modulus.hasNTT());
    }
}

TEST(Modulus, BuildsItsTransformOnlyWhenAsked) {
    EXPECT_TRUE(Modulus(64, 257, true).hasNTT());
    EXPECT_FALSE(Modulus(64, 257, false).hasNTT());
    EXPECT_REFUSED(Modulus(32, 257, true), "[NTT] degree should be >= 64.");
}

TEST(Modulus, MovesItsWordsAndItsTransform) {
    Modulus source(64, 257, true);
    const NTT* transform = &source.getNTT();
    Modulus target(128, 65537, false);
    target = std::move(source);
    EXPECT_EQ(target.getPrime(), 257U);
    EXPECT_EQ(target.getDegree(), 64U);
    EXPECT_EQ(&target.getNTT(), transform);
    EXPECT_FALSE(source.hasNTT()); // NOLINT(bugprone-use-after-move): emptied, as promised
}

std::vector<u64> interestingWords(u64 p, Seeded& random) {
    std::vector<u64> words{0,         1,         2,         p - 1,     p,        p + 1,
                           2 * p - 1, 4 * p - 1, 1UL << 32, 1UL << 63, ~0UL - 1, ~0UL};
    for (int i = 0; i < 200; ++i) words.push_back(random.word());
    return words;
}

TEST(Modulus, ReducesAnyWordAndAnyPairOfWords) {
    Seeded random(21);
    SCOPED_TRACE(random.describe());
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        const auto words = interestingWords(p, random);
        for (u64 x : words) {
            ASSERT_EQ(modulus.reduce(x), x % p) << x << " mod " << p;
            for (u64 high : words) {
                const u128 wide = u128{high} << 64 | x;
                ASSERT_EQ(modulus.reduce(wide), static_cast<u64>(wide % p))
                    << high << ":" << x << " mod " << p;
            }
        }
    }
}

TEST(Modulus, ComputesOnWordsAsWideIntegersDo) {
    Seeded random(22);
    SCOPED_TRACE(random.describe());
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        const auto words = random.row(60, p);
        for (u64 a : words) {
            EXPECT_EQ(modulus.negate(a), wideSub(0, a, p));
            if (a != 0) {
                EXPECT_EQ(wideMul(modulus.inverse(a), a, p), 1U);
            }
            for (u64 b : words) {
                ASSERT_EQ(modulus.add(a, b), wideAdd(a, b, p));
                ASSERT_EQ(modulus.sub(a, b), wideSub(a, b, p));
                ASSERT_EQ(modulus.mult(a, b), wideMul(a, b, p));
                ASSERT_EQ(modulus.power(a, b), widePower(a, b, p));
            }
        }
    }
}

TEST(Modulus, ComputesModuloTinyPrimesToo) {
    for (u64 p : tinyPrimes) {
        const Modulus modulus(64, p, false);
        for (u64 a = 0; a < p; ++a) {
            for (u64 b = 0; b < p; ++b) {
                EXPECT_EQ(modulus.add(a, b), (a + b) % p);
                EXPECT_EQ(modulus.sub(a, b), (a + p - b) % p);
                EXPECT_EQ(modulus.mult(a, b), a * b % p);
            }
        }
    }
}

TEST(Modulus, TheResidueOfANegativeMultipleOfThePrimeIsThePrime) {
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        EXPECT_EQ(modulus.residue(0), 0U);
        EXPECT_EQ(modulus.residue(i128{5} * p), 0U);
        EXPECT_EQ(modulus.residue(-i128{5} * p), p);
        EXPECT_EQ(modulus.residue(-1), p - 1);
        EXPECT_EQ(modulus.residue(i128{p} + 3), 3U);
        EXPECT_EQ(modulus.residue(-i128{p} - 3), p - 3);
    }
}

TEST(Modulus, TheResidueOfTheExtremeIntegersIsRight) {
    const auto greatest = static_cast<i128>(~u128{0} >> 1);
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        EXPECT_EQ(modulus.residue(greatest), static_cast<u64>(greatest % static_cast<i128>(p)));
        const u64 magnitude = static_cast<u64>((u128{1} << 127) % p); // of the least integer
        EXPECT_EQ(modulus.residue(-greatest - 1), p - magnitude);
    }
}

TEST(MakeInteger, DropsTheFractionAndKeepsTheSign) {
    const u64 p = 68719474049;
    const Modulus modulus(64, p, false);
    EXPECT_EQ(modulus.makeInteger(1.5, 0.0), 1U);
    EXPECT_EQ(modulus.makeInteger(-1.5, 0.0), p - 1);
    EXPECT_EQ(modulus.makeInteger(0.999, 0.0), 0U);
    EXPECT_EQ(modulus.makeInteger(0.75, 2.0), 3U);
    EXPECT_EQ(modulus.makeInteger(3.0, -1.0), 1U);
}

TEST(MakeInteger, GivesExactlyThePrimeForANegativeValueThatTruncatesToAMultipleOfIt) {
    const u64 p = 68719474049;
    const Modulus modulus(64, p, false);
    EXPECT_EQ(modulus.makeInteger(0.0, 0.0), 0U);
    EXPECT_EQ(modulus.makeInteger(-0.0, 0.0), 0U);
    EXPECT_EQ(modulus.makeInteger(-0.25, 0.0), p);
    EXPECT_EQ(modulus.makeInteger(-static_cast<double>(p), 0.0), p);
    EXPECT_EQ(modulus.makeInteger(static_cast<double>(p), 0.0), 0U);
}

TEST(MakeInteger, IsRightForIntegersOfTwoWords) {
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        for (int exponent : {60, 63, 64, 65, 90, 100, 120}) {
            // 5 / 4 * 2^exponent is an integer that a double holds exactly.
            const u64 expected = wideMul(5 % p, widePower(2, static_cast<u64>(exponent - 2), p), p);
            EXPECT_EQ(modulus.makeInteger(1.25, exponent), expected) << p << " 2^" << exponent;
            EXPECT_EQ(modulus.makeInteger(-1.25, exponent), p - expected) << p << " 2^" << exponent;
        }
    }
}

// ---- rows, in every form

class RowKernels : public testing::TestWithParam<KernelForm> {
protected:
    void SetUp() override {
        SKIP_UNLESS_PROCESSOR_RUNS(GetParam());
        forced_.emplace(GetParam());
    }

    std::optional<ForcedFeature> forced_;
    Seeded random_{23};
};

INSTANTIATE_TEST_SUITE_P(EveryForm, RowKernels, testing::ValuesIn(everyForm), formName);

/// Runs `kernel(modulus, out, a, b, n)` for every prime and length, with `out` apart, equal to a, equal to b
/// and equal to both, and compares word by word with `expected(a[i], b[i], p)`.
template <class Kernel, class Expected>
void expectWordwise(Seeded& random, u64 rangeOfInputs, Kernel kernel, Expected expected) {
    SCOPED_TRACE(random.describe());
    for (u64 p : primes) {
        for (u64 n : lengths) {
            SCOPED_TRACE(testing::Message() << "p=" << p << " n=" << n);
            const Modulus modulus(n, p, false);
            const auto a = random.row(n, rangeOfInputs == 0 ? p : rangeOfInputs);
            auto b = random.row(n, p);
            std::reverse(b.begin(), b.end());
            std::vector<u64> apart(n);
            auto overA = a;
            auto overB = b;
            auto overBoth = a;
            kernel(modulus, apart.data(), a.data(), b.data(), n);
            kernel(modulus, overA.data(), overA.data(), b.data(), n);
            kernel(modulus, overB.data(), a.data(), overB.data(), n);
            kernel(modulus, overBoth.data(), overBoth.data(), overBoth.data(), n);
            for (u64 i = 0; i < n; ++i) {
                ASSERT_EQ(apart[i], expected(a[i], b[i], p)) << "i=" << i;
                ASSERT_EQ(overA[i], apart[i]) << "i=" << i;
                ASSERT_EQ(overB[i], apart[i]) << "i=" << i;
                ASSERT_EQ(overBoth[i], expected(a[i], a[i] % p, p)) << "i=" << i;
            }
        }
    }
}

TEST_P(RowKernels, AddVectorGivesTheSum) {
    expectWordwise(
        random_, 0,
        [](const Modulus& m, u64* out, const u64* a, const u64* b, u64 n) { m.addVector(out, a, b, n); },
        wideAdd);
}

TEST_P(RowKernels, SubVectorGivesTheDifference) {
    expectWordwise(
        random_, 0,
        [](const Modulus& m, u64* out, const u64* a, const u64* b, u64 n) { m.subVector(out, a, b, n); },
        wideSub);
}

TEST_P(RowKernels, MulVectorGivesTheProduct) {
    expectWordwise(
        random_, 0,
        [](const Modulus& m, u64* out, const u64* a, const u64* b, u64 n) { m.mulVector(out, a, b, n); },
        wideMul);
}

TEST_P(RowKernels, NegateVectorKeepsZero) {
    expectWordwise(
        random_, 0,
        [](const Modulus& m, u64* out, const u64* a, const u64*, u64 n) { m.negateVector(out, a, n); },
        [](u64 a, u64, u64 p) { return a == 0 ? 0 : p - a; });
}

/// The residue of a signed word, from a 128-bit division.
u64 residueOfSigned(u64 word, u64 p) {
    const auto x = static_cast<i128>(static_cast<std::int64_t>(word));
    return x < 0 ? p - static_cast<u64>(-x % static_cast<i128>(p)) : static_cast<u64>(x) % p;
}

TEST_P(RowKernels, ResidueVectorGivesTheResidueOfSignedWords) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : primes) {
        for (const u64 bound : {u64{1}, p, p + 1, 3 * p + 1, u64{1} << 63}) {
            for (u64 n : lengths) {
                auto in = random_.row(n, bound);
                for (u64 i = 0; i < n; i += 3) in[i] = -in[i];
                // Where the greatest magnitude reaches the prime, so do its negative and a multiple.
                if (n > 5 && bound > p) in[2] = in[5] = bound > 2 * p ? -2 * p : -p;
                std::vector<u64> out(n);
                auto over = in;
                const Modulus modulus(n, p, false);
                modulus.residueVector(in.data(), bound - 1, out.data(), n);
                modulus.residueVector(over.data(), bound - 1, over.data(), n);
                EXPECT_EQ(over, out);
                for (u64 i = 0; i < n; ++i)
                    ASSERT_EQ(out[i], residueOfSigned(in[i], p)) << "p=" << p << " n=" << n << " i=" << i;
            }
        }
    }
}

TEST_P(RowKernels, ConstAddTakesAnyWordAsConstant) {
    for (u64 c : {0UL, 1UL, 256UL, 68719474048UL, ~0UL}) {
        expectWordwise(
            random_, 0,
            [c](const Modulus& m, u64* out, const u64* a, const u64*, u64 n) { m.constAdd(a, c, out, n); },
            [c](u64 a, u64, u64 p) { return wideAdd(a, c % p, p); });
    }
}

/// Shoup's product as its formula says, with the companion from a 128-bit division.
u64 lazyProduct(u64 x, u64 c, u64 p) {
    const u64 companion = static_cast<u64>((u128{c % p} << 64) / p);
    return c % p * x - static_cast<u64>(u128{x} * companion >> 64) * p;
}

TEST_P(RowKernels, ConstMultTakesAnyWordAndAnyConstant) {
    for (u64 c : {0UL, 1UL, 256UL, 68719474049UL, 2305843009213689600UL, ~0UL}) {
        expectWordwise(
            random_, ~0UL,
            [c](const Modulus& m, u64* out, const u64* a, const u64*, u64 n) {
                m.constMult<1>(a, c, out, n);
            },
            [c](u64 a, u64, u64 p) { return wideMul(a, c, p); });
    }
}

TEST_P(RowKernels, ConstMultIntoRangeTwoLeavesTheLazyProduct) {
    for (u64 c : {0UL, 1UL, 256UL, 68719474049UL, 2305843009213689600UL, ~0UL}) {
        expectWordwise(
            random_, ~0UL,
            [c](const Modulus& m, u64* out, const u64* a, const u64*, u64 n) {
                m.constMult<2>(a, c, out, n);
            },
            [c](u64 a, u64, u64 p) {
                const u64 r = lazyProduct(a, c, p);
                EXPECT_LT(r, 2 * p);
                EXPECT_EQ(r % p, wideMul(a, c, p));
                return r;
            });
    }
}

TEST_P(RowKernels, ConstMultByZeroOrByThePrimeGivesZero) {
    for (u64 p : primes) {
        const Modulus modulus(64, p, false);
        const auto in = random_.row(64, ~0UL);
        for (u64 c : {u64{0}, p}) {
            std::vector<u64> out(64, 1);
            modulus.constMult<2>(in.data(), c, out.data(), 64);
            EXPECT_THAT(out, Each(0U));
        }
    }
}

TEST_P(RowKernels, SubAndConstMultGivesTheProductOfTheDifference) {
    for (u64 c : {0UL, 1UL, 68719474050UL, ~0UL}) {
        expectWordwise(
            random_, 0,
            [c](const Modulus& m, u64* out, const u64* a, const u64* b, u64 n) {
                m.subAndConstMult<1>(a, b, c, out, n);
            },
            [c](u64 a, u64 b, u64 p) { return wideMul(wideSub(a, b, p), c, p); });
        expectWordwise(
            random_, 0,
            [c](const Modulus& m, u64* out, const u64* a, const u64* b, u64 n) {
                m.subAndConstMult<2>(a, b, c, out, n);
            },
            [c](u64 a, u64 b, u64 p) { return lazyProduct(a + p - b, c, p); });
    }
}

TEST_P(RowKernels, TwoProductsWithOneFactorAreTheTwoProducts) {
    for (u64 p : primes) {
        const u64 n = 64;
        const Modulus modulus(n, p, false);
        const auto a = random_.row(n, p), b1 = random_.row(n, p), b2 = random_.row(n, p);
        std::vector<u64> out1(n), out2(n);
        modulus.mulVector(out1.data(), out2.data(), a.data(), b1.data(), b2.data());
        auto overA = a, overB1 = b1, overB2 = b2, over1 = a;
        modulus.mulVector(overB1.data(), overB2.data(), a.data(), overB1.data(), overB2.data());
        modulus.mulVector(overA.data(), over1.data(), overA.data(), b1.data(), b2.data());
        for (u64 i = 0; i < n; ++i) {
            ASSERT_EQ(out1[i], wideMul(a[i], b1[i], p));
            ASSERT_EQ(out2[i], wideMul(a[i], b2[i], p));
        }
        EXPECT_EQ(overB1, out1);
        EXPECT_EQ(overB2, out2);
        EXPECT_EQ(overA, out1);
        EXPECT_EQ(over1, out2);
    }
}

TEST_P(RowKernels, MulAddVectorAddsTheTwoProducts) {
    for (u64 p : primes) {
        const u64 n = 64;
        const Modulus modulus(n, p, false);
        const auto a = random_.row(n, p), b1 = random_.row(n, p), b2 = random_.row(n, p);
        const auto before1 = random_.row(n, p), before2 = random_.row(n, p);
        auto acc1 = before1, acc2 = before2, overA = a;
        modulus.mulAddVector(acc1.data(), acc2.data(), a.data(), b1.data(), b2.data());
        for (u64 i = 0; i < n; ++i) {
            ASSERT_EQ(acc1[i], wideAdd(before1[i], wideMul(a[i], b1[i], p), p));
            ASSERT_EQ(acc2[i], wideAdd(before2[i], wideMul(a[i], b2[i], p), p));
        }
        auto other = before2;
        modulus.mulAddVector(overA.data(), other.data(), overA.data(), b1.data(), b2.data());
        for (u64 i = 0; i < n; ++i) ASSERT_EQ(overA[i], wideAdd(a[i], wideMul(a[i], b1[i], p), p));
        EXPECT_EQ(other, acc2);
    }
}

TEST_P(RowKernels, TensorVectorIsTheProductOfTwoLinearPolynomials) {
    for (u64 p : primes) {
        const u64 n = 64;
        const Modulus modulus(n, p, false);
        const auto x = random_.row(n, p), y = random_.row(n, p), z = random_.row(n, p), w = random_.row(n, p);
        std::vector<u64> out0(n), out1(n), out2(n);
        modulus.tensorVector(out0.data(), out1.data(), out2.data(), x.data(), y.data(), z.data(), w.data());
        for (u64 i = 0; i < n; ++i) {
            ASSERT_EQ(out0[i], wideAdd(wideMul(x[i], w[i], p), wideMul(y[i], z[i], p), p));
            ASSERT_EQ(out1[i], wideMul(y[i], w[i], p));
            ASSERT_EQ(out2[i], wideMul(x[i], z[i], p));
        }
        auto overX = x, overY = y, overZ = z;
        modulus.tensorVector(overX.data(), overY.data(), overZ.data(), overX.data(), overY.data(),
                             overZ.data(), w.data());
        EXPECT_EQ(overX, out0);
        EXPECT_EQ(overY, out1);
        EXPECT_EQ(overZ, out2);
    }
}

TEST_P(RowKernels, TensorVectorSquares) {
    const u64 p = 2305843009213689601, n = 64;
    const Modulus modulus(n, p, false);
    const auto x = random_.row(n, p), y = random_.row(n, p);
    std::vector<u64> out0(n), out1(n), out2(n);
    modulus.tensorVector(out0.data(), out1.data(), out2.data(), x.data(), y.data(), x.data(), y.data());
    for (u64 i = 0; i < n; ++i) ASSERT_EQ(out0[i], wideMul(2, wideMul(x[i], y[i], p), p));
}

/// Pairs (q, p), p smaller, as near, greater and far greater than q.
struct Change {
    u64 q;
    u64 p;
};
constexpr Change changes[] = {{68719474049, 68719473793},          {68719473793, 68719474049},
                              {65537, 2305843009213689601},        {2305843009213689601, 257},
                              {2305843009213689601, 68719474049},  {2251799813684737, 9007199254740481},
                              {9007199254740481, 2251799813684737}};

/// x modulo q, centred on zero, modulo p.
u64 centred(u64 x, u64 q, u64 p) {
    return x > q / 2 ? wideSub(0, (q - x) % p, p) : x % p;
}

std::vector<u64> rowWithMiddle(Seeded& random, u64 n, u64 q) {
    auto row = random.row(n, q);
    for (u64 i = 0; i < std::min<u64>(n, 6); ++i) row[n - 1 - i] = q / 2 - 2 + i;
    return row;
}

TEST_P(RowKernels, NormalizeModVectorCarriesCentredWords) {
    SCOPED_TRACE(random_.describe());
    for (auto [q, p] : changes) {
        // With q / 2 <= p the words are not reduced: they must then be small enough already.
        const bool far = q / 2 > p;
        for (u64 n : lengths) {
            const Modulus modulus(n, p, false);
            const auto in = rowWithMiddle(random_, n, q);
            std::vector<u64> out(n);
            auto over = in;
            modulus.normalizeModVector(out.data(), in.data(), q, n);
            modulus.normalizeModVector(over.data(), over.data(), q, n);
            EXPECT_EQ(over, out);
            for (u64 i = 0; i < n; ++i) {
                ASSERT_EQ(out[i] % p, centred(in[i], q, p)) << "q=" << q << " p=" << p << " in=" << in[i];
                if (far) {
                    ASSERT_LT(out[i], p);
                }
                ASSERT_EQ(out[i], far ? out[i] % p : in[i] + (in[i] > q / 2 ? p - q : 0));
            }
        }
    }
}

TEST_P(RowKernels, NormalizeModAndConstMultMultipliesWhatItCarries) {
    SCOPED_TRACE(random_.describe());
    const u64 n = 64;
    for (auto [q, p] : changes) {
        const Modulus modulus(n, p, false);
        for (u64 c : {0UL, 1UL, 68719474050UL, ~0UL}) {
            const auto in = rowWithMiddle(random_, n, q);
            const auto before = random_.row(n, 2 * p);
            std::vector<u64> out(n);
            auto sum = before, over = in;
            modulus.normalizeModAndConstMult<false>(in.data(), c, q, out.data());
            modulus.normalizeModAndConstMult<true>(in.data(), c, q, sum.data());
            modulus.normalizeModAndConstMult<false>(over.data(), c, q, over.data());
            EXPECT_EQ(over, out);
            for (u64 i = 0; i < n; ++i) {
                const u64 product = wideMul(centred(in[i], q, p), c, p);
                ASSERT_LT(out[i], 2 * p);
                ASSERT_LT(sum[i], 2 * p);
                ASSERT_EQ(out[i] % p, product) << "q=" << q << " p=" << p << " in=" << in[i];
                ASSERT_EQ(sum[i] % p, wideAdd(product, before[i], p));
                const u64 lazySum = before[i] + out[i];
                ASSERT_EQ(sum[i], lazySum >= 2 * p ? lazySum - 2 * p : lazySum);
            }
        }
    }
}

/// Sources of a base conversion: stacked rows, one per prime, and a constant per row at stride 2.
struct Sources {
    Sources(u64 n, u64 count, u64 p, Seeded& random, bool extreme) : degree(n), constants(2 * count) {
        for (u64 r = 0; r < count; ++r) {
            const u64 q = primes[(r * 5 + n + p) % std::size(primes)];
            moduli.emplace_back(n, q, false);
            const auto row = extreme ? std::vector<u64>(n, q - 1) : rowWithMiddle(random, n, q);
            rows.insert(rows.end(), row.begin(), row.end());
            constants[2 * r] = extreme ? p - 1 : random.below(p);
        }
    }

    std::vector<u64> lifted() const {
        auto result = rows;
        for (u64 r = 0; r < moduli.size(); ++r) moduli[r].liftCentred(result.data() + r * degree);
        return result;
    }

    u64 expected(u64 i, u64 p) const {
        u64 sum = 0;
        for (u64 r = 0; r < moduli.size(); ++r)
            sum = wideAdd(
                sum, wideMul(centred(rows[r * degree + i], moduli[r].getPrime(), p), constants[2 * r], p), p);
        return sum;
    }

    u64 degree;
    std::vector<Modulus> moduli;
    std::vector<u64> rows;
    std::vector<u64> constants;
};

TEST_P(RowKernels, SumCentredProductsConvertsFromManyModuli) {
    SCOPED_TRACE(random_.describe());
    for (u64 p : primes) {
        for (u64 n : {8UL, 64UL}) {
            for (u64 count : {1UL, 2UL, 3UL, 7UL, 8UL, 9UL, 16UL, 17UL, 41UL}) {
                for (bool extreme : {false, true}) {
                    SCOPED_TRACE(testing::Message() << "p=" << p << " n=" << n << " count=" << count);
                    const Modulus modulus(n, p, false);
                    const Sources from(n, count, p, random_, extreme);
                    std::vector<u64> out(n);
                    modulus.sumCentredProducts(from.lifted().data(), from.moduli.data(),
                                               from.constants.data(), 2, count, out.data());
                    for (u64 i = 0; i < n; ++i) ASSERT_EQ(out[i], from.expected(i, p)) << "i=" << i;
                }
            }
        }
    }
}

TEST_P(RowKernels, LiftCentredPutsResiduesNextToZeroInOrder) {
    for (u64 p : primes) {
        const u64 n = 8, half = p / 2;
        std::vector<u64> row{0, 1, half, half + 1, p - 1, half - 1, half + 2, 2};
        Modulus(n, p, false).liftCentred(row.data());
        EXPECT_THAT(row, ElementsAre(half, half + 1, 2 * half, 0, half - 1, 2 * half - 1, 1, half + 2));
    }
}

TEST_P(RowKernels, SumCentredProductsCarriesItsGreatestSums) {
    // All factors at their greatest, for primes at both ends of each number and size of limbs: a lifted word of
    // q - 1 was (q - 1) / 2.
    const u64 n = 16;
    for (u64 p : primesAtLimbEnds) {
        const Modulus modulus(n, p, false);
        for (u64 count = 1; count <= 33; ++count) {
            std::vector<Modulus> moduli;
            for (u64 r = 0; r < count; ++r) moduli.emplace_back(n, p, false);
            const std::vector<u64> rows(n * count, p - 1), constants(count, p - 1);
            std::vector<u64> out(n);
            modulus.sumCentredProducts(rows.data(), moduli.data(), constants.data(), 1, count, out.data());
            EXPECT_THAT(out, Each(wideMul(wideMul(p / 2, p - 1, p), count, p))) << count;
        }
    }
}

TEST_P(RowKernels, SumProductsAddsUpBothSums) {
    SCOPED_TRACE(random_.describe());
    std::vector<u64> moduli(std::begin(primes), std::end(primes));
    moduli.insert(moduli.end(), std::begin(primesAtLimbEnds), std::end(primesAtLimbEnds));
    for (u64 p : moduli) {
        const u64 n = 64;
        const Modulus modulus(n, p, false);
        for (u64 count : {1UL, 2UL, 3UL, 4UL, 15UL, 16UL, 17UL, 40UL}) {
            for (bool extreme : {false, true}) {
                const auto rowsOfWords = [&] {
                    return extreme ? std::vector<u64>(n * count, p - 1) : random_.row(n * count, p);
                };
                const auto a = rowsOfWords(), x = rowsOfWords(), y = rowsOfWords();
                std::vector<u64> out1(n), out2(n);
                const auto term = [&](u64 j) {
                    return rows::ProductTerm{a.data() + j * n, x.data() + j * n, y.data() + j * n};
                };
                modulus.sumProducts(count, term, out1.data(), out2.data());
                std::vector<u64> first1(n, 7), first2(n, 7); // of 24 words, and no more
                modulus.sumProductsOf(24, count, term, first1.data(), first2.data());
                EXPECT_TRUE(std::equal(first1.begin(), first1.begin() + 24, out1.begin()));
                EXPECT_TRUE(std::equal(first2.begin(), first2.begin() + 24, out2.begin()));
                EXPECT_EQ(first1[24], 7U);
                EXPECT_EQ(first2[24], 7U);
                for (u64 i = 0; i < n; ++i) {
                    u64 sum1 = 0, sum2 = 0;
                    for (u64 j = 0; j < count; ++j) {
                        sum1 = wideAdd(sum1, wideMul(a[j * n + i], x[j * n + i], p), p);
                        sum2 = wideAdd(sum2, wideMul(a[j * n + i], y[j * n + i], p), p);
                    }
                    ASSERT_EQ(out1[i], sum1) << "p=" << p << " count=" << count << " i=" << i;
                    ASSERT_EQ(out2[i], sum2) << "p=" << p << " count=" << count << " i=" << i;
                }
            }
        }
    }
}

// ---- rows that have a scalar form only

TEST(InnerProduct, IsTheSumOfTheProducts) {
    Seeded random(24);
    SCOPED_TRACE(random.describe());
    for (u64 p : primes) {
        for (u64 n : lengths) {
            const Modulus modulus(n, p, false);
            const auto a = random.row(n, p), b = random.row(n, p);
            u64 expected = 0;
            for (u64 i = 0; i < n; ++i) expected = wideAdd(expected, wideMul(a[i], b[i], p), p);
            u64 out = 1;
            modulus.innerProduct(a.data(), b.data(), &out, n);
            EXPECT_EQ(out, expected) << p << " n=" << n;
        }
    }
}

TEST(InnerProduct, KeepsItsCarriesOnALongRowOfGreatestWords) {
    const u64 p = 2305843009213689601, n = 1UL << 17;
    const Modulus modulus(n, p, false);
    const std::vector<u64> greatest(n, p - 1);
    u64 out = 0;
    modulus.innerProduct(greatest.data(), greatest.data(), &out, n);
    EXPECT_EQ(out, n); // (-1)^2, n times
}

TEST(InnerProduct, OfNothingIsZero) {
    const Modulus modulus(64, 257, false);
    u64 out = 5;
    modulus.innerProduct(nullptr, nullptr, &out, 0);
    EXPECT_EQ(out, 0U);
}

TEST(IsZero, SeesEveryWord) {
    const Modulus modulus(64, 257, false);
    std::vector<u64> row(64, 0);
    EXPECT_TRUE(modulus.isZero(row.data()));
    for (u64 i = 0; i < 64; ++i) {
        row[i] = 1;
        EXPECT_FALSE(modulus.isZero(row.data())) << i;
        row[i] = 0;
    }
}

/// The monomial X^k of the negacyclic ring, -n < k < n: X^-m is -X^(n - m).
std::vector<u64> monomial(u64 n, long k, u64 p) {
    std::vector<u64> row(n, 0);
    if (k >= 0) {
        row[static_cast<u64>(k)] = 1;
    } else {
        row[n - static_cast<u64>(-k)] = p - 1;
    }
    return row;
}

TEST(MultMonomial, MultipliesInTheNegacyclicRing) {
    Seeded random(25);
    SCOPED_TRACE(random.describe());
    for (u64 p : {257UL, 2305843009213689601UL}) {
        for (u64 n : {1UL, 2UL, 16UL, 64UL}) {
            const Modulus modulus(n, p, false);
            const auto in = random.row(n, p);
            for (long k = 1 - static_cast<long>(n); k < static_cast<long>(n); ++k) {
                std::vector<u64> out(n);
                modulus.multMonomial(in.data(), out.data(), n, k);
                ASSERT_EQ(out, negacyclicProduct(in, monomial(n, k, p), p)) << "n=" << n << " k=" << k;
            }
        }
    }
}

TEST(MultMonomial, ByXMovesTheLastCoefficientNegatedToTheFront) {
    const Modulus modulus(4, 257, false);
    std::vector<u64> out(4);
    modulus.multMonomial(std::vector<u64>{1, 2, 3, 4}.data(), out.data(), 4, 1);
    EXPECT_THAT(out, ElementsAre(253, 1, 2, 3));
    modulus.multMonomial(std::vector<u64>{1, 2, 3, 0}.data(), out.data(), 4, 1);
    EXPECT_THAT(out, ElementsAre(0, 1, 2, 3)); // never p
    modulus.multMonomial(std::vector<u64>{0, 2, 3, 4}.data(), out.data(), 4, -1);
    EXPECT_THAT(out, ElementsAre(2, 3, 4, 0));
}

TEST(ConjugateInvert, IsTheSubstitutionOfTheInverseTimesAMonomial) {
    Seeded random(26);
    SCOPED_TRACE(random.describe());
    const u64 p = 68719474049, n = 16;
    const Modulus modulus(n, p, false);
    const auto in = random.row(n, p);
    std::vector<u64> inverted(n, 0); // in(X^-1): X^-j is -X^(n - j)
    inverted[0] = in[0];
    for (u64 j = 1; j < n; ++j) inverted[n - j] = wideSub(0, in[j], p);
    for (u64 k = 0; k < n; ++k) {
        std::vector<u64> out(n);
        modulus.conjugateInvert(in.data(), out.data(), n, k);
        ASSERT_EQ(out, negacyclicProduct(inverted, monomial(n, static_cast<long>(k), p), p)) << k;
    }
}

TEST(ConjugateInvert, WithExponentZeroKeepsTheFirstAndReversesTheOthersNegated) {
    const Modulus modulus(4, 257, false);
    std::vector<u64> out(4);
    modulus.conjugateInvert(std::vector<u64>{1, 2, 0, 4}.data(), out.data(), 4, 0);
    EXPECT_THAT(out, ElementsAre(1, 253, 0, 255));
}

} // namespace
} // namespace Torvo::test
