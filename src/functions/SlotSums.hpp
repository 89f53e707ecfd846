#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"

#include <string>
#include <vector>

namespace Torvo {

/// Sums over blocks of slots, which stand in every slot of their block.
///
/// Rotations to the left by 1, 2, 4, ... add up the slots behind a slot, cyclically: if the block is all slots, that is
/// the sum in every slot. Otherwise it is so in the first slot of a block only; a product with a mask leaves that slot,
/// and rotations to the right by 1, 2, 4, ... fill the block again. The mask takes a factor with it.
template <class Value>
class SlotSums {
public:
    /// Of blocks of `length` slots, 0 for one of all, of values of 2^log_slots slots. Keeps a reference.
    /// @throws RuntimeException function, " is given blocks of ", ...
    SlotSums(const Operations<Value>& operations, const std::string& function, u64 length, u64 log_slots);

    u64 length() const { return length_; }
    /// What `sum` with this factor spends.
    u64 levels(double factor) const { return needsMask() || factor != 1 ? 1 : 0; }
    /// The steps to the left by which `sum` rotates.
    std::vector<u64> rotations() const;
    /// factor times the sum.
    void sum(Value& in_out, double factor = 1) const;

private:
    bool needsMask() const { return length_ > 1 && length_ < slots_; }
    /// 1, 2, 4, ... below the length, to the left or to the right.
    std::vector<u64> steps(bool toTheLeft) const;
    void addRotations(Value& in_out, bool toTheLeft) const;

    const Operations<Value>& operations_;
    u64 slots_, length_;
};

} // namespace Torvo
