#include "context/ContextContent.hpp"
#include "encoding/EncodingBound.hpp"
#include "functions/CachedTransformImpl.hpp"
#include "functions/PlanOperations.hpp"
#include "functions/PlannedCiphertextImpl.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

using Step = PlanImpl::Step;

/// `sum` += the product with numbers that repeat.
void addProduct(Message& sum, const Message& numbers, const Message& slots) {
    for (u64 i = 0; i < sum.getSize(); ++i) sum[i] += numbers[i % numbers.getSize()] * slots[i];
}

Message leftRotated(const Message& message, u64 index) {
    Message out = message;
    std::rotate(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(index), out.end());
    return out;
}

/// The transforms of one planned ciphertext by their baby and giant steps, as ciphertexts take them.
class PlannedSteps {
public:
    PlannedSteps(PlanImpl& plan, const PlannedCiphertext& in, double factor)
        : plan_(plan), in_(in), level_(in.getLevel()),
          factor_(factor * productCorrection(plan.getContext(), level_)), given_(factor) {}

    /// Adds a transform to a result that owes one rescale.
    void add(const CachedTransformImpl& cached, PlannedCiphertextImpl& sum) {
        const Context& context = plan_.getContext();
        const auto transform = cached.transform();
        const auto plan = cached.plan(context, in_.getLogSlots());
        const TransformSteps& steps = plan->getSteps();
        plan_.countEncoding(cached.id(), {in_.getLogSlots(), level_}, given_,
                            EncodedTransformImpl::byteCount(context, plan->getMasks().size(), level_));
        std::map<u64, Message> giants;
        for (const TransformMask& mask : plan->getMasks()) {
            const u64 giant = steps.giant(mask.rotation);
            const auto found = giants.try_emplace(giant, in_.getLogSlots(), 0.0).first;
            addProduct(found->second, encoded(transform->numbers(mask, giant)),
                       baby(steps.baby(mask.rotation)));
            plan_.count(Step::DiagonalProduct, level_);
        }
        const double scale = std::exp2(context->scale_factors.log_scale[level_]);
        for (auto& [giant, slots] : giants) {
            Message image = leftRotated(slots, giant);
            if (giant != 0) {
                plan_.countRotation(Step::GiantStep, giant, level_);
                // Of data of the square of the scale.
                plan_.disturb(image, plan_.noise().keySwitch(level_, image.getSize()) / (scale * scale));
            }
            for (u64 i = 0; i < image.getSize(); ++i) sum.noisy[i] += image[i];
        }
        Message exact;
        transform->apply(in_.getMessage(), exact);
        for (u64 i = 0; i < exact.getSize(); ++i) sum.exact[i] += factor_ * exact[i];
    }

private:
    /// The rotation to the left by `index`, which all transforms share.
    const Message& baby(u64 index) {
        const auto [found, isNew] = babies_.try_emplace(index);
        if (isNew) {
            found->second = leftRotated(in_.getNoisyMessage(), index);
            if (index != 0) {
                if (!std::exchange(isDecomposed_, true)) plan_.count(Step::Decompose, level_);
                plan_.countRotation(Step::BabyStep, index, level_);
                plan_.disturb(found->second,
                              plan_.noise().undividedKeySwitch(level_, in_.getMessage().getSize()));
            }
        }
        return found->second;
    }

    /// One period of a diagonal with its errors. Coefficients exceed no slot, so where half of the bound holds the slots
    /// nothing has to be encoded to know that it can be.
    Message encoded(Message numbers) {
        double largest = 0;
        for (auto& slot : numbers) {
            slot *= factor_;
            largest = std::max(largest, std::abs(slot));
        }
        const Context& context = plan_.getContext();
        if (!EncodingBound(context->primes, context->scale_factors, level_, 0).holds(2 * largest))
            plan_.requireEncodable(numbers, level_);
        plan_.disturb(numbers, plan_.noise().encoding(level_, numbers.getSize()));
        return numbers;
    }

    PlanImpl& plan_;
    const PlannedCiphertext& in_;
    u64 level_;
    double factor_, given_;
    std::map<u64, Message> babies_;
    bool isDecomposed_ = false;
};

} // namespace

void PlanOperations::requireTransforms(const TransformTable& transforms, u64 log_slots) const {
    for (const auto& ofInput : transforms)
        for (const auto& transform : ofInput) transform->plan(plan_->getContext(), log_slots);
}

std::vector<PlannedCiphertext> PlanOperations::transform(const std::vector<const PlannedCiphertext*>& ins,
                                                         const TransformTable& transforms, u64 level,
                                                         double factor) const {
    const Message zero(ins.front()->getLogSlots(), 0.0);
    std::vector<PlannedCiphertext> outs(transforms.front().size(),
                                        PlannedCiphertext(PlannedCiphertextImpl{level, 1, 2, zero, zero}));
    for (u64 i = 0; i < ins.size(); ++i) {
        PlannedCiphertext lowered;
        levelDown(*ins[i], level, lowered);
        PlannedSteps steps(*plan_, lowered, factor);
        for (u64 r = 0; r < outs.size(); ++r) steps.add(*transforms[i][r], outs[r].impl());
    }
    for (PlannedCiphertext& out : outs) {
        plan_->count(Step::Divide, level);
        rescale(out);
    }
    return outs;
}

} // namespace Torvo
