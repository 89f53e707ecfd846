#include <Torvo/EncodedTransform.hpp>

#include "arithmetic/kernels/RowLoop.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "functions/LinearTransformImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ForcedFeature.hpp"
#include "support/ForeignRings.hpp"
#include "support/ForkedChild.hpp"
#include "support/KernelForm.hpp"
#include "support/LinearMaps.hpp"
#include "support/Sanitizer.hpp"
#include "support/UsedOutputs.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <thread>

namespace Torvo {
namespace {

using namespace test;

using Indices = std::vector<unsigned long>;

class EncodedTransforms : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Context& context = scheme.context;
    const HomEvaluator& evaluator = rotatingEvaluator(scheme);
    Seeded random{81};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};

    /// Of a message of its own, whose product must come out; the ciphertext comes from `from`.
    void expectProduct(const Matrix& matrix, const EncodedTransform& transform, u64 size, u64 from) {
        const u64 log_slots = transform.getLogSlots(), level = transform.getLevel();
        const Message message = random.message(log_slots);
        Ciphertext out(context);
        transform.apply(evaluator, encryptAt(scheme, random, message, from), out);
        EXPECT_EQ(out.getLevel(), level - 1);
        EXPECT_EQ(out.getLogSlots(), log_slots);
        EXPECT_EQ(out.getRescaleCounter(), 0);
        EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
        double bound = transformBound(context, level, 2 * size);
        if (const u64 readable = scheme.encryptionLevel(); out.getLevel() > readable) {
            // Above, two primes do not hold the scale. The way down is a product and a rescale, as this is.
            evaluator.levelDown(out, readable, out);
            bound += transformBound(context, readable + 1, 1);
        }
        EXPECT_LT(maxError(scheme.decrypt(out), productOf(matrix, size, message)), bound)
            << "size " << size << ", log slots " << log_slots << ", level " << level << ", from " << from;
    }
    void expectProduct(const Matrix& matrix, u64 size, u64 log_slots, u64 level, u64 from,
                       const TransformOptions& options = {}) {
        const LinearTransform transform = LinearTransform::fromMatrix(matrix);
        const EncodedTransform encoded(context, transform, log_slots, level, options);
        EXPECT_EQ(encoded.getRotationIndices(),
                  transform.getRotationIndices(context, log_slots, level, options));
        expectProduct(matrix, encoded, size, from);
    }

    EncodedTransform dense(u64 size, u64 log_slots, u64 level, const TransformOptions& options = {}) {
        return {context, LinearTransform::fromMatrix(randomMatrix(random, size, size)), log_slots, level,
                options};
    }
};

TEST_F(EncodedTransforms, GiveTheProductWithTheMatrix) {
    for (u64 log_size = 0; log_size <= 5; ++log_size) {
        const u64 size = u64{1} << log_size;
        expectProduct(randomMatrix(random, size, size), size, log_size, 7, 7);
    }
}

TEST_F(EncodedTransforms, MapABatchOfVectorsAtOnce) {
    for (u64 log_size = 0; log_size < 5; ++log_size)
        for (u64 log_slots = log_size + 1; log_slots <= 5; ++log_slots) {
            const u64 size = u64{1} << log_size;
            expectProduct(randomMatrix(random, size, size), size, log_slots, 6, 6);
        }
}

TEST_F(EncodedTransforms, GiveTheProductAtEveryLevel) {
    const Matrix matrix = randomMatrix(random, 8, 8);
    for (u64 level = 1; level <= scheme.topLevel(); ++level) {
        const bool isHigh = level > scheme.encryptionLevel(); // with other scales, a step away
        expectProduct(matrix, 8, 3, level, level);
        expectProduct(matrix, 8, 4, level, isHigh ? scheme.topLevel() : scheme.encryptionLevel());
    }
}

TEST_F(EncodedTransforms, GiveTheProductOfSparseMatrices) {
    for (u64 round = 0; round < 8; ++round)
        for (const u64 log_slots : {4UL, 5UL})
            expectProduct(randomMatrix(random, 16, 16, 1), 16, log_slots, 5, 6);
}

TEST_F(EncodedTransforms, GiveTheProductOfMatricesThatAreNotSquare) {
    expectProduct(randomMatrix(random, 3, 11), 16, 4, 5, 5);
    expectProduct(randomMatrix(random, 11, 3), 16, 5, 5, 5);
}

