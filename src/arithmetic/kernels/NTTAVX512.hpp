#pragma once

#include "arithmetic/kernels/NTTFMA.hpp"
#include "arithmetic/kernels/TransformRows.hpp"
#include "core/Integers.hpp"

/// The transforms of NTT on vectors of eight words, for processors with AVX-512 F, DQ and VL: ranges and
/// words are those of the scalar stages.
namespace Torvo::AVX512 {

/// Two stages more than the six within 64 words.
inline constexpr u64 smallestDegree = 256;

/// k = 1, 2, 4; words in range 4 in, range k out.
template <int k>
void forwardTransform(u64* a, const rows::TransformTables& tables);
/// k = 1, 2; words in range 2 in, range k out.
template <int k>
void backwardTransform(u64* a, const rows::TransformTables& tables);

/// As those of namespace FMA.
void forwardFloatTransform(u64* a, const FMA::TransformTables& tables);
void backwardFloatTransform(u64* a, const FMA::TransformTables& tables);

} // namespace Torvo::AVX512
