#include <Torvo/LinearFunctions.hpp>

#include "bootstrap/BootConstants.hpp"
#include "functions/PlannedCiphertextImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/LinearMaps.hpp"
#include "support/MatrixProducts.hpp"
#include "support/ToyRotations.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/MatrixProduct.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <set>
#include <string>

namespace Torvo {
namespace {

using namespace test;

using Indices = std::set<unsigned long>;
constexpr auto standard = BootstrappingEvaluator::Precision::Standard;

constexpr u64 least = 3;  ///< level of a ciphertext to be bootstrapped
constexpr u64 after = 12; ///< level that the toy's bootstrap ends at

const BootstrappingEvaluator& bootstrapping() {
    static const BootstrappingEvaluator made = [] {
        Bootstrapper bootstrapper(toyWithAllRotations().evaluator);
        for (u64 logSlots = 0; logSlots < 5; ++logSlots) bootstrapper.makeBootConstants(logSlots);
        return BootstrappingEvaluator(toyWithAllRotations().evaluator, bootstrapper);
    }();
    return made;
}

class LinearFunctions : public testing::Test {
protected:
    const Scheme& scheme = toyWithAllRotations();
    const Context& context = scheme.context;
    const HomEvaluator& evaluator = scheme.evaluator;
    Seeded random{871};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};

