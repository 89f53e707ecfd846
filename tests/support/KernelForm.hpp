#pragma once

#include "arithmetic/kernels/Feature.hpp"

#include <gtest/gtest.h>

#include <string>

/// The forms in which the row kernels run, for tests parameterised over them with ForcedFeature.
namespace Torvo::test {

inline constexpr u64 scalarForm = 0;
inline constexpr u64 vectorForm = featureAVX2;

inline bool processorHasAVX2() {
    return __builtin_cpu_supports("avx2") != 0;
}

inline std::string formName(const testing::TestParamInfo<u64>& info) {
    return info.param == scalarForm ? "Scalar" : "AVX2";
}

} // namespace Torvo::test

/// First in a test that runs `form`.
#define SKIP_UNLESS_PROCESSOR_RUNS(form)                                                                     \
    if ((form) != ::Torvo::test::scalarForm && !::Torvo::test::processorHasAVX2())                           \
    GTEST_SKIP() << "this processor has no AVX2"
