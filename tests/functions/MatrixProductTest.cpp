#include <Torvo/MatrixProduct.hpp>

#include "evaluator/HomEvaluatorImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/LinearMaps.hpp"
#include "support/MatrixProducts.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/LinearFunctions.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

namespace Torvo {
namespace {

using namespace test;

using Indices = std::vector<unsigned long>;

class MatrixProducts : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Context& context = scheme.context;
    /// The evaluator of all rotations, with a multiplication key.
    const HomEvaluator& evaluator = [this]() -> const HomEvaluator& {
        const HomEvaluator& rotating = rotatingEvaluator(scheme);
        const KeyPack& pack = rotating.getImpl()->getKeyPack();
        if (pack.getMultKey() == nullptr) KeyGenerator(scheme.context, scheme.secretKey, pack).genMultKey();
        return rotating;
    }();
    Seeded random{85};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
};

TEST_F(MatrixProducts, AreThoseOfTheMatrices) {
    for (const u64 d : {1UL, 2UL, 4UL})
        for (u64 log_slots = 2 * static_cast<u64>(std::countr_zero(d)); log_slots <= 5; ++log_slots) {
            const MatrixProduct product(context, d, log_slots, 5);
            const Message a = random.message(log_slots), b = random.message(log_slots);
            Ciphertext out(context);
            product.mult(evaluator, scheme.encrypt(a, 5), scheme.encrypt(b, 7), out);
            EXPECT_EQ(out.getLevel(), 2U);
            EXPECT_EQ(out.getNumPoly(), 2U);
            EXPECT_EQ(out.getLogSlots(), log_slots);
            EXPECT_EQ(out.getRescaleCounter(), 0);
            EXPECT_LT(maxError(scheme.decrypt(out), productOfMatrices(d, a, b)), productBound(context, d, 5))
                << d << " " << log_slots;
        }
}

TEST_F(MatrixProducts, AreThoseOfTheMatricesAtEveryLevel) {
    const Message a = random.message(4), b = random.message(4);
    for (u64 level = 3; level <= scheme.topLevel(); ++level) {
        Ciphertext out(context);
        MatrixProduct(context, 4, 4, level)
            .mult(evaluator, encryptAt(scheme, random, a, level), encryptAt(scheme, random, b, level), out);
        EXPECT_EQ(out.getLevel(), level - 3);
        double bound = productBound(context, 4, level);
        if (const u64 readable = scheme.encryptionLevel(); out.getLevel() > readable) {
            evaluator.levelDown(out, readable, out);
            bound += 4 * transformBound(context, readable + 1, 1);
        }
        EXPECT_LT(maxError(scheme.decrypt(out), productOfMatrices(4, a, b)), bound) << level;
    }
}

TEST_F(MatrixProducts, NameTheirKeysBeforeTheyAreEncoded) {
    for (const u64 log_slots : {4UL, 5UL}) {
        const MatrixProduct product(context, 4, log_slots, 3);
        EXPECT_EQ(product.getRotationIndices(), MatrixProduct::getRotationIndices(context, 4, log_slots, 3));
        EXPECT_EQ(product.getDimension(), 4U);
        EXPECT_EQ(product.getLogSlots(), log_slots);
        EXPECT_EQ(product.getLevel(), 3U);
    }
    EXPECT_EQ(MatrixProduct::getRotationIndices(context, 1, 0, 3), Indices{});
}

TEST_F(MatrixProducts, WriteWhateverTheOutputHeld) {
    const MatrixProduct product(context, 2, 3, 4);
    const Ciphertext a = scheme.encrypt(random.message(3), 4), b = scheme.encrypt(random.message(3), 4);
    Ciphertext expected(context), first = a, second = b;
    product.mult(evaluator, a, b, expected);
    for (Ciphertext& used : usedOutputs(context)) {
        product.mult(evaluator, a, b, used);
        EXPECT_TRUE(sameWords(used, expected));
    }
    product.mult(evaluator, first, b, first);
    product.mult(evaluator, a, second, second);
    EXPECT_TRUE(sameWords(first, expected));
    EXPECT_TRUE(sameWords(second, expected));
}

TEST_F(MatrixProducts, RefuseInTheirOrder) {
    EXPECT_REFUSED(MatrixProduct(nullptr, 3, 9, 1), "The context is null. Make one with makeContext.");
    const std::string dimension =
        "[MatrixProduct] matrices of 3 rows are given; the number should be a power of two, "
        "and at most 512";
    EXPECT_REFUSED(MatrixProduct(context, 3, 9, 1), dimension);
    EXPECT_REFUSED(MatrixProduct::getRotationIndices(context, 3, 9, 1), dimension);
    EXPECT_REFUSED(MatrixProduct::transposition(3), dimension);
    EXPECT_REFUSED(MatrixProduct::transposition(0),
                   "[MatrixProduct] matrices of 0 rows are given; the number should "
                   "be a power of two, and at most 512");
    EXPECT_REFUSED(MatrixProduct(context, 1024, 9, 1),
                   "[MatrixProduct] matrices of 1024 rows are given; the number "
                   "should be a power of two, and at most 512");
    for (const u64 level : {2UL, 25UL})
        EXPECT_REFUSED(
            MatrixProduct(context, 4, 9, level),
            "[MatrixProduct] level " + std::to_string(level) +
                " is given, but a product spends 3 levels and the chain of FX ends at 24; give a level "
                "from 3 to 24");
    EXPECT_REFUSED(
        MatrixProduct(context, 4, 3, 3),
        "[LinearTransform] the transform maps blocks of 16 slots, which log slots 3 do not hold; give more "
        "log slots, or a smaller transform");

    const KeyPack pack(context);
    const HomEvaluator poor(context, pack);
    const KeyGenerator generator(context, scheme.secretKey, pack);
    const MatrixProduct product(context, 2, 2, 3);
    const Ciphertext high = scheme.encrypt(random.message(2), 3), low = scheme.encrypt(random.message(2), 2);
    const Ciphertext before = usedLonger(context);
    Ciphertext out = before;
    const std::string tooLow =
        "[EncodedTransform] the ciphertext is at level 2, but the transform is encoded for level "
        "3; encode it for level 2, or give a ciphertext of level 3 or above";
    EXPECT_REFUSED(product.mult(poor, low, high, out), tooLow);
    EXPECT_REFUSED(product.mult(poor, high, low, out), tooLow);
    EXPECT_REFUSED(product.mult(poor, high, high, out),
                   "Failed to load the left rotation keys for indices 1, 2, 3");
    for (const u64 index : product.getRotationIndices()) generator.genLeftRotKey(index);
    EXPECT_REFUSED(product.mult(poor, high, high, out), "Failed to load the multiplication key");
    EXPECT_TRUE(sameWords(out, before));
}

// Keys of which single rotations are composed are of no use to rotations that share a decomposition. Any two of the
// others may be missing, also where two steps of the product need them.
TEST_F(MatrixProducts, NameKeysTogetherThatABundleDoesNotMakeUpFor) {
    const MatrixProduct product(context, 4, 4, 3);
    const Indices indices = product.getRotationIndices();
    const Ciphertext in = scheme.encrypt(random.message(4), 3), before = usedLonger(context);
    for (const u64 a : indices)
        for (const u64 b : indices) {
            if (a >= b || std::has_single_bit(a) || std::has_single_bit(b)) continue;
            const KeyPack pack(context);
            const KeyGenerator generator(context, scheme.secretKey, pack);
            generator.genMultKey();
            generator.genRotKeyBundle(); // of powers of two, to the left and to the right
            for (const u64 index : indices)
                if (index != a && index != b && !std::has_single_bit(index)) generator.genLeftRotKey(index);
            Ciphertext out = before;
            EXPECT_REFUSED(product.mult(HomEvaluator(context, pack), in, in, out),
                           "Failed to load the left rotation keys for indices " + std::to_string(a) + ", " +
                               std::to_string(b));
            EXPECT_TRUE(sameWords(out, before));
        }
}

TEST_F(MatrixProducts, HaveATranspositionOfFewKeys) {
    const LinearTransform transposition = MatrixProduct::transposition(4);
    const EncodedTransform encoded(context, transposition, 4, 3, {4});
    EXPECT_LE(encoded.getRotationIndices().size(), 4U); // for seven rotations, multiples of 3
    const Message in = random.message(4);
    Message expected;
    transposition.apply(in, expected);
    Ciphertext out(context);
    encoded.apply(evaluator, scheme.encrypt(in, 3), out);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), transformBound(context, 3, 7));
    // 62 rotations other than 0.
    const Context large = contextOf(ParameterPreset::ST7);
    EXPECT_LE(MatrixProduct::transposition(32).getRotationIndices(large, 10, 2).size(), 20U);
}