TEST_F(EncodedTransforms, OfZerosGiveZeros) {
    expectProduct(Matrix(4, std::vector<Complex>(4)), 4, 3, 2, 2);
}

TEST_F(EncodedTransforms, OfPermutationsMoveTheSlots) {
    for (const u64 log_slots : {4UL, 5UL}) {
        std::vector<unsigned long> sources(16);
        std::iota(sources.begin(), sources.end(), 0);
        std::shuffle(sources.begin(), sources.end(), std::mt19937_64(random.word()));
        Matrix matrix(16, std::vector<Complex>(16));
        for (u64 i = 0; i < 16; ++i) matrix[i][sources[i]] = 1;
        const EncodedTransform moved(context, LinearTransform::fromPermutation(sources), log_slots, 3);
        expectProduct(matrix, moved, 16, 4);
    }
}

TEST_F(EncodedTransforms, ShareStepsOfAnOddStride) {
    // Of 32 slots, multiples of 7 in both directions, as a transposition has them.
    std::map<unsigned long, std::vector<Complex>> diagonals;
    Matrix matrix(32, std::vector<Complex>(32));
    for (u64 q = 0; q < 15; ++q)
        for (u64 i = 0; i < 32; ++i) {
            const u64 d = (q + 25) * 7 % 32;
            matrix[i][(i + d) % 32] = {random.real(-1, 1), random.real(-1, 1)};
            diagonals[d].push_back(matrix[i][(i + d) % 32]);
        }
    const EncodedTransform transform(context, LinearTransform::fromDiagonals(32, diagonals), 5, 4);
    EXPECT_LE(transform.getRotationIndices().size(), 8U);
    expectProduct(matrix, transform, 32, 4);
}

TEST_F(EncodedTransforms, KeepToTheKeysThatTheyMayNeed) {
    const Matrix matrix = randomMatrix(random, 32, 32);
    for (const u64 most : {10UL, 16UL, 31UL, 1000UL}) {
        const TransformOptions options{most};
        EXPECT_LE(LinearTransform::fromMatrix(matrix).getRotationIndices(context, 5, 4, options).size(),
                  most);
        expectProduct(matrix, 32, 5, 4, 4, options);
    }
}

TEST_F(EncodedTransforms, OfOneCiphertextHaveTheWordsOfSingleCalls) {
    const std::vector<EncodedTransform> transforms{dense(8, 4, 5), dense(16, 4, 5), dense(1, 4, 5),
                                                   dense(16, 4, 5, {15})};
    const Ciphertext in = scheme.encrypt(random.message(4), 7);
    std::vector<Ciphertext> outs(7, in);
    EncodedTransform::apply(evaluator, in, transforms, outs);
    ASSERT_EQ(outs.size(), transforms.size());
    for (u64 k = 0; k < outs.size(); ++k) {
        Ciphertext single(context);
        transforms[k].apply(evaluator, in, single);
        EXPECT_TRUE(sameWords(outs[k], single)) << k;
    }
    std::vector<Ciphertext> holdsInput{in, in};
    EncodedTransform::apply(evaluator, holdsInput[1], transforms, holdsInput);
    ASSERT_EQ(holdsInput.size(), transforms.size());
    for (u64 k = 0; k < outs.size(); ++k) EXPECT_TRUE(sameWords(holdsInput[k], outs[k])) << k;
    EncodedTransform::apply(evaluator, in, {}, outs);
    EXPECT_TRUE(outs.empty());
}

