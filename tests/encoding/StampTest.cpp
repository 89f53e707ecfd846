#include "encoding/Stamp.hpp"

#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/Stamps.hpp"

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using namespace test;

const Context& context() {
    return contextOf(ParameterPreset::FX);
}

Ciphertext onCoefficients() {
    Ciphertext x(context());
    x.setLogSlots(2);
    x.setRescaleCounter(3);
    x.setEncodingType(EncodingType::Coefficient);
    return x;
}

TEST(Stamp, PutsOnAllOrAllButTheEncodingOrTheEncodingAlone) {
    const Stamp stamp = Stamp::of(onCoefficients());
    Ciphertext all(context()), most(context()), encoding(context());
    const SeenStamp before = stampOf(all);
    stamp.putOn(all);
    stamp.putKeepingEncoding(most);
    stamp.putEncodingOn(encoding);
    EXPECT_EQ(stampOf(all), (SeenStamp{2, 3, EncodingType::Coefficient}));
    EXPECT_EQ(stampOf(most), (SeenStamp{2, 3, EncodingType::Slot}));
    EXPECT_EQ(stampOf(encoding), (SeenStamp{before.logSlots, 0, EncodingType::Coefficient}));
}

TEST(Stamp, LeavesOutTheFieldsThatAnObjectDoesNotHave) {
    Plaintext plaintext(context());
    Ciphertext ciphertext = onCoefficients();
    LWE::Ciphertext number(LWE::makeContext(3, 3, 45, 40));
    Stamp::of(ciphertext).owing(1).putOn(plaintext);
    EXPECT_EQ(stampOf(plaintext), (SeenStamp{2, 1}));
    Stamp::of(ciphertext).owing(2).putOn(number);
    EXPECT_EQ(number.getRescaleCounter(), 2);
    Stamp::of(plaintext).putOn(ciphertext);
    EXPECT_EQ(stampOf(ciphertext), (SeenStamp{2, 1, EncodingType::Slot}));
}

TEST(Stamp, IsAValueThatChangesOfTheOperandDoNotReach) {
    Ciphertext x = onCoefficients();
    const Stamp stamp = Stamp::of(x);
    x = Ciphertext(context());
    stamp.putOn(x);
    EXPECT_EQ(stampOf(x), stampOf(onCoefficients()));
}

TEST(Stamp, HoldsTheCounterAgainstTheLevelThatTheOutputHasNow) {
    const Stamp stamp = Stamp::of(onCoefficients());
    Ciphertext out(context());
    out.setLevel(2);
    EXPECT_REFUSED(stamp.putOn(out), "Rescale counter should be less than or equal to the level");
    EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
    EXPECT_REFUSED(stamp.owing(-1).putOn(out), "Rescale counter should be greater than or equal to zero");
    out.setLevel(3);
    stamp.putOn(out);
    EXPECT_EQ(stampOf(out), stampOf(onCoefficients()));
}

} // namespace
} // namespace Torvo
