#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Vector instructions of the current processor, as bits: 0 AVX2, 1 AVX-512 DQ, 2 AVX-512 F, 3 AVX-512 VL.
/// Executes CPUID at every call, which is slow on a virtual machine: `currentForm` asks it once.
u64 getCurrentFeature();

inline constexpr u64 featureAVX2 = 1;

/// The forms of the kernels, in the order of their instructions: each form has those of all before it.
/// AVX512 stands for F, DQ and VL, IFMA for the multiply-add of 52 bits.
enum class KernelForm { Scalar, AVX2, FMA, AVX512, IFMA };

/// The form in which a row kernel runs: the last one whose instructions the processor has and the system lets
/// programs use, or Scalar where `getCurrentFeature` has no AVX2. The processor is asked at the first call: a
/// kernel asks at every call, and CPUID at each of them would be a tenth of a multiplication.
KernelForm currentForm();

namespace detail {

/// What `getCurrentFeature` reads.
u64 readProcessorFeature();

/// The last form of the processor, if it has AVX2.
KernelForm readWidestForm();

} // namespace detail

} // namespace Torvo
