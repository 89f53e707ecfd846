#pragma once

#include "functions/Operations.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Torvo {

/// The slots over and over, up to 2^log_slots; or the first ones.
Message repeated(const Message& message, u64 log_slots);

/// Refuses a message without slots, and one whose slots are no power of two: it would be taken for a shorter one.
/// @throws RuntimeException "The message has no slots. ..."; "The message has 6 slots, but ..."
void requireSlots(const Message& message);

/// In the clear, in double precision: the operations of a function in the order in which they run on ciphertexts.
/// Messages have no levels, so these never run out.
class MessageOperations : public Operations<Message> {
public:
    explicit MessageOperations(const HomEvaluator& evaluator) : evaluator_(evaluator.getImpl()) {}

    Message unset() const override { return Message(); }
    u64 level(const Message&) const override { return anyLevel; }
    u64 logSlots(const Message& x) const override { return x.getLogSlots(); }
    double scaleRatio(u64, u64) const override { return 1; }
    double rescaleGain(u64) const override { return 1; }
    SlotNoise noise(u64, u64, u64) const override { return {}; }
    u64 mostLogSlots() const override { return mostLogSlotsInTheClear; }
    void readWithLogSlots(const Message& in, u64 log_slots, Message& out) const override;

    void requireOperand(const Message& x) const override;
    void requireRotations(const std::vector<u64>&) const override {}
    void requireTransforms(const TransformTable& transforms, u64 log_slots) const override;
    void requireMultiplicationKey() const override {}
    void prepare(const std::string&, u64, Range, std::vector<Message*>) const override {}

    void add(const Message& a, const Message& b, Message& out) const override;
    void sub(const Message& a, const Message& b, Message& out) const override;
    void add(const Message& in, std::complex<double> c, Message& out) const override;
    void addSlots(const Message& in, const Message& numbers, Message& out) const override;
    void negate(const Message& in, Message& out) const override;

    void multInteger(const Message& in, long n, Message& out) const override;
    void multImagUnit(const Message& in, Message& out) const override;
    void multAtLevel(const Message& in, std::complex<double> c, u64 level, Message& out) const override;
    void multSlotsAtLevel(const Message& in, const Message& factors, u64 level, Message& out) const override;
    void tensor(const Message& a, const Message& b, Message& out) const override;
    void relinearize(Message&) const override {}
    void rescale(Message&) const override {}
    void levelDown(const Message& in, u64, Message& out) const override { out = in; }

    void leftRotate(const Message& in, u64 index, Message& out) const override;
    void leftRotate(const Message& in, const std::vector<u64>& indices,
                    std::vector<Message>& outs) const override;
    void conjugate(const Message& in, Message& out) const override;

    std::vector<Message> transform(const std::vector<const Message*>& ins, const TransformTable& transforms,
                                   u64 level, double factor) const override;

private:
    /// More than any function spends.
    static constexpr u64 anyLevel = u64{1} << 20;
    /// A message has no ring. More than any function asks for.
    static constexpr u64 mostLogSlotsInTheClear = 40;

    std::shared_ptr<HomEvaluatorImpl> evaluator_;
};

} // namespace Torvo
