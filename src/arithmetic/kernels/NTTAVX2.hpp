#pragma once

#include "arithmetic/kernels/TransformRows.hpp"
#include "core/Integers.hpp"

/// The transforms of NTT on vectors of four words: ranges and words are those of the scalar stages. The
/// tables must include those of the last stage.
namespace Torvo::AVX2 {

/// k = 1, 2, 4; words in range 4 in, range k out.
template <int k>
void forwardTransform(u64* a, const rows::TransformTables& tables);
/// k = 1, 2; words in range 2 in, range k out.
template <int k>
void backwardTransform(u64* a, const rows::TransformTables& tables);

/// One stage of distance t >= 4; of distance 2; of distance 1.
void forwardStage(u64* a, u64 t, const rows::TransformTables& tables);
void forwardStageTwo(u64* a, const rows::TransformTables& tables);
void forwardStageOne(u64* a, const rows::TransformTables& tables);
void backwardStage(u64* a, u64 t, const rows::TransformTables& tables);
void backwardStageTwo(u64* a, const rows::TransformTables& tables);
void backwardStageOne(u64* a, const rows::TransformTables& tables);
/// The stage of distance N/2, into range 2.
void backwardLastStage(u64* a, const rows::TransformTables& tables);

} // namespace Torvo::AVX2