TEST_F(EncodedTransforms, OfSeveralCiphertextsAddUp) {
    const std::vector<Matrix> matrices{randomMatrix(random, 8, 8), randomMatrix(random, 16, 16),
                                       randomMatrix(random, 1, 1)};
    std::vector<EncodedTransform> transforms;
    std::vector<Ciphertext> ins;
    Message expected(4, 0.0);
    for (u64 k = 0; k < 3; ++k) {
        transforms.emplace_back(context, LinearTransform::fromMatrix(matrices[k]), 4, 5);
        const Message message = random.message(4), part = productOf(matrices[k], matrices[k].size(), message);
        ins.push_back(scheme.encrypt(message, 5 + k));
        for (u64 i = 0; i < 16; ++i) expected[i] += part[i];
    }
    Ciphertext sum(context), single(context), alone(context);
    EncodedTransform::applySum(evaluator, ins, transforms, sum);
    EXPECT_EQ(sum.getLevel(), 4U);
    EXPECT_EQ(sum.getLogSlots(), 4U);
    EXPECT_EQ(sum.getRescaleCounter(), 0);
    EXPECT_LT(maxError(scheme.decrypt(sum), expected), 3 * transformBound(context, 5, 32));
    for (Ciphertext& used : usedOutputs(context)) {
        EncodedTransform::applySum(evaluator, ins, transforms, used);
        EXPECT_TRUE(sameWords(used, sum));
    }
    transforms[0].apply(evaluator, ins[0], single);
    EncodedTransform::applySum(evaluator, {ins[0]}, {transforms[0]}, alone);
    EXPECT_TRUE(sameWords(alone, single));
    EncodedTransform::applySum(evaluator, ins, transforms, ins[2]);
    EXPECT_TRUE(sameWords(ins[2], sum));
}

TEST_F(EncodedTransforms, OfSeveralCiphertextsRefuseInTheirOrder) {
    const HomEvaluator keyless(context, KeyPack(context));
    const EncodedTransform transform = dense(8, 4, 3), lower = dense(8, 4, 2), empty(context);
    const Ciphertext in = scheme.encrypt(random.message(4), 3), low = scheme.encrypt(random.message(4), 2);
    const Ciphertext before = usedLonger(context);
    Ciphertext out = before;
    const auto applySum = [&](const std::vector<Ciphertext>& ins, const std::vector<EncodedTransform>& all) {
        EncodedTransform::applySum(keyless, ins, all, out);
    };
    EXPECT_REFUSED(applySum({}, {empty}), "applySum is given no ciphertext; give at least one");
    EXPECT_REFUSED(applySum({in, in}, {empty}),
                   "applySum is given 2 ciphertexts, and 1 to go with them; give as many of both");
    EXPECT_REFUSED(
        applySum({in, in}, {lower, empty}),
        "[EncodedTransform] It is empty, so there is nothing to apply or save; assign one that was "
        "encoded, or load a file first");
    EXPECT_REFUSED(applySum({low, low}, {lower, transform}),
                   "[EncodedTransform] the ciphertext is at level 2, but the transform is encoded for level "
                   "3; encode it for level 2, or give a ciphertext of level 3 or above");
    EXPECT_REFUSED(applySum({in, in}, {transform, lower}),
                   "[EncodedTransform] the transforms of one call differ in level or log slots: 3 and 4, but "
                   "2 and 4; encode them alike");
    const EncodedTransform swap(context, LinearTransform::fromPermutation({1, 0}), 4, 3),
        turn(context, LinearTransform::fromPermutation({2, 3, 0, 1}), 4, 3);
    EXPECT_REFUSED(applySum({in, in}, {swap, turn}),
                   "Failed to load the left rotation keys for indices 1, 2, 14, 15");
    EXPECT_TRUE(sameWords(out, before));
}

TEST_F(EncodedTransforms, WriteWhateverTheOutputHeld) {
    const EncodedTransform transform = dense(8, 5, 4);
    const Ciphertext in = scheme.encrypt(random.message(5), 4);
    Ciphertext expected(context), inPlace = in;
    transform.apply(evaluator, in, expected);
    for (Ciphertext& used : usedOutputs(context)) {
        transform.apply(evaluator, in, used);
        EXPECT_TRUE(sameWords(used, expected));
    }
    transform.apply(evaluator, inPlace, inPlace);
    EXPECT_TRUE(sameWords(inPlace, expected));
}

TEST_F(EncodedTransforms, HaveTheWordsOfRotationsWhereTheyRotate) {
    // The numbers of the diagonal are all 2^0: the polynomial is the scale, and the division by it is no more.
    for (const u64 index : {1UL, 5UL, 31UL}) {
        std::map<unsigned long, std::vector<Complex>> ones;
        ones[index] = std::vector<Complex>(32, 1.0);
        const EncodedTransform shift(context, LinearTransform::fromDiagonals(32, ones), 5, 3);
        const Ciphertext in = scheme.encrypt(random.message(5), 3);
        Ciphertext out(context), rotated(context);
        shift.apply(evaluator, in, out);
        evaluator.leftRotate(in, index, rotated);
        evaluator.mult(rotated, scheme.encoder.encode(Message(5, 1.0), 3), rotated);
        EXPECT_LT(maxError(scheme.decrypt(out), scheme.decrypt(rotated)), 2 * transformBound(context, 3, 1));
    }
}

