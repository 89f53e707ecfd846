#include "support/Contexts.hpp"
#include "support/PinnedWords.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace Torvo {
namespace {

using namespace test;

/// Of the toy preset. The constants of a bootstrap are numbers at the scales of its levels.
struct Boot {
    explicit Boot(u64 slots, bool inSequence = false) : logSlots(slots) {
        const KeyGenerator generator(context, key);
        drawnFrom(2, [&] { generator.genMultKey(); });
        drawnFrom(3, [&] { generator.genConjKey(); });
        drawnFrom(4, [&] { generator.genRotKeysForBootstrap(logSlots, inSequence); });
        if (logSlots != 5) drawnFrom(5, [&] { generator.genRotKeysForBootstrap(5, inSequence); });
        bootstrapper = std::make_unique<Bootstrapper>(HomEvaluator(context, generator.getKeyPack()), logSlots,
                                                      inSequence);
    }
    Ciphertext encrypted(u64 level) const {
        Ciphertext out(context);
        drawnFrom(6, [&] { Encryptor(context).encrypt(slotsOf(logSlots, 1), key, out, level, 0); });
        return out;
    }

    u64 logSlots;
    Context context = contextOf(ParameterPreset::FX);
    SecretKey key = drawnFrom(1, [&] { return SecretKey(context); });
    std::unique_ptr<Bootstrapper> bootstrapper;
    Ciphertext used = wordsOfCiphertext<RLWE>(context, 0, 7);
};

#define SKIP_UNLESS_BOOTSTRAPS_AGREE() SKIP_UNLESS_MATHEMATICS_AGREE("FX", contextOf(ParameterPreset::FX))

TEST(PinnedBootstrap, OfAllSlots) {
    SKIP_UNLESS_BOOTSTRAPS_AGREE();
    PinnedGroup group("bootstrap");
    const Boot boot(5);
    const Ciphertext in = boot.encrypted(4);
    const Bootstrapper& b = *boot.bootstrapper;
    group.result("real", boot.used, [&](Ciphertext& out) { b.bootstrap(in, out, false); });
    group.result("complex", boot.used, [&](Ciphertext& out) { b.bootstrap(in, out, true); });
    group.result("parts apart", std::vector<Ciphertext>(2, boot.used),
                 [&](auto& out) { b.bootstrap(in, out[0], out[1]); });
}

TEST(PinnedBootstrap, InTwoPasses) {
    SKIP_UNLESS_BOOTSTRAPS_AGREE();
    PinnedGroup group("bootstrap in two passes");
    const Boot boot(5);
    const Ciphertext in = boot.encrypted(4);
    group.result("complex", boot.used,
                 [&](Ciphertext& out) { boot.bootstrapper->bootstrapExtended(in, out, true); });
}

TEST(PinnedBootstrap, InHalves) {
    SKIP_UNLESS_BOOTSTRAPS_AGREE();
    PinnedGroup group("bootstrap in halves");
    const Boot boot(5);
    const Ciphertext in = boot.encrypted(3);
    const Bootstrapper& b = *boot.bootstrapper;
    group.result("slotToCoeff", boot.used, [&](Ciphertext& out) { b.slotToCoeff(in, out); });
    Ciphertext coefficients(boot.context);
    b.slotToCoeff(in, coefficients);
    group.result("halfBoot", boot.used, [&](Ciphertext& out) { b.halfBoot(coefficients, out, true); });
}

TEST(PinnedBootstrap, OfFourSlotsOneRotationAfterTheOther) {
    SKIP_UNLESS_BOOTSTRAPS_AGREE();
    PinnedGroup group("bootstrap in sequence");
    const Boot boot(2, true);
    const Ciphertext in = boot.encrypted(3);
    group.result("complex", boot.used, [&](Ciphertext& out) { boot.bootstrapper->bootstrap(in, out, true); });
}

} // namespace
} // namespace Torvo
