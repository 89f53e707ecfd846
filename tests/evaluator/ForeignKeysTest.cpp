#include "context/ContextContent.hpp"
#include "evaluator/KeySwitcher.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/ForeignRings.hpp"
#include "support/RingEquation.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace Torvo;
using namespace Torvo::test;

namespace {

std::string evaluatorRefusal(const Context& theirs, const Context& ours) {
    return refusalOf("keys are of another ring", theirs, "the evaluator's context", ours,
                     "make the evaluator with the context the keys were made with");
}

std::string switchRefusal(const std::string& key, const Context& ours, const std::string& primes) {
    return "the switching key is of another ring: " + key + ", but the context of the operation is " +
           shapeOf(ours) + primes + "; use a key made with this context";
}

KeyPack packWithKeys(const Context& context) {
    const KeyGenerator generator(context, SecretKey(context));
    generator.genMultKey();
    return generator.getKeyPack();
}

/// The digits of random words at a level.
std::vector<Polynomial> digitsAt(const KeySwitcher& switcher, const Context& context, u64 level) {
    Seeded random(71);
    Polynomial p(context, false, true, level);
    fillWithResidues(context, p, random);
    std::vector<Polynomial> digits;
    switcher.modUpPQ(p, digits);
    return digits;
}

/// A key as a file makes it whose reader names no ring.
EvaluationKey withoutContext(const EvaluationKey& key) {
    std::stringstream stream;
    key.save(stream);
    EvaluationKey loaded;
    loaded.load(stream);
    return loaded;
}

} // namespace

TEST(ForeignKeys, AreRefusedWhenTheEvaluatorIsMade) {
    for (const auto& [ours, theirs] : foreignRings())
        EXPECT_REFUSED(HomEvaluator(ours, packWithKeys(theirs)), evaluatorRefusal(theirs, ours));
}

TEST(ForeignKeys, OfATwinServe) {
    const Context own = ringOfDigits(2);
    const SecretKey secretKey(own);
    const KeyGenerator generator(own, secretKey);
    generator.genMultKey();
    Ciphertext in(own);
    Encryptor(own).encrypt(Message(5, 0.5), secretKey, in);
    Ciphertext expected(own);
    HomEvaluator(own, generator.getKeyPack()).square(in, expected);
    for (const Context& twin : twinsOf(own)) {
        Ciphertext out(twin);
        HomEvaluator(twin, generator.getKeyPack()).square(in, out);
        EXPECT_TRUE(sameWords(out, expected)) << twin->parameter.name;
    }
}

/// With fewer digits than the operand a walk along the key would leave it; with as many, its rows end early.
TEST(ForeignKeys, AreRefusedByTheKeySwitch) {
    for (const auto& [ours, theirs] : foreignRings()) {
        const KeySwitcher switcher(ours);
        const auto pack = packWithKeys(theirs);
        EvaluationKey bare = withoutContext(*pack.getMultKey());
        const std::string text =
            refusalOf("the switching key is of another ring", theirs, "the context of the operation", ours,
                      "use a key made with this context");
        std::string nameless = text;
        nameless.replace(nameless.find("(CUSTOM)"), 8, "(without a context)");
        for (const u64 level : {0, 1, 3}) {
            const auto digits = digitsAt(switcher, ours, level);
            EXPECT_REFUSED(switcher.multEvalKey(digits, *pack.getMultKey()), text);
            EXPECT_REFUSED(switcher.multEvalKey(digits, bare), nameless);
            EXPECT_REFUSED(switcher.multEvalKeys({digits}, {&bare}), nameless);
        }
    }
}

TEST(ForeignKeys, WithoutAContextServeIfTheirPolynomialsFit) {
    const Context own = ringOfDigits(2);
    const KeySwitcher switcher(own);
    const auto key = packWithKeys(own).getMultKey();
    EvaluationKey bare = withoutContext(*key), empty;
    for (const u64 level : {0, 1, 3}) {
        const auto digits = digitsAt(switcher, own, level);
        EXPECT_TRUE(sameWords(switcher.multEvalKey(digits, bare), switcher.multEvalKey(digits, *key)));
        EXPECT_REFUSED(switcher.multEvalKey(digits, empty),
                       switchRefusal("degree 0, 0 + 0 primes, 0 digits (without a context)", own, ""));
    }
}

TEST(ForeignKeys, ALevelThatTheChainDoesNotHaveIsRefusedByTheKeySwitch) {
    const char* const foreign = "Operands are not of the ring of the generated context.";
    const Context own = ringOfDigits(4);
    const KeySwitcher switcher(own);
    std::vector<Polynomial> digits;
    Ciphertext out(own);
    for (const bool isModUp : {false, true}) {
        for (const u64 level : {4, 5, 6, 100}) {
            Polynomial p(own, isModUp, true);
            p.setLevel(level);
            EXPECT_REFUSED(switcher.modUpPQ(p, digits), foreign);
            Ciphertext product(own, isModUp);
            product.setLevel(level);
            EXPECT_REFUSED(switcher.modDown(product, out, true), foreign);
        }
    }
    EXPECT_REFUSED(switcher.modDown(Ciphertext(own), out, true), foreign);
    EXPECT_REFUSED(switcher.modDown(Ciphertext(ringOfDigits(2), true), out, true), foreign);
    EXPECT_EQ(out.getLevel(), 3u);
}

TEST(ForeignKeysRealPreset, OfOnePresetAreRefusedByTheEvaluatorOfAnother) {
    const Context &st7 = contextOf(ParameterPreset::ST7), &st8 = contextOf(ParameterPreset::ST8);
    const KeyPack keysOfST7(st7), keysOfST8(st8);
    const auto text = [](const char* theirs, const char* ours, u64 index) {
        return std::string("keys are of another ring: degree 32768, ") + theirs +
               ", but the evaluator's context is degree 32768, " + ours + ", with other primes from index " +
               std::to_string(index) + " on; make the evaluator with the context the keys were made with";
    };
    const auto a = getPrimeList(st7), b = getPrimeList(st8);
    const auto index =
        static_cast<u64>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
    const char *const st7Text = "8 + 4 primes, 2 digits (ST7)", *const st8Text =
                                                                    "9 + 3 primes, 3 digits (ST8)";
    EXPECT_REFUSED(HomEvaluator(st8, keysOfST7), text(st7Text, st8Text, index));
    EXPECT_REFUSED(HomEvaluator(st7, keysOfST8), text(st8Text, st7Text, index));
    EXPECT_REFUSED(KeyGenerator(st8, SecretKey(st8), keysOfST7),
                   refusalOf("the key pack is of another ring", st7, "the key generator's context", st8,
                             "make the generator with a pack of its own context"));
}

/// `FGb` and `FGd` share one list, and everything that keys ask for.
TEST(ForeignKeysRealPreset, OfATwinPresetServe) {
    const Context &fgb = contextOf(ParameterPreset::FGb), &fgd = contextOf(ParameterPreset::FGd);
    EXPECT_NO_THROW(HomEvaluator(fgb, KeyPack(fgd)));
    EXPECT_NO_THROW(HomEvaluator(fgd, KeyPack(fgb)));
}
