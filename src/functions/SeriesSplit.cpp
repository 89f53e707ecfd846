#include "functions/SeriesSplit.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

namespace Torvo {

namespace {

/// The level at which power `index` is first there, below that of the argument.
u64 depthOfPower(u64 index) {
    return static_cast<u64>(std::bit_width(index - 1));
}

/// A relinearisation takes some four times as long as a tensor product, and more in shorter digits.
u64 weightOf(const SeriesSplit::Cost& cost) {
    return 4 * cost.relinearizations + cost.tensors;
}

} // namespace

u64 seriesDepth(u64 degree) {
    return static_cast<u64>(std::bit_width(degree));
}

SeriesSplit::SeriesSplit(const std::vector<u64>& degrees, Terms terms)
    : terms_(terms), largest_(*std::ranges::max_element(degrees)),
      parts_((largest_ + 1) * (seriesDepth(largest_) + 1)) {
    const u64 step = terms == Terms::Odd ? 2 : 1;
    // Beyond this many, a further power costs more than it saves.
    const u64 most = std::min(
        largest_, static_cast<u64>(std::sqrt(static_cast<double>(2 * largest_ * degrees.size()))) + 3);
    u64 best = std::numeric_limits<u64>::max(), bestSmall = 1, bestLarge = 1;
    for (u64 small = 1; small <= most; small += step) {
        for (u64 large = std::bit_floor(small); large <= largest_; large *= 2) {
            makePowers(small, large);
            if (weightOf(cost_) >= best || !evaluateAll(degrees) || weightOf(cost_) >= best) continue;
            best = weightOf(cost_);
            bestSmall = small;
            bestLarge = large;
        }
    }
    makePowers(bestSmall, bestLarge);
    evaluateAll(degrees);
}

void SeriesSplit::makePowers(u64 small, u64 large) {
    small_ = small;
    powers_.clear();
    indices_.clear();
    std::ranges::fill(parts_, Part{});
    const auto make = [this](u64 index, u64 first) { powers_.push_back({index, first, index - first}); };
    for (u64 index = 2; index <= small; ++index)
        if (terms_ == Terms::All || index % 2 == 1 || std::has_single_bit(index))
            make(index, std::has_single_bit(index) ? index / 2 : std::bit_floor(index));
    for (u64 index = 2 * std::bit_floor(small); index <= large; index *= 2) make(index, index / 2);
    for (const Power& power : powers_)
        if (std::has_single_bit(power.index)) indices_.push_back(power.index);
    if (terms_ == Terms::All) indices_.push_back(1);
    const auto made = static_cast<unsigned>(powers_.size());
    cost_ = {made, made};
}

bool SeriesSplit::evaluateAll(const std::vector<u64>& degrees) {
    for (const u64 degree : degrees) {
        const Part& whole = part(degree, seriesDepth(degree));
        if (!whole.isPossible) return false;
        cost_.tensors += whole.cost.tensors;
        cost_.relinearizations += whole.cost.relinearizations + (whole.isProduct ? 1 : 0);
    }
    return true;
}

bool SeriesSplit::isSumOfPowers(u64 degree, u64 depth) const {
    if (degree == 0) return true;
    return degree <= small_ && depthOfPower(degree) + 1 <= depth;
}

const SeriesSplit::Part& SeriesSplit::part(u64 degree, u64 depth) const {
    Part& known = parts_[depth * (largest_ + 1) + degree];
    if (!known.isKnown) {
        known = bestPart(degree, depth);
        known.isKnown = true;
    }
    return known;
}

SeriesSplit::Part SeriesSplit::bestPart(u64 degree, u64 depth) const {
    Part best;
    if (isSumOfPowers(degree, depth)) {
        best.isPossible = true;
        return best;
    }
    for (const u64 m : indices_) {
        if (m > degree || depthOfPower(m) + 1 > depth) continue;
        Part divided = part(remainderDegree(m), depth);
        if (!divided.isPossible) continue;
        divided.divisor = m;
        if (m < degree) {
            const Part& quotient = part(degree - m, depth - 1);
            if (!quotient.isPossible) continue;
            divided.isProduct = true;
            divided.cost.tensors += quotient.cost.tensors + 1;
            divided.cost.relinearizations += quotient.cost.relinearizations + (quotient.isProduct ? 1 : 0);
        }
        if (!best.isPossible || weightOf(divided.cost) < weightOf(best.cost)) best = divided;
    }
    return best;
}

u64 SeriesSplit::divisor(u64 degree, u64 depth) const {
    return part(degree, depth).divisor;
}

} // namespace Torvo
