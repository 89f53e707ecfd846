#include "evaluator/HomEvaluatorImpl.hpp"

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"
#include "support/ToyEvaluators.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <functional>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

constexpr EncodingType coefficient = EncodingType::Coefficient;
constexpr const char* notOnSlots = "The operand have to encode the message on its slots";
constexpr const char* sizeNotTwo = "Size should be 2";

std::string noKey(u64 index) {
    return "Failed to load the left rotation key for index " + std::to_string(index);
}

std::string nothingToCompose(u64 index) {
    return "[Load Rotation Key] no left rotation key for index " + std::to_string(index);
}

class HomEvaluatorRotation : public testing::Test {
protected:
    static constexpr u64 level = 5;
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const u64 slots = u64{1} << scheme.logFullSlots();
    Seeded random{61};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
    Message message = random.message(scheme.logFullSlots());
    Ciphertext x = scheme.encrypt(message, level);

    /// A pack of the shared secret key with left rotation keys for `indices`, and the conjugation key.
    KeyPack packWith(const std::vector<u64>& indices) const {
        const KeyPack pack(scheme.context);
        const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
        generator.genConjKey();
        for (const u64 index : indices) generator.genLeftRotKey(index);
        return pack;
    }

    static const HomEvaluator& bundled() { return bundledEvaluator(); }

    Message rotated(u64 index) const {
        Message m;
        bundled().leftRotate(message, index, m);
        return m;
    }

    /// What `switches` rotations in a row may add to the error of an encryption.
    double bound(double switches = 1, double terms = 1) const {
        const ErrorModel& errors = scheme.errors;
        return terms * errors.atLevel(errors.encryption() + switches * errors.keySwitch(), level) +
               8 * terms * ErrorModel::relative;
    }

    Ciphertext shaped(u64 numPoly, EncodingType encoding) const {
        Ciphertext y = x;
        y.setNumPoly(numPoly);
        y.setEncodingType(encoding);
        return y;
    }
};

} // namespace

TEST_F(HomEvaluatorRotation, EveryIndexTurnsTheSlotsWithItsOwnKey) {
    for (u64 index = 1; index < slots; ++index) {
        SCOPED_TRACE(index);
        const HomEvaluator evaluator(scheme.context, packWith({index}));
        Ciphertext left(scheme.context), right(scheme.context);
        evaluator.leftRotate(x, index, left);
        EXPECT_EQ(left.getLevel(), level);
        EXPECT_EQ(left.getRescaleCounter(), 0);
        EXPECT_LT(maxError(scheme.decrypt(left), rotated(index)), bound());
        evaluator.rightRotate(x, slots - index, right);
        EXPECT_TRUE(sameWords(right, left));
    }
}

TEST_F(HomEvaluatorRotation, TheBundleReachesEveryIndex) {
    for (u64 index = 0; index < slots; ++index) {
        SCOPED_TRACE(index);
        Ciphertext left(scheme.context), right(scheme.context);
        bundled().leftRotate(x, index, left);
        // A signed binary form of five bits without neighbours has at most three digits.
        EXPECT_LT(maxError(scheme.decrypt(left), rotated(index)), bound(3));
        bundled().rightRotate(x, index, right);
        EXPECT_LT(maxError(scheme.decrypt(right), rotated(slots - index)), bound(3));
    }
}

TEST_F(HomEvaluatorRotation, AnyOutputTakesTheSameWords) {
    using Apply = std::function<void(const Ciphertext&, Ciphertext&)>;
    const HomEvaluator& e = bundled();
    const std::vector<Apply> forms{[&](auto& in, auto& out) { e.leftRotate(in, 4, out); },
                                   [&](auto& in, auto& out) { e.leftRotate(in, 7, out); },
                                   [&](auto& in, auto& out) { e.leftRotate(in, 0, out); },
                                   [&](auto& in, auto& out) { e.rightRotate(in, 3, out); },
                                   [&](auto& in, auto& out) { e.killImag(in, out); },
                                   [&](auto& in, auto& out) { e.leftRotateReduce(in, 1, 4, out); },
                                   [&](auto& in, auto& out) { e.leftRotateReduce(in, 1, 6, out); },
                                   [&](auto& in, auto& out) { e.rightRotateReduce(in, 1, 5, out); },
                                   [&](auto& in, auto& out) { e.rightRotateReduce(in, 1, 0, out); },
                                   [&](auto& in, auto& out) {
                                       e.rotSum({in, in}, {0, 4}, out);
                                   },
                                   [&](auto& in, auto& out) {
                                       e.rotSum({in, in}, {0, 0}, out);
                                   },
                                   [&](auto& in, auto& out) { e.conjugate(in, out); }};
    for (u64 which = 0; which < forms.size(); ++which) {
        SCOPED_TRACE(testing::Message() << "form " << which);
        Ciphertext fresh(scheme.context), itself = x;
        forms[which](x, fresh);
        forms[which](itself, itself);
        EXPECT_TRUE(sameWords(itself, fresh));
        for (Ciphertext out : usedOutputs(scheme.context)) {
            forms[which](x, out);
            EXPECT_TRUE(sameWords(out, fresh));
            EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
        }
    }
}

