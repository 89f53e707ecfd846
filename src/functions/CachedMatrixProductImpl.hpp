#pragma once

#include "core/Integers.hpp"
#include "functions/CachedTransformImpl.hpp"

#include <memory>
#include <vector>

namespace Torvo {

/// The record behind a cached matrix product. Its transforms are described anew whenever they are planned or encoded:
/// all of them together have 2 d + 2 times as many entries as a matrix.
class CachedMatrixProductImpl {
public:
    using Transform = std::shared_ptr<const CachedTransformImpl>;

    /// Of one operand.
    struct Side {
        Transform shear;
        std::vector<Transform> shifts;
    };

    explicit CachedMatrixProductImpl(u64 dimension);

    u64 getDimension() const { return dimension_; }
    const Side& first() const { return first_; }
    const Side& second() const { return second_; }
    std::vector<Transform> all() const;

private:
    u64 dimension_;
    Side first_, second_;
};

} // namespace Torvo
