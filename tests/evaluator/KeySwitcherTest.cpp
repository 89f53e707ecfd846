#include "evaluator/KeySwitcher.hpp"

#include "arithmetic/chain/Validators.hpp"
#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

using namespace Torvo;
using namespace Torvo::test;

namespace {

class KeySwitching : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Context& context = scheme.context;
    const PrimeModuli& primes = context->primes;
    const Parameter& parameter = context->parameter;
    const KeySwitcher switcher{context};
    Seeded random{51};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};

    Polynomial uniform(u64 level, bool isNTT = true) {
        Polynomial p(context, false, isNTT);
        p.setLevel(level);
        for (u64 i = 0; i <= level; ++i) {
            const std::vector<u64> row = random.row(parameter.degree, primes.getPrime(i));
            std::copy(row.begin(), row.end(), p.getRow(i));
        }
        return p;
    }

    std::vector<Polynomial> blocksOf(const Polynomial& p) const {
        std::vector<Polynomial> blocks;
        switcher.modUpPQ(p, blocks);
        return blocks;
    }
};

/// a * b^(p - 2) by 128-bit arithmetic: a over b modulo a prime.
u64 quotient(u64 a, u64 b, u64 p) {
    u64 result = a;
    for (u64 exponent = p - 2; exponent != 0; exponent >>= 1) {
        if (exponent & 1) result = static_cast<u64>(static_cast<u128>(result) * b % p);
        b = static_cast<u64>(static_cast<u128>(b) * b % p);
    }
    return result;
}

} // namespace

TEST_F(KeySwitching, TheNumberOfBlocksFollowsTheLevel) {
    // Five primes a block: 0 to 4, 5 to 9, ...
    ASSERT_EQ(parameter.numTP, 5u);
    for (const auto& [level, count] : {std::pair{0ul, 1ul},
                                       {4ul, 1ul},
                                       {5ul, 2ul},
                                       {9ul, 2ul},
                                       {10ul, 3ul},
                                       {24ul, parameter.gadget_rank}}) {
        SCOPED_TRACE(level);
        const auto blocks = blocksOf(uniform(level));
        ASSERT_EQ(blocks.size(), count);
        for (const Polynomial& block : blocks) {
            EXPECT_EQ(block.getLevel(), level);
            EXPECT_TRUE(block.isModUp());
            EXPECT_TRUE(block.isNTT());
        }
    }
}

TEST_F(KeySwitching, BlocksKeepTheirOwnRowsDividedByThePrimesOfAllOthers) {
    for (const u64 level : {0ul, 4ul, 7ul, 24ul}) {
        const Polynomial p = uniform(level);
        const auto blocks = blocksOf(p);
        for (u64 i = 0; i <= level; ++i) {
            const u64 prime = primes.getPrime(i), size = parameter.numTP;
            // The primes of the full chain outside the block, whatever the level.
            u64 product = 1;
            for (u64 j = 0; j < parameter.chain_length; ++j)
                if (j / size != i / size)
                    product =
                        static_cast<u64>(static_cast<u128>(product) * (primes.getPrime(j) % prime) % prime);
            const u64* row = blocks[i / size].getRow(i);
            for (u64 k = 0; k < parameter.degree; ++k)
                ASSERT_EQ(row[k], quotient(p.getRow(i)[k], product, prime))
                    << "level " << level << " row " << i;
        }
    }
}

TEST_F(KeySwitching, CoefficientFormGivesTheSameBlocks) {
    const Polynomial inNTT = uniform(11);
    Polynomial coefficients = inNTT;
    primes.backwardNTT(coefficients, coefficients);
    const auto expected = blocksOf(inNTT), got = blocksOf(coefficients);
    ASSERT_EQ(got.size(), expected.size());
    for (u64 j = 0; j < got.size(); ++j) EXPECT_TRUE(sameWords(got[j], expected[j])) << j;
}

