#include "evaluator/HomEvaluatorImpl.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace Torvo {

namespace {

using Complex = std::complex<double>;

template <class Slot>
void forEachSlot(const Message& in, Message& out, Slot slot) {
    utils::fitOutput(in, out);
    std::transform(in.begin(), in.end(), out.begin(), slot);
}

template <class Slot>
void forEachSlot(const Message& a, const Message& b, Message& out, Slot slot) {
    utils::requireMatching(a, b);
    utils::fitOutput(a, out);
    std::transform(a.begin(), a.end(), b.begin(), out.begin(), slot);
}

void requireOffGPU(const Message& message) {
    require(message.getDevice().type != DeviceType::GPU, message::messageOnGPU);
}

/// Slot i takes slot i + index, cyclically.
void rotateSlots(Message& message, u64 index) {
    if (message.isEmpty()) return;
    std::rotate(message.begin(), message.begin() + index % message.getSize(), message.end());
}

u64 opposite(const Message& message, u64 index) {
    return message.isEmpty() ? 0 : message.getSize() - index % message.getSize();
}

/// steps * gap, modulo the slots: of any count, so that it must not wrap around by a word first.
u64 turn(const Message& message, u64 steps, u64 gap) {
    if (message.isEmpty()) return 0;
    return static_cast<u64>(static_cast<u128>(steps) * gap % message.getSize());
}

} // namespace

void HomEvaluatorImpl::negate(const Message& in, Message& out) const {
    forEachSlot(in, out, [](Complex z) { return -z; });
}

void HomEvaluatorImpl::add(const Message& in, Complex c, Message& out) const {
    forEachSlot(in, out, [c](Complex z) { return z + c; });
}

void HomEvaluatorImpl::add(const Message& a, const Message& b, Message& out) const {
    forEachSlot(a, b, out, [](Complex x, Complex y) { return x + y; });
}

void HomEvaluatorImpl::sub(const Message& in, Complex c, Message& out) const {
    forEachSlot(in, out, [c](Complex z) { return z - c; });
}

void HomEvaluatorImpl::sub(const Message& a, const Message& b, Message& out) const {
    forEachSlot(a, b, out, [](Complex x, Complex y) { return x - y; });
}

void HomEvaluatorImpl::mult(const Message& in, Complex c, Message& out) const {
    forEachSlot(in, out, [c](Complex z) { return z * c; });
}

void HomEvaluatorImpl::mult(const Message& a, const Message& b, Message& out) const {
    forEachSlot(a, b, out, [](Complex x, Complex y) { return x * y; });
}

void HomEvaluatorImpl::square(const Message& in, Message& out) const {
    forEachSlot(in, out, [](Complex z) { return z * z; });
}

void HomEvaluatorImpl::multImagUnit(const Message& in, Message& out) const {
    mult(in, Complex(0.0, 1.0), out);
}

void HomEvaluatorImpl::conjugate(const Message& in, Message& out) const {
    forEachSlot(in, out, [](Complex z) { return std::conj(z); });
}

void HomEvaluatorImpl::leftRotate(const Message& in, u64 index, Message& out) const {
    requireOffGPU(in);
    if (&in != &out) out = in;
    rotateSlots(out, index);
}

void HomEvaluatorImpl::rightRotate(const Message& in, u64 index, Message& out) const {
    leftRotate(in, opposite(in, index), out);
}

void HomEvaluatorImpl::leftRotateReduce(const Message& in, u64 gap, u64 count, Message& out) const {
    requireOffGPU(in);
    Message sum = in, rotated;
    const auto addTurned = [&](const Message& term, u64 steps) {
        leftRotate(term, turn(term, steps, gap), rotated);
        add(sum, rotated, sum);
    };
    // The sum of the first `covered` rotations, where `covered` takes up the bits of `count` from the top.
    // There are no keys to be sparing with, so nothing is taken away again, as from ciphertexts: what is
    // infinite stays so, and no digits cancel.
    u64 covered = 1;
    for (u64 bit = std::bit_floor(count) / 2; bit != 0; bit /= 2) {
        addTurned(Message(sum), covered);
        covered *= 2;
        if ((count & bit) == 0) continue;
        addTurned(in, covered);
        ++covered;
    }
    out = std::move(sum);
}

void HomEvaluatorImpl::rightRotateReduce(const Message& in, u64 gap, u64 count, Message& out) const {
    leftRotateReduce(in, opposite(in, gap), count, out);
}

Message rightRotate(const Message& message, long shift) {
    Message rotated = message;
    const u64 magnitude = shift < 0 ? u64{0} - static_cast<u64>(shift) : static_cast<u64>(shift);
    rotateSlots(rotated, shift < 0 ? magnitude : opposite(message, magnitude));
    return rotated;
}

} // namespace Torvo