TEST_F(HomEvaluatorRotation, EveryFormKeepsTheSlotsInUseAndTheRescalesOwed) {
    const Message sparse = random.message(2), other = random.message(2);
    const Ciphertext y = scheme.encrypt(sparse, level, 2), z = scheme.encrypt(other, level, 2);
    const HomEvaluator& e = bundled();
    Ciphertext out(scheme.context);
    Message expected, turned;
    const auto expectOut = [&](const char* form) {
        EXPECT_EQ(out.getLevel(), level) << form;
        EXPECT_EQ(out.getLogSlots(), 2u) << form;
        EXPECT_EQ(out.getRescaleCounter(), 2) << form;
        // After the two rescales the error is that of the scale two levels down, and their roundings.
        const double owed = 2 * scheme.errors.atLevel(2 * scheme.errors.rescale(), level - 2);
        EXPECT_LT(maxError(scheme.decrypt(out), expected), bound(4, 8) + owed) << form;
    };
    e.leftRotate(y, 1, out);
    e.leftRotate(sparse, 1, expected);
    expectOut("left");
    e.leftRotate(y, 3, out); // composed
    e.leftRotate(sparse, 3, expected);
    expectOut("left, composed");
    e.conjugate(y, out);
    e.conjugate(sparse, expected);
    expectOut("conjugate");
    e.leftRotateReduce(y, 1, 3, out);
    e.leftRotateReduce(sparse, 1, 3, expected);
    expectOut("reduce");
    std::vector<Ciphertext> outs;
    e.getImpl()->leftRotate(y, {0, 2}, outs);
    e.leftRotate(sparse, 2, expected);
    out = outs[1];
    expectOut("many");
    e.rotSum({y, z}, {2, 1}, out);
    e.leftRotate(other, 1, turned);
    e.add(expected, turned, expected);
    expectOut("sum");
    e.rotSum({y, z}, {0, 0}, out);
    e.add(sparse, other, expected);
    expectOut("sum without rotations");

    e.killImag(y, out);
    EXPECT_EQ(out.getLevel(), level - 1);
    EXPECT_EQ(out.getLogSlots(), 2u);
    EXPECT_EQ(out.getRescaleCounter(), 2);
}

TEST_F(HomEvaluatorRotation, SumsOfRotationsTakeTheEncodingTypeOfTheFirst) {
    const Ciphertext y = shaped(2, coefficient);
    Ciphertext out(scheme.context);
    for (const std::vector<u64>& indices : std::vector<std::vector<u64>>{{4, 1}, {0, 4}, {0, 0}}) {
        bundled().rotSum({y, y}, indices, out);
        EXPECT_EQ(out.getEncodingType(), coefficient);
    }
}

TEST_F(HomEvaluatorRotation, ATurnOfAllSlotsIsACopyThatNeedsNoKey) {
    const HomEvaluator keyless(scheme.context, KeyPack(scheme.context));
    Ciphertext out(scheme.context);
    for (const u64 turn : {u64{0}, slots, 2 * slots}) {
        keyless.leftRotate(x, turn, out);
        EXPECT_TRUE(sameWords(out, x));
        keyless.rightRotate(x, turn, out);
        EXPECT_TRUE(sameWords(out, x));
        keyless.getImpl()->leftRotate(x, turn, out);
        EXPECT_TRUE(sameWords(out, x));
    }
    // A sparse message turns within its own slots.
    const Message sparse = random.message(2);
    const Ciphertext y = scheme.encrypt(sparse, level);
    keyless.leftRotate(y, 4, out);
    EXPECT_TRUE(sameWords(out, y));
    keyless.rightRotate(y, 12, out);
    EXPECT_TRUE(sameWords(out, y));
    Message expected;
    bundled().leftRotate(sparse, 5, expected);
    bundled().leftRotate(y, 5, out);
    EXPECT_EQ(out.getLogSlots(), 2u);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), bound());
}

