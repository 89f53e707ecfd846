#include "support/BootScheme.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <optional>

// The sine of the presets that straighten it by an arcsine, at their own degrees and chains: there alone the
// arcsine crosses into the small primes.

namespace Torvo {
namespace {

/// How far the arcsine's Taylor polynomial lies from it: 1.1 times the first term left out, for the small s
/// here, and divided by the amplitude's 2 pi eps.
double remainder(u64 degree, double eps) {
    const double s = 2 * std::numbers::pi * eps;
    return 1.1 * (degree == 3 ? 3.0 / 40 * std::pow(s, 4) : 35.0 / 1152 * std::pow(s, 8));
}

/// Slots x / q0 = eps m + I come out as m. `cosineError` is that of the preset's table.
void expectMessageBack(ParameterPreset preset, double cosineError) {
    const Context context = makeContext(preset);
    const SecretKey secretKey(context);
    const KeyGenerator generator(context, secretKey);
    generator.genMultKey();
    const HomEvaluator evaluator(context, generator.getKeyPack());
    const BootstrapperImpl bootstrapper(evaluator, std::nullopt, 0, false);
    const BootParameter& parameter = bootstrapper.getParameter();

    const double q0 = static_cast<double>(context->primes.getPrime(0));
    const test::BootErrorModel errors(context, parameter, cosineError);
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
    // The arcsine's own roundings, at the scale of the user's levels, are fewer than 8, times at most 8.
    const test::ErrorModel below(context);
    EXPECT_LT(test::maxError(got, m), remainder(parameter.arcsine_degree, eps) + errors.noise() +
                                          64 * below.atLevel(below.rescale(), x.getLevel()));
}

TEST(RemoveIFull, OnFVa) {
    expectMessageBack(ParameterPreset::FVa, 1.1e-14);
}
TEST(RemoveIFull, OnFGa) {
    expectMessageBack(ParameterPreset::FGa, 1.1e-13);
}
TEST(RemoveIFull, OnFVb) {
    expectMessageBack(ParameterPreset::FVb, 1.6e-14);
}
TEST(RemoveIFull, OnFVc) {
    expectMessageBack(ParameterPreset::FVc, 1.6e-14);
}

} // namespace
} // namespace Torvo
