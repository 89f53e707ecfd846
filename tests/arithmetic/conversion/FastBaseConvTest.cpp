#include "arithmetic/conversion/FastBaseConv.hpp"

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/PinnedWords.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <omp.h>
#include <span>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

using namespace test;

/// A ring of degree 64, or of a preset, with what its oracle needs.
class World {
public:
    explicit World(Context made) : context(std::move(made)), conversion(context), ring(ringOf(context)) {
        primes = getPrimeList(context);
        groupSize = ring.numBase / ring.gadget_rank;
        P = productOf(slice(primes, ring.numBase, primes.size()));
    }

    BigInt digitModulus(u64 g) const { return productOf(slice(primes, g * groupSize, (g + 1) * groupSize)); }

    Context context;
    FastBaseConv conversion;
    Ring ring;
    std::vector<u64> primes;
    u64 groupSize;
    BigInt P;
};

/// Digits of one, two, three and four primes; the last has one digit.
std::list<World> worlds() {
    std::list<World> made;
    made.emplace_back(makeContext(6, 3, 50, 42, 51, 3));
    made.emplace_back(makeContext(6, 4, 60, 42, 61, 2));
    made.emplace_back(makeContext(6, 6, 50, 42, 50, 2));
    made.emplace_back(makeContext(6, 4, 42, 42, 46, 1));
    return made;
}

Polynomial randomPolynomial(const World& world, u64 level, bool modUp, bool isNTT, Seeded& random) {
    Polynomial poly(world.context, modUp, isNTT);
    poly.setLevel(level);
    for (u64 i = 0; i < poly.rowEnd(); ++i) {
        if (!poly.isLiveRow(i)) continue;
        const auto row = random.row(world.ring.degree, world.primes[i]);
        std::copy(row.begin(), row.end(), poly.getRow(i));
    }
    return poly;
}

Ciphertext randomModUp(const World& world, u64 level, Seeded& random) {
    Ciphertext ciphertext(world.context, true);
    ciphertext.setLevel(level);
    for (u64 k = 0; k < 2; ++k) ciphertext.getPoly(k) = randomPolynomial(world, level, true, true, random);
    return ciphertext;
}

/// The words of a row as coefficients.
std::vector<u64> coefficients(const World& world, const Polynomial& poly, u64 row) {
    std::vector<u64> words(poly.getRow(row), poly.getRow(row) + world.ring.degree);
    if (poly.isNTT()) world.ring.moduli[row].getNTT().computeBackward<1>(words.data());
    return words;
}

std::vector<u64> liveRow(const World& world, const Polynomial& poly, u64 row) {
    return {poly.getRow(row), poly.getRow(row) + world.ring.degree};
}

/// A conversion out of some primes, of product M: the sum over them of M / p times the centred residue of
/// x * (M / p)^-1.
class ExactSum {
public:
    /// With the constants of all `primes`.
    explicit ExactSum(const std::vector<u64>& primes) : primes_(primes) {
        const BigInt product = productOf(primes);
        for (const u64 p : primes) {
            hats_.push_back(product / p);
            inverses_.push_back(inverseOf(hats_.back(), p));
        }
    }
    /// Over the first `count` primes, whose residues in word k are those of `rows` from row `first` on.
    BigInt operator()(const std::vector<std::vector<u64>>& rows, u64 first, u64 count, u64 k) const {
        BigInt sum = 0;
        for (u64 i = 0; i < count; ++i)
            sum += hats_[i] * centredResidueOf(inverses_[i] * rows[first + i][k], primes_[i]);
        return sum;
    }

private:
    std::vector<u64> primes_;
    std::vector<BigInt> hats_, inverses_;
};