    Matrix matrixOf(u64 size) { return randomMatrix(random, size, size); }
    LinearTransform dense(u64 size) { return LinearTransform::fromMatrix(matrixOf(size)); }
    Message realMessage(u64 logSlots) {
        Message message(logSlots);
        for (auto& slot : message) slot = random.real(-1, 1);
        return message;
    }
};

// ---- transforms

TEST_F(LinearFunctions, ATransformIsThatOfTheMatrixFromEveryLevelOnEveryKindOfValue) {
    for (const u64 size : {1UL, 4UL, 8UL, 32UL}) {
        const Matrix matrix = matrixOf(size);
        const CachedTransform transform = LinearTransform::fromMatrix(matrix);
        for (u64 level = 1; level <= after; ++level)
            for (const u64 logSlots : {static_cast<u64>(std::countr_zero(size)), u64{5}}) {
                SCOPED_TRACE(testing::Message() << size << " " << level << " " << logSlots);
                const Message in = random.message(logSlots), expected = productOf(matrix, size, in);
                Message clear;
                applyTransform(evaluator, in, transform, clear);
                EXPECT_LT(maxError(clear, expected), 0x1p-45 * static_cast<double>(size));
                Ciphertext out(context);
                applyTransform(evaluator, scheme.encrypt(in, level), transform, out);
                EXPECT_EQ(out.getLevel(), level - 1);
                EXPECT_EQ(out.getLogSlots(), logSlots);
                EXPECT_EQ(out.getRescaleCounter(), 0);
                EXPECT_LT(maxError(scheme.decrypt(out), expected), transformBound(context, level, 2 * size));
                const Plan plan(context);
                PlannedCiphertext planned = plan.encrypt(in, level);
                applyTransform(plan, planned, transform, planned);
                EXPECT_EQ(planned.getLevel(), level - 1);
                EXPECT_EQ(planned.getLogSlots(), logSlots);
                EXPECT_EQ(planned.getRescaleCounter(), 0);
                EXPECT_LT(maxError(planned.getMessage(), expected), 0x1p-40);
                EXPECT_LT(planned.getLargestError(), transformBound(context, level, 2 * size));
            }
    }
}

TEST_F(LinearFunctions, OneSetOfKeysServesEveryLevelAndThePlanNamesIt) {
    for (const u64 maxKeys : {10UL, ~0UL})
        for (const u64 logSlots : {4UL, 5UL}) {
            const CachedTransform transform(dense(16), {maxKeys});
            const std::vector<unsigned long> needed = transform.getRotationIndices(context, logSlots);
            EXPECT_LE(needed.size(), maxKeys);
            const KeyPack pack(context);
            const KeyGenerator generator(context, scheme.secretKey, pack);
            for (const unsigned long index : needed) generator.genLeftRotKey(index);
            const HomEvaluator own(context, pack);
            for (u64 level = 1; level <= after; ++level) {
                Ciphertext out(context);
                applyTransform(own, scheme.encrypt(random.message(logSlots), level), transform, out);
                const Plan plan(context);
                PlannedCiphertext planned = plan.encrypt(random.message(logSlots), level);
                applyTransform(plan, planned, transform, planned);
                const PlanReport report = plan.getReport();
                EXPECT_EQ(report.leftRotations, Indices(needed.begin(), needed.end()));
                EXPECT_EQ(report.rescales, 1);
                EXPECT_EQ(report.relinearizations, 0);
                EXPECT_EQ(report.plaintextProducts, logSlots == 4 ? 16 : 31);
                EXPECT_GE(report.rotations, needed.size());
                EXPECT_EQ(report.lowestLevel, level - 1);
            }
        }
}

TEST_F(LinearFunctions, APlanTellsTheBytesOfWhatIsKept) {
    const CachedTransform first = dense(8), second(dense(16), {9});
    const CachedMatrixProduct product(4);
    const Plan plan(context);
    const auto run = [&](const auto& on, auto x, auto y) {
        applyTransform(on, x, first, x);
        applyTransform(on, x, first, x);
        applyTransform(on, y, first, y); // at a level at which it was
        sumOfTransforms(on, std::vector{x, y}, {second, first}, x);
        multiplyMatrices(on, x, x, product, x);
    };
    const Message m = random.message(4);
    run(evaluator, scheme.encrypt(m, 9), scheme.encrypt(m, 9));
    run(plan, plan.encrypt(m, 9), plan.encrypt(m, 9));
    EXPECT_GT(first.getEncodedBytes(), 0);
    EXPECT_GT(product.getEncodedBytes(), 0);
    EXPECT_EQ(plan.getReport().constantBytes,
              first.getEncodedBytes() + second.getEncodedBytes() + product.getEncodedBytes());
    // One that is given as it is counts for each call.
    Plan other(context);
    const LinearTransform bare = dense(8);
    PlannedCiphertext x = other.encrypt(m, 5), y = x;
    applyTransform(other, x, bare, x);
    const u64 once = other.getReport().constantBytes;
    EXPECT_EQ(once, (8 + 7) * (5 + 1 + 5) * 64 * sizeof(u64));
    applyTransform(other, y, bare, y);
    EXPECT_EQ(other.getReport().constantBytes, 2 * once);
    other.reset();
    EXPECT_EQ(other.getReport().constantBytes, 0);
}

TEST_F(LinearFunctions, APlanTellsTheBytesOfTheConstantsOfBootstraps) {
    const Plan plan(context, standard);
    PlannedCiphertext x = plan.encrypt(random.message(3), 3);
    const CachedTransform transform = dense(8);
    applyTransform(plan, x, transform, x);
    EXPECT_EQ(plan.getReport().bootstraps, 1);
    u64 rows = 0;
    for (const u64 logSlots : {3, 5}) rows += BootShapes(logSlots, 25).rowCount();
    Ciphertext out(context);
    applyTransform(bootstrapping(), scheme.encrypt(random.message(3), 3), transform, out);
    EXPECT_EQ(plan.getReport().constantBytes, rows * 64 * sizeof(u64) + transform.getEncodedBytes());
}

TEST_F(LinearFunctions, APlansErrorIsThatOfCiphertexts) {
    const Matrix matrix = matrixOf(32);
    const CachedTransform transform = LinearTransform::fromMatrix(matrix);
    for (const u64 level : {1UL, 6UL, 12UL}) {
        double predicted = 0, measured = 0;
        Plan plan(context);
        for (int round = 0; round < 20; ++round) {
            const Message in = random.message(5), expected = productOf(matrix, 32, in);
            PlannedCiphertext planned = plan.encrypt(in, level);
            applyTransform(plan, planned, transform, planned);
            predicted += std::pow(planned.getError(), 2);
            Ciphertext out = scheme.encrypt(in, level);
            applyTransform(evaluator, out, transform, out);
            const Message got = scheme.decrypt(out);
            for (u64 i = 0; i < got.getSize(); ++i) measured += std::norm(got[i] - expected[i]) / 32;
        }
        // As in `AFreshCiphertextErrsAsAnEncryptionDoes`: all encryptions share the errors of one key.
        EXPECT_GT(measured / predicted, 0.25) << level;
        EXPECT_LT(measured / predicted, 4) << level;
    }
}

TEST_F(LinearFunctions, SeveralTransformsOfOneInputShareItsRotations) {
    const std::vector<CachedTransform> transforms{dense(8), dense(16), CachedTransform(dense(16), {10}),
                                                  dense(1)};
    const Message m = random.message(4);
    const Ciphertext in = scheme.encrypt(m, 7);
    std::vector<Ciphertext> outs(2, in);
    applyTransform(evaluator, in, transforms, outs);
    const Plan plan(context);
    std::vector<PlannedCiphertext> planned;
    applyTransform(plan, plan.encrypt(m, 7), transforms, planned);
    std::vector<Message> clear;
    applyTransform(evaluator, m, transforms, clear);
    ASSERT_EQ(outs.size(), 4U);
    ASSERT_EQ(planned.size(), 4U);
    u64 alone = 0;
    for (u64 k = 0; k < 4; ++k) {
        Ciphertext single(context);
        applyTransform(evaluator, in, transforms[k], single);
        EXPECT_TRUE(sameWords(outs[k], single)) << k;
        EXPECT_LT(maxError(planned[k].getMessage(), clear[k]), 0x1p-40);
        const Plan one(context);
        PlannedCiphertext x;
        applyTransform(one, one.encrypt(m, 7), transforms[k], x);
        alone += one.getReport().rotations;
    }
    EXPECT_LT(plan.getReport().rotations, alone);
    applyTransform(evaluator, in, {}, outs);
    EXPECT_TRUE(outs.empty());
}

TEST_F(LinearFunctions, ASumOfTransformsIsThatOfTheMatricesWithOneRescale) {
    const std::vector<Matrix> matrices{matrixOf(8), matrixOf(16), matrixOf(1)};
    std::vector<CachedTransform> transforms;
    for (const Matrix& matrix : matrices) transforms.emplace_back(LinearTransform::fromMatrix(matrix));
    for (const u64 lowest : {1UL, 6UL}) {
        std::vector<Message> messages;
        std::vector<Ciphertext> ins;
        std::vector<PlannedCiphertext> planned;
        const Plan plan(context);
        Message expected(4, 0.0);
        for (u64 k = 0; k < 3; ++k) {
            messages.push_back(random.message(4));
            ins.push_back(scheme.encrypt(messages[k], lowest + k));
            planned.push_back(plan.encrypt(messages[k], lowest + k));
            const Message part = productOf(matrices[k], matrices[k].size(), messages[k]);
            for (u64 i = 0; i < 16; ++i) expected[i] += part[i];
        }
        Message clear;
        sumOfTransforms(evaluator, messages, transforms, clear);
        EXPECT_LT(maxError(clear, expected), 0x1p-40);
        PlannedCiphertext plannedSum;
        sumOfTransforms(plan, planned, transforms, plannedSum);
        EXPECT_EQ(plannedSum.getLevel(), lowest - 1);
        EXPECT_LT(maxError(plannedSum.getMessage(), expected), 0x1p-40);
        EXPECT_EQ(plan.getReport().rescales, 1 + 2); // of two that come down
        const double bound = 3 * transformBound(context, lowest, 2 * 16);
        EXPECT_LT(plannedSum.getLargestError(), bound);
        sumOfTransforms(evaluator, ins, transforms, ins[1]);
        EXPECT_EQ(ins[1].getLevel(), lowest - 1);
        EXPECT_LT(maxError(scheme.decrypt(ins[1]), expected), bound);
    }
}

// ---- matrices

TEST_F(LinearFunctions, AProductIsThatOfTheMatricesFromEveryLevel) {
    for (const u64 d : {1UL, 2UL, 4UL})
        for (u64 level = 3; level <= after; level += d == 2 ? 1 : 4)
            for (const u64 logSlots : {2 * static_cast<u64>(std::countr_zero(d)), u64{5}}) {
                SCOPED_TRACE(testing::Message() << d << " " << level << " " << logSlots);
                const Message a = random.message(logSlots), b = random.message(logSlots);
                const Message expected = productOfMatrices(d, a, b);
                Message clear;
                multiplyMatrices(evaluator, a, b, d, clear);
                EXPECT_LT(maxError(clear, expected), 0x1p-45);
                Ciphertext out(context);
                multiplyMatrices(evaluator, scheme.encrypt(a, after), scheme.encrypt(b, level), d, out);
                EXPECT_EQ(out.getLevel(), level - 3);
                EXPECT_LT(maxError(scheme.decrypt(out), expected), productBound(context, d, level));
                const Plan plan(context);
                PlannedCiphertext planned;
                multiplyMatrices(plan, plan.encrypt(a, level), plan.encrypt(b, after), d, planned);
                EXPECT_EQ(planned.getLevel(), level - 3);
                EXPECT_LT(maxError(planned.getMessage(), expected), 0x1p-40);
                EXPECT_LT(planned.getLargestError(), productBound(context, d, level));
                const auto needed = CachedMatrixProduct(d).getRotationIndices(context, logSlots);
                EXPECT_EQ(plan.getReport().leftRotations, Indices(needed.begin(), needed.end()));
                EXPECT_EQ(plan.getReport().tensors, d);
                EXPECT_EQ(plan.getReport().relinearizations, 1);
            }
}

TEST_F(LinearFunctions, AboveTheEncryptionLevelWhatARescaleMakesLargerIsMetOnCiphertextsAndPlans) {
    const Message a = random.message(4), b = random.message(4), product = productOfMatrices(4, a, b);
    const Matrix matrix = matrixOf(16);
    const CachedTransform transform = LinearTransform::fromMatrix(matrix);
    for (const u64 level : {13UL, 14UL, 15UL}) {
        Ciphertext x = encryptAt(scheme, random, a, level), y = encryptAt(scheme, random, b, level);
        PlannedCiphertext p(PlannedCiphertextImpl{level, 0, 2, a, a}),
            q(PlannedCiphertextImpl{level, 0, 2, b, b});
        const Plan plan(context);
        multiplyMatrices(evaluator, x, y, 4, y);
        multiplyMatrices(plan, p, q, 4, q);
        EXPECT_EQ(y.getLevel(), level - 3);
        EXPECT_EQ(q.getLevel(), level - 3);
        EXPECT_LT(maxError(scheme.decrypt(y), product), productBound(context, 4, level));
        EXPECT_LT(maxError(q.getMessage(), product), 0x1p-40);
        EXPECT_LT(q.getLargestError(), productBound(context, 4, level));
        if (level > 13) continue;
        applyTransform(evaluator, x, transform, x);
        applyTransform(plan, p, transform, p);
        const Message expected = productOf(matrix, 16, a);
        EXPECT_LT(maxError(scheme.decrypt(x), expected), transformBound(context, level, 16));
        EXPECT_LT(maxError(p.getMessage(), expected), 0x1p-40);
        EXPECT_LT(p.getLargestError(), transformBound(context, level, 16));
    }
}

TEST_F(LinearFunctions, ATranspositionTurnsRowsIntoColumns) {
    const Message in = random.message(5);
    const LinearTransform transposition = MatrixProduct::transposition(4);
    Message expected, clear;
    transposition.apply(in, expected);
    applyTransform(evaluator, in, transposition, clear);
    EXPECT_EQ(maxError(clear, expected), 0);
    Ciphertext out(context);
    applyTransform(evaluator, scheme.encrypt(in, 4), transposition, out);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), transformBound(context, 4, 14));
    const Plan plan(context);
    PlannedCiphertext planned = plan.encrypt(in, 4);
    applyTransform(plan, planned, transposition, planned);
    EXPECT_LT(maxError(planned.getMessage(), expected), 0x1p-40);
}

