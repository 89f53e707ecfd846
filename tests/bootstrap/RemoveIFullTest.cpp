#include "support/BootScheme.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

// The sine of the presets that straighten it by an arcsine, at their own degrees and chains: only there the
// arcsine crosses into the small primes.

namespace Torvo {
namespace {

/// Slots x / q0 = eps m + I become m.
void expectMessageBack(ParameterPreset preset) {
    const Context context = makeContext(preset);
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    generator.genMultKey();
    const HomEvaluator evaluator(context, generator.getKeyPack());
    const BootstrapperImpl bootstrapper(evaluator, std::nullopt, 0, false);
    const BootParameter& parameter = bootstrapper.getParameter();

    const double q0 = static_cast<double>(context->primes.getPrime(0));
    const test::BootErrorModel errors(context, parameter);
    const double eps = errors.eps();
    const u64 top = context->parameter.chain_length - 1;
    double scale = 1 / parameter.range_bound;
    if (parameter.separate_normalization) // that by 2 K and the gain is still to come
        scale = 2 * static_cast<double>(parameter.post_raise_factor) * q0 /
                std::exp2(context->scale_factors.log_scale[top]);

    test::Seeded random(static_cast<u64>(preset));
    const Message m = test::realPart(random.message(4));
    Message y = m;
    const auto integers = static_cast<u64>(2 * parameter.range_bound) - 3;
    for (auto& slot : y) {
        const double I = static_cast<double>(random.below(integers)) - static_cast<double>(integers / 2);
        slot = (eps * slot.real() + I) * scale;
    }
    Ciphertext x = test::encryptAbove(context, secretKey, EnDecoder(context).encode(y, top - 3));
    bootstrapper.removeI(x, x, 1.0);
    EXPECT_EQ(x.getLevel(), bootstrapper.getLevelAfterFullSlotBootstrap());
    Message got;
    Decryptor(context).decrypt(x, secretKey, got);
    EXPECT_LT(test::maxError(got, m), errors.realBound());
}

TEST(RemoveIFull, OnFVa) {
    expectMessageBack(ParameterPreset::FVa);
}
TEST(RemoveIFull, OnFGa) {
    expectMessageBack(ParameterPreset::FGa);
}
TEST(RemoveIFull, OnFVb) {
    expectMessageBack(ParameterPreset::FVb);
}
TEST(RemoveIFull, OnFVc) {
    expectMessageBack(ParameterPreset::FVc);
}

} // namespace
} // namespace Torvo