void expectDigits(const World& world, const Polynomial& a, const PolynomialVector& digits) {
    const u64 level = a.getLevel();
    ASSERT_EQ(digits.getSize(), level / world.groupSize + 1);
    EXPECT_EQ(digits.getLevel(), level);
    EXPECT_TRUE(digits.isModUp());
    EXPECT_TRUE(digits.isNTT());
    std::vector<std::vector<u64>> rows;
    for (u64 i = 0; i <= level; ++i) rows.push_back(coefficients(world, a, i));
    for (u64 g = 0; g < digits.getSize(); ++g) {
        const u64 first = g * world.groupSize;
        const u64 count = std::min(world.groupSize, level + 1 - first); // the constants are of the full digit
        const ExactSum sum(slice(world.primes, first, first + world.groupSize));
        std::vector<BigInt> values;
        for (u64 k = 0; k < world.ring.degree; ++k) values.push_back(sum(rows, first, count, k));
        for (u64 t = 0; t < world.primes.size(); ++t) {
            if (t > level && t < world.ring.numBase) continue;
            SCOPED_TRACE(testing::Message() << "level " << level << " digit " << g << " row " << t);
            const auto got = coefficients(world, digits.getPoly(g), t);
            const bool isOwn = t / world.groupSize == g && t < world.ring.numBase;
            for (u64 k = 0; k < world.ring.degree; ++k)
                ASSERT_EQ(got[k], isOwn ? rows[t][k] : wordResidueOf(values[k], world.primes[t]))
                    << "k=" << k;
        }
    }
}

/// `modDown` must give (x - r) / P exactly, where r is the representative of x modulo P in the temporary
/// rows.
void expectDivided(const World& world, const Ciphertext& in, const Ciphertext& out) {
    const u64 base = world.ring.numBase, K = world.ring.numTemp;
    const ExactSum sum(slice(world.primes, base, base + K));
    for (u64 c = 0; c < 2; ++c) {
        std::vector<std::vector<u64>> temporary;
        for (u64 j = 0; j < K; ++j) temporary.push_back(coefficients(world, in.getPoly(c), base + j));
        std::vector<BigInt> r;
        for (u64 k = 0; k < world.ring.degree; ++k) r.push_back(sum(temporary, 0, K, k));
        for (u64 t = 0; t <= in.getLevel(); ++t) {
            const auto x = coefficients(world, in.getPoly(c), t);
            const auto got = coefficients(world, out.getPoly(c), t);
            const BigInt inverse = inverseOf(world.P, world.primes[t]);
            for (u64 k = 0; k < world.ring.degree; ++k)
                ASSERT_EQ(got[k], wordResidueOf((x[k] - r[k]) * inverse, world.primes[t]))
                    << "t=" << t << " k=" << k;
        }
    }
}

} // namespace

TEST(FastBaseConv, ModUpExtendsEveryDigitAsTheExactSumOfItsTerms) {
    Seeded random(271);
    SCOPED_TRACE(random.describe());
    for (const World& world : worlds())
        for (u64 level = 0; level < world.ring.numBase; ++level)
            for (const bool isNTT : {true, false}) {
                const Polynomial a = randomPolynomial(world, level, false, isNTT, random);
                expectDigits(world, a, world.conversion.modUp(a));
            }
}

// Each of the B centred terms is at most Q_g / 2 in absolute value and their sum is the digit modulo Q_g, so
// the digit found differs from the centred one by at most (B + 1) / 2 times Q_g.
TEST(FastBaseConv, AFullDigitIsThePolynomialUpToAFewMultiplesOfItsModulus) {
    Seeded random(314);
    SCOPED_TRACE(random.describe());
    for (const World& world : worlds()) {
        const Polynomial a = randomPolynomial(world, world.ring.numBase - 1, false, false, random);
        const PolynomialVector digits = world.conversion.modUp(a);
        const u64 total = world.primes.size();
        for (u64 g = 0; g < digits.getSize(); ++g) {
            const BigInt Q = world.digitModulus(g);
            std::vector<std::vector<u64>> rows;
            for (u64 t = 0; t < total; ++t) rows.push_back(coefficients(world, digits.getPoly(g), t));
            for (u64 k = 0; k < world.ring.degree; ++k) {
                const u64 first = g * world.groupSize;
                std::vector<u64> own;
                for (u64 i = 0; i < world.groupSize; ++i) own.push_back(a.getRow(first + i)[k]);
                const BigInt digit =
                    chineseRemainder(own, slice(world.primes, first, first + world.groupSize));
                // The rows outside the digit give the extended value.
                std::vector<u64> otherPrimes, otherResidues;
                for (u64 t = 0; t < total; ++t) {
                    if (first <= t && t < first + world.groupSize) continue;
                    otherPrimes.push_back(world.primes[t]);
                    otherResidues.push_back(rows[t][k]);
                }
                const BigInt extended = chineseRemainder(otherResidues, otherPrimes);
                ASSERT_LE(2 * abs(extended), world.groupSize * Q) << "g=" << g << " k=" << k;
                ASSERT_EQ((extended - digit) % Q, 0) << "g=" << g << " k=" << k;
            }
        }
    }
}