// ---- bootstraps

TEST_F(LinearFunctions, StartFromAnyLevelWithBootstraps) {
    const Matrix matrix = matrixOf(8);
    const CachedTransform transform = LinearTransform::fromMatrix(matrix);
    const CachedMatrixProduct product(2);
    const double gain = 16, error = boot().complexBound();
    for (u64 level = least; level <= after; ++level) {
        SCOPED_TRACE(level);
        const Message m = random.message(3);
        Plan plan(context, standard);
        PlannedCiphertext planned = plan.encrypt(m, level);
        applyTransform(plan, planned, transform, planned);
        Ciphertext x = scheme.encrypt(m, level);
        applyTransform(bootstrapping(), x, transform, x);
        EXPECT_EQ(x.getLevel(), planned.getLevel());
        // The result exceeds the unit square, so four levels are kept for it.
        EXPECT_EQ(plan.getReport().bootstraps, level >= 5 ? 0 : 1);
        EXPECT_LT(maxError(scheme.decrypt(x), productOf(matrix, 8, m)),
                  transformBound(context, after, 16) + gain * error);

        plan.reset();
        const Message real = realMessage(3);
        PlannedCiphertext a = plan.encrypt(real, level), b = plan.encrypt(real, level);
        multiplyMatrices(plan, a, b, product, a, {0.9, true, 1});
        EXPECT_EQ(plan.getReport().bootstraps, level >= 6 ? 0 : 1); // of both at once
        Ciphertext c = scheme.encrypt(real, level), d = c;
        multiplyMatrices(bootstrapping(), c, d, product, c, {0.9, true, 1});
        EXPECT_EQ(c.getLevel(), a.getLevel());
        EXPECT_LT(maxError(scheme.decrypt(c), productOfMatrices(2, real, real)),
                  productBound(context, 2, after) + 8 * error);
        // The same object for both.
        multiplyMatrices(bootstrapping(), d, d, product, d, {0.9, false, 1});
        EXPECT_EQ(d.getLevel(), c.getLevel());
        EXPECT_LT(maxError(scheme.decrypt(d), productOfMatrices(2, real, real)),
                  productBound(context, 2, after) + 8 * error);
    }
}