TEST(MatrixTransposition, TurnsRowsIntoColumns) {
    Seeded random(86);
    SCOPED_TRACE(random.describe());
    const Message in = random.message(5);
    for (const u64 d : {1UL, 2UL, 4UL}) {
        Message out;
        MatrixProduct::transposition(d).apply(in, out);
        for (u64 block = 0; block < 32; block += d * d)
            for (u64 i = 0; i < d; ++i)
                for (u64 j = 0; j < d; ++j) EXPECT_EQ(out[block + i * d + j], in[block + j * d + i]);
    }
}

/// Eight rows, alone and beside each other in all slots, encoded and by the function.
TEST(MatrixProductRealPreset, IsThatOfTheMatrices) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST7);
    const Context& context = scheme.context;
    Seeded random(87);
    SCOPED_TRACE(random.describe());
    constexpr u64 d = 8;
    const u64 level = scheme.encryptionLevel();
    const KeyPack pack(context);
    const KeyGenerator generator(context, scheme.secretKey, pack);
    generator.genMultKey();
    const HomEvaluator evaluator(context, pack);
    for (const u64 log_slots : {u64{6}, scheme.logFullSlots()}) {
        SCOPED_TRACE(log_slots);
        const MatrixProduct product(context, d, log_slots, level);
        const CachedMatrixProduct cached(d);
        for (const auto& indices :
             {product.getRotationIndices(), cached.getRotationIndices(context, log_slots)})
            for (const u64 index : indices) generator.genRotKeyIfNotExist(static_cast<long>(index));
        const Message a = random.message(log_slots), b = random.message(log_slots);
        const Message expected = productOfMatrices(d, a, b);
        const Ciphertext x = scheme.encrypt(a, level), y = scheme.encrypt(b, level);
        const double bound = productBound(context, d, level);
        Ciphertext out(context);
        product.mult(evaluator, x, y, out);
        EXPECT_EQ(out.getLevel(), level - 3);
        EXPECT_LT(maxError(scheme.decrypt(out), expected), bound);
        const Plan plan(context);
        PlannedCiphertext planned;
        multiplyMatrices(plan, plan.encrypt(a, level), plan.encrypt(b, level), cached, planned);
        multiplyMatrices(evaluator, x, y, cached, out);
        EXPECT_EQ(out.getLevel(), planned.getLevel());
        EXPECT_LT(maxError(planned.getMessage(), expected), bound);
        EXPECT_EQ(plan.getReport().constantBytes, cached.getEncodedBytes());
        const Message got = scheme.decrypt(out);
        EXPECT_LT(maxError(got, expected), bound);
        double sum = 0;
        for (u64 i = 0; i < got.getSize(); ++i) sum += std::norm(got[i] - expected[i]);
        const double error = std::sqrt(sum / static_cast<double>(got.getSize()));
        EXPECT_LT(std::abs(std::log2(error / planned.getError())), 1);
    }
}

} // namespace
} // namespace Torvo
