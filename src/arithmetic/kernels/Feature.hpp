#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Vector instructions of the current processor, as bits: 0 AVX2, 1 AVX-512 DQ, 2 AVX-512 F, 3 AVX-512 VL.
/// Executes CPUID at every call, which is slow on a virtual machine: call it at most once per row.
u64 getCurrentFeature();

inline constexpr u64 featureAVX2 = 1;

/// Whether a row kernel runs in AVX2 form. No other function decides that.
inline bool runsAVX2() {
    return (getCurrentFeature() & featureAVX2) != 0;
}

namespace detail {

/// What `getCurrentFeature` reads.
u64 readProcessorFeature();

/// Whether the processor has fused multiply-add, for the units compiled for AVX2 and FMA.
bool processorHasFMA();

} // namespace detail

} // namespace Torvo
