#include "functions/CipherOperations.hpp"

#include "context/ContextContent.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "evaluator/Messages.hpp"
#include "evaluator/RotationDigits.hpp"
#include "functions/BootstrapPrecision.hpp"
#include "functions/BootstrapWhereNeeded.hpp"
#include "functions/CachedTransformImpl.hpp"
#include "functions/Messages.hpp"
#include "functions/NoiseRules.hpp"

#include <algorithm>
#include <cmath>

namespace Torvo {

namespace {

/// Root mean squares in the largest error of a slot: a complex normal one exceeds it with a chance of exp(-36).
constexpr double deviations = 6;

} // namespace

SlotNoise noiseOf(const Context& context, u64 from, u64 to, u64 log_slots) {
    const NoiseRules rules(context);
    double variance = 0;
    for (u64 level = to; level < from; ++level)
        variance = std::max(variance, rules.rescale(level, u64{1} << log_slots));
    return {deviations * std::sqrt(variance), 0};
}

SlotNoise noiseWithBootstraps(const Context& context, u64 from, u64 to, u64 log_slots,
                              BootstrappingEvaluator::Precision precision) {
    SlotNoise noise = noiseOf(context, from, to, log_slots);
    const bool isExtended = precision == BootstrappingEvaluator::Precision::Extended;
    noise.bootstrap = deviations * std::sqrt(bootstrapVariance(context->parameter.preset, true, isExtended));
    return noise;
}

double scaleRatioOf(const Context& context, u64 from, u64 to) {
    const std::vector<double>& logScale = context->scale_factors.log_scale;
    return std::exp2(logScale[from] - logScale[to]);
}

double rescaleGainOf(const Context& context, u64 level) {
    const std::vector<double>& logScale = context->scale_factors.log_scale;
    const double logPrime = std::log2(static_cast<double>(context->primes.getPrime(level)));
    return std::exp2(std::round(2 * logScale[level] - logPrime - logScale[level - 1]));
}

Ciphertext CipherOperations::unset() const {
    return unsetCiphertext(evaluator_->getContext());
}

double CipherOperations::scaleRatio(u64 from, u64 to) const {
    return scaleRatioOf(evaluator_->getContext(), from, to);
}

double CipherOperations::rescaleGain(u64 level) const {
    return rescaleGainOf(evaluator_->getContext(), level);
}

SlotNoise CipherOperations::noise(u64 from, u64 to, u64 log_slots) const {
    return noiseOf(evaluator_->getContext(), from, to, log_slots);
}

SlotNoise BootstrappingOperations::noise(u64 from, u64 to, u64 log_slots) const {
    return noiseWithBootstraps(evaluator().getContext(), from, to, log_slots, bootstrapping_.getPrecision());
}

u64 CipherOperations::mostLogSlots() const {
    return getLogFullSlots(evaluator_->getContext());
}

void CipherOperations::readWithLogSlots(const Ciphertext& in, u64 log_slots, Ciphertext& out) const {
    out = in;
    out.setLogSlots(log_slots);
}

// ---- guards

void CipherOperations::requireOperand(const Ciphertext& x) const {
    utils::requireOnSlots(x);
    require(x.getNumPoly() == 2, message::sizeNotTwo);
    utils::requireNothingOwed(x);
    requireOfRing(evaluator_->getContext(), x);
    const u64 most = getLogFullSlots(evaluator_->getContext());
    if (x.getLogSlots() > most) throw RuntimeException(message::tooManySlots(x.getLogSlots(), most));
}

void CipherOperations::requireRotations(const std::vector<u64>& indices) const {
    const KeyPack& keys = evaluator_->getKeyPack();
    const auto hasKey = [&](u64 index) { return keys.getLeftRotKey(index) != nullptr; };
    std::vector<u64> wanted;
    for (const u64 index : indices)
        if (!std::ranges::all_of(rotationDigits(index, u64{1} << mostLogSlots()), hasKey))
            wanted.push_back(index);
    evaluator_->requireLeftRotationKeys(wanted);
}

void CipherOperations::requireTransforms(const TransformTable& transforms, u64 log_slots) const {
    std::vector<std::shared_ptr<const CachedTransformImpl>> all;
    for (const auto& ofInput : transforms) all.insert(all.end(), ofInput.begin(), ofInput.end());
    // Rotations that share one decomposition are made of no others.
    evaluator_->requireLeftRotationKeys(rotationIndicesOf(all, evaluator_->getContext(), log_slots));
}

void CipherOperations::requireMultiplicationKey() const {
    require(evaluator_->getKeyPack().getMultKey() != nullptr, message::noMultiplicationKey);
}

void CipherOperations::prepare(const std::string& what, u64 levels, Range /*range*/,
                               std::vector<Ciphertext*> values) const {
    requireLevels(*this, what, levels, values);
}

void BootstrappingOperations::prepare(const std::string& what, u64 levels, Range range,
                                      std::vector<Ciphertext*> values) const {
    const Bootstrapper& bootstrapper = bootstrapping_.getBootstrapper();
    const bool isExtended = bootstrapping_.getPrecision() == BootstrappingEvaluator::Precision::Extended;
    const BootstrapLevels limits{bootstrapper.getMinLevelForBootstrap() + (isExtended ? 1 : 0),
                                 bootstrapper.getLevelAfterFullSlotBootstrap()};
    bootstrapWhereNeeded<Ciphertext>(
        *this, limits, what, levels, range, values,
        [&](Ciphertext& x) {
            isExtended ? bootstrapper.bootstrapExtended(x, x, !range.isReal)
                       : bootstrapper.bootstrap(x, x, !range.isReal);
        },
        [&](const Ciphertext& pair, Ciphertext& real, Ciphertext& imaginary) {
            isExtended ? bootstrapper.bootstrapExtended(pair, real, imaginary)
                       : bootstrapper.bootstrap(pair, real, imaginary);
        });
}

// ---- sums

void CipherOperations::add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    evaluator_->add(a, b, out);
}