TEST_F(KeySwitching, WhatTheVectorHeldIsReleased) {
    const Polynomial p = uniform(3);
    std::vector<Polynomial> blocks(7, uniform(9));
    switcher.modUpPQ(p, blocks);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_TRUE(sameWords(blocks[0], blocksOf(p)[0]));
}

TEST_F(KeySwitching, TheSumsRunOverTheBlocksAndTheFirstPairsOfTheKey) {
    EvaluationKey& key = *scheme.keys.getMultKey();
    const Device cpu;
    for (const u64 level : {0ul, 6ul, 24ul}) {
        const auto blocks = blocksOf(uniform(level));
        const Ciphertext sums = switcher.multEvalKey(blocks, key);
        ASSERT_EQ(sums.getNumPoly(), 2u);
        EXPECT_TRUE(sums.isModUp());
        EXPECT_EQ(sums.getLevel(), level);
        for (u64 part = 0; part < 2; ++part) {
            const Polynomial* pairs = part == 0 ? key.getBxIter(cpu) : key.getAxIter(cpu);
            for (u64 i = 0; i < sums.getPoly(part).rowEnd(); ++i) {
                if (!sums.getPoly(part).isLiveRow(i)) continue;
                const u64 prime = primes.getPrime(i);
                for (u64 k = 0; k < parameter.degree; ++k) {
                    u64 sum = 0;
                    for (u64 j = 0; j < blocks.size(); ++j) {
                        const u128 product =
                            static_cast<u128>(blocks[j].getRow(i)[k]) * pairs[j].getRow(i)[k] + sum;
                        sum = static_cast<u64>(product % prime);
                    }
                    ASSERT_EQ(sums.getPoly(part).getRow(i)[k], sum) << "row " << i << " word " << k;
                }
            }
        }
    }
}

TEST_F(KeySwitching, ASwitchedPolynomialDecryptsToItsProductWithTheSourceSecret) {
    // The multiplication key switches from s^2: switched[0] + switched[1] * s = p * s^2 + error.
    const u64 level = 12;
    const Polynomial p = uniform(level);
    const Ciphertext switched = switcher.switchKey(p, *scheme.keys.getMultKey());
    EXPECT_EQ(switched.getLevel(), level);
    EXPECT_FALSE(switched.isModUp());
    const Polynomial& s = scheme.secretKey.getSx();
    Polynomial got(context, false, true), expected(context, false, true);
    primes.hadamardMult(switched.getPoly(1), s, got);
    primes.add(got, switched.getPoly(0), got);
    primes.hadamardMult(p, s, expected);
    primes.hadamardMult(expected, s, expected);
    primes.sub(got, expected, got);
    primes.backwardNTT(got, got);
    // A coefficient is the mean of the slots, so no larger than the largest.
    const double bound = scheme.errors.keySwitch();
    for (u64 i = 0; i <= level; ++i)
        for (u64 k = 0; k < parameter.degree; ++k) {
            const u64 word = got.getRow(i)[k], prime = primes.getPrime(i);
            ASSERT_LT(static_cast<double>(std::min(word, prime - word)), bound) << "row " << i;
        }
}

TEST_F(KeySwitching, ModDownGivesEitherFormAndFreshBookKeeping) {
    const auto blocks = blocksOf(uniform(8));
    Ciphertext sums = switcher.multEvalKey(blocks, *scheme.keys.getMultKey());
    sums.setLogSlots(2);
    sums.setRescaleCounter(1);
    Ciphertext inNTT(context, true), coefficients(context);
    switcher.modDown(sums, inNTT, true);
    switcher.modDown(sums, coefficients, false);
    EXPECT_EQ(inNTT.getRescaleCounter(), 0);
    EXPECT_EQ(inNTT.getLogSlots(), scheme.logFullSlots());
    EXPECT_FALSE(inNTT.isModUp());
    EXPECT_FALSE(coefficients.isNTT());
    for (u64 i = 0; i < 2; ++i) primes.forwardNTT(coefficients.getPoly(i), coefficients.getPoly(i));
    EXPECT_TRUE(sameWords(coefficients, inNTT));
}