TEST(FastBaseConv, ModUpAtLevelZeroGivesOneDigit) {
    Seeded random(1);
    for (const World& world : worlds()) {
        const Polynomial a = randomPolynomial(world, 0, false, true, random);
        const PolynomialVector digits = world.conversion.modUp(a);
        EXPECT_EQ(digits.getSize(), 1u);
        EXPECT_EQ(liveRow(world, digits.getPoly(0), 0), liveRow(world, a, 0));
    }
}

TEST(FastBaseConv, ModUpLeavesItsOperandAlone) {
    Seeded random(2);
    const World world(makeContext(6, 6, 50, 42, 50, 2));
    const Polynomial a = randomPolynomial(world, 4, false, true, random);
    const Polynomial before = a;
    world.conversion.modUp(a);
    for (u64 i = 0; i <= 4; ++i) EXPECT_EQ(liveRow(world, a, i), liveRow(world, before, i));
    EXPECT_TRUE(a.isNTT());
}

TEST(FastBaseConv, ModDownDividesExactlyByTheTemporaryPrimes) {
    Seeded random(577);
    SCOPED_TRACE(random.describe());
    for (const World& world : worlds())
        for (u64 level = 0; level < world.ring.numBase; ++level)
            for (const bool isNTT : {true, false}) {
                const Ciphertext in = randomModUp(world, level, random);
                const Ciphertext out = world.conversion.modDown(in, isNTT);
                EXPECT_EQ(out.getLevel(), level);
                EXPECT_EQ(out.getNumPoly(), 2u);
                EXPECT_FALSE(out.isModUp());
                EXPECT_EQ(out.isNTT(), isNTT);
                EXPECT_EQ(out.getPoly(0).getData().size(), (level + 1) * world.ring.degree);
                expectDivided(world, in, out);
            }
}

// |r| is at most K * P / 2, so the quotient is within K / 2 of x / P.
TEST(FastBaseConv, ModDownIsWithinHalfTheNumberOfTemporaryPrimesOfTheQuotient) {
    Seeded random(1618);
    SCOPED_TRACE(random.describe());
    for (const World& world : worlds()) {
        const u64 base = world.ring.numBase;
        const Ciphertext in = randomModUp(world, base - 1, random);
        const Ciphertext out = world.conversion.modDown(in, false);
        std::vector<std::vector<u64>> x, y;
        for (u64 t = 0; t < world.primes.size(); ++t) x.push_back(coefficients(world, in.getPoly(1), t));
        for (u64 t = 0; t < base; ++t) y.push_back(coefficients(world, out.getPoly(1), t));
        const BigInt Q = productOf(slice(world.primes, 0, base));
        for (u64 k = 0; k < world.ring.degree; ++k) {
            std::vector<u64> whole, quotient;
            for (const auto& row : x) whole.push_back(row[k]);
            for (const auto& row : y) quotient.push_back(row[k]);
            const BigInt X = chineseRemainder(whole, world.primes);
            const BigInt Y = chineseRemainder(quotient, slice(world.primes, 0, base));
            const BigInt distance = centredResidueOf(Y * world.P - X, Q * world.P);
            ASSERT_LE(2 * abs(distance), world.ring.numTemp * world.P) << "k=" << k;
        }
    }
}

