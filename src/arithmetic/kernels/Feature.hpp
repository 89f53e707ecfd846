#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Vector instructions of the current processor, as bits: 0 AVX2, 1 AVX-512 DQ, 2 AVX-512 F, 3 AVX-512 VL.
/// Executes CPUID at every call, which is slow on a virtual machine: call it at most once per row.
u64 getCurrentFeature();

inline constexpr u64 featureAVX2 = 1;

/// Whether a row kernel runs on vectors. No other function decides that.
inline bool runsAVX2() {
    return (getCurrentFeature() & featureAVX2) != 0;
}

/// The forms of the kernels, in the order of their instructions: each form has those of all before it.
/// AVX512 stands for F, DQ and VL, IFMA for the multiply-add of 52 bits.
enum class KernelForm { Scalar, AVX2, FMA, AVX512, IFMA };

/// The last form whose instructions the processor has and the system lets programs use; at least AVX2, which
/// `getCurrentFeature` decides. Asked of the processor once.
KernelForm getWidestForm();

/// The form in which a row kernel runs.
inline KernelForm currentForm() {
    return runsAVX2() ? getWidestForm() : KernelForm::Scalar;
}

namespace detail {

/// What `getCurrentFeature` reads.
u64 readProcessorFeature();

/// What `getWidestForm` answers.
KernelForm readWidestForm();

} // namespace detail

} // namespace Torvo
