#include "functions/MessageOperations.hpp"

#include "core/Failure.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/CachedTransformImpl.hpp"
#include "functions/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <bit>

namespace Torvo {

Message repeated(const Message& message, u64 log_slots) {
    Message out(log_slots);
    for (u64 i = 0; i < out.getSize(); ++i) out[i] = message[i % message.getSize()];
    return out;
}

void requireSlots(const Message& message) {
    require(!message.isEmpty(), message::emptyMessage);
    if (!std::has_single_bit(message.getSize()))
        throw RuntimeException(message::slotsNotPowerOfTwo(message.getSize()));
}

void MessageOperations::requireOperand(const Message& x) const {
    requireSlots(x);
}

void MessageOperations::requireTransforms(const TransformTable& transforms, u64 log_slots) const {
    for (const auto& ofInput : transforms)
        for (const auto& transform : ofInput)
            if (const u64 size = transform->transform()->getSize(); size > u64{1} << log_slots)
                throw RuntimeException(message::blocksAboveSlots(size, log_slots));
}

void MessageOperations::readWithLogSlots(const Message& in, u64 log_slots, Message& out) const {
    out = repeated(in, log_slots);
}

void MessageOperations::add(const Message& a, const Message& b, Message& out) const {
    evaluator_->add(a, b, out);
}

void MessageOperations::sub(const Message& a, const Message& b, Message& out) const {
    evaluator_->sub(a, b, out);
}

void MessageOperations::add(const Message& in, std::complex<double> c, Message& out) const {
    evaluator_->add(in, c, out);
}

void MessageOperations::addSlots(const Message& in, const Message& numbers, Message& out) const {
    evaluator_->add(in, numbers, out);
}

void MessageOperations::negate(const Message& in, Message& out) const {
    evaluator_->negate(in, out);
}

void MessageOperations::multInteger(const Message& in, long n, Message& out) const {
    evaluator_->mult(in, std::complex<double>(static_cast<double>(n), 0), out);
}

void MessageOperations::multImagUnit(const Message& in, Message& out) const {
    evaluator_->multImagUnit(in, out);
}

void MessageOperations::multAtLevel(const Message& in, std::complex<double> c, u64 /*level*/,
                                    Message& out) const {
    evaluator_->mult(in, c, out);
}

void MessageOperations::multSlotsAtLevel(const Message& in, const Message& factors, u64 /*level*/,
                                         Message& out) const {
    evaluator_->mult(in, factors, out);
}

void MessageOperations::tensor(const Message& a, const Message& b, Message& out) const {
    evaluator_->mult(a, b, out);
}

void MessageOperations::leftRotate(const Message& in, u64 index, Message& out) const {
    evaluator_->leftRotate(in, index, out);
}

void MessageOperations::leftRotate(const Message& in, const std::vector<u64>& indices,
                                   std::vector<Message>& outs) const {
    std::vector<Message> rotated(indices.size());
    for (u64 k = 0; k < indices.size(); ++k) evaluator_->leftRotate(in, indices[k], rotated[k]);
    outs = std::move(rotated);
}

void MessageOperations::conjugate(const Message& in, Message& out) const {
    evaluator_->conjugate(in, out);
}

std::vector<Message> MessageOperations::transform(const std::vector<const Message*>& ins,
                                                  const TransformTable& transforms, u64 /*level*/,
                                                  double factor) const {
    std::vector<Message> outs(transforms.front().size());
    Message image;
    for (u64 i = 0; i < ins.size(); ++i)
        for (u64 r = 0; r < outs.size(); ++r) {
            transforms[i][r]->transform()->apply(*ins[i], image);
            if (i == 0)
                outs[r] = image;
            else
                add(outs[r], image, outs[r]);
        }
    for (Message& out : outs) multAtLevel(out, factor, 0, out);
    return outs;
}

} // namespace Torvo
