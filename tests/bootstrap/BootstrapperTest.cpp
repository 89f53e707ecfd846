#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <numbers>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::toy;

/// A pack with the fixed keys and rotation keys of these left rotations.
KeyPack packWith(const std::set<long>& rotations) {
    const KeyGenerator generator(toy().context, toy().secretKey);
    generator.genMultKey();
    generator.genConjKey();
    for (const long index : rotations) generator.genRotKeyIfNotExist(index);
    return generator.getKeyPack();
}

// ---- construction

template <class... Arguments>
constexpr bool isMadeFrom = std::is_constructible_v<Bootstrapper, const HomEvaluator&, Arguments...>;
static_assert(isMadeFrom<> && isMadeFrom<bool> && isMadeFrom<int> && isMadeFrom<unsigned long>);
static_assert(isMadeFrom<int, bool> && isMadeFrom<unsigned long, bool>);
static_assert(isMadeFrom<const Context&> && isMadeFrom<const Context&, bool> &&
              isMadeFrom<const Context&, int>);
static_assert(isMadeFrom<const Context&, int, bool>);

TEST(Bootstrapper, TellsAFlagFromANumberOfSlots) {
    const Bootstrapper none(toy().evaluator), flag(toy().evaluator, true), number(toy().evaluator, 1),
        both(toy().evaluator, 2, true), word(toy().evaluator, 3UL);
    for (const Bootstrapper* full : {&none, &flag}) {
        EXPECT_TRUE(full->isBootstrapReady(5));
        EXPECT_FALSE(full->isBootstrapReady(1));
    }
    EXPECT_TRUE(number.isBootstrapReady(1));
    EXPECT_FALSE(number.isBootstrapReady(5));
    EXPECT_TRUE(both.isBootstrapReady(2));
    EXPECT_TRUE(word.isBootstrapReady(3));
}

TEST(Bootstrapper, RefusesWhatCannotBeBuilt) {
    const Context& context = test::contextOf(ParameterPreset::SD3);
    const HomEvaluator plain(context, KeyPack(context));
    const char* noBootstrap = "The Parameter does not support bootstrap";
    EXPECT_REFUSED(Bootstrapper(plain, 99, true), noBootstrap);
    EXPECT_REFUSED(Bootstrapper(plain, context, 99), noBootstrap);
    EXPECT_REFUSED(Bootstrapper(plain, true), noBootstrap);

    const char* noEncapsulation = "[Bootstrapper] context does not support sparse secret encapsulation";
    EXPECT_REFUSED(Bootstrapper(toy().evaluator, context, 99), noEncapsulation);
    EXPECT_REFUSED(Bootstrapper(toy().evaluator, context), noEncapsulation);
    EXPECT_REFUSED(Bootstrapper(toy().evaluator, 6), "log_slots should not exceed 5");
}

TEST(Bootstrapper, BuildsConstantsOnDemand) {
    Bootstrapper bootstrapper(toy().evaluator, 0);
    EXPECT_TRUE(bootstrapper.isBootstrapReady(0));
    EXPECT_FALSE(bootstrapper.isBootstrapReady(2));
    EXPECT_FALSE(bootstrapper.isBootstrapReady(6));
    bootstrapper.makeBootConstants(0);
    bootstrapper.makeBootConstants(2);
    bootstrapper.makeBootConstants(2);
    EXPECT_TRUE(bootstrapper.isBootstrapReady(2));
    EXPECT_REFUSED(bootstrapper.makeBootConstants(6), "log_slots should not exceed 5");
    EXPECT_FALSE(bootstrapper.isBootstrapReady(6));

    bootstrapper.loadBootConstants(0, Device{});
    bootstrapper.loadBootConstants(2, Device{});
    EXPECT_REFUSED(bootstrapper.loadBootConstants(3, Device{}),
                   "Bootstrapping constants for log slots 3 do not exist.");
}

TEST(Bootstrapper, KnowsItsLevels) {
    const Bootstrapper bootstrapper(toy().evaluator, 0);
    EXPECT_EQ(bootstrapper.getLevelAfterFullSlotBootstrap(), 12U);
    EXPECT_EQ(bootstrapper.getMinLevelForBootstrap(), 3U);
}

TEST(Bootstrapper, IsAHandleThatCopiesShare) {
    Bootstrapper bootstrapper(toy().evaluator, 0);
    const Bootstrapper copy = bootstrapper;
    bootstrapper.makeBootConstants(1);
    EXPECT_TRUE(copy.isBootstrapReady(1));
}