void CipherOperations::sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    evaluator_->sub(a, b, out);
}

void CipherOperations::add(const Ciphertext& in, std::complex<double> c, Ciphertext& out) const {
    evaluator_->add(in, c, out);
}

void CipherOperations::addSlots(const Ciphertext& in, const Message& numbers, Ciphertext& out) const {
    evaluator_->add(in, numbers, out);
}

void CipherOperations::negate(const Ciphertext& in, Ciphertext& out) const {
    evaluator_->negate(in, out);
}

// ---- products

void CipherOperations::multInteger(const Ciphertext& in, long n, Ciphertext& out) const {
    evaluator_->multInteger(in, n, out);
}

void CipherOperations::multImagUnit(const Ciphertext& in, Ciphertext& out) const {
    evaluator_->multImagUnit(in, out);
}

void CipherOperations::multAtLevel(const Ciphertext& in, std::complex<double> c, u64 level,
                                   Ciphertext& out) const {
    evaluator_->multAtLevel(in, c, level, out);
}

void CipherOperations::multSlotsAtLevel(const Ciphertext& in, const Message& factors, u64 level,
                                        Ciphertext& out) const {
    evaluator_->multAtLevel(in, factors, level, out);
}

void CipherOperations::sumMultiplesAtLevel(const std::vector<const Ciphertext*>& terms,
                                           const std::vector<std::complex<double>>& factors, u64 level,
                                           Ciphertext& out) const {
    evaluator_->sumMultiplesAtLevel(terms, factors, level, out);
}

void CipherOperations::tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    evaluator_->tensorAtLowerLevel(a, b, out);
}

void CipherOperations::relinearize(Ciphertext& in_out) const {
    if (in_out.getNumPoly() > 2) evaluator_->relinearize(in_out, in_out);
}

void CipherOperations::rescale(Ciphertext& in_out) const {
    evaluator_->rescale(in_out);
}

void CipherOperations::levelDown(const Ciphertext& in, u64 level, Ciphertext& out) const {
    evaluator_->levelDown(in, level, out);
}

// ---- rotations

void CipherOperations::leftRotate(const Ciphertext& in, u64 index, Ciphertext& out) const {
    evaluator_->leftRotate(in, index % in.getNumberOfSlots(), out);
}

void CipherOperations::leftRotate(const Ciphertext& in, const std::vector<u64>& indices,
                                  std::vector<Ciphertext>& outs) const {
    evaluator_->rotate(HomEvaluatorImpl::Direction::Left, in, indices, outs);
}

void CipherOperations::conjugate(const Ciphertext& in, Ciphertext& out) const {
    evaluator_->conjugate(in, out);
}

// ---- linear transforms

std::vector<Ciphertext> CipherOperations::transform(const std::vector<const Ciphertext*>& ins,
                                                    const TransformTable& transforms, u64 level,
                                                    double factor) const {
    const TransformPlace place{ins.front()->getLogSlots(), level};
    std::vector<std::shared_ptr<const EncodedTransformImpl>> used; // whatever is cleared meanwhile
    std::vector<TransformedInput> inputs;
    for (u64 i = 0; i < ins.size(); ++i) {
        auto& input = inputs.emplace_back(TransformedInput{ins[i], {}});
        for (const auto& transform : transforms[i]) {
            used.push_back(transform->encoded(evaluator_->getContext(), place, factor));
            input.transforms.push_back(used.back().get());
        }
    }
    return sumTransforms(*evaluator_, inputs);
}

} // namespace Torvo