TEST(FastBaseConv, ModDownWithoutTemporaryPartMultipliesByTheInverseOfP) {
    Seeded random(3);
    for (const World& world : worlds()) {
        const u64 base = world.ring.numBase;
        Ciphertext in = randomModUp(world, base - 1, random);
        for (u64 c = 0; c < 2; ++c)
            std::fill_n(in.getPoly(c).getRow(base), world.ring.numTemp * world.ring.degree, 0);
        const Ciphertext out = world.conversion.modDown(in, true);
        for (u64 c = 0; c < 2; ++c)
            for (u64 t = 0; t < base; ++t)
                for (u64 k = 0; k < world.ring.degree; ++k)
                    ASSERT_EQ(out.getPoly(c).getRow(t)[k],
                              wordResidueOf(inverseOf(world.P, world.primes[t]) * in.getPoly(c).getRow(t)[k],
                                            world.primes[t]));
    }
}

TEST(FastBaseConv, ModDownGivesTheSamePolynomialInBothForms) {
    Seeded random(4);
    for (const World& world : worlds()) {
        const Ciphertext in = randomModUp(world, world.ring.numBase - 1, random);
        const Ciphertext ntt = world.conversion.modDown(in, true);
        const Ciphertext plain = world.conversion.modDown(in, false);
        for (u64 c = 0; c < 2; ++c)
            for (u64 t = 0; t < world.ring.numBase; ++t)
                EXPECT_EQ(coefficients(world, ntt.getPoly(c), t), liveRow(world, plain.getPoly(c), t));
    }
}

TEST(FastBaseConv, AMultipleOfPComesBackAfterModDown) {
    Seeded random(5);
    for (const World& world : worlds()) {
        const u64 base = world.ring.numBase;
        Ciphertext in = randomModUp(world, base - 1, random);
        const Ciphertext original = in;
        for (u64 c = 0; c < 2; ++c) {
            std::fill_n(in.getPoly(c).getRow(base), world.ring.numTemp * world.ring.degree, 0);
            for (u64 t = 0; t < base; ++t)
                for (u64 k = 0; k < world.ring.degree; ++k)
                    in.getPoly(c).getRow(t)[k] =
                        wordResidueOf(world.P * original.getPoly(c).getRow(t)[k], world.primes[t]);
        }
        const Ciphertext out = world.conversion.modDown(in, true);
        for (u64 c = 0; c < 2; ++c)
            for (u64 t = 0; t < base; ++t)
                EXPECT_EQ(liveRow(world, out.getPoly(c), t), liveRow(world, original.getPoly(c), t));
    }
}

TEST(FastBaseConv, WordsDoNotDependOnTheNumberOfThreads) {
    Seeded random(6);
    const World world(makeContext(6, 6, 50, 42, 50, 2));
    const Polynomial a = randomPolynomial(world, 4, false, true, random);
    const Ciphertext in = randomModUp(world, 4, random);
    const auto words = [&](int threads) {
        const int before = omp_get_max_threads();
        omp_set_num_threads(threads);
        const PolynomialVector digits = world.conversion.modUp(a);
        const Ciphertext down = world.conversion.modDown(in, false);
        omp_set_num_threads(before);
        std::vector<std::vector<u64>> all;
        for (u64 g = 0; g < digits.getSize(); ++g)
            for (u64 t : {0, 1, 2, 3, 4, 6, 7, 8}) all.push_back(liveRow(world, digits.getPoly(g), t));
        for (u64 t = 0; t <= 4; ++t) all.push_back(liveRow(world, down.getPoly(1), t));
        return all;
    };
    const auto alone = words(1);
    EXPECT_EQ(words(4), alone);
    std::vector<std::vector<u64>> nested;
#pragma omp parallel num_threads(2)
#pragma omp single
    nested = words(3);
    EXPECT_EQ(nested, alone);
}