// ---- guards

/// A ciphertext that breaks all rules about levels, sizes and owed rescales; each test repairs one after the
/// other.
Ciphertext broken(u64 level) {
    Ciphertext ciphertext = toy().encrypt(Message(5, 0.5), level);
    ciphertext.setNumPoly(3);
    ciphertext.setRescaleCounter(1);
    return ciphertext;
}

constexpr const char* notOnSlots = "The operand have to encode the message on its slots";
constexpr const char* notOnCoefficients = "The operand have to encode the message on its coefficients";
constexpr const char* owes = "The Operand should have rescale counter zero";

TEST(Bootstrap, RefusesOperandsInOrder) {
    const Bootstrapper bootstrapper(toy().evaluator, 2);
    Ciphertext out(toy().context), imag(toy().context);
    const auto expectRefused = [&](const Ciphertext& in, const char* text) {
        EXPECT_REFUSED(bootstrapper.bootstrap(in, out), text);
        EXPECT_REFUSED(bootstrapper.bootstrap(in, out, true), text);
        EXPECT_REFUSED(bootstrapper.bootstrap(in, out, imag), text);
    };
    Ciphertext in = broken(2);
    in.setEncodingType(EncodingType::Coefficient);
    expectRefused(in, notOnSlots);
    in.setEncodingType(EncodingType::Slot);
    expectRefused(in, "[bootstrap] Level of ciphertext should be >= 3.");
    in = broken(3);
    expectRefused(in, "[bootstrap] Size should be 2");
    in.setNumPoly(2);
    expectRefused(in, owes);
    in.setRescaleCounter(0);
    // The constructor built those of another number.
    expectRefused(in, "Bootstrapping constants for log slots 5 do not exist.");
}

TEST(HalfBoot, RefusesOperandsInOrder) {
    const Bootstrapper bootstrapper(toy().evaluator, 2);
    Ciphertext out(toy().context);
    Ciphertext in = broken(2);
    EXPECT_REFUSED(bootstrapper.halfBoot(in, out), notOnCoefficients);
    in.setEncodingType(EncodingType::Coefficient); // at any level
    EXPECT_REFUSED(bootstrapper.halfBoot(in, out), "[bootstrap] Size should be 2");
    in.setNumPoly(2);
    EXPECT_REFUSED(bootstrapper.halfBoot(in, out), owes);
    in.setRescaleCounter(0);
    EXPECT_REFUSED(bootstrapper.halfBoot(in, out), "Bootstrapping constants for log slots 5 do not exist.");
}

TEST(SlotToCoeff, RefusesOperandsInOrder) {
    const Bootstrapper bootstrapper(toy().evaluator, 2);
    Ciphertext out(toy().context);
    Ciphertext in = broken(2);
    in.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(bootstrapper.slotToCoeff(in, out), notOnSlots);
    in.setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(bootstrapper.slotToCoeff(in, out), "[slotToCoeff] Level of ciphertext should be >= 3");
    in = broken(3);
    EXPECT_REFUSED(bootstrapper.slotToCoeff(in, out),
                   "Bootstrapping constants for log slots 5 do not exist.");
    for (const u64 level : {3, 4}) {
        in = broken(level);
        in.setLogSlots(2);
        EXPECT_REFUSED(bootstrapper.slotToCoeff(in, out), owes);
        in.setRescaleCounter(0);
        EXPECT_REFUSED(bootstrapper.slotToCoeff(in, out), "Size should be 2");
    }
}

TEST(BootstrapExtended, RefusesOperandsInOrder) {
    const Bootstrapper bootstrapper(toy().evaluator, 2);
    Ciphertext out(toy().context), imag(toy().context);
    Ciphertext in = broken(3);
    in.setEncodingType(EncodingType::Coefficient);
    const char* levelText = "[bootstrap extended] Level of ciphertext should be >= 4.";
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out), notOnSlots);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), levelText); // no test of the encoding
    in.setEncodingType(EncodingType::Slot);
    const auto expectRefused = [&](const char* text) {
        EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out), text);
        EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, true), text);
        EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), text);
    };
    expectRefused(levelText);
    in = broken(4);
    expectRefused("[bootstrap extended] Size should be 2");
    in.setNumPoly(2);
    expectRefused(owes);
    in.setRescaleCounter(0);
    expectRefused("Bootstrapping constants for log slots 5 do not exist.");
    // The form with two outputs leaves the encoding to the first multiplication.
    in = broken(4);
    in.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), "[bootstrap extended] Size should be 2");
    in.setNumPoly(2);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), owes);
    in.setRescaleCounter(0);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), notOnSlots);
}