TEST_F(HomEvaluatorRotation, AnIndexWithoutAKeyIsComposedOfSignedPowersOfTwo) {
    Ciphertext out(scheme.context), step(scheme.context);
    // 6 = 8 - 2: right by 2, then left by 8.
    const HomEvaluator six(scheme.context, packWith({slots - 2, 8}));
    six.leftRotate(x, 6, out);
    six.rightRotate(x, 2, step);
    six.leftRotate(step, 8, step);
    EXPECT_TRUE(sameWords(out, step));
    // 3 = 4 - 1: right by 1, then left by 4.
    const HomEvaluator three(scheme.context, packWith({slots - 1, 4}));
    three.leftRotate(x, 3, out);
    three.rightRotate(x, 1, step);
    three.leftRotate(step, 4, step);
    EXPECT_TRUE(sameWords(out, step));
    EXPECT_LT(maxError(scheme.decrypt(out), rotated(3)), bound(2));
    // Without the complement the first step fails at once; in place, the operand is as it was.
    const HomEvaluator powers(scheme.context, packWith({1, 2, 4, 8, 16}));
    Ciphertext itself = x;
    EXPECT_REFUSED(powers.leftRotate(itself, 6, itself), nothingToCompose(slots - 2));
    EXPECT_TRUE(sameWords(itself, x));
    // Here the first step works and the second does not.
    const HomEvaluator halfway(scheme.context, packWith({slots - 2}));
    EXPECT_REFUSED(halfway.leftRotate(itself, 6, itself), nothingToCompose(8));
    EXPECT_TRUE(sameWords(itself, x));
}

TEST_F(HomEvaluatorRotation, PowersOfTwoAndTheirComplementsAreNotComposed) {
    const HomEvaluator evaluator(scheme.context, packWith({2, 4, 8, slots - 2, slots - 4}));
    Ciphertext out(scheme.context);
    EXPECT_REFUSED(evaluator.leftRotate(x, 1, out), nothingToCompose(1));
    EXPECT_REFUSED(evaluator.leftRotate(x, slots - 1, out), nothingToCompose(slots - 1));
    EXPECT_REFUSED(evaluator.rightRotate(x, 1, out), nothingToCompose(slots - 1));
    EXPECT_REFUSED(evaluator.leftRotate(x, 16, out), nothingToCompose(16));
}

TEST_F(HomEvaluatorRotation, ManyRotationsAtOnceGiveTheWordsOfSingleOnes) {
    const std::vector<u64> indices{4, 0, 1, 16, 4, slots - 1};
    for (const u64 from : {u64{0}, u64{4}, u64{5}, u64{12}}) {
        SCOPED_TRACE(from);
        const Ciphertext in = scheme.encrypt(message, from);
        std::vector<Ciphertext> outs;
        bundled().getImpl()->leftRotate(in, indices, outs);
        ASSERT_EQ(outs.size(), indices.size());
        for (u64 k = 0; k < indices.size(); ++k) {
            Ciphertext single(scheme.context);
            bundled().leftRotate(in, indices[k], single);
            EXPECT_TRUE(sameWords(outs[k], single)) << "index " << indices[k];
            EXPECT_EQ(outs[k].getEncodingType(), EncodingType::Slot);
        }
    }
}

TEST_F(HomEvaluatorRotation, ManyRotationsFillAnyVectorEvenTheOperandsOwn) {
    const std::vector<u64> indices{1, 2, 8};
    std::vector<Ciphertext> fresh, used = usedOutputs(scheme.context), holdsOperand{x, x};
    bundled().getImpl()->leftRotate(x, indices, fresh);
    used.push_back(x);
    bundled().getImpl()->leftRotate(x, indices, used);
    bundled().getImpl()->leftRotate(holdsOperand[1], indices, holdsOperand);
    ASSERT_EQ(used.size(), indices.size());
    ASSERT_EQ(holdsOperand.size(), indices.size());
    for (u64 k = 0; k < indices.size(); ++k) {
        EXPECT_TRUE(sameWords(used[k], fresh[k]));
        EXPECT_EQ(used[k].getEncodingType(), EncodingType::Slot);
        EXPECT_TRUE(sameWords(holdsOperand[k], fresh[k]));
    }
}

