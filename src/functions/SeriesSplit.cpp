#include "functions/SeriesSplit.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace Torvo {

namespace {

/// The level at which power `index` is first there, below that of the argument.
u64 depthOfPower(u64 index) {
    return static_cast<u64>(std::bit_width(index - 1));
}

/// Less than what a relinearisation takes, so that neither count is far from its least.
u64 weightOf(const SeriesSplit::Cost& cost) {
    return 2 * cost.relinearizations + cost.tensors;
}

} // namespace

u64 seriesDepth(u64 degree) {
    return static_cast<u64>(std::bit_width(degree));
}

SeriesSplit::SeriesSplit(const std::vector<u64>& degrees, Terms terms)
    : terms_(terms), largest_(*std::ranges::max_element(degrees)),
      parts_((largest_ + 1) * (seriesDepth(largest_) + 1)) {
    // About as many powers as parts, where there is one polynomial. Beyond these bounds no degree has its least.
    const double even = std::sqrt(static_cast<double>(largest_ * degrees.size()));
    const u64 step = terms == Terms::Odd ? 2 : 1;
    const u64 most = std::min(largest_, static_cast<u64>(1.5 * even) + 3);
    const u64 least = std::min(static_cast<u64>(even / 2), most) | 1;
    u64 best = std::numeric_limits<u64>::max();
    std::array<u64, 3> choice{1, 1, 1};
    for (u64 small = least; small <= most; small += step)
        for (const u64 doubled : std::set<u64>{small, std::bit_floor(small)})
            for (u64 large = doubled; large <= largest_; large *= 2) {
                makePowers(small, doubled, large);
                if (leastWeight(degrees) >= best || !evaluateAll(degrees) || weightOf(cost_) >= best)
                    continue;
                best = weightOf(cost_);
                choice = {small, doubled, large};
            }
    makePowers(choice[0], choice[1], choice[2]);
    evaluateAll(degrees);
}

void SeriesSplit::makePowers(u64 small, u64 doubled, u64 large) {
    small_ = small;
    powers_.clear();
    indices_.clear();
    ++round_;
    const auto make = [this](u64 index, u64 first) { powers_.push_back({index, first, index - first}); };
    for (u64 index = 2; index <= small; ++index)
        if (terms_ == Terms::All || index % 2 == 1 || std::has_single_bit(index))
            make(index, std::has_single_bit(index) ? index / 2 : std::bit_floor(index));
    if (terms_ == Terms::All) indices_.push_back(1);
    for (const Power& power : powers_)
        if (std::has_single_bit(power.index)) indices_.push_back(power.index);
    // An odd power times an odd part is even.
    if (terms_ == Terms::All && !std::has_single_bit(doubled)) indices_.push_back(doubled);
    for (u64 index = 2 * doubled; index <= large; index *= 2) {
        make(index, index / 2);
        indices_.push_back(index);
    }
    const auto made = static_cast<unsigned>(powers_.size());
    cost_ = {made, made};
}

/// Each polynomial has a sum of powers for every `small_` + 1 of its terms, and a product for each sum but one.
u64 SeriesSplit::leastWeight(const std::vector<u64>& degrees) const {
    u64 weight = weightOf(cost_);
    for (const u64 degree : degrees) weight += (degree + small_ + 1) / (small_ + 1) - 1;
    return weight;
}

bool SeriesSplit::evaluateAll(const std::vector<u64>& degrees) {
    return std::ranges::all_of(degrees, [this](u64 degree) {
        const Part& whole = part(degree, seriesDepth(degree));
        cost_.tensors += whole.cost.tensors;
        cost_.relinearizations += whole.cost.relinearizations + (whole.isProduct ? 1 : 0);
        return whole.isPossible;
    });
}

bool SeriesSplit::isSumOfPowers(u64 degree, u64 depth) const {
    if (degree == 0) return true;
    return degree <= small_ && depthOfPower(degree) + 1 <= depth;
}

const SeriesSplit::Part& SeriesSplit::part(u64 degree, u64 depth) const {
    Part& known = parts_[depth * (largest_ + 1) + degree];
    if (known.round != round_) {
        known = bestPart(degree, depth);
        known.round = round_;
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
        divided.divisor = static_cast<unsigned>(m);
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