TEST(BootstrapExtended, NeedsTheConstantsOfFullSlotsToo) {
    const Bootstrapper bootstrapper(toy().evaluator, 2);
    Ciphertext out(toy().context), imag(toy().context);
    const Ciphertext in = toy().encrypt(test::Seeded(2).message(2), 4);
    const char* text = "Bootstrapping constants for log slots 5 do not exist.";
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, true), text);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), text);
}

TEST(BootstrapExtendedOfRealPreset, IsRefusedWhereThePresetHasNone) {
    const Context context = makeContext(ParameterPreset::FTb);
    const Bootstrapper bootstrapper(HomEvaluator(context, KeyPack(context)), 0);
    Ciphertext in(context), out(context), imag(context);
    in.setNumPoly(3);
    in.setLevel(2);
    const char* text = "This parameter does not support extended bootstrap";
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out), text);
    in.setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(bootstrapper.bootstrapExtended(in, out, imag), text);
}

// ---- the flows, for every number of slots, in both forms

/// The fine pass takes the residual times 4, below 2^-4 and so nearly without bend; its noise, that of both
/// parts, is divided by 4.
double extendedBound() {
    return boot().noise() / 2 + boot().bend(0x1p-4);
}

struct Form {
    u64 logSlots;
    bool sequential;
};

std::string formName(const testing::TestParamInfo<Form>& tested) {
    return std::string(tested.param.sequential ? "Sequential" : "Batched") +
           std::to_string(tested.param.logSlots);
}

class BootstrapFlow : public testing::TestWithParam<Form> {
protected:
    const BootstrapperImpl& bootstrapper() const { return boot().of(GetParam().sequential); }
    Message message(u64 seed, double radius = 1.0) const {
        return test::Seeded(seed).message(GetParam().logSlots, radius);
    }
    void expectDecrypts(const Ciphertext& got, const Message& expected, double bound) const {
        EXPECT_EQ(got.getLevel(), 12U);
        EXPECT_EQ(got.getLogSlots(), GetParam().logSlots);
        EXPECT_EQ(got.getRescaleCounter(), 0);
        EXPECT_EQ(got.getEncodingType(), EncodingType::Slot);
        EXPECT_TRUE(got.isNTT());
        EXPECT_LT(test::maxError(toy().decrypt(got), expected), bound);
    }
    /// The input's own error comes on top of that of the bootstrap.
    static double fresh(u64 level) { return toy().errors.atLevel(toy().errors.encryption(), level); }

    Ciphertext out{toy().context};
    Ciphertext imag{toy().context};
};

TEST_P(BootstrapFlow, ComplexGivesTheMessageBack) {
    const Message m = message(1);
    bootstrapper().bootstrap(toy().encrypt(m, 3), out, true);
    expectDecrypts(out, m, boot().complexBound() + fresh(3));
}

TEST_P(BootstrapFlow, ComplexIsPreciseOnSmallMessages) {
    const Message m = message(2, 0x1p-5); // where the sine is straight: noise alone
    bootstrapper().bootstrap(toy().encrypt(m, 3), out, true);
    expectDecrypts(out, m, boot().complexBound(0x1p-5) + fresh(3));
}

TEST_P(BootstrapFlow, RealGivesTheRealPartAlone) {
    const Message m = message(3);
    bootstrapper().bootstrap(toy().encrypt(m, 3), out, false);
    expectDecrypts(out, test::realPart(m), boot().realBound() + fresh(3));
}

TEST_P(BootstrapFlow, TwoOutputsAreTheParts) {
    const Message m = message(4);
    bootstrapper().bootstrap(toy().encrypt(m, 3), out, imag);
    expectDecrypts(out, test::realPart(m), boot().realBound() + fresh(3));
    expectDecrypts(imag, test::imagPart(m), boot().realBound() + fresh(3));
}