TEST_F(KeySwitching, TheProductsWithSeveralKeysAtOnceAreTheWordsOfTheirSum) {
    const std::vector<EvaluationKey*> keys{scheme.keys.getMultKey().get(), scheme.keys.getConjKey().get(),
                                           scheme.keys.getMultKey().get()};
    for (const u64 level : {0, 5, 24}) {
        std::vector<std::vector<Polynomial>> blocks;
        for (u64 i = 0; i < keys.size(); ++i) blocks.push_back(blocksOf(uniform(level)));
        Ciphertext sum = switcher.multEvalKey(blocks[0], *keys[0]);
        for (const u64 i : {1, 2}) {
            const Ciphertext product = switcher.multEvalKey(blocks[i], *keys[i]);
            for (const u64 j : {0, 1}) primes.add(sum.getPoly(j), product.getPoly(j), sum.getPoly(j));
        }
        EXPECT_TRUE(sameWords(switcher.multEvalKeys(blocks, keys), sum)) << "level " << level;
    }
    EXPECT_REFUSED(switcher.multEvalKeys({}, {}), "Operand is empty so device is not defined");
}

TEST_F(KeySwitching, TheSumsRefuseNothingAndTwoDevices) {
    EvaluationKey& key = *scheme.keys.getMultKey();
    EXPECT_REFUSED(switcher.multEvalKey({}, key), "Operand is empty so device is not defined");
    std::vector<Polynomial> blocks = blocksOf(uniform(6));
    blocks[1].to(Device{DeviceType::CPU, 1});
    EXPECT_REFUSED(switcher.multEvalKey(blocks, key), "Elements of operand are in different devices.");
    blocks[0].to(Device{DeviceType::CPU, 1});
    EXPECT_REFUSED(switcher.multEvalKey(blocks, key),
                   "The generated context does not support the operation with current operands; check the "
                   "device.");
}

TEST_F(KeySwitching, AKeyOfALowerLevelIsRefusedByEveryForm) {
    const KeyGenerator generator(context, scheme.secretKey);
    generator.genMultKey();
    const auto key = generator.getKeyPack().getMultKey();
    key->getBxIter(Device{})[1].setLevel(4);
    const Polynomial p = uniform(7);
    const std::vector<Polynomial> blocks = blocksOf(p);
    const std::vector<KeyOfMap> rotation{{5, key.get()}};
    Ciphertext sum(context), pair(context);
    pair.getPoly(0) = pair.getPoly(1) = p;
    const char* const text = "Operands have different levels.";
    EXPECT_REFUSED(switcher.switchKey(p, *key), text);
    EXPECT_REFUSED(switcher.rotate(pair, rotation), text);
    EXPECT_REFUSED(switcher.multiplyDigits(p, *key, false, sum), text);
    EXPECT_REFUSED(switcher.multEvalKey(blocks, *key), text);
    EXPECT_NO_THROW(switcher.switchKey(uniform(4), *key)); // one digit, and so the first pair alone

    key->getAxIter(Device{})[0].setLevel(99); // beyond the chain: levels are compared first, of all pairs
    EXPECT_REFUSED(switcher.switchKey(p, *key), text);
    EXPECT_REFUSED(switcher.rotate(pair, rotation), text);
    EXPECT_REFUSED(switcher.multiplyDigits(p, *key, false, sum), text);
    EXPECT_REFUSED(switcher.multEvalKey(blocks, *key), text);
    EXPECT_REFUSED(switcher.switchKey(uniform(4), *key),
                   "Operands are not of the ring of the generated context.");
}

