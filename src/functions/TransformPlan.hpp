#pragma once

#include "core/Integers.hpp"
#include "functions/LinearTransformImpl.hpp"

#include <Torvo/Context.hpp>

#include <vector>

namespace Torvo {

/// The ciphertexts that a transform is for.
struct TransformPlace {
    u64 log_slots;
    u64 level;
};

/// A split of rotations into baby and giant steps. Modulo the slots, a power of two, every rotation is a multiple
/// q * stride, the stride being odd. It is a baby step by (q mod babySteps) * stride, and then a giant step by the rest.
/// `babySteps` is a power of two.
struct TransformSteps {
    u64 slots = 1;
    u64 stride = 1;
    u64 babySteps = 1;

    u64 baby(u64 rotation) const { return (multiple(rotation) & (babySteps - 1)) * stride & (slots - 1); }
    u64 giant(u64 rotation) const { return (rotation - baby(rotation)) & (slots - 1); }

private:
    u64 multiple(u64 rotation) const;
};

/// The steps by which the rotations of a transform are made.
class TransformPlan {
public:
    /// The cheapest split with `maxKeys` keys at most.
    /// @throws RuntimeException as the constructor of `EncodedTransform`, except for numbers out of range
    TransformPlan(const Context& context, const LinearTransformImpl& transform, const TransformPlace& place,
                  u64 maxKeys);

    const TransformSteps& getSteps() const { return steps_; }
    /// By ascending rotation.
    const std::vector<TransformMask>& getMasks() const { return masks_; }
    /// Those of the keys, in ascending order.
    std::vector<u64> rotationIndices() const;

private:
    std::vector<TransformMask> masks_;
    TransformSteps steps_;
};

/// By what one factor is to be multiplied so that a product at `level`, rescaled, has the scale of the level below: a
/// power of two, and 1 at most levels.
double productCorrection(const Context& context, u64 level);

/// The indices of the keys for `rotations` by these steps, in ascending order.
std::vector<u64> keyIndices(const std::vector<u64>& rotations, const TransformSteps& steps);

} // namespace Torvo