TEST_P(BootstrapFlow, HalvesMakeAWhole) {
    const Message m = message(5);
    Ciphertext coefficients(toy().context);
    bootstrapper().levelDownAndSlotToCoeff(toy().encrypt(m, 6), coefficients);
    EXPECT_EQ(coefficients.getLevel(), 0U);
    EXPECT_EQ(coefficients.getEncodingType(), EncodingType::Coefficient);
    EXPECT_FALSE(coefficients.isNTT());
    const Ciphertext before = coefficients;
    bootstrapper().halfBoot(coefficients, out, true);
    // Here the noise of the first half is not small against eps: the gain of 8 comes after it.
    const double bound = boot().complexBound() + 8 * boot().noise() + fresh(6);
    expectDecrypts(out, m, bound);
    EXPECT_TRUE(test::sameWords(coefficients, before));
    EXPECT_EQ(coefficients.getEncodingType(), EncodingType::Coefficient);
    bootstrapper().halfBoot(coefficients, coefficients, false);
    expectDecrypts(coefficients, test::realPart(m), bound);
}

TEST_P(BootstrapFlow, ExtendedIsMorePrecise) {
    const Message m = message(6);
    bootstrapper().bootstrapExtended(toy().encrypt(m, 4), out, true);
    // The fine pass takes the residual times 4, far below 2^-4 and so without bend; its noise is divided
    // by 4.
    const double bound = boot().noise() / 2 + boot().bend(0x1p-4) + fresh(4);
    expectDecrypts(out, m, bound);
}

INSTANTIATE_TEST_SUITE_P(EverySize, BootstrapFlow,
                         testing::Values(Form{0, false}, Form{0, true}, Form{1, false}, Form{1, true},
                                         Form{2, false}, Form{2, true}, Form{3, false}, Form{3, true},
                                         Form{4, false}, Form{4, true}, Form{5, false}, Form{5, true}),
                         formName);

TEST(BootstrapExtended, GivesThePartsApart) {
    const Message m = test::Seeded(16).message(3);
    Ciphertext real(toy().context), imag(toy().context);
    boot().inSequence.bootstrapExtended(toy().encrypt(m, 12), real, imag);
    const double bound = extendedBound() + toy().errors.atLevel(toy().errors.encryption(), 12);
    for (const auto& [got, part] :
         {std::pair(&real, test::realPart(m)), std::pair(&imag, test::imagPart(m))}) {
        EXPECT_EQ(got->getLevel(), 12U);
        EXPECT_EQ(got->getLogSlots(), 3U);
        EXPECT_LT(test::maxError(toy().decrypt(*got), part), bound);
    }
}

TEST(BootstrapExtended, OfARealMessageTakesOneSineLess) {
    const Message m = test::realPart(test::Seeded(17).message(5));
    Ciphertext out(toy().context);
    boot().batched.bootstrapExtended(toy().encrypt(m, 4), out, false);
    EXPECT_EQ(out.getLevel(), 12U);
    EXPECT_LT(test::maxError(toy().decrypt(out), m),
              extendedBound() + toy().errors.atLevel(toy().errors.encryption(), 4));
}

// ---- levels, places, keys

TEST(Bootstrap, EndsAtOneLevelWhateverItBeginsWith) {
    const Message m = test::Seeded(7).message(5);
    for (const u64 level : {3, 4, 7, 12}) {
        Ciphertext out(toy().context);
        boot().batched.bootstrap(toy().encrypt(m, level), out, true);
        EXPECT_EQ(out.getLevel(), 12U);
        EXPECT_LT(test::maxError(toy().decrypt(out), m), 2 * boot().complexBound());
    }
}

TEST(Bootstrap, TakesCoefficientsOfAnyLevel) {
    const Message m = test::Seeded(8).message(5);
    std::vector<double> coefficients(64);
    for (u64 k = 0; k < 32; ++k) {
        coefficients[k] = m[test::reversedSlot(k, 5)].real();
        coefficients[k + 32] = m[test::reversedSlot(k, 5)].imag();
    }
    for (const u64 level : {0, 1, 2, 12}) {
        Ciphertext out(toy().context);
        boot().batched.halfBoot(toy().encryptCoefficients(coefficients, level), out, true);
        EXPECT_EQ(out.getLevel(), 12U);
        // An error of a coefficient is spread over all slots: 64 times that of one at most.
        const double bound = boot().complexBound() + 64 * boot().noise();
        EXPECT_LT(test::maxError(toy().decrypt(out), m), bound);
    }
}