TEST_F(LinearFunctions, BoundsDecideOnTheLevelsThatAreKept) {
    const CachedTransform half = LinearTransform::fromDiagonals(1, {{0, {0.5}}}),
                          twice = LinearTransform::fromDiagonals(1, {{0, {2.0}}});
    const auto bootstraps = [&](const CachedTransform& transform, u64 level, const LinearBounds& bounds) {
        const Plan plan(context, standard);
        PlannedCiphertext x = plan.encrypt(Message(2, 0.25), level);
        applyTransform(plan, x, transform, x, bounds);
        return plan.getReport().bootstraps;
    };
    EXPECT_EQ(bootstraps(half, 4, {}), 0);
    EXPECT_EQ(bootstraps(twice, 4, {}), 1);
    EXPECT_EQ(bootstraps(twice, 5, {}), 0);
    EXPECT_EQ(bootstraps(twice, 4, {0.5}), 0);
    EXPECT_EQ(bootstraps(twice, 4, {1, false, 1}), 0);
    EXPECT_EQ(bootstraps(half, 4, {1.5}), 1);
    EXPECT_EQ(bootstraps(half, 5, {1.5}), 0);
}

// ---- refusals

TEST_F(LinearFunctions, NameAllMissingKeysBeforeAnythingIsWrittenOrBootstrapped) {
    const KeyPack pack(context);
    const KeyGenerator generator(context, scheme.secretKey, pack);
    const HomEvaluator poor(context, pack);
    const CachedTransform transform(dense(8), {7}), shift = LinearTransform::fromPermutation({1, 0});
    const auto needed = transform.getRotationIndices(context, 3);
    ASSERT_GT(needed.size(), 2U);
    const Ciphertext in = scheme.encrypt(random.message(3), 4);
    const Ciphertext before = usedLonger(context);
    Ciphertext out = before;
    std::vector<Ciphertext> outs{before};
    std::string names;
    for (u64 k = 1; k < needed.size(); ++k) names += (k == 1 ? "" : ", ") + std::to_string(needed[k]);
    generator.genLeftRotKey(needed[0]);
    const std::string missing = "Failed to load the left rotation keys for indices ";
    EXPECT_REFUSED(applyTransform(poor, in, transform, out), missing + names);
    const HomEvaluator keyless(context, KeyPack(context));
    EXPECT_REFUSED(
        applyTransform(keyless, in,
                       {shift, CachedTransform(LinearTransform::fromPermutation({2, 3, 0, 1, 6, 7, 4, 5}))},
                       outs),
        missing + "1, 2, 6, 7");
    EXPECT_REFUSED(sumOfTransforms(keyless, std::vector{in, in},
                                   {shift, LinearTransform::fromPermutation({2, 3, 0, 1})}, out),
                   missing + "1, 2, 6, 7");
    // Also where there is no level.
    EXPECT_REFUSED(applyTransform(keyless, scheme.encrypt(random.message(3), 0), shift, out),
                   missing + "1, 7");
    const Ciphertext square = scheme.encrypt(random.message(2), 3);
    EXPECT_REFUSED(multiplyMatrices(keyless, square, square, 2, out), missing + "1, 2, 3");
    for (const u64 index : {1, 2, 3}) generator.genLeftRotKey(index);
    EXPECT_REFUSED(multiplyMatrices(poor, square, square, 2, out), "Failed to load the multiplication key");
    EXPECT_TRUE(sameWords(out, before));
    ASSERT_EQ(outs.size(), 1U);
    EXPECT_TRUE(sameWords(outs[0], before));
    EXPECT_EQ(transform.getEncodedBytes(), 0);
}

