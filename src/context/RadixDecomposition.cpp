#include "context/RadixDecomposition.hpp"

#include "context/ContextContent.hpp"
#include "context/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <string>

namespace Torvo {

RadixDecomposition::RadixDecomposition(unsigned long log_slots) {
    const u64 n = log_slots;
    if (n == 0) return;
    if (n <= 4) {
        numStages = 1;
        logRadix = {n, 0, 0};
    } else if (n <= 7) {
        numStages = 2;
        logRadix = {n - n / 2, n / 2, 0};
    } else {
        numStages = 3;
        logRadix = {n / 3 + (n % 3 != 0 ? 1 : 0), n / 3 + (n % 3 == 2 ? 1 : 0), n / 3};
        if (n == 14) logRadix = {5, 4, 5}; // an exception by hand, not 5, 5, 4
    }
    u64 stride = u64{1} << n;
    for (u64 s = 0; s < numStages; ++s) {
        radix[s] = u64{1} << logRadix[s];
        stride /= radix[s];
        step[s] = stride;
        // A stage after the first works on both halves of its blocks: its diagonals are on both sides of the
        // main one, so there are twice as many.
        const u64 logDiagonals = logRadix[s] + (s == 0 ? 0 : 1);
        babySteps[s] = u64{1} << ((logDiagonals + 1) / 2);
        giantSteps[s] = (u64{1} << logDiagonals) / babySteps[s];
    }
}

std::vector<long> RadixDecomposition::getRotIndicesForBabyStep(u64 stage) const {
    std::vector<long> indices;
    for (u64 j = 0; j < babySteps[stage]; ++j) indices.push_back(static_cast<long>(j * step[stage]));
    return indices;
}

std::vector<long> RadixDecomposition::getRotIndicesForGiantStep(u64 stage) const {
    const auto half = static_cast<long>(giantSteps[stage] / 2);
    if (half == 0) return {0};
    const auto gap = static_cast<long>(babySteps[stage] * step[stage]);
    std::vector<long> indices;
    for (long i = -half; i < half; ++i) indices.push_back(i * gap);
    return indices;
}

std::vector<u64> convertFromSgnIdx(const std::vector<long>& indices, const Context& context) {
    std::vector<u64> converted(indices.size());
    const u64 mask = context->parameter.num_slots - 1;
    std::ranges::transform(indices, converted.begin(), [mask](long i) { return static_cast<u64>(i) & mask; });
    return converted;
}

namespace {

/// The indices of one stage if every baby and giant step has its own key.
void insertBatched(const RadixDecomposition& plan, u64 stage, std::set<long>& indices) {
    for (const auto& list : {plan.getRotIndicesForBabyStep(stage), plan.getRotIndicesForGiantStep(stage)})
        for (const long index : list)
            if (index != 0) indices.insert(index);
}

/// The indices of one stage if baby and giant steps are sequential.
void insertSequential(const RadixDecomposition& plan, u64 stage, std::set<long>& indices) {
    const auto gap = static_cast<long>(plan.babySteps[stage] * plan.step[stage]);
    indices.insert(static_cast<long>(plan.step[stage]));
    if (plan.giantSteps[stage] == 1) return;
    indices.insert(-gap);
    if (stage != 0 && plan.giantSteps[stage] > 2) indices.insert(gap);
}

} // namespace

void requireLogSlots(const Parameter& parameter, u64 log_slots) {
    const u64 most = parameter.log_degree - 1;
    if (log_slots > most) throw RuntimeException(message::logSlotsTooLarge + std::to_string(most));
}

void ContextContent::requireSlotsForBootstrap(u64 log_slots) const {
    require(parameter.has_bootstrap, message::noRotationsForBootstrap);
    requireLogSlots(parameter, log_slots);
}

std::set<long> ContextContent::getRotIndicesForBootstrap(u64 log_slots, bool compact) const {
    require(parameter.has_bootstrap, message::noRotationsForBootstrap);
    const RadixDecomposition plan(log_slots);
    std::set<long> indices;
    for (u64 stage = 0; stage < plan.numStages; ++stage)
        compact ? insertSequential(plan, stage, indices) : insertBatched(plan, stage, indices);
    // The fold of a sparse message to full slots.
    for (u64 r = u64{1} << log_slots; r < parameter.num_slots; r *= 2) indices.insert(static_cast<long>(r));
    return indices;
}

} // namespace Torvo