/// A key's pairs at `level`, as many as the polynomial has digits.
struct Pairs {
    Pairs(const World& world, u64 level, Seeded& random) {
        for (u64 g = 0; g <= level / world.groupSize; ++g) {
            ax.push_back(randomPolynomial(world, level, true, true, random));
            bx.push_back(randomPolynomial(world, level, true, true, random));
        }
    }
    KeyRows rows() const { return {ax.data(), bx.data(), ax.size()}; }
    std::vector<Polynomial> ax, bx;
};

/// The same in three steps.
Ciphertext inThreeSteps(const World& world, const std::vector<Polynomial>& digits, const Pairs& key,
                        bool isNTT) {
    Ciphertext product(world.context, true);
    product.setLevel(digits.front().getLevel());
    world.context->primes.innerProduct(digits.begin(), digits.end(), key.ax.begin(), key.bx.begin(),
                                       product.getPoly(1), product.getPoly(0));
    return world.conversion.modDown(product, isNTT);
}

TEST(FastBaseConv, OnePassGivesTheWordsOfModUpProductAndModDown) {
    Seeded random(9);
    SCOPED_TRACE(random.describe());
    auto rings = worlds();
    rings.emplace_back(makeContext(6, 20, 50, 42, 50, 20)); // more digits than are multiplied at a time
    for (const World& world : rings)
        for (u64 level = 0; level < world.ring.numBase; ++level)
            for (const bool isNTT : {true, false})
                for (const int threads : {1, 3}) {
                    SCOPED_TRACE(testing::Message() << "level " << level << " on " << threads);
                    const Team team(threads);
                    const Polynomial a = randomPolynomial(world, level, false, isNTT, random);
                    const Pairs key(world, level, random);
                    const MappedKey keyOfA{nullptr, key.rows()};
                    const Ciphertext got =
                        world.conversion.switchKeys(a, std::span(&keyOfA, 1), !isNTT).front();
                    EXPECT_EQ(got.isNTT(), !isNTT);
                    EXPECT_TRUE(sameWords(
                        got, inThreeSteps(world, world.conversion.modUp(a).getPolys(), key, !isNTT)));
                }
}

TEST(FastBaseConv, KeysOfManyMapsShareTheDigits) {
    Seeded random(10);
    SCOPED_TRACE(random.describe());
    auto rings = worlds();
    rings.emplace_back(makeContext(6, 20, 50, 42, 50, 20)); // more digits than are multiplied at a time
    for (const World& world : rings)
        for (const u64 level : {world.ring.numBase - 1, world.ring.numBase / 2})
            for (const bool isNTT : {true, false})
                for (const int threads : {1, 3}) {
                    SCOPED_TRACE(testing::Message() << "level " << level << " on " << threads);
                    const Team team(threads);
                    const Polynomial a = randomPolynomial(world, level, false, isNTT, random);
                    const std::vector<Polynomial> digits = world.conversion.modUp(a).getPolys();
                    const Automorphism five(world.ring.degree, 5), conjugation(world.ring.degree, -1);
                    const Pairs first(world, level, random), second(world, level, random),
                        third(world, level, random);
                    const Polynomial b = randomPolynomial(world, level, false, true, random);
                    const std::vector<MappedKey> keys{{&five, first.rows(), {{&b, nullptr}, &five}},
                                                      {nullptr, second.rows(), {{&b, &b}, nullptr}},
                                                      {&conjugation, third.rows()}};
                    const auto got = world.conversion.switchKeys(a, keys, true);
                    ASSERT_EQ(got.size(), keys.size());
                    const auto image = [&](long k) {
                        auto images = digits;
                        for (Polynomial& p : images) world.context->primes.frobeniusMapInNTT<false>(p, k, p);
                        return images;
                    };
                    const PrimeModuli& primes = world.context->primes;
                    Ciphertext expected = inThreeSteps(world, image(5), first, true);
                    primes.frobeniusMapInNTT<true>(b, 5, expected.getPoly(0));
                    EXPECT_TRUE(sameWords(got[0], expected));
                    expected = inThreeSteps(world, digits, second, true);
                    for (u64 i = 0; i < 2; ++i) primes.add(expected.getPoly(i), b, expected.getPoly(i));
                    EXPECT_TRUE(sameWords(got[1], expected));
                    EXPECT_TRUE(sameWords(got[2], inThreeSteps(world, image(-1), third, true)));
                    const auto alone = world.conversion.switchKeys(a, std::span(keys).first(1), true);
                    EXPECT_TRUE(sameWords(alone.front(), got[0]));
                }
}