TEST_F(KeySwitching, OtherAddendsThanThoseOfThePolynomialsLevelAndFormAreRefused) {
    EvaluationKey& key = *scheme.keys.getMultKey();
    const Polynomial p = uniform(6), lower = uniform(5);
    Polynomial onCoefficients = p;
    primes.backwardNTT(onCoefficients, onCoefficients);
    const char* const text = "Operands are not of the ring of the generated context.";
    EXPECT_NO_THROW(switcher.switchAndAdd(p, key, p, p));
    EXPECT_REFUSED(switcher.switchAndAdd(p, key, lower, p), text);
    EXPECT_REFUSED(switcher.switchAndAdd(p, key, p, onCoefficients), text);
    EXPECT_REFUSED(
        switcher.switchAndAdd(p, key, p, Polynomial(makeContext(6, 4, 60, 42, 61, 2), false, true)), text);
}

TEST_F(KeySwitching, BlocksAreMadeOnlyWhereTheContextHasTables) {
    Polynomial elsewhere = uniform(6);
    elsewhere.to(Device{DeviceType::CPU, 1});
    std::vector<Polynomial> kept = blocksOf(uniform(3));
    const std::vector<Polynomial> before = kept;
    EXPECT_REFUSED(switcher.modUpPQ(elsewhere, kept),
                   "The generated context does not support the operation with current operands; check the "
                   "device.");
    ASSERT_EQ(kept.size(), before.size());
    for (u64 j = 0; j < kept.size(); ++j) EXPECT_TRUE(sameWords(kept[j], before[j]));
}

namespace {

/// Sums of rotations of one ciphertext, multiplied with 1: then the division by the temporary primes is all that
/// rounds, and the words are those of the rotations.
class DiagonalSumming : public KeySwitching {
protected:
    const std::shared_ptr<EvaluationKey> key = [this] {
        const KeyGenerator generator(context, scheme.secretKey, KeyPack(context));
        generator.genLeftRotKey(3);
        return generator.getKeyPack().getLeftRotKey(3);
    }();
    const KeyOfMap rotation{5 * 5 * 5, key.get()}, none{1, nullptr};

    Ciphertext pairAt(u64 level) {
        Ciphertext pair(context);
        pair.setLevel(level);
        for (u64 i = 0; i < 2; ++i) pair.getPoly(i) = uniform(level);
        return pair;
    }
    /// The sums of one operand with at most one rotation.
    std::vector<Ciphertext> sumsOf(const Ciphertext& in, const KeyOfMap& step,
                                   const std::vector<std::vector<RotatedSum>>& results) const {
        const SummedDiagonals operand{in, {&step, 1}, results};
        return switcher.sumDiagonals({&operand, 1});
    }
    /// In NTT form the constant c is c in every word.
    std::vector<u64> constant(u64 level, u64 c) const {
        return std::vector<u64>((level + 1 + parameter.numTP) * parameter.degree, c);
    }
};

} // namespace

TEST_F(DiagonalSumming, ABabyStepTimesOneHasTheWordsOfTheRotation) {
    for (const u64 level : {0ul, 7ul, 24ul}) {
        const Ciphertext in = pairAt(level);
        const std::vector<u64> one = constant(level, 1);
        const std::vector<std::vector<RotatedSum>> results{{{none, {{0, one.data()}}}}};
        const auto sums = sumsOf(in, rotation, results);
        ASSERT_EQ(sums.size(), 1u);
        EXPECT_TRUE(sameWords(sums[0], switcher.rotate(in, std::span(&rotation, 1))[0])) << level;
    }
}

TEST_F(DiagonalSumming, AGiantStepTimesOneHasTheWordsOfTheRotation) {
    for (const u64 level : {0ul, 7ul, 24ul}) {
        const Ciphertext in = pairAt(level);
        const std::vector<u64> one = constant(level, 1);
        const std::vector<std::vector<RotatedSum>> results{{{rotation, {{0, one.data()}}}}};
        const auto sums = sumsOf(in, none, results);
        EXPECT_TRUE(sameWords(sums.at(0), switcher.rotate(in, std::span(&rotation, 1))[0])) << level;
    }
}