TEST(HalfBoot, TakesEitherFormOfThePolynomials) {
    std::vector<double> coefficients(64, 0.25);
    for (const u64 level : {0, 2}) {
        Ciphertext in = toy().encryptCoefficients(coefficients, level);
        for (u64 i = 0; i < 2; ++i)
            if (in.getPoly(i).isNTT()) toy().context->primes.backwardNTT(in.getPoly(i), in.getPoly(i));
        Ciphertext transformed = in, out(toy().context), other(toy().context);
        for (u64 i = 0; i < 2; ++i)
            toy().context->primes.forwardNTT(transformed.getPoly(i), transformed.getPoly(i));
        boot().batched.halfBoot(in, out, true);
        boot().batched.halfBoot(transformed, other, true);
        EXPECT_FALSE(in.isNTT());
        for (const Ciphertext* got : {&out, &other})
            EXPECT_LT(test::maxError(toy().decrypt(*got), Message(5, {0.25, 0.25})),
                      boot().complexBound() + 64 * boot().noise())
                << level;
    }
}

// One slot needs no rotation, and so not two elements.
TEST(SlotToCoeff, BringsEveryElementOutOfNTTForm) {
    Ciphertext in = toy().encrypt(Message(0, {0.5, -0.25}), 3), out(toy().context);
    in.setNumPoly(3);
    boot().batched.levelDownAndSlotToCoeff(in, out);
    ASSERT_EQ(out.getNumPoly(), 3U);
    for (u64 i = 0; i < 3; ++i) EXPECT_FALSE(out.getPoly(i).isNTT());
    EXPECT_EQ(out.getLevel(), 0U);
    EXPECT_EQ(out.getEncodingType(), EncodingType::Coefficient);
}

TEST(Bootstrap, RunsInManyThreadsAtOnce) {
    const Ciphertext in = toy().encrypt(test::Seeded(18).message(3), 4);
    Ciphertext expected(toy().context), extended(toy().context), half(toy().context);
    const auto& b = boot().batched;
    b.bootstrap(in, expected, true);
    b.bootstrapExtended(in, extended, false);
    b.levelDownAndSlotToCoeff(in, half);
    struct Outputs {
        Ciphertext once{toy().context}, twice{toy().context}, half{toy().context};
    };
    std::vector<Outputs> outputs(4);
    std::vector<std::thread> threads;
    for (Outputs& out : outputs)
        threads.emplace_back([&] {
            b.loadBootConstants(3, Device{});
            b.bootstrap(in, out.once, true);
            b.bootstrapExtended(in, out.twice, false);
            b.levelDownAndSlotToCoeff(in, out.half);
        });
    for (std::thread& thread : threads) thread.join();
    for (const Outputs& out : outputs) {
        EXPECT_TRUE(test::sameWords(out.once, expected));
        EXPECT_TRUE(test::sameWords(out.twice, extended));
        EXPECT_TRUE(test::sameWords(out.half, half));
    }
}

TEST(Bootstrap, WorksInPlace) {
    Ciphertext imag(toy().context);
    const Ciphertext original = toy().encrypt(test::Seeded(9).message(2), 5);
    const auto expectSame = [&](auto&& run) {
        Ciphertext apart(toy().context), within = original;
        run(original, apart);
        run(within, within);
        EXPECT_TRUE(test::sameWords(apart, within)); // nothing is drawn by chance here
        EXPECT_EQ(apart.getEncodingType(), within.getEncodingType());
    };
    const auto& b = boot().batched;
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrap(x, y, false); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrap(x, y, true); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrapExtended(x, y, true); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.levelDownAndSlotToCoeff(x, y); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrap(x, y, imag); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrap(x, imag, y); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrapExtended(x, y, imag); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { b.bootstrapExtended(x, imag, y); });
    const auto& s = boot().inSequence;
    expectSame([&](const Ciphertext& x, Ciphertext& y) { s.bootstrap(x, y, true); });
    expectSame([&](const Ciphertext& x, Ciphertext& y) { s.levelDownAndSlotToCoeff(x, y); });
}

TEST(Bootstrap, LeavesItsInputAlone) {
    const Ciphertext in = toy().encrypt(test::Seeded(10).message(3), 4);
    const Ciphertext before = in;
    Ciphertext out(toy().context), imag(toy().context);
    boot().batched.bootstrap(in, out, true);
    boot().batched.bootstrapExtended(in, out, imag);
    boot().batched.levelDownAndSlotToCoeff(in, out);
    EXPECT_TRUE(test::sameWords(in, before));
    EXPECT_EQ(in.getEncodingType(), EncodingType::Slot);
}

