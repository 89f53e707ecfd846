#include "arithmetic/kernels/Feature.hpp"

#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"

#include <gtest/gtest.h>

namespace Torvo::test {
namespace {

bool hasBit(u64 feature, int bit) {
    return (feature >> bit & 1) != 0;
}

TEST(Feature, TheBitsAreThoseThatTheCompilersRuntimeFinds) {
    const u64 feature = detail::readProcessorFeature();
    EXPECT_EQ(hasBit(feature, 0), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(hasBit(feature, 1), __builtin_cpu_supports("avx512dq") != 0);
    EXPECT_EQ(hasBit(feature, 2), __builtin_cpu_supports("avx512f") != 0);
    EXPECT_EQ(hasBit(feature, 3), __builtin_cpu_supports("avx512vl") != 0);
    EXPECT_EQ(feature >> 4, 0U);
}

TEST(Feature, TheCurrentFeatureIsTheProcessorsUnlessATestForcesIt) {
    EXPECT_EQ(getCurrentFeature(), detail::readProcessorFeature());
    {
        const ForcedFeature none(0);
        EXPECT_EQ(getCurrentFeature(), 0U);
    }
    EXPECT_EQ(getCurrentFeature(), detail::readProcessorFeature());
}

TEST(Feature, TheWidestFormIsTheOneWhoseInstructionsTheCompilersRuntimeFinds) {
    const bool fma = __builtin_cpu_supports("fma") != 0;
    const bool avx512 = fma && __builtin_cpu_supports("avx512f") != 0 &&
                        __builtin_cpu_supports("avx512dq") != 0 && __builtin_cpu_supports("avx512vl") != 0;
    const bool ifma = avx512 && __builtin_cpu_supports("avx512ifma") != 0;
    EXPECT_EQ(detail::readWidestForm(), ifma     ? KernelForm::IFMA
                                        : avx512 ? KernelForm::AVX512
                                        : fma    ? KernelForm::FMA
                                                 : KernelForm::AVX2);
}

TEST(Feature, WithoutBitZeroTheFormIsScalarWhateverElseThereIs) {
    {
        const ForcedFeature none(0);
        EXPECT_EQ(currentForm(), KernelForm::Scalar);
    }
    {
        const ForcedFeature others(0b1110);
        EXPECT_EQ(currentForm(), KernelForm::Scalar);
    }
    const ForcedFeature alone(0b0001);
    EXPECT_EQ(currentForm(), detail::readWidestForm());
}

TEST(Feature, ATestCanForceEachForm) {
    for (const KernelForm form : everyForm) {
        const ForcedFeature forced(form);
        EXPECT_EQ(currentForm(), form);
    }
}

} // namespace
} // namespace Torvo::test