TEST(FastBaseConv, ProductsOfDigitsAreAddedUpBeforeTheDivision) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    for (const World& world : worlds())
        for (const int threads : {1, 3}) {
            const Team team(threads);
            const u64 level = world.ring.numBase - 1;
            const Polynomial a = randomPolynomial(world, level, false, true, random);
            const Polynomial b = randomPolynomial(world, level, false, true, random);
            const Pairs keyOfA(world, level, random), keyOfB(world, level, random);
            Ciphertext sum(PolynomialVector(world.context, 2, true, true));
            world.conversion.multiplyDigits(a, keyOfA.rows(), false, sum); // whatever it held
            EXPECT_TRUE(sameWords(world.conversion.modDown(sum, true),
                                  inThreeSteps(world, world.conversion.modUp(a).getPolys(), keyOfA, true)));
            Ciphertext other(PolynomialVector(world.context, 2, true, true));
            world.conversion.multiplyDigits(b, keyOfB.rows(), false, other);
            for (u64 i = 0; i < 2; ++i)
                world.context->primes.add(other.getPoly(i), sum.getPoly(i), other.getPoly(i));
            world.conversion.multiplyDigits(b, keyOfB.rows(), true, sum);
            EXPECT_TRUE(sameWords(sum, other));
        }
}

TEST(FastBaseConv, OtherDevicesAreRefusedInFixedWords) {
    const World world(makeContext(6, 4, 60, 42, 61, 2));
    Polynomial poly(world.context, false, true);
    Ciphertext ciphertext(world.context, true);
    const auto moveTo = [&](const Device& device) {
        poly.setData(DeviceSpecificArray<u64>(0, device, getDefaultStream()));
        for (u64 c = 0; c < 2; ++c)
            ciphertext.getPoly(c).setData(DeviceSpecificArray<u64>(0, device, getDefaultStream()));
    };
    moveTo({DeviceType::GPU, 0});
    EXPECT_REFUSED(world.conversion.modUp(poly),
                   "Cannot support the function 'modUpGPUImpl' in the current build configuration");
    EXPECT_REFUSED(world.conversion.switchKeys(poly, {}, true),
                   "Cannot support the function 'modUpGPUImpl' in the current build configuration");
    EXPECT_REFUSED(world.conversion.modDown(ciphertext, true),
                   "Cannot support the function 'modDownGPUImpl' in the current build configuration");
    moveTo({DeviceType::PinnedHost, 0});
    EXPECT_REFUSED(world.conversion.modUp(poly),
                   "Cannot support the function 'modUp' in the current build configuration");
    EXPECT_REFUSED(world.conversion.modDown(ciphertext, true),
                   "Cannot support the function 'modDown' in the current build configuration");
    moveTo({DeviceType::CPU, 1});
    EXPECT_THROW_TEXT(world.conversion.modUp(poly), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(world.conversion.modDown(ciphertext, true), std::out_of_range, "map::at");
    Seeded random(7); // the locks were given back
    const Polynomial a = randomPolynomial(world, 1, false, true, random);
    expectDigits(world, a, world.conversion.modUp(a));
}

TEST(FastBaseConv, ModUpAndModDownAreExactOnALongChain) {
    Seeded random(8);
    SCOPED_TRACE(random.describe());
    const World world(makeContext(ParameterPreset::FX));
    for (const u64 level : {world.ring.numBase - 1, world.groupSize, world.groupSize - 1}) {
        const Polynomial a = randomPolynomial(world, level, false, true, random);
        expectDigits(world, a, world.conversion.modUp(a));
        const Ciphertext in = randomModUp(world, level, random);
        expectDivided(world, in, world.conversion.modDown(in, true));
    }
}

} // namespace Torvo
