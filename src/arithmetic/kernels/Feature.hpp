#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Vector instructions of the processor that runs, as bits: 0 AVX2, 1 AVX-512 DQ, 2 AVX-512 F, 3 AVX-512 VL.
/// Executes CPUID at every call, which costs microseconds on a virtual machine: ask once per row at most.
u64 getCurrentFeature();

inline constexpr u64 featureAVX2 = 1;

/// The one place where a row kernel learns whether it runs in AVX2 form.
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
