#include "evaluator/HomEvaluatorImpl.hpp"

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

} // namespace

// ---- one level up again

TEST(HomEvaluatorLevels, InverseRescaleIsUndoneByRescale) {
    const Scheme& s = Scheme::of(ParameterPreset::FX);
    Seeded random(22);
    SCOPED_TRACE(random.describe());
    for (const u64 level : {u64{0}, u64{7}, s.encryptionLevel()}) {
        const Message m = random.message(s.logFullSlots());
        const Ciphertext before = s.encrypt(m, level);
        Ciphertext x = before;
        s.evaluator.inverseRescale(x);
        EXPECT_EQ(x.getLevel(), level + 1);
        EXPECT_EQ(x.getRescaleCounter(), 1);
        s.evaluator.rescale(x);
        // The multiple of the prime is divided by it without a rest.
        EXPECT_TRUE(sameWords(x, before));
    }
}

TEST(HomEvaluatorLevels, InverseRescaleStopsAtTheTop) {
    const Scheme& s = Scheme::of(ParameterPreset::FX);
    const char* const text =
        "[inverseRescale] Cannot inverseRescale when the level is greater than or equal to the maximum level";
    Ciphertext x(s.context);
    x.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(s.evaluator.inverseRescale(x), "The operand have to encode the message on its slots");
    x.setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(s.evaluator.inverseRescale(x), text);
    Ciphertext y = s.encrypt(Message(s.logFullSlots(), Complex(1.0)), 3);
    while (y.getLevel() + 1 < s.topLevel()) y.setLevel(y.getLevel() + 1);
    s.evaluator.inverseRescale(y);
    EXPECT_EQ(y.getLevel(), s.topLevel());
    EXPECT_REFUSED(s.evaluator.inverseRescale(y), text);
}

// ---- down over the step between two sizes of primes

TEST(HomEvaluatorLevels, LevelDownCrossesTheStepBetweenTwoSizesOfPrimes) {
    // Above level 12 the scale of the chain is 2^58, below it is 2^42: the step is lifted over at level 13.
    const Scheme& s = Scheme::of(ParameterPreset::FX);
    Seeded random(23);
    SCOPED_TRACE(random.describe());
    const Message m = random.message(s.logFullSlots());
    const u64 high = 20;
    // Encryption stops at level 12, so encode at level 20 and add to a ciphertext of zero, exact there.
    const Plaintext plain = s.encoder.encode(m, high);
    Ciphertext x(s.context);
    x.setLevel(high);
    for (u64 i = 0; i < 2; ++i) s.context->primes.sub(plain.getMx(), plain.getMx(), x.getPoly(i));
    s.evaluator.add(x, plain, x);
    for (const u64 target : {u64{15}, u64{13}, u64{12}, u64{11}, u64{0}}) {
        SCOPED_TRACE(target);
        Ciphertext down(s.context);
        s.evaluator.levelDown(x, target, down);
        EXPECT_EQ(down.getLevel(), target);
        // The factor that moves the scale is cut to an integer, of 26 bits on the way below the step.
        const double logFactor = 2 * s.errors.logScale(target + 1) - s.errors.logScale(high) +
                                 static_cast<double>(s.context->scale_factors.level_correction[target + 1]);
        const double bound = s.errors.atLevel(s.errors.encoding(), high) +
                             s.errors.atLevel(s.errors.rescale(), target) +
                             maxAbs(m) * (std::exp2(-logFactor) + ErrorModel::relative);
        EXPECT_LT(maxError(s.decrypt(down), m), bound);
    }
}

TEST(HomEvaluatorLevels, LevelDownOneLeavesTheStepBetweenTwoSizesOfPrimesAsItIs) {
    const Scheme& s = Scheme::of(ParameterPreset::FX);
    const u64 step = 13;
    ASSERT_NE(s.context->scale_factors.level_correction[step], 0);
    Ciphertext x = s.encrypt(Message(s.logFullSlots(), Complex(0.5, -1.0)), 12), out(s.context), product = x;
    s.evaluator.inverseRescale(x);
    x.setRescaleCounter(0);
    s.evaluator.levelDownOne(x, out);
    s.evaluator.multWithoutRescale(x, Complex(1.0, 0.0), product);
    s.evaluator.rescale(product);
    EXPECT_EQ(out.getLevel(), step - 1);
    EXPECT_TRUE(sameWords(out, product));
}
