#include "crypto/SystemSeed.hpp"

#include "core/Integers.hpp"
#include "support/Expect.hpp"
#include "support/ScriptedEntropy.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace Torvo {
namespace {

using Seed = std::array<unsigned long, 4>;
using test::ScriptedEntropy;

Seed drawn(const ScriptedEntropy::Script& script) {
    const ScriptedEntropy entropy(script);
    Seed seed{~0UL, ~0UL, ~0UL, ~0UL};
    drawSystemSeed(seed);
    return seed;
}

/// What a device that gives 0xa0b0c0d0 and a kernel that gives the bytes 0x10, 0x11, ... make.
constexpr Seed expected{0xb3a2d1c0, 0xb7a6d5c4, 0xbbaad9c8, 0xbfaeddcc};

TEST(SystemSeed, IsTheExclusiveOrOfBothSourcesInTheLowHalves) {
    EXPECT_EQ(drawn({.firstByte = 0x10, .deviceWord = 0xa0b0c0d0}), expected);
    EXPECT_EQ(drawn({.firstByte = 0x10, .deviceWord = 0}),
              (Seed{0x13121110, 0x17161514, 0x1b1a1918, 0x1f1e1d1c}));
}

TEST(SystemSeed, ComesWholeAfterSignalsAndInPieces) {
    EXPECT_EQ(drawn({.interruptions = 5, .firstByte = 0x10, .deviceWord = 0xa0b0c0d0}), expected);
    EXPECT_EQ(drawn({.interruptions = 1, .longest = 3, .firstByte = 0x10, .deviceWord = 0xa0b0c0d0}),
              expected);
}

TEST(SystemSeed, IsAnotherOneWhereOneSourceGivesTheSameAgain) {
    EXPECT_NE(drawn({.deviceWord = 1}), drawn({.deviceWord = 1}));
    EXPECT_NE(drawn({.firstByte = 1}), drawn({.firstByte = 1}));
}

TEST(SystemSeed, IsRefusedWhereASourceFails) {
    const std::string refusal = "Cannot seed the random generator: getrandom failed (";
    const std::string advice =
        "). Let the process use this source, which a sandbox may forbid, and try again.";
    EXPECT_REFUSED(drawn({.kernelError = ENOSYS}), refusal + "Function not implemented" + advice);
    EXPECT_REFUSED(drawn({.kernelError = EPERM}), refusal + "Operation not permitted" + advice);
    EXPECT_REFUSED(drawn({.longest = 0}), refusal + "Input/output error" + advice);
    EXPECT_REFUSED(drawn({.doesDeviceFail = true}),
                   "Cannot seed the random generator: std::random_device failed (no device" + advice);
}

} // namespace
} // namespace Torvo
