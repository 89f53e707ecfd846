#include <Torvo/CachedTransform.hpp>

#include "functions/CachedTransformImpl.hpp"

namespace Torvo {

CachedTransform::CachedTransform(const LinearTransform& transform, const TransformOptions& options)
    : impl_(std::make_shared<const CachedTransformImpl>(
          [kept = std::make_shared<const LinearTransformImpl>(*transform.impl_)] { return kept; },
          options.maxKeys)) {}

unsigned long CachedTransform::getSize() const {
    return impl_->transform()->getSize();
}

std::vector<unsigned long> CachedTransform::getRotationIndices(const Context& context,
                                                               unsigned long log_slots) const {
    return impl_->plan(context, log_slots)->rotationIndices();
}

unsigned long CachedTransform::getEncodedBytes() const {
    return impl_->encodedBytes();
}

void CachedTransform::clear() {
    impl_->clear();
}

} // namespace Torvo
