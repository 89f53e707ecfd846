#include "support/Stamps.hpp"
#include "support/BootScheme.hpp"
#include "support/UsedOutputs.hpp"

#include <gtest/gtest.h>

#include <functional>

/// Which of log slots, owed rescales and encoding type bootstrapping puts on its outputs.
namespace Torvo {
namespace {

using namespace test;

constexpr u64 logSlots = 2, level = 5;
constexpr SeenStamp onSlots{logSlots, 0}, onCoefficients{logSlots, 0, EncodingType::Coefficient};

Ciphertext operand() {
    return toy().encrypt(Seeded(54).message(logSlots, 0.5), level);
}

/// `apply(out)` leaves this stamp on an output of the other encoding type.
template <class Apply>
void expectStamp(const SeenStamp& left, const char* name, Apply&& apply,
                 const Ciphertext& used = usedLonger(toy().context)) {
    const bool isOnSlots = left.encoding == EncodingType::Slot;
    Ciphertext out = stampedOtherwise(used, left, isOnSlots ? EncodingType::Coefficient : EncodingType::Slot);
    apply(out);
    EXPECT_EQ(stampOf(out), left) << name;
}

TEST(Stamps, OfABootstrappedCiphertextAreTheOperandsOnSlotsOwingNothing) {
    const Ciphertext in = operand();
    for (const bool sequential : {false, true})
        for (const bool isComplex : {false, true}) {
            const BootstrapperImpl& b = boot().of(sequential);
            expectStamp(onSlots, "bootstrap", [&](Ciphertext& out) { b.bootstrap(in, out, isComplex); });
            expectStamp(onSlots, "bootstrapExtended",
                        [&](Ciphertext& out) { b.bootstrapExtended(in, out, isComplex); });
        }
    const BootstrapperImpl& b = boot().batched;
    for (const Ciphertext& used : usedOutputs(toy().context))
        expectStamp(
            onSlots, "bootstrap", [&](Ciphertext& out) { b.bootstrap(in, out, false); }, used);
    Ciphertext itself = in;
    b.bootstrap(itself, itself, false);
    EXPECT_EQ(stampOf(itself), onSlots);
}

TEST(Stamps, OfTheTwoPartsAreTheOperandsOnSlotsOwingNothing) {
    const Ciphertext in = operand();
    const BootstrapperImpl& b = boot().batched;
    expectStamp(onSlots, "two outputs", [&](Ciphertext& real) {
        Ciphertext imag = real;
        b.bootstrap(in, real, imag);
        EXPECT_EQ(stampOf(imag), onSlots);
    });
    expectStamp(onSlots, "two outputs, extended", [&](Ciphertext& real) {
        Ciphertext imag = real;
        b.bootstrapExtended(in, real, imag);
        EXPECT_EQ(stampOf(imag), onSlots);
    });
    Ciphertext real = in, imag(toy().context);
    b.bootstrap(real, real, imag);
    EXPECT_EQ(stampOf(real), onSlots);
}

TEST(Stamps, OfTheHalvesAreOnCoefficientsAndOnSlots) {
    const Ciphertext in = operand();
    const BootstrapperImpl& b = boot().batched;
    expectStamp(onCoefficients, "slotToCoeff", [&](Ciphertext& out) { b.levelDownAndSlotToCoeff(in, out); });
    Ciphertext half = in;
    b.levelDownAndSlotToCoeff(half, half);
    EXPECT_EQ(stampOf(half), onCoefficients);
    expectStamp(onSlots, "halfBoot", [&](Ciphertext& out) { b.halfBoot(half, out, true); });
    b.halfBoot(half, half, false);
    EXPECT_EQ(stampOf(half), onSlots);
}

TEST(Stamps, OfARaisedCiphertextAreTheOperands) {
    const BootstrapperImpl& b = boot().batched;
    for (const SeenStamp& stamp : {onSlots, onCoefficients}) {
        Ciphertext low = toy().encrypt(Seeded(54).message(logSlots, 0.5), 0);
        for (u64 i = 0; i < 2; ++i) toy().context->primes.backwardNTT(low.getPoly(i), low.getPoly(i));
        low.setEncodingType(stamp.encoding);
        expectStamp(stamp, "levelRecover", [&](Ciphertext& out) { b.levelRecover(low, out); });
        b.levelRecover(low, low);
        EXPECT_EQ(stampOf(low), stamp);
    }
}

} // namespace
} // namespace Torvo
