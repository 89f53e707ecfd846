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

/// The split of the rotations of a transform into baby and giant steps: with b = `babySteps`, a power of two,
/// rotation r is one by r mod b, and then one by the rest, a multiple of b.
class TransformPlan {
public:
    /// The cheapest split with `maxKeys` keys at most.
    /// @throws RuntimeException as the constructor of `EncodedTransform`, except for numbers out of range
    TransformPlan(const Context& context, const LinearTransformImpl& transform, const TransformPlace& place,
                  u64 maxKeys);

    u64 getBabySteps() const { return babySteps_; }
    /// By ascending rotation.
    const std::vector<TransformMask>& getMasks() const { return masks_; }
    /// Those of the keys, in ascending order.
    std::vector<u64> rotationIndices() const;

private:
    std::vector<TransformMask> masks_;
    u64 babySteps_ = 1;
};

/// By what one factor is to be multiplied so that a product at `level`, rescaled, has the scale of the level below: a
/// power of two, and 1 at most levels.
double productCorrection(const Context& context, u64 level);

/// The indices of the keys for `rotations` with that many baby steps, in ascending order.
std::vector<u64> keyIndices(const std::vector<u64>& rotations, u64 babySteps);

} // namespace Torvo
