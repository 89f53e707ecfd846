#include <Torvo/PresetAdvice.hpp>

#include <Torvo/Polynomials.hpp>

#include "support/Expect.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace Torvo {
namespace {

/// On 2^10 slots, `times` times a polynomial that spends three levels and stays in [-1, 1].
std::vector<PresetAdvice> adviceFor(int times, double error) {
    const ChebyshevSeries f({0, 0.9, 0, 0, 0, 0, 0, 0.02});
    return advisePresets(
        [&](const Plan& plan) {
            Message message(10);
            for (unsigned long i = 0; i < message.getSize(); ++i)
                message[i] = std::cos(static_cast<double>(i));
            PlannedCiphertext x = plan.encrypt(message);
            for (int k = 0; k < times; ++k) evaluate(plan, x, f, x);
            return x;
        },
        error);
}

bool names(const std::vector<PresetAdvice>& advice, ParameterPreset preset) {
    return std::ranges::any_of(advice, [&](const PresetAdvice& each) { return each.preset == preset; });
}

TEST(PresetAdviceRealPreset, TheSmallestPresetsComeFirstAndHaveTheLevelsAndTheBits) {
    const std::vector<PresetAdvice> three = adviceFor(1, 0x1p-10);
    ASSERT_FALSE(three.empty());
    EXPECT_EQ(three.front().preset, ParameterPreset::SD3);
    EXPECT_FALSE(three.front().usesBootstrap);
    EXPECT_EQ(three.front().report.lowestLevel, 0);
    // One key: 2 polynomials of each digit.
    EXPECT_GT(three.front().report.keyBytes, 0);
    for (const PresetAdvice& each : three) EXPECT_LE(each.error, 0x1p-10);

    const std::vector<PresetAdvice> precise = adviceFor(1, three.front().error / 8);
    EXPECT_FALSE(names(precise, ParameterPreset::SD3));
    EXPECT_TRUE(names(precise, ParameterPreset::ST7));
    for (const PresetAdvice& each : precise) EXPECT_LE(each.error, three.front().error / 8);

    // 36 levels are in no preset: they take bootstraps.
    const std::vector<PresetAdvice> deep = adviceFor(12, 0x1p-10);
    ASSERT_TRUE(names(deep, ParameterPreset::FGb));
    for (const PresetAdvice& each : deep) {
        EXPECT_TRUE(each.usesBootstrap);
        EXPECT_GT(each.report.bootstraps, 0);
    }
    EXPECT_TRUE(adviceFor(1, 1e-30).empty());
}

TEST(PresetAdvice, RefusesWhatIsNoCircuitAndNoError) {
    EXPECT_REFUSED(advisePresets({}, 1), "[advisePresets] No circuit is given; give one that can be called");
    const auto circuit = [](const Plan& plan) { return plan.encrypt(Message(1, 0.5)); };
    EXPECT_REFUSED(advisePresets(circuit, 0), "[advisePresets] The error is 0; give a positive one");
    EXPECT_REFUSED(advisePresets(circuit, std::nan("")),
                   "[advisePresets] The error is nan; give a positive one");
    EXPECT_THROW(advisePresets([](const Plan&) -> PlannedCiphertext { throw std::logic_error("mine"); }, 1),
                 std::logic_error);
}

} // namespace
} // namespace Torvo
