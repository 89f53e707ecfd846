#pragma once

#include "core/Integers.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "functions/LinearTransformImpl.hpp"
#include "functions/TransformPlan.hpp"

#include <Torvo/Context.hpp>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Torvo {

/// The record behind a cached transform. Thread-safe; no lock is held while something is made.
class CachedTransformImpl {
public:
    using Transform = std::shared_ptr<const LinearTransformImpl>;

    /// `makeTransform` gives the same transform whenever it is called.
    CachedTransformImpl(std::function<Transform()> makeTransform, u64 maxKeys);

    Transform transform() const { return makeTransform_(); }
    /// Tells this record from all others of the process.
    u64 id() const { return id_; }

    /// Its steps at every level.
    /// @throws RuntimeException as `CachedTransform::getRotationIndices`
    std::shared_ptr<const TransformPlan> plan(const Context& context, u64 log_slots) const;
    /// `factor` times the transform.
    /// @throws RuntimeException as `plan`; "[encode] Cannot encode the ..." for numbers that are too large for the level
    std::shared_ptr<const EncodedTransformImpl> encoded(const Context& context, const TransformPlace& place,
                                                        double factor) const;
    u64 encodedBytes() const;
    void clear() const;

private:
    struct KeptPlan {
        Context context;
        u64 log_slots;
        std::shared_ptr<const TransformPlan> plan;
    };
    struct KeptEncoding {
        double factor;
        std::shared_ptr<const EncodedTransformImpl> encoding;
    };

    std::function<Transform()> makeTransform_;
    u64 maxKeys_, id_;
    mutable std::mutex mutex_;
    mutable std::vector<KeptPlan> plans_;
    mutable std::vector<KeptEncoding> encodings_;
};

/// The indices of the rotation keys that any of these needs, in ascending order.
std::vector<u64> rotationIndicesOf(const std::vector<std::shared_ptr<const CachedTransformImpl>>& transforms,
                                   const Context& context, u64 log_slots);

} // namespace Torvo
