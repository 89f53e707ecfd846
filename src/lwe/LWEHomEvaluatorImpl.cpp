#include "lwe/LWEHomEvaluatorImpl.hpp"

#include "arithmetic/chain/Messages.hpp"
#include "context/LWEContextContent.hpp"
#include "core/RequireContext.hpp"
#include "evaluator/EvaluatorUtils.hpp"

#include <algorithm>
#include <cmath>

namespace Torvo::LWE {

HomEvaluatorImpl::HomEvaluatorImpl(const Context& context)
    : context_(requireContext(context)), constantEnDecoder_(context) {}

LevelledElement HomEvaluatorImpl::encodeConstant(double c, u64 level, int rescale_counter,
                                                 const Device& device) const {
    LevelledElement residues = constantEnDecoder_.encodeConst(c, level, rescale_counter);
    if (residues.getDevice() != device) residues.to(device);
    return residues;
}

void HomEvaluatorImpl::negate(const Ciphertext& in, Ciphertext& out) const {
    requireOwn(in);
    const Stamp stamp = Stamp::of(in);
    shapeOutput(in.getContext(), out);
    context_->primes.negate(in.getAx(), out.getAx());
    context_->primes.negate(in.getBx(), out.getBx());
    stamp.putOn(out);
}

void HomEvaluatorImpl::add(const Ciphertext& in, double c, Ciphertext& out) const {
    utils::requireCounterWithinLevel(in);
    requireOwn(in);
    const Stamp stamp = Stamp::of(in);
    const LevelledElement constant = encodeConstant(c, in.getLevel(), stamp.rescale_counter, in.getDevice());
    shapeOutput(in.getContext(), out);
    if (&in != &out) out.getAx() = in.getAx();
    context_->primes.add(in.getBx(), constant, out.getBx());
    stamp.putOn(out);
}

void HomEvaluatorImpl::sub(const Ciphertext& in, double c, Ciphertext& out) const {
    add(in, -c, out);
}

// ---- sums

/// Brings the operand at the higher level down, then combines both.
template <class Sign>
void HomEvaluatorImpl::combine(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    utils::requireMatching(a, b);
    for (const Ciphertext* operand : {&a, &b}) requireOwn(*operand);
    require(a.getAx().getDimension() == b.getAx().getDimension(), message::operandsDifferInDimension);
    if (a.getLevel() == b.getLevel()) return combineParts<Sign>(a, b, out);
    const bool isFirstHigher = a.getLevel() > b.getLevel();
    Ciphertext lowered = isFirstHigher ? a : b;
    levelDown(lowered, std::min(a.getLevel(), b.getLevel()), lowered);
    if (isFirstHigher)
        combineParts<Sign>(lowered, b, out);
    else
        combineParts<Sign>(a, lowered, out);
}

template <class Sign>
void HomEvaluatorImpl::combineParts(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    const Stamp stamp = Stamp::of(a);
    if (&out != &b) shapeOutput(a.getContext(), out); // an operand is read before it is replaced
    Sign::combine(context_->primes, a.getAx(), b.getAx(), out.getAx());
    Sign::combine(context_->primes, a.getBx(), b.getBx(), out.getBx());
    stamp.putOn(out);
}

void HomEvaluatorImpl::add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    combine<utils::Plus>(a, b, out);
}

void HomEvaluatorImpl::sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    combine<utils::Minus>(a, b, out);
}

// ---- products

/// out = in * factor, part by part.
void HomEvaluatorImpl::multParts(const Ciphertext& in, const LevelledElement& factor, Ciphertext& out) const {
    shapeOutput(in.getContext(), out);
    context_->primes.constMult(in.getAx(), factor, out.getAx());
    context_->primes.mult(in.getBx(), factor, out.getBx());
}

void HomEvaluatorImpl::multInteger(const Ciphertext& in, long n, Ciphertext& out) const {
    requireOwn(in);
    if (n == 1) {
        out = in;
        return;
    }
    if (n == -1) return negate(in, out);
    LevelledElement residues(n, in.getContext(), in.getLevel());
    if (residues.getDevice() != in.getDevice()) residues.to(in.getDevice());
    const Stamp stamp = Stamp::of(in);
    multParts(in, residues, out);
    stamp.putOn(out);
}

void HomEvaluatorImpl::multWithoutRescale(const Ciphertext& in, double c, Ciphertext& out) const {
    const Stamp stamp = Stamp::of(in);
    require(static_cast<u64>(stamp.rescale_counter) < in.getLevel(), message::rescaleCounterAboveLevel);
    requireOwn(in);
    multParts(in, encodeConstant(c, in.getLevel(), 0, in.getDevice()), out);
    stamp.owing(stamp.rescale_counter + 1).putOn(out);
}

void HomEvaluatorImpl::mult(const Ciphertext& in, double c, Ciphertext& out) const {
    utils::requireLevelAboveZero(in);
    multWithoutRescale(in, c, out);
    rescale(out);
}

// ---- levels

void HomEvaluatorImpl::rescale(Ciphertext& in_out) const {
    utils::requireLevelAboveZero(in_out);
    const int owed = in_out.getRescaleCounter();
    require(owed > 0, message::ciphertextOwesNoRescale);
    requireOwn(in_out);
    context_->primes.rescale(in_out.getAx());
    context_->primes.rescale(in_out.getBx());
    in_out.setRescaleCounter(owed - 1);
}

void HomEvaluatorImpl::levelDown(const Ciphertext& in, u64 targetLevel, Ciphertext& out) const {
    const u64 level = in.getLevel();
    require(targetLevel <= level, message::levelDownUpwards);
    utils::requireNothingOwed(in);
    requireOwn(in);
    out = in;
    if (targetLevel == level) return;
    const auto& log_scale = context_->scale_factors.log_scale;
    const double exponent = log_scale[targetLevel + 1] - log_scale[level];
    out.setLevel(targetLevel + 1);
    multWithoutRescale(out, std::pow(2.0, exponent), out);
    rescale(out);
}

void HomEvaluatorImpl::levelDownOne(const Ciphertext& in, Ciphertext& out) const {
    utils::requireReadyToMultiply(in);
    multWithoutRescale(in, 1.0, out);
    rescale(out);
}

} // namespace Torvo::LWE
