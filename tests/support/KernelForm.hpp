#pragma once

#include "arithmetic/kernels/Feature.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace Torvo {

/// For the names and the messages of tests.
inline const char* nameOf(KernelForm form) {
    switch (form) {
    case KernelForm::Scalar:
        return "Scalar";
    case KernelForm::AVX2:
        return "AVX2";
    case KernelForm::FMA:
        return "FMA";
    case KernelForm::AVX512:
        return "AVX512";
    case KernelForm::IFMA:
        return "IFMA";
    }
    return "unknown";
}

inline std::ostream& operator<<(std::ostream& out, KernelForm form) {
    return out << nameOf(form);
}

} // namespace Torvo

/// The forms in which the row kernels run, for tests parameterised over them with ForcedFeature.
namespace Torvo::test {

inline constexpr KernelForm scalarForm = KernelForm::Scalar;
inline constexpr KernelForm vectorForms[] = {KernelForm::AVX2, KernelForm::FMA, KernelForm::AVX512,
                                             KernelForm::IFMA};
inline constexpr KernelForm everyForm[] = {scalarForm, KernelForm::AVX2, KernelForm::FMA, KernelForm::AVX512,
                                           KernelForm::IFMA};

inline bool processorRuns(KernelForm form) {
    if (form == scalarForm) return true;
    return __builtin_cpu_supports("avx2") != 0 && form <= detail::readWidestForm();
}

inline std::string formName(const testing::TestParamInfo<KernelForm>& info) {
    return nameOf(info.param);
}

} // namespace Torvo::test

/// First in a test that runs `form`.
#define SKIP_UNLESS_PROCESSOR_RUNS(form)                                                                     \
    if (!::Torvo::test::processorRuns(form)) GTEST_SKIP() << "this processor has no " << (form)