TEST_F(LinearFunctions, RefuseInTheirOrderAndAPlanAsCiphertexts) {
    const HomEvaluator keyless(context, KeyPack(context));
    const CachedTransform transform(dense(16), {3}), other(dense(8));
    const Ciphertext before = usedModUp(context);
    Ciphertext out = before, three = scheme.encrypt(random.message(3), 0),
               owing = scheme.encrypt(random.message(3), 2, 1);
    three.setNumPoly(3);
    const double nan = std::nan("");
    EXPECT_REFUSED(sumOfTransforms(keyless, std::vector<Ciphertext>{}, {transform}, out, {nan}),
                   "sumOfTransforms is given no ciphertext; give at least one");
    EXPECT_REFUSED(sumOfTransforms(keyless, std::vector{three, three}, {transform}, out, {nan}),
                   "sumOfTransforms is given 2 ciphertexts, and 1 to go with them; give as many of both");
    EXPECT_REFUSED(applyTransform(keyless, three, transform, out, {nan}), "Size should be 2");
    EXPECT_REFUSED(applyTransform(keyless, owing, transform, out, {nan}),
                   "The Operand should have rescale counter zero");
    EXPECT_REFUSED(applyTransform(keyless, Scheme::of(ParameterPreset::SD3).encrypt(Message(3, 0.5), 1),
                                  transform, out, {nan}),
                   "Operands are not of the ring of the generated context.");
    const Ciphertext a = scheme.encrypt(random.message(3), 0), b = scheme.encrypt(random.message(2), 0);
    const Plan plan(context);
    const PlannedCiphertext p = plan.encrypt(random.message(3), 0), q = plan.encrypt(random.message(2), 0);
    PlannedCiphertext plannedOut = q;
    const Message m = random.message(3), n = random.message(2);
    Message clear = n;
    const auto everyone = [&](const auto& call, const std::string& text) {
        EXPECT_REFUSED(call(keyless, a, b, out), text);
        EXPECT_REFUSED(call(plan, p, q, plannedOut), text);
        EXPECT_REFUSED(call(keyless, m, n, clear), text);
    };
    everyone(
        [&](const auto& on, const auto& x, const auto& y, auto& z) {
            sumOfTransforms(on, std::vector{x, y}, {transform, transform}, z, {nan});
        },
        "Two operands have different logSlots");
    everyone([&](const auto& on, const auto& x, const auto& y,
                 auto& z) { multiplyMatrices(on, x, y, 4, z, {nan}); },
             "Two operands have different logSlots");
    const std::string allowed = "; give a positive, finite one";
    everyone(
        [&](const auto& on, const auto& x, const auto&, auto& z) {
            applyTransform(on, x, transform, z, {nan, false, -1});
        },
        "applyTransform is given the bound nan" + allowed);
    everyone(
        [&](const auto& on, const auto& x, const auto&, auto& z) {
            sumOfTransforms(on, std::vector{x}, {transform}, z, {1, false, -1});
        },
        "sumOfTransforms is given the bound -1" + allowed);
    everyone(
        [&](const auto& on, const auto& x, const auto&, auto& z) { multiplyMatrices(on, x, x, 4, z, {0}); },
        "multiplyMatrices is given the bound 0" + allowed);
    everyone(
        [&](const auto& on, const auto& x, const auto&, auto& z) { applyTransform(on, x, transform, z); },
        "[LinearTransform] the transform maps blocks of 16 slots, which log slots 3 do not hold; give more "
        "log slots, or a smaller transform");
    everyone(
        [&](const auto& on, const auto& x, const auto&, auto& z) { multiplyMatrices(on, x, x, 3, z); },
        "[MatrixProduct] matrices of 3 rows are given; the number should be a power of two, and at most 512");
    const CachedTransform few(dense(8), {3});
    const std::string tooFew =
        "[LinearTransform] 3 keys are allowed, but the 8 rotations of this transform need 4 at "
        "least; allow that many, or split the transform";
    EXPECT_REFUSED(applyTransform(keyless, a, few, out), tooFew);
    EXPECT_REFUSED(applyTransform(plan, p, few, plannedOut), tooFew);
    const std::string levels = " levels, but the ciphertext has 0. Bootstrap it first, or give a "
                               "BootstrappingEvaluator in place of the evaluator.";
    EXPECT_REFUSED(applyTransform(evaluator, a, other, out), "applyTransform needs 1" + levels);
    EXPECT_REFUSED(applyTransform(plan, p, other, plannedOut), "applyTransform needs 1" + levels);
    EXPECT_REFUSED(multiplyMatrices(evaluator, b, b, 2, out), "multiplyMatrices needs 3" + levels);
    EXPECT_REFUSED(multiplyMatrices(plan, q, q, 2, plannedOut), "multiplyMatrices needs 3" + levels);
    const std::string tooLow =
        "applyTransform has to bootstrap first, which needs a ciphertext at level 3 or above, "
        "but this one is at level 0. Stop using its levels earlier.";
    const Plan withBootstraps(context, standard);
    EXPECT_REFUSED(applyTransform(bootstrapping(), a, other, out), tooLow);
    EXPECT_REFUSED(applyTransform(withBootstraps, p, other, plannedOut), tooLow);
    const std::string tooMany = "multiplyMatrices needs 3 levels at once, but a bootstrap leaves 0 to spend. "
                                "Take a parameter with more levels.";
    const Plan shortChain(makeContext(ParameterPreset::FTb), standard);
    EXPECT_REFUSED(multiplyMatrices(shortChain, shortChain.encrypt(n, 3), shortChain.encrypt(n, 3), 2,
                                    plannedOut, {1.5}),
                   tooMany);
    EXPECT_TRUE(sameWords(out, before));
    EXPECT_EQ(plannedOut.getLogSlots(), 2U);
    EXPECT_EQ(clear.getLogSlots(), 2U);
    Message none;
    EXPECT_REFUSED(applyTransform(evaluator, none, other, clear),
                   "The message has no slots. Give one with at least one slot.");
    EXPECT_REFUSED(CachedTransform(dense(2)).getRotationIndices(nullptr, 9),
                   "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(
        CachedMatrixProduct(0),
        "[MatrixProduct] matrices of 0 rows are given; the number should be a power of two, and at most 512");
}

