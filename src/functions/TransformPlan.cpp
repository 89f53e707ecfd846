#include "functions/TransformPlan.hpp"

#include "context/ContextContent.hpp"
#include "core/RequireContext.hpp"
#include "functions/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <set>

namespace Torvo {

namespace {

void requirePlace(const Parameter& parameter, const LinearTransformImpl& transform,
                  const TransformPlace& place) {
    const u64 most = parameter.log_degree - 1;
    if (place.log_slots > most) throw RuntimeException(message::transformSlots(place.log_slots, most));
    if (transform.getSize() > u64{1} << place.log_slots)
        throw RuntimeException(message::blocksAboveSlots(transform.getSize(), place.log_slots));
    if (place.level == 0 || place.level >= parameter.chain_length)
        throw RuntimeException(
            message::transformLevel(place.level, parameter.name, parameter.chain_length - 1));
}

struct Indices {
    std::set<u64> babies, giants; ///< those of index 0 too
};

Indices indicesOf(const std::vector<u64>& rotations, const TransformSteps& steps) {
    Indices indices;
    for (const u64 r : rotations) {
        indices.babies.insert(steps.baby(r));
        indices.giants.insert(steps.giant(r));
    }
    return indices;
}

/// Where rotations are multiples of one number, only steps of that stride are shared: its even part makes no
/// difference to the split. It is looked for among the first rotations.
std::set<u64> stridesFor(const std::vector<u64>& rotations) {
    constexpr u64 most = 16;
    std::set<u64> strides{1};
    for (u64 k = 0; k < std::min<u64>(rotations.size(), most); ++k)
        if (rotations[k] != 0) strides.insert(rotations[k] >> std::countr_zero(rotations[k]));
    return strides;
}

/// The work of one step, in transforms of a row. The weights were measured on `ST11` and `FGb` at levels 2 to 12,
/// where a giant step took 2.7 to 3.3 times what a baby step did.
class StepCosts {
public:
    StepCosts(const Parameter& parameter, u64 level) {
        const auto temporary = static_cast<double>(parameter.numTP), live = static_cast<double>(level + 1);
        const u64 group = parameter.chain_length / parameter.gadget_rank;
        const u64 liveDigits = level / group + 1;
        const auto digits = static_cast<double>(liveDigits);
        const double digitRows = digits * (live + temporary);
        baby_ = digitRows * (product + move) + live * (move + addition);
        // Divided by the temporary primes, back to coefficients, raised.
        giant_ = temporary + live + digitRows * (1 + conversion * static_cast<double>(group) + product);
    }
    double of(const Indices& indices) const {
        return baby_ * without0(indices.babies) + giant_ * without0(indices.giants);
    }

private:
    static double without0(const std::set<u64>& indices) {
        return static_cast<double>(indices.size() - indices.count(0));
    }

    static constexpr double product = 0.55; ///< with both rows of a key, which come from memory
    static constexpr double move = 0.2;     ///< under an automorphism
    static constexpr double addition = 0.15;
    static constexpr double conversion = 0.2; ///< of a digit to a row, for each of its primes
    double baby_, giant_;
};

} // namespace

double productCorrection(const Context& context, u64 level) {
    return std::ldexp(1.0, static_cast<int>(context->scale_factors.level_correction.at(level)));
}

/// By the inverse of the stride modulo 2^64: each step of Newton's doubles the bits that are right, of which an odd
/// number as its own inverse has three.
u64 TransformSteps::multiple(u64 rotation) const {
    u64 inverse = stride;
    for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - stride * inverse;
    return rotation * inverse & (slots - 1);
}

std::vector<u64> keyIndices(const std::vector<u64>& rotations, const TransformSteps& steps) {
    Indices indices = indicesOf(rotations, steps);
    indices.babies.merge(indices.giants);
    indices.babies.erase(0);
    return {indices.babies.begin(), indices.babies.end()};
}

TransformPlan::TransformPlan(const Context& context, const LinearTransformImpl& transform,
                             const TransformPlace& place, u64 maxKeys) {
    const Parameter& parameter = requireContext(context)->parameter;
    requirePlace(parameter, transform, place);
    const u64 slots = u64{1} << place.log_slots;
    masks_ = transform.masks(slots);
    std::vector<u64> rotations;
    rotations.reserve(masks_.size());
    for (const TransformMask& mask : masks_) rotations.push_back(mask.rotation);

    const StepCosts costs(parameter, place.level);
    double least = std::numeric_limits<double>::infinity();
    u64 fewest = ~u64{0};
    for (const u64 stride : stridesFor(rotations)) {
        for (u64 babySteps = 1; babySteps <= slots; babySteps *= 2) {
            const TransformSteps steps{slots, stride, babySteps};
            const u64 keys = keyIndices(rotations, steps).size();
            fewest = std::min(fewest, keys);
            const double cost = costs.of(indicesOf(rotations, steps));
            if (keys > maxKeys || cost >= least) continue;
            least = cost;
            steps_ = steps;
        }
    }
    if (fewest > maxKeys) throw RuntimeException(message::tooFewKeys(maxKeys, rotations.size(), fewest));
}

std::vector<u64> TransformPlan::rotationIndices() const {
    std::vector<u64> rotations;
    rotations.reserve(masks_.size());
    for (const TransformMask& mask : masks_) rotations.push_back(mask.rotation);
    return keyIndices(rotations, steps_);
}

} // namespace Torvo
