#include <Torvo/MatrixProduct.hpp>

#include "functions/MatrixProductImpl.hpp"

namespace Torvo {

namespace {

std::vector<unsigned long> listOf(const std::set<u64>& indices) {
    return {indices.begin(), indices.end()};
}

} // namespace

MatrixProduct::MatrixProduct(const Context& context, unsigned long dimension, unsigned long log_slots,
                             unsigned long level)
    : impl_(std::make_shared<const MatrixProductImpl>(context, dimension, TransformPlace{log_slots, level})) {
}

const Context& MatrixProduct::getContext() const {
    return impl_->getContext();
}

unsigned long MatrixProduct::getDimension() const {
    return impl_->getDimension();
}

unsigned long MatrixProduct::getLogSlots() const {
    return impl_->getPlace().log_slots;
}

unsigned long MatrixProduct::getLevel() const {
    return impl_->getPlace().level;
}

std::vector<unsigned long> MatrixProduct::getRotationIndices() const {
    return listOf(impl_->rotationIndices());
}

std::vector<unsigned long> MatrixProduct::getRotationIndices(const Context& context, unsigned long dimension,
                                                             unsigned long log_slots, unsigned long level) {
    return listOf(MatrixProductImpl::rotationIndices(context, dimension, {log_slots, level}));
}

void MatrixProduct::mult(const HomEvaluator& evaluator, const Ciphertext& a, const Ciphertext& b,
                         Ciphertext& out) const {
    out = impl_->mult(evaluator, a, b);
}

LinearTransform MatrixProduct::transposition(unsigned long dimension) {
    requireMatrixDimension(dimension);
    return LinearTransform::fromPermutation(MatrixPermutations(dimension).transposition());
}

} // namespace Torvo
