#include "functions/BootstrapPrecision.hpp"

#include "context/Parameter.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace Torvo {
namespace {

TEST(MeasuredPrecision, IsThereForEveryPresetThatBootstrapsAndForNoOther) {
    for (const ParameterPreset preset : allPresets()) {
        const Parameter parameter(preset);
        SCOPED_TRACE(parameter.name);
        for (const bool isComplex : {false, true})
            EXPECT_EQ(bootstrapVariance(preset, isComplex, false) > 0, parameter.has_bootstrap);
        EXPECT_GE(bootstrapVariance(preset, true, false), bootstrapVariance(preset, false, false));
        if (parameter.has_extended_bootstrap) {
            EXPECT_LE(bootstrapVariance(preset, true, true), bootstrapVariance(preset, true, false));
        }
    }
}

TEST(MeasuredPrecision, OfTheDefaultPresetIsThatOfTheManual) {
    // A complex normal error with E|e|^2 = v has the mean of -log2|e| at (gamma / ln 2 - log2 v) / 2, by
    // E[ln X] = -gamma of an exponential variable X. The manual has 25.2 bits, and 29.1 in two passes.
    const auto meanBits = [](double v) { return (0.57721566490153286 / std::log(2.0) - std::log2(v)) / 2; };
    EXPECT_NEAR(meanBits(bootstrapVariance(ParameterPreset::FGb, true, false)), 25.2, 1e-9);
    EXPECT_NEAR(meanBits(bootstrapVariance(ParameterPreset::FGb, true, true)), 29.1, 1e-9);
}

} // namespace
} // namespace Torvo
