#include "functions/SlotSums.hpp"

#include "functions/Messages.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plan.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <iterator>

namespace Torvo {

template <class Value>
SlotSums<Value>::SlotSums(const Operations<Value>& operations, const std::string& function, u64 length,
                          u64 log_slots)
    : operations_(operations), slots_(u64{1} << log_slots), length_(length == 0 ? slots_ : length) {
    if (!std::has_single_bit(length_) || length_ > slots_)
        throw RuntimeException(message::blocksGiven(function, length, slots_));
}

template <class Value>
std::vector<u64> SlotSums<Value>::steps(bool toTheLeft) const {
    std::vector<u64> steps;
    for (u64 step = 1; step < length_; step *= 2) steps.push_back(toTheLeft ? step : slots_ - step);
    return steps;
}

template <class Value>
std::vector<u64> SlotSums<Value>::rotations() const {
    std::vector<u64> all = steps(true);
    if (needsMask()) std::ranges::copy(steps(false), std::back_inserter(all));
    return all;
}

template <class Value>
void SlotSums<Value>::addRotations(Value& in_out, bool toTheLeft) const {
    Value rotated = operations_.unset();
    for (const u64 step : steps(toTheLeft)) {
        operations_.leftRotate(in_out, step, rotated);
        operations_.add(in_out, rotated, in_out);
    }
}

template <class Value>
void SlotSums<Value>::sum(Value& in_out, double factor) const {
    addRotations(in_out, true);
    if (needsMask()) {
        Message mask(operations_.logSlots(in_out));
        for (u64 i = 0; i < slots_; i += length_) mask[i] = factor;
        operations_.multSlots(in_out, mask, in_out);
        addRotations(in_out, false);
    } else if (factor != 1) {
        operations_.mult(in_out, factor, in_out);
    }
}

template class SlotSums<Ciphertext>;
template class SlotSums<Message>;
template class SlotSums<PlannedCiphertext>;

} // namespace Torvo