TEST_F(LinearFunctions, NumbersThatAreTooLargeAreRefusedByPlansToo) {
    const Ciphertext before = scheme.encrypt(random.message(0), 3);
    for (const double number : {1e300, 1e30, 3e25, 1e20}) { // up to 3.8e25 there
        const CachedTransform transform = LinearTransform::fromDiagonals(1, {{0, {number}}});
        Ciphertext out = before;
        const Plan plan(context);
        PlannedCiphertext planned = plan.encrypt(random.message(0), 3);
        std::string refusal, plannedRefusal;
        try {
            applyTransform(evaluator, out, transform, out);
        } catch (const RuntimeException& refused) {
            refusal = refused.what();
        }
        try {
            applyTransform(plan, planned, transform, planned);
        } catch (const RuntimeException& refused) {
            plannedRefusal = refused.what();
        }
        EXPECT_EQ(refusal, plannedRefusal) << number;
        EXPECT_EQ(refusal.empty(), number < 3.8e25) << refusal;
        if (!refusal.empty()) {
            EXPECT_EQ(refusal.rfind("[encode] Cannot encode the coefficient 1e+", 0), 0) << refusal;
            EXPECT_TRUE(sameWords(out, before));
        }
    }
}

TEST_F(LinearFunctions, WriteWhateverTheOutputHeldAndOverTheirInputs) {
    const CachedTransform transform = dense(8);
    const CachedMatrixProduct product(2);
    const Ciphertext a = scheme.encrypt(random.message(3), 4), b = scheme.encrypt(random.message(3), 5);
    Ciphertext expected(context), expectedProduct(context), overA = a, overB = b;
    applyTransform(evaluator, a, transform, expected);
    multiplyMatrices(evaluator, a, b, product, expectedProduct);
    for (Ciphertext& used : usedOutputs(context)) {
        applyTransform(evaluator, a, transform, used);
        EXPECT_TRUE(sameWords(used, expected));
    }
    for (Ciphertext& used : usedOutputs(context)) {
        multiplyMatrices(evaluator, a, b, product, used);
        EXPECT_TRUE(sameWords(used, expectedProduct));
    }
    applyTransform(evaluator, overA, transform, overA);
    EXPECT_TRUE(sameWords(overA, expected));
    multiplyMatrices(evaluator, a, overB, product, overB);
    EXPECT_TRUE(sameWords(overB, expectedProduct));
    overA = a;
    multiplyMatrices(evaluator, overA, b, product, overA);
    EXPECT_TRUE(sameWords(overA, expectedProduct));
}

} // namespace
} // namespace Torvo
