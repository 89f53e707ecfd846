#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/LinearTransform.hpp>

#include <memory>
#include <vector>

namespace Torvo {

class CachedTransformImpl;

/// A linear transform for functions (`applyTransform`), which choose the level: it is encoded for a ring, a number of
/// slots and a level when it is first applied there, and keeps what was encoded. A function that is given a
/// `LinearTransform` instead encodes it for this one call.
///
/// Its baby and giant steps are those that cost least at the encryption level, whatever the level of the ciphertext. So
/// one set of rotation keys serves every level, also where bootstraps decide on it. `EncodedTransform` takes the steps
/// of its own level, and may need other keys.
///
/// Copies share what was encoded. Thread-safe: where two threads miss the same encoding, both make it, and one is kept.
class TORVO_API CachedTransform {
public:
    /// Nothing is encoded yet.
    CachedTransform(const LinearTransform& transform, const TransformOptions& options = {});

    /// Rows and columns of the matrix.
    unsigned long getSize() const;
    /// The indices of the left rotation keys that it needs on 2^log_slots slots at any level, in ascending order.
    /// @throws RuntimeException "The context is null. Make one with makeContext."; with a text that begins with
    ///         "[LinearTransform] ", in this order: for more slots than the ring has; fewer slots than the transform
    ///         maps; a ring without a level to spend; fewer keys than any split into steps needs
    std::vector<unsigned long> getRotationIndices(const Context& context, unsigned long log_slots) const;
    /// The bytes of all that was encoded: for each ring, number of slots and level those that `EncodedTransform` tells.
    /// `PlanReport::constantBytes` says beforehand what functions will keep.
    unsigned long getEncodedBytes() const;
    /// Gives up what was encoded, for all copies. Calls that use it go on with what they have.
    void clear();

    /// @cond inner
    const std::shared_ptr<const CachedTransformImpl>& getImpl() const { return impl_; }
    /// @endcond

private:
    std::shared_ptr<const CachedTransformImpl> impl_;
};

} // namespace Torvo
