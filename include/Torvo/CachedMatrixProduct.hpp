#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>

#include <memory>
#include <vector>

namespace Torvo {

class CachedMatrixProductImpl;

/// The product of encrypted matrices for functions (`multiplyMatrices`), which choose the level: as `MatrixProduct`,
/// with transforms that are encoded when they are first applied at a level, and kept, as `CachedTransform` does. One set
/// of rotation keys serves every level.
///
/// Copies share what was encoded. Thread-safe, as `CachedTransform` is.
class TORVO_API CachedMatrixProduct {
public:
    /// Nothing is encoded yet.
    /// @throws RuntimeException "[MatrixProduct] ", for a dimension that is no power of two or above 512
    CachedMatrixProduct(unsigned long dimension);

    /// Rows and columns of a matrix.
    unsigned long getDimension() const;
    /// The indices of the left rotation keys that it needs on 2^log_slots slots at any level, in ascending order.
    /// @throws RuntimeException as `CachedTransform::getRotationIndices`
    std::vector<unsigned long> getRotationIndices(const Context& context, unsigned long log_slots) const;
    /// The bytes of all that was encoded.
    unsigned long getEncodedBytes() const;
    /// Gives up what was encoded, for all copies. Calls that use it go on with what they have.
    void clear();

    /// @cond inner
    const CachedMatrixProductImpl& impl() const { return *impl_; }
    /// @endcond

private:
    std::shared_ptr<const CachedMatrixProductImpl> impl_;
};

} // namespace Torvo