TEST_F(EncodedTransforms, OfTheMainDiagonalNeedNoKey) {
    const KeyPack none(context);
    const HomEvaluator keyless(context, none);
    const EncodedTransform transform(
        context, LinearTransform::fromDiagonals(4, {{0, {1.0, -0.5, {0, 1}, 0.0}}}), 2, 2);
    EXPECT_EQ(transform.getRotationIndices(), Indices{});
    const Message in = random.message(2);
    Ciphertext out(context);
    transform.apply(keyless, scheme.encrypt(in, 2), out);
    const Message expected({in[0], -0.5 * in[1], Complex(0, 1) * in[2], Complex(0)});
    EXPECT_LT(maxError(scheme.decrypt(out), expected), transformBound(context, 2, 1));
}

TEST_F(EncodedTransforms, NameAllMissingKeysBeforeAnythingIsWritten) {
    const KeyPack pack(context);
    const KeyGenerator generator(context, scheme.secretKey, pack);
    const HomEvaluator poor(context, pack);
    const EncodedTransform transform = dense(8, 3, 4, {7}),
                           shift(context, LinearTransform::fromPermutation({1, 0}), 3, 4);
    const Indices needed = transform.getRotationIndices();
    ASSERT_GT(needed.size(), 2U);
    const Ciphertext in = scheme.encrypt(random.message(3), 4);
    Ciphertext out = usedLonger(context);
    const Ciphertext before = out;
    std::string names;
    for (u64 k = 1; k < needed.size(); ++k) names += (k == 1 ? "" : ", ") + std::to_string(needed[k]);
    generator.genLeftRotKey(needed[0]);
    EXPECT_REFUSED(transform.apply(poor, in, out),
                   "Failed to load the left rotation keys for indices " + names);
    for (u64 k = 1; k + 1 < needed.size(); ++k) generator.genLeftRotKey(needed[k]);
    EXPECT_REFUSED(transform.apply(poor, in, out),
                   "Failed to load the left rotation key for index " + std::to_string(needed.back()));
    EXPECT_TRUE(sameWords(out, before));
    // Several transforms: the keys of all are named at once.
    std::vector<Ciphertext> outs{before};
    const HomEvaluator keyless(context, KeyPack(context));
    EXPECT_EQ(shift.getRotationIndices(), (Indices{1, 7}));
    EXPECT_REFUSED(
        EncodedTransform::apply(
            keyless, in,
            {EncodedTransform(context, LinearTransform::fromPermutation({2, 3, 0, 1, 6, 7, 4, 5}), 3, 4),
             shift},
            outs),
        "Failed to load the left rotation keys for indices 1, 2, 6, 7");
    ASSERT_EQ(outs.size(), 1U);
    EXPECT_TRUE(sameWords(outs[0], before));
    generator.genLeftRotKey(needed.back());
    transform.apply(poor, in, out);
    EXPECT_EQ(out.getLevel(), 3U);
}