TEST_F(DiagonalSumming, TheCiphertextItselfIsMultipliedExactly) {
    const u64 level = 6;
    const Ciphertext in = pairAt(level);
    const std::vector<u64> three = constant(level, 3), eight = constant(level, 8);
    const std::vector<std::vector<RotatedSum>> results{{{none, {{0, three.data()}}}},
                                                       {{none, {{0, eight.data()}}}}};
    const auto sums = sumsOf(in, none, results);
    ASSERT_EQ(sums.size(), 2u);
    for (u64 element = 0; element < 2; ++element)
        for (u64 i = 0; i <= level; ++i)
            for (u64 k = 0; k < parameter.degree; ++k) {
                const u128 word = in.getPoly(element).getRow(i)[k];
                ASSERT_EQ(sums[0].getPoly(element).getRow(i)[k], 3 * word % primes.getPrime(i));
                ASSERT_EQ(sums[1].getPoly(element).getRow(i)[k], 8 * word % primes.getPrime(i));
            }
}

TEST_F(DiagonalSumming, SeveralOperandsAddUpBeforeOneDivision) {
    const u64 level = 6;
    const Ciphertext first = pairAt(level), second = pairAt(level);
    const std::vector<u64> three = constant(level, 3), eight = constant(level, 8);
    const std::vector<std::vector<RotatedSum>> ofFirst{{{none, {{0, three.data()}}}},
                                                       {{none, {{0, eight.data()}}}}},
        ofSecond{{{none, {{0, eight.data()}}}}, {{none, {{0, three.data()}}}}};
    const std::array<SummedDiagonals, 2> operands{SummedDiagonals{first, {&none, 1}, ofFirst},
                                                  SummedDiagonals{second, {&none, 1}, ofSecond}};
    const auto sums = switcher.sumDiagonals(operands);
    ASSERT_EQ(sums.size(), 2u);
    for (u64 element = 0; element < 2; ++element)
        for (u64 i = 0; i <= level; ++i)
            for (u64 k = 0; k < parameter.degree; ++k) {
                const u128 a = first.getPoly(element).getRow(i)[k], b = second.getPoly(element).getRow(i)[k];
                ASSERT_EQ(sums[0].getPoly(element).getRow(i)[k], (3 * a + 8 * b) % primes.getPrime(i));
                ASSERT_EQ(sums[1].getPoly(element).getRow(i)[k], (8 * a + 3 * b) % primes.getPrime(i));
            }
    const Ciphertext lower = pairAt(level - 1);
    const std::array<SummedDiagonals, 2> unlike{SummedDiagonals{first, {&none, 1}, ofFirst},
                                                SummedDiagonals{lower, {&none, 1}, ofSecond}};
    EXPECT_REFUSED(switcher.sumDiagonals(unlike), "Operands are not of the ring of the generated context.");
}

TEST_F(DiagonalSumming, OperandsThatAreNotOfTheRingOrNotInNTTFormAreRefused) {
    const std::vector<u64> one = constant(6, 1);
    const std::vector<std::vector<RotatedSum>> results{{{none, {{0, one.data()}}}}};
    const auto sum = [&](const Ciphertext& in) { sumsOf(in, rotation, results); };
    const char* const text = "Operands are not of the ring of the generated context.";
    for (u64 element = 0; element < 2; ++element) {
        Ciphertext onCoefficients = pairAt(6), lower = pairAt(6), foreign = pairAt(6);
        primes.backwardNTT(onCoefficients.getPoly(element), onCoefficients.getPoly(element));
        EXPECT_REFUSED(sum(onCoefficients), text);
        lower.getPoly(element) = uniform(5);
        EXPECT_REFUSED(sum(lower), text);
        foreign.getPoly(element) = Polynomial(makeContext(6, 8, 60, 42, 61, 2), false, true, 6);
        EXPECT_REFUSED(sum(foreign), text);
    }
}
