#include <Torvo/CachedMatrixProduct.hpp>

#include "functions/CachedMatrixProductImpl.hpp"
#include "functions/MatrixProductImpl.hpp"

#include <Torvo/LinearTransform.hpp>

namespace Torvo {

namespace {

using Transform = CachedMatrixProductImpl::Transform;

template <class SourcesOf>
Transform permutation(u64 dimension, SourcesOf sourcesOf) {
    const auto make = [=] {
        return std::make_shared<const LinearTransformImpl>(
            LinearTransformImpl::permutation(sourcesOf(MatrixPermutations(dimension)), 1.0));
    };
    return std::make_shared<const CachedTransformImpl>(make, TransformOptions().maxKeys);
}

} // namespace

CachedMatrixProductImpl::CachedMatrixProductImpl(u64 dimension) : dimension_(dimension) {
    requireMatrixDimension(dimension);
    using Permutations = MatrixPermutations;
    first_.shear = permutation(dimension, [](const Permutations& p) { return p.shearOfFirst(); });
    second_.shear = permutation(dimension, [](const Permutations& p) { return p.shearOfSecond(); });
    for (u64 k = 0; k < dimension; ++k) {
        first_.shifts.push_back(
            permutation(dimension, [k](const Permutations& p) { return p.shiftOfFirst(k); }));
        second_.shifts.push_back(
            permutation(dimension, [k](const Permutations& p) { return p.shiftOfSecond(k); }));
    }
}

std::vector<Transform> CachedMatrixProductImpl::all() const {
    std::vector<Transform> transforms;
    for (const Side* side : {&first_, &second_}) {
        transforms.push_back(side->shear);
        transforms.insert(transforms.end(), side->shifts.begin(), side->shifts.end());
    }
    return transforms;
}

CachedMatrixProduct::CachedMatrixProduct(unsigned long dimension)
    : impl_(std::make_shared<const CachedMatrixProductImpl>(dimension)) {}

unsigned long CachedMatrixProduct::getDimension() const {
    return impl_->getDimension();
}

std::vector<unsigned long> CachedMatrixProduct::getRotationIndices(const Context& context,
                                                                   unsigned long log_slots) const {
    return rotationIndicesOf(impl_->all(), context, log_slots);
}

unsigned long CachedMatrixProduct::getEncodedBytes() const {
    u64 bytes = 0;
    for (const Transform& transform : impl_->all()) bytes += transform->encodedBytes();
    return bytes;
}

void CachedMatrixProduct::clear() {
    for (const Transform& transform : impl_->all()) transform->clear();
}

} // namespace Torvo