TEST_F(EncodedTransforms, RefuseInTheirOrder) {
    const HomEvaluator keyless(context, KeyPack(context));
    const EncodedTransform transform = dense(8, 4, 3), lower = dense(8, 4, 2), empty(context);
    const Context foreign = ringOfDigits(2);
    const EncodedTransform ofForeign(foreign, LinearTransform::fromPermutation({0}), 0, 1);
    Ciphertext in = scheme.encrypt(random.message(3), 2, 1);
    in.setNumPoly(3);
    in.setEncodingType(EncodingType::Coefficient);
    in.getPoly(0) = Polynomial(foreign, false, true, 2);
    std::vector<Ciphertext> outs;
    const auto applyAll = [&](const std::vector<EncodedTransform>& transforms) {
        EncodedTransform::apply(keyless, in, transforms, outs);
    };
    EXPECT_REFUSED(
        applyAll({ofForeign, transform, empty}),
        "[EncodedTransform] It is empty, so there is nothing to apply or save; assign one that was "
        "encoded, or load a file first");
    EXPECT_REFUSED(applyAll({transform, lower, ofForeign}),
                   refusalOf("the transform is of another ring", foreign, "the evaluator's context", context,
                             "encode it with the evaluator's context"));
    EXPECT_REFUSED(applyAll({transform, lower}), "The operand have to encode the message on its slots");
    in.setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(applyAll({transform, lower}), "Size should be 2");
    in.setNumPoly(2);
    EXPECT_REFUSED(applyAll({transform, lower}),
                   "[EncodedTransform] the transforms of one call differ in level or log slots: 3 and 4, but "
                   "2 and 4; encode them alike");
    EXPECT_REFUSED(applyAll({transform}), "The Operand should have rescale counter zero");
    in.setRescaleCounter(0);
    EXPECT_REFUSED(applyAll({transform}),
                   "[EncodedTransform] the ciphertext is at level 2, but the transform is encoded for level "
                   "3; encode it for level 2, or give a ciphertext of level 3 or above");
    in.setLevel(3);
    EXPECT_REFUSED(applyAll({transform}),
                   "[EncodedTransform] the ciphertext has log slots 3, but the transform is encoded for 4; "
                   "encode it for 3, or set the log slots of the ciphertext to 4");
    in.setLogSlots(4);
    EXPECT_REFUSED(applyAll({transform}), "Operands are not of the ring of the generated context.");
    in = scheme.encrypt(random.message(4), 3);
    EXPECT_THROW(applyAll({transform}), RuntimeException); // the keys
    EXPECT_TRUE(outs.empty());
}