TEST(Bootstrap, InSequenceNeedsTheCompactKeysAlone) {
    const KeyPack keys = packWith(toy().context->getRotIndicesForBootstrap(5, true));
    const HomEvaluator evaluator(toy().context, keys);
    const Message m = test::Seeded(11).message(5);
    const Ciphertext in = toy().encrypt(m, 3);
    Ciphertext out(toy().context);
    Bootstrapper(evaluator, true).bootstrap(in, out, true);
    EXPECT_LT(test::maxError(toy().decrypt(out), m), 2 * boot().complexBound());
    // The batched form takes every baby step of the stage that comes first, that of stride 1, with a key of
    // its own.
    EXPECT_REFUSED(Bootstrapper(evaluator).bootstrap(in, out, true),
                   "Failed to load the left rotation key for index 2");
}

TEST(Bootstrap, ReadsItsKeysFromADirectoryWhenItNeedsThem) {
    const Ciphertext in = toy().encrypt(test::Seeded(19).message(4), 3);
    for (const bool sequential : {false, true}) {
        KeyPack keys = packWith(toy().context->getRotIndicesForBootstrap(4, sequential));
        const test::TemporaryDirectory directory;
        keys.save(directory.path());
        const HomEvaluator held(toy().context, keys), stored(toy().context, directory.path());
        Ciphertext out(toy().context), expected(toy().context);
        Bootstrapper(stored, 4, sequential).bootstrap(in, out, true);
        Bootstrapper(held, 4, sequential).bootstrap(in, expected, true);
        EXPECT_TRUE(test::sameWords(out, expected));
    }
}

TEST(Bootstrap, NamesTheRotationKeyThatIsMissing) {
    const Ciphertext in = toy().encrypt(test::Seeded(12).message(5), 3);
    for (const bool sequential : {false, true}) {
        const auto needed = toy().context->getRotIndicesForBootstrap(5, sequential);
        for (const long index : needed) {
            std::set<long> rest = needed;
            rest.erase(index);
            // -16 is 16 to the left.
            const std::string name = std::to_string(index & 31);
            Ciphertext out(toy().context);
            const HomEvaluator evaluator(toy().context, packWith(rest));
            EXPECT_REFUSED(Bootstrapper(evaluator, sequential).bootstrap(in, out),
                           (sequential ? "[Load Rotation Key] no left rotation key for index "
                                       : "Failed to load the left rotation key for index ") +
                               name);
        }
    }
}

TEST(Bootstrap, NamesTheFixedKeysThatAreMissing) {
    const Ciphertext in = toy().encrypt(test::Seeded(13).message(0), 3);
    const KeyGenerator generator(toy().context, toy().secretKey);
    generator.genRotKeysForBootstrap(0);
    const Bootstrapper bootstrapper(HomEvaluator(toy().context, generator.getKeyPack()), 0);
    Ciphertext out(toy().context);
    EXPECT_REFUSED(bootstrapper.bootstrap(in, out), "Failed to load the conjugation key");
    generator.genConjKey();
    EXPECT_REFUSED(bootstrapper.bootstrap(in, out), "Failed to load the multiplication key");
    generator.genMultKey();
    bootstrapper.bootstrap(in, out);
    EXPECT_EQ(out.getLevel(), 12U);
}

TEST(Bootstrap, CanBeRepeatedWithAnErrorThatGrowsNoFasterThanLinearly) {
    test::Seeded random(14);
    // Factors of modulus 1, so that neither the message nor its error grows by them.
    Message factor(5), expected(5);
    for (auto& slot : factor) slot = std::polar(1.0, random.real(0, 2 * std::numbers::pi));
    for (auto& slot : expected) slot = std::polar(0.9, random.real(0, 2 * std::numbers::pi));
    const Ciphertext multiplier = toy().encrypt(factor, 12);
    Ciphertext x = toy().encrypt(expected, 3);
    const test::ErrorModel& e = toy().errors;
    const double product = e.atLevel(e.rescale() + e.keySwitch(), 11) + e.atLevel(e.encryption(), 12);
    for (int round = 1; round <= 10; ++round) {
        boot().batched.bootstrap(x, x, true);
        toy().evaluator.mult(x, multiplier, x);
        toy().evaluator.mult(expected, factor, expected);
        const double bound = round * (boot().complexBound(0.9) + product) + e.atLevel(e.encryption(), 3);
        EXPECT_LT(test::maxError(toy().decrypt(x), expected), bound) << "round " << round;
    }
}

} // namespace
} // namespace Torvo