TEST_F(HomEvaluatorRotation, ManyRotationsRefuseInOrderAndNeedEveryKey) {
    const HomEvaluatorImpl& impl = *bundled().getImpl();
    std::vector<Ciphertext> outs;
    EXPECT_REFUSED(impl.leftRotate(shaped(3, coefficient), {3}, outs), notOnSlots);
    EXPECT_REFUSED(impl.leftRotate(shaped(3, EncodingType::Slot), {3}, outs), sizeNotTwo);
    EXPECT_REFUSED(impl.leftRotate(x, {1, 3}, outs), noKey(3));
    // Indices are taken as they are.
    EXPECT_REFUSED(impl.leftRotate(x, {slots}, outs), noKey(slots));
}

TEST_F(HomEvaluatorRotation, ManyRotationsTakeIndicesModuloTheSlotsInBothDirections) {
    const std::vector<u64> indices{1, slots + 4, 2 * slots, 16};
    std::vector<Ciphertext> toTheLeft, toTheRight = usedOutputs(scheme.context);
    bundled().leftRotate(x, indices, toTheLeft);
    const std::vector<u64> complements{slots - 1, 2 * slots - 4, 0, slots - 16};
    bundled().rightRotate(x, complements, toTheRight);
    ASSERT_EQ(toTheLeft.size(), indices.size());
    ASSERT_EQ(toTheRight.size(), indices.size());
    for (u64 k = 0; k < indices.size(); ++k) {
        Ciphertext single(scheme.context);
        bundled().leftRotate(x, indices[k], single);
        EXPECT_TRUE(sameWords(toTheLeft[k], single)) << indices[k];
        EXPECT_TRUE(sameWords(toTheRight[k], single)) << complements[k];
    }
    bundled().leftRotate(x, {}, toTheLeft);
    EXPECT_TRUE(toTheLeft.empty());
}

TEST_F(HomEvaluatorRotation, ManyRotationsNameEveryMissingKeyAndWriteNothing) {
    const HomEvaluator evaluator(scheme.context, packWith({2, 4}));
    std::vector<Ciphertext> outs{x};
    EXPECT_REFUSED(evaluator.leftRotate(x, {7, 2, 0, 3, 7}, outs),
                   "Failed to load the left rotation keys for indices 3, 7");
    EXPECT_REFUSED(evaluator.leftRotate(x, {4, 3}, outs), noKey(3));
    EXPECT_REFUSED(evaluator.rightRotate(x, {1, slots - 2}, outs), noKey(slots - 1));
    EXPECT_REFUSED(evaluator.leftRotate(shaped(3, EncodingType::Slot), {3, 5}, outs), sizeNotTwo);
    ASSERT_EQ(outs.size(), 1);
    EXPECT_TRUE(sameWords(outs[0], x));
}

TEST_F(HomEvaluatorRotation, SumsOfRotationsDivideOnce) {
    std::vector<Ciphertext> cts;
    Message expected(scheme.logFullSlots(), Complex(0.0));
    const std::vector<u64> indices{0, 4, 1, 0, 4};
    for (const u64 index : indices) {
        const Message m = random.message(scheme.logFullSlots());
        cts.push_back(scheme.encrypt(m, level));
        Message turned;
        bundled().leftRotate(m, index, turned);
        bundled().add(expected, turned, expected);
    }
    Ciphertext out(scheme.context);
    bundled().rotSum(cts, indices, out);
    EXPECT_EQ(out.getLevel(), level);
    EXPECT_EQ(out.getRescaleCounter(), 0);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), bound(1, 5));
    for (u64 k = 0; k < cts.size(); ++k) {
        std::vector<Ciphertext> overwritten = cts;
        bundled().rotSum(overwritten, indices, overwritten[k]);
        EXPECT_TRUE(sameWords(overwritten[k], out)) << k;
    }
}

TEST_F(HomEvaluatorRotation, SumsOfRotationsByNothingArePlainSumsWithoutAKey) {
    const HomEvaluator keyless(scheme.context, KeyPack(scheme.context));
    const std::vector<Ciphertext> cts{x, scheme.encrypt(random.message(scheme.logFullSlots()), level), x};
    Ciphertext out(scheme.context), expected(scheme.context);
    keyless.rotSum(cts, {0, 0, 0}, out);
    keyless.add(cts[0], cts[1], expected);
    keyless.add(expected, cts[2], expected);
    EXPECT_TRUE(sameWords(out, expected));
}

