#pragma once

#include "context/Parameter.hpp"
#include "core/Integers.hpp"

#include <Torvo/Context.hpp>

#include <array>
#include <vector>

namespace Torvo {

/// The plan of a DFT of 2^log_slots points as up to three radix stages, each a matrix of few diagonals that
/// is applied by baby steps and giant steps.
class RadixDecomposition {
public:
    explicit RadixDecomposition(unsigned long log_slots);

    /// 0, step, 2 * step, ..., babySteps[stage] of them.
    std::vector<long> getRotIndicesForBabyStep(u64 stage) const;
    /// i * babySteps * step for i from -h to h - 1, h = giantSteps / 2, as signed rotations; 0 alone for
    /// h = 0.
    std::vector<long> getRotIndicesForGiantStep(u64 stage) const;

    u64 numStages = 0;
    std::array<u64, 3> logRadix{};
    std::array<u64, 3> radix{};
    std::array<u64, 3> step{};
    std::array<u64, 3> babySteps{};
    std::array<u64, 3> giantSteps{};
};

/// @throws RuntimeException "log_slots should not exceed " and log2 of the number of slots of the ring
void requireLogSlots(const Parameter& parameter, u64 log_slots);

/// Converts signed indices to left rotations below the number of slots.
std::vector<u64> convertFromSgnIdx(const std::vector<long>& indices, const Context& context);

} // namespace Torvo
