#include "support/BootScheme.hpp"
#include "support/Contexts.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <gtest/gtest.h>

#include <optional>

// One bootstrap at each of the two real ring degrees that fit a test, with few keys.

namespace Torvo {
namespace {

/// A random message of parts up to 1, and a bootstrap of it in sequence.
void expectBootstrap(ParameterPreset preset, u64 logSlots, bool isComplex, double cosineError) {
    const Context context = makeContext(preset);
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    generator.genMultKey();
    generator.genConjKey();
    generator.genRotKeysForBootstrap(logSlots, true);
    const HomEvaluator evaluator(context, generator.getKeyPack());
    const BootstrapperImpl bootstrapper(evaluator, std::nullopt, logSlots, true);

    const Message m = test::Seeded(static_cast<u64>(preset)).message(logSlots);
    Ciphertext x(context);
    Encryptor(context).encrypt(m, secretKey, x, 3, 0);
    bootstrapper.bootstrap(x, x, isComplex);
    EXPECT_EQ(x.getLevel(), bootstrapper.getLevelAfterFullSlotBootstrap());
    EXPECT_EQ(x.getLevel(), getEncryptionLevel(context));
    Message got;
    Decryptor(context).decrypt(x, secretKey, got);
    const test::BootErrorModel errors(context, bootstrapper.getParameter(), cosineError);
    if (isComplex)
        EXPECT_LT(test::maxError(got, m), errors.complexBound());
    else
        EXPECT_LT(test::maxError(got, test::realPart(m)), errors.realBound());
}

TEST(BootstrapOnRealPreset, FGbGivesAComplexMessageOf256SlotsBack) {
    expectBootstrap(ParameterPreset::FGb, 8, true, 9.0e-15);
}

TEST(BootstrapOnRealPreset, FTbGivesARealMessageOfFullSlotsBack) {
    expectBootstrap(ParameterPreset::FTb, 14, false, 5.2e-11);
}

} // namespace
} // namespace Torvo