TEST_F(HomEvaluatorRotation, SumsOfRotationsRefuseInOrder) {
    const HomEvaluator& e = bundled();
    Ciphertext out = x;
    Ciphertext lower = scheme.encrypt(random.message(1), level - 1);
    EXPECT_REFUSED(e.rotSum({lower, x, shaped(3, EncodingType::Slot)}, {3, 3}, out), sizeNotTwo);
    EXPECT_REFUSED(e.rotSum({lower, x}, {3}, out), "ctxt and rot_idx have different size.");
    EXPECT_REFUSED(e.rotSum({}, {}, out), "Operand is empty so device is not defined");
    EXPECT_REFUSED(e.rotSum({lower, x}, {3, 0}, out), "Operands have different levels.");
    lower.setLevel(level);
    EXPECT_REFUSED(e.rotSum({x, lower}, {3, 3}, out), "Two operands have different logSlots");
    EXPECT_REFUSED(e.rotSum({x, x}, {0, 3}, out), noKey(3));
    EXPECT_TRUE(sameWords(out, x));
}

TEST_F(HomEvaluatorRotation, ConjugationAndRealParts) {
    Ciphertext out(scheme.context);
    Message expected;
    bundled().conjugate(x, out);
    bundled().conjugate(message, expected);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), bound());
    bundled().killImag(x, out);
    EXPECT_EQ(out.getLevel(), level - 1);
    EXPECT_EQ(out.getRescaleCounter(), 0);
    for (Complex& slot : expected) slot = slot.real();
    EXPECT_LT(maxError(scheme.decrypt(out), expected),
              bound() + scheme.errors.atLevel(2 + scheme.errors.rescale(), level - 1));
}

TEST_F(HomEvaluatorRotation, AConjugateIsOnSlotsWhateverItsOperandSays) {
    Ciphertext onSlots(scheme.context), itself = shaped(2, coefficient);
    bundled().conjugate(x, onSlots);
    bundled().conjugate(itself, itself);
    EXPECT_TRUE(sameWords(itself, onSlots));
    EXPECT_EQ(itself.getEncodingType(), EncodingType::Slot);
}

TEST_F(HomEvaluatorRotation, ConjugationsRefuseInOrder) {
    const HomEvaluator keyless(scheme.context, KeyPack(scheme.context));
    Ciphertext out = x;
    EXPECT_REFUSED(keyless.conjugate(shaped(3, coefficient), out), sizeNotTwo);
    EXPECT_REFUSED(keyless.conjugate(x, out), "Failed to load the conjugation key");
    EXPECT_REFUSED(keyless.killImag(shaped(3, coefficient), out), sizeNotTwo);
    EXPECT_REFUSED(keyless.killImag(x, out), "Failed to load the conjugation key");
    // A conjugate is encoded on slots, so a coefficient encoding does not match it.
    EXPECT_REFUSED(bundled().killImag(shaped(2, coefficient), out),
                   "Two operands are encoding messages in different way");
    EXPECT_REFUSED(bundled().killImag(scheme.encrypt(message, 0), out), "The level of the operand is zero");
    EXPECT_TRUE(sameWords(out, x));
}

TEST_F(HomEvaluatorRotation, RotationsRefuseInOrder) {
    const HomEvaluator keyless(scheme.context, KeyPack(scheme.context));
    Ciphertext out = x;
    EXPECT_REFUSED(keyless.leftRotate(shaped(3, coefficient), 1, out), notOnSlots);
    EXPECT_REFUSED(keyless.rightRotate(shaped(3, coefficient), 1, out), notOnSlots);
    EXPECT_REFUSED(keyless.leftRotate(shaped(3, EncodingType::Slot), 1, out), sizeNotTwo);
    EXPECT_REFUSED(keyless.rightRotate(shaped(3, EncodingType::Slot), 1, out), sizeNotTwo);
    EXPECT_REFUSED(keyless.leftRotate(x, 1, out), nothingToCompose(1));
    for (const u64 count : {0ul, 1ul, 2ul, 3ul, 5ul}) {
        EXPECT_REFUSED(keyless.leftRotateReduce(shaped(3, coefficient), 1, count, out), notOnSlots);
        EXPECT_REFUSED(keyless.rightRotateReduce(shaped(3, coefficient), 1, count, out), notOnSlots);
    }
    EXPECT_REFUSED(keyless.leftRotateReduce(shaped(3, EncodingType::Slot), 1, 2, out), sizeNotTwo);
    EXPECT_REFUSED(keyless.leftRotateReduce(x, 2, 4, out), nothingToCompose(2));
    EXPECT_TRUE(sameWords(out, x));
}