TEST_F(EncodedTransforms, RefuseAMissingContextAndNumbersThatAreTooLarge) {
    const LinearTransform transform = LinearTransform::fromDiagonals(1, {{0, {1e300}}});
    EXPECT_REFUSED(EncodedTransform(nullptr, transform, 6, 0),
                   "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(EncodedTransform(nullptr), "The context is null. Make one with makeContext.");
    EXPECT_REFUSED(EncodedTransform(context, transform, 0, 0),
                   "[LinearTransform] level 0 is given, but a transform spends a level and the chain of FX "
                   "ends at 24; give a level from 1 to 24");
    try {
        EncodedTransform(context, transform, 0, 3);
        ADD_FAILURE() << "a number of 1e300 was encoded";
    } catch (const RuntimeException& refusal) {
        EXPECT_EQ(
            std::string(refusal.what()).rfind("[encode] Cannot encode the coefficient 1e+300 at level 3", 0),
            0U)
            << refusal.what();
    }
}

TEST_F(EncodedTransforms, RefuseModUpAndForeignCiphertexts) {
    const EncodedTransform transform = dense(4, 3, 2);
    Ciphertext modUp(context, true), out(context);
    modUp.setLogSlots(3);
    EXPECT_REFUSED(transform.apply(evaluator, modUp, out),
                   "Operands are not of the ring of the generated context.");
    for (const Context& ring : {ringOfDigits(2), ringOfOtherDegree()}) {
        Ciphertext theirs(ring);
        theirs.setLogSlots(3);
        EXPECT_REFUSED(transform.apply(evaluator, theirs, out),
                       "Operands are not of the ring of the generated context.");
    }
    Ciphertext byHand = scheme.encrypt(random.message(3), 2);
    byHand.setLevel(1000);
    EXPECT_REFUSED(transform.apply(evaluator, byHand, out),
                   "Operands are not of the ring of the generated context.");
}

TEST_F(EncodedTransforms, ServeTheEvaluatorsOfTwinContexts) {
    const Context own = ringOfDigits(2);
    const SecretKey key(own);
    const KeyGenerator generator(own, key);
    generator.genLeftRotKey(1);
    const HomEvaluator ours(own, generator.getKeyPack());
    const LinearTransform swap = LinearTransform::fromPermutation({1, 0});
    const Message message = random.message(1);
    Ciphertext in(own), expected(own);
    Encryptor(own).encrypt(message, key, in);
    EncodedTransform(own, swap, 1, 3).apply(ours, in, expected);
    Message decrypted;
    Decryptor(own).decrypt(expected, key, decrypted);
    EXPECT_LT(maxError(decrypted, Message({message[1], message[0]})), transformBound(own, 3, 1));
    for (const Context& twin : twinsOf(own)) {
        Ciphertext out(own);
        EncodedTransform(twin, swap, 1, 3).apply(ours, in, out);
        EXPECT_TRUE(sameWords(out, expected));
    }
}

TEST_F(EncodedTransforms, GiveTheProductInARingWhoseRowsAreWorkedOnInParts) {
    const Context larger = makeContext(12, 4, 50, 42, 50, 2);
    const SecretKey key(larger);
    const KeyGenerator generator(larger, key);
    generator.genEncKey();
    const Matrix matrix = randomMatrix(random, 16, 16);
    const LinearTransform transform = LinearTransform::fromMatrix(matrix);
    for (const u64 log_slots : {4UL, 11UL}) {
        const EncodedTransform encoded(larger, transform, log_slots, 2);
        for (const u64 index : encoded.getRotationIndices())
            generator.genRotKeyIfNotExist(static_cast<long>(index));
        const Message message = random.message(log_slots);
        Ciphertext ct(larger);
        Encryptor(larger).encrypt(message, generator.getKeyPack(), ct, 3, 0);
        encoded.apply(HomEvaluator(larger, generator.getKeyPack()), ct, ct);
        Message out;
        Decryptor(larger).decrypt(ct, key, out);
        EXPECT_LT(maxError(out, productOf(matrix, 16, message)), transformBound(larger, 2, 32)) << log_slots;
    }
}

TEST_F(EncodedTransforms, HoldTheirLiveRowsAndNoMore) {
    for (const u64 level : {1UL, 7UL, 24UL}) {
        const LinearTransform transform = LinearTransform::fromMatrix(randomMatrix(random, 8, 8));
        const LinearTransformImpl::Diagonals none;
        const EncodedTransform encoded(context, transform, 3, level);
        const u64 words = (level + 1 + 5) * 64;
        // Head and numbers, then for each diagonal its rotation and its count.
        EXPECT_EQ(encoded.savedSize(), 1 + 8 + 4 + 6 * 8 + 8 * (8 + 8 + 8 * words)) << level;
        EncodedTransformImpl impl(context, LinearTransformImpl(8, {{0, {{0, 1.0}}}, {5, {{7, 1.0}}}}),
                                  {3, level}, 9);
        ASSERT_EQ(impl.getDiagonals().size(), 2U);
        for (const auto& diagonal : impl.getDiagonals()) {
            EXPECT_EQ(diagonal.rows.size(), words);
            EXPECT_LE(diagonal.rows.capacity(), words + words / 10);
        }
    }
}

TEST_F(EncodedTransforms, HaveTheSameWordsWithTeamsOfAnySize) {
    const EncodedTransform transform = dense(16, 5, 8);
    const Ciphertext in = scheme.encrypt(random.message(5), 8);
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    Ciphertext expected(context);
    transform.apply(evaluator, in, expected);
    for (const int threads : {2, 3, 4, 17}) {
        omp_set_num_threads(threads);
        Ciphertext out(context);
        transform.apply(evaluator, in, out);
        EXPECT_TRUE(sameWords(out, expected)) << threads;
    }
    omp_set_num_threads(before);
}

TEST_F(EncodedTransforms, MayBeAppliedByManyThreadsAtOnce) {
    const EncodedTransform transform = dense(16, 5, 4);
    const Ciphertext in = scheme.encrypt(random.message(5), 5);
    Ciphertext expected(context);
    transform.apply(evaluator, in, expected);
    std::vector<Ciphertext> results(4, Ciphertext(context));
    std::vector<std::thread> threads;
    for (Ciphertext& result : results)
        threads.emplace_back([&] {
            const EncodedTransform copy = transform;
            for (int round = 0; round < 3; ++round) copy.apply(evaluator, in, result);
        });
    for (std::thread& thread : threads) thread.join();
    for (const Ciphertext& result : results) EXPECT_TRUE(sameWords(result, expected));
}

TEST_F(EncodedTransforms, InAForkedChildHaveTheSameWords) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const EncodedTransform transform = dense(16, 5, 3);
    const Ciphertext in = scheme.encrypt(random.message(5), 3);
    const auto words = [&] {
        Ciphertext out(context);
        transform.apply(evaluator, in, out);
        const u64* row = out.getPoly(1).getRow(2);
        return std::vector<u64>(row, row + 64);
    };
    const std::vector<u64> expected = words();
    EXPECT_EQ(inChild(words), expected);
}

