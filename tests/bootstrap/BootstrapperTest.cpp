#include "support/Scheme.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

TEST(Bootstrapper, GivesLevelsBackOnTheToyPreset) {
    const auto& scheme = test::Scheme::of(ParameterPreset::FX);
    KeyGenerator(scheme.context, scheme.secretKey, scheme.keys).genRotKeysForBootstrap(5);
    const Bootstrapper bootstrapper(scheme.evaluator);
    const Message message = test::Seeded(1).message(5);
    Ciphertext out(scheme.context);
    bootstrapper.bootstrap(scheme.encrypt(message, 3), out, true);
    EXPECT_EQ(out.getLevel(), bootstrapper.getLevelAfterFullSlotBootstrap());
    // The sine's bend: (2 pi * 2^-13)^2 / 6 = 2^-23.3 of the cube of each part, in both parts.
    EXPECT_LT(test::maxError(scheme.decrypt(out), message), 0x1p-22);
}

} // namespace
} // namespace Torvo