TEST_F(HomEvaluatorRotation, ReduceFormsSumTheRotations) {
    for (const u64 gap : {0ul, 1ul, 2ul, 7ul})
        for (u64 count = 0; count <= 24; ++count) {
            SCOPED_TRACE(testing::Message() << "gap=" << gap << " count=" << count);
            Message left, right;
            Ciphertext leftSum(scheme.context), rightSum(scheme.context);
            bundled().leftRotateReduce(message, gap, count, left);
            bundled().rightRotateReduce(message, gap, count, right);
            bundled().leftRotateReduce(x, gap, count, leftSum);
            bundled().rightRotateReduce(x, gap, count, rightSum);
            // At most 64 terms come and go, each after at most 10 sums with rotations of 3 switches each.
            EXPECT_LT(maxError(scheme.decrypt(leftSum), left), bound(30, 64));
            EXPECT_LT(maxError(scheme.decrypt(rightSum), right), bound(30, 64));
            EXPECT_EQ(leftSum.getLevel(), level);
            if (count > 1) continue;
            EXPECT_TRUE(sameWords(leftSum, x));
            EXPECT_TRUE(sameWords(rightSum, x));
        }
}

TEST_F(HomEvaluatorRotation, ReduceFormsUseRotationsByGapTimesPowersOfTwo) {
    Ciphertext out(scheme.context);
    // A power of two doubles the run: by 1, 2, 4.
    HomEvaluator(scheme.context, packWith({1, 2, 4})).leftRotateReduce(x, 1, 8, out);
    HomEvaluator(scheme.context, packWith({3, 6})).leftRotateReduce(x, 3, 4, out);
    HomEvaluator(scheme.context, packWith({slots - 1, slots - 2})).rightRotateReduce(x, 1, 4, out);
    // Six is three times two: by 1, then twice by 2.
    HomEvaluator(scheme.context, packWith({1, 2})).leftRotateReduce(x, 1, 6, out);
    // Five is 8 - 4 + 1: from rotation 4, a run of four by 1 and 2 is taken off, and a run of two by 4 is put
    // on the other way round.
    HomEvaluator(scheme.context, packWith({4, 1, 2, slots - 4})).leftRotateReduce(x, 1, 5, out);
    EXPECT_REFUSED(HomEvaluator(scheme.context, packWith({4, 1, 2})).leftRotateReduce(x, 1, 5, out),
                   nothingToCompose(slots - 4));
}

TEST_F(HomEvaluatorRotation, IndicesDecomposeIntoAlternatingFallingPowers) {
    const HomEvaluatorImpl& impl = *bundled().getImpl();
    std::vector<u64> powers{9, 9};
    u64 count = 7;
    const auto expect = [&](u64 index, std::vector<u64> expected) {
        impl.getRotIdxDecomposition(index, powers, count);
        EXPECT_EQ(powers, expected) << index;
        EXPECT_EQ(count, expected.size()) << index;
    };
    expect(0, {});
    expect(1, {1});
    expect(2, {2});
    expect(3, {4, 2, 1});
    expect(5, {8, 4, 1});
    expect(6, {8, 4, 2});
    expect(11, {16, 8, 4, 2, 1});
    for (u64 index = 1; index < 3000; ++index) {
        impl.getRotIdxDecomposition(index, powers, count);
        ASSERT_EQ(count, powers.size());
        ASSERT_EQ(count % 2, 1u) << index;
        u64 sum = 0;
        for (u64 k = 0; k < count; ++k) {
            ASSERT_TRUE(std::has_single_bit(powers[k])) << index;
            ASSERT_TRUE(k == 0 || powers[k] < powers[k - 1]) << index;
            sum += k % 2 == 0 ? powers[k] : u64{0} - powers[k];
        }
        ASSERT_EQ(sum, index);
    }
    impl.getRotIdxDecomposition(u64{1} << 63, powers, count);
    EXPECT_EQ(powers, std::vector<u64>{u64{1} << 63});
}
