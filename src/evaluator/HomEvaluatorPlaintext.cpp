#include "arithmetic/chain/Messages.hpp"
#include "context/ContextContent.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"

#include <utility>

namespace Torvo {

namespace {

/// What two factors must be, in the order in which it is told.
void requireFactors(const Plaintext& a, const Plaintext& b) {
    utils::requireLevelAboveZero(a, b);
    utils::requireEqualLevels(a, b);
    utils::requireNothingOwed(a, b);
}

} // namespace

template <class Sign>
void HomEvaluatorImpl::combine(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    utils::requireEqualLevels(a, b);
    utils::requireMatching(a, b);
    require(a.getMx().isModUp() == b.getMx().isModUp(), message::operandsDifferInModUp);
    requireOwn(a, b);
    const Stamp stamp = Stamp::of(a);
    utils::fitLike(a, out);
    Sign::combine(context_->primes, a.getMx(), b.getMx(), out.getMx());
    stamp.putOn(out);
}

void HomEvaluatorImpl::add(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    combine<utils::Plus>(a, b, out);
}

void HomEvaluatorImpl::sub(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    combine<utils::Minus>(a, b, out);
}

void HomEvaluatorImpl::mult(const Plaintext& in, std::complex<double> c, Plaintext& out) const {
    utils::requireReadyToMultiply(in);
    multWithoutRescale(in, c, out);
    rescale(out);
}

void HomEvaluatorImpl::multWithoutRescale(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    requireFactors(a, b);
    utils::requireMatching(a, b);
    require(a.getMx().isModUp() == b.getMx().isModUp(), message::operandsDifferInModUp);
    requireOwn(a, b);
    const Stamp stamp = Stamp::of(a);
    utils::fitLike(a, out);
    context_->primes.hadamardMult(a.getMx(), b.getMx(), out.getMx());
    stamp.owing(1).putOn(out);
}

void HomEvaluatorImpl::mult(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    multWithoutRescale(a, b, out);
    rescale(out);
}

void HomEvaluatorImpl::square(const Plaintext& in, Plaintext& out) const {
    mult(in, in, out);
}

void HomEvaluatorImpl::relevel(const Plaintext& in, u64 targetLevel, Plaintext& out) const {
    require(targetLevel < context_->parameter.chain_length, message::relevelTooHigh);
    out = reencode(in, targetLevel, in.getRescaleCounter()).takeInNTTForm();
}

void HomEvaluatorImpl::leftRotate(const Plaintext& in, u64 index, Plaintext& out) const {
    requireOwn(in);
    if (index % context_->parameter.num_slots == 0)
        out = in;
    else
        applyAutomorphism(in, galoisElement(index, in.getDevice()), out);
}

void HomEvaluatorImpl::rightRotate(const Plaintext& in, u64 index, Plaintext& out) const {
    const u64 turn = context_->parameter.num_slots;
    leftRotate(in, turn - index % turn, out);
}

void HomEvaluatorImpl::conjugate(const Plaintext& in, Plaintext& out) const {
    requireOwn(in);
    applyAutomorphism(in, -1, out);
}

void HomEvaluatorImpl::applyAutomorphism(const Plaintext& in, long g, Plaintext& out) const {
    if (&in == &out) {
        // The map moves words about, so it cannot run in place.
        Plaintext mapped(context_, Polynomial(context_, false, true));
        applyAutomorphism(in, g, mapped);
        out = std::move(mapped);
        return;
    }
    const Stamp stamp = Stamp::of(in);
    utils::fitLike(in, out);
    context_->primes.frobeniusMapInNTT<false>(in.getMx(), g, out.getMx());
    stamp.putOn(out);
}

} // namespace Torvo
