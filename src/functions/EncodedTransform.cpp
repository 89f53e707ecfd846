#include <Torvo/EncodedTransform.hpp>

#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/AnalysisGuards.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

EncodedTransform::EncodedTransform(const Context& context)
    : impl_(std::make_shared<const EncodedTransformImpl>(context)) {}

EncodedTransform::EncodedTransform(const Context& context, const LinearTransform& transform,
                                   unsigned long log_slots, unsigned long level,
                                   const TransformOptions& options)
    : impl_(std::make_shared<const EncodedTransformImpl>(context, *transform.impl_,
                                                         TransformPlace{log_slots, level}, options.maxKeys)) {
}

const Context& EncodedTransform::getContext() const {
    return impl_->getContext();
}

bool EncodedTransform::isEmpty() const {
    return impl_->isEmpty();
}

unsigned long EncodedTransform::getLogSlots() const {
    return impl_->getPlace().log_slots;
}

unsigned long EncodedTransform::getLevel() const {
    return impl_->getPlace().level;
}

std::vector<unsigned long> EncodedTransform::getRotationIndices() const {
    return impl_->rotationIndices();
}

void EncodedTransform::apply(const HomEvaluator& evaluator, const Ciphertext& in, Ciphertext& out) const {
    const EncodedTransformImpl* transform = impl_.get();
    out = std::move(applyTransforms(*evaluator.getImpl(), in, std::span(&transform, 1)).front());
}

void EncodedTransform::apply(const HomEvaluator& evaluator, const Ciphertext& in,
                             const std::vector<EncodedTransform>& transforms, std::vector<Ciphertext>& outs) {
    std::vector<const EncodedTransformImpl*> impls;
    impls.reserve(transforms.size());
    for (const EncodedTransform& transform : transforms) impls.push_back(transform.impl_.get());
    outs = applyTransforms(*evaluator.getImpl(), in, impls);
}

void EncodedTransform::applySum(const HomEvaluator& evaluator, const std::vector<Ciphertext>& ins,
                                const std::vector<EncodedTransform>& transforms, Ciphertext& out) {
    requirePairs("applySum", ins.size(), transforms.size());
    std::vector<TransformedInput> inputs;
    for (u64 k = 0; k < ins.size(); ++k) inputs.push_back({&ins[k], {transforms[k].impl_.get()}});
    out = std::move(sumTransforms(*evaluator.getImpl(), inputs).front());
}

void EncodedTransform::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void EncodedTransform::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long EncodedTransform::savedSize() const {
    return detail::savedSize(*this);
}

namespace {

template <class Source>
std::shared_ptr<const EncodedTransformImpl> loaded(const Context& context, Source& source) {
    const auto impl = std::make_shared<EncodedTransformImpl>(context);
    Serialize::load(source, *impl);
    return impl;
}

} // namespace

void EncodedTransform::load(const std::string& path) {
    impl_ = loaded(impl_->getContext(), path);
}

void EncodedTransform::load(std::istream& stream) {
    impl_ = loaded(impl_->getContext(), stream);
}

} // namespace Torvo