TEST_F(EncodedTransforms, InsideAParallelRegionHaveTheSameWords) {
    const EncodedTransform transform = dense(8, 3, 3);
    const Ciphertext in = scheme.encrypt(random.message(3), 3);
    Ciphertext expected(context);
    transform.apply(evaluator, in, expected);
    std::vector<Ciphertext> results(3, Ciphertext(context));
    forEachIndex(results.size(), [&](u64 i) { transform.apply(evaluator, in, results[i]); });
    for (const Ciphertext& result : results) EXPECT_TRUE(sameWords(result, expected));
}

TEST_F(EncodedTransforms, LeaveTheOutputWhereMemoryRunsOut) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const EncodedTransform transform = dense(8, 4, 3);
    const Ciphertext in = scheme.encrypt(random.message(4), 4);
    const Ciphertext before = usedOnCoefficients(context);
    Ciphertext out = before, expected(context);
    transform.apply(evaluator, in, expected);
    for (u64 allocations = 0;; ++allocations) {
        ASSERT_LT(allocations, 5000U);
        bool hasFailed = false;
        {
            const FailingAllocation failing(allocations, FailingAllocation::Thread::Calling);
            try {
                transform.apply(evaluator, in, out);
            } catch (const std::bad_alloc&) {
            }
            hasFailed = failing.hasFailed();
        }
        if (!hasFailed) break;
        ASSERT_TRUE(sameWords(out, before)) << allocations;
    }
    EXPECT_TRUE(sameWords(out, expected));
}

TEST_F(EncodedTransforms, AreNotHalfMadeWhereMemoryRunsOut) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const LinearTransform transform = LinearTransform::fromMatrix(randomMatrix(random, 4, 4));
    EncodedTransform encoded = dense(2, 5, 1);
    for (u64 allocations = 0;; ++allocations) {
        ASSERT_LT(allocations, 5000U);
        bool hasFailed = false;
        {
            const FailingAllocation failing(allocations);
            try {
                encoded = EncodedTransform(context, transform, 4, 2);
            } catch (const std::bad_alloc&) {
            }
            hasFailed = failing.hasFailed();
        }
        if (!hasFailed) break;
        ASSERT_EQ(encoded.getLogSlots(), 5U) << allocations;
    }
    EXPECT_EQ(encoded.getLogSlots(), 4U);
}

TEST_F(EncodedTransforms, AfterAMoveOfTheInputsTheCopiesStay) {
    EncodedTransform first = dense(4, 3, 2);
    const EncodedTransform second = first;
    first = EncodedTransform(context);
    EXPECT_TRUE(first.isEmpty());
    EXPECT_EQ(first.getLevel(), 0U);
    EXPECT_EQ(first.getRotationIndices(), Indices{});
    EXPECT_FALSE(second.isEmpty());
    EXPECT_EQ(second.getLevel(), 2U);
}

class EncodedTransformForms : public testing::TestWithParam<KernelForm> {};

TEST_P(EncodedTransformForms, HaveTheSameWords) {
    SKIP_UNLESS_PROCESSOR_RUNS(GetParam());
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const HomEvaluator& evaluator = rotatingEvaluator(scheme);
    Seeded random(82);
    SCOPED_TRACE(random.describe());
    const LinearTransform transform = LinearTransform::fromMatrix(randomMatrix(random, 16, 16));
    const Ciphertext in = scheme.encrypt(random.message(5), 6);
    Ciphertext expected(scheme.context), out(scheme.context);
    std::string words;
    {
        const ForcedFeature scalar(scalarForm);
        EncodedTransform(scheme.context, transform, 5, 6).apply(evaluator, in, expected);
    }
    const ForcedFeature forced(GetParam());
    EncodedTransform(scheme.context, transform, 5, 6).apply(evaluator, in, out);
    EXPECT_TRUE(sameWords(out, expected));
}

INSTANTIATE_TEST_SUITE_P(Every, EncodedTransformForms, testing::ValuesIn(vectorForms), formName);

} // namespace
} // namespace Torvo
