#include "functions/PlanOperations.hpp"

#include "bootstrap/BootParameter.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "encoding/Messages.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "functions/BootstrapPrecision.hpp"
#include "functions/BootstrapWhereNeeded.hpp"
#include "functions/CipherOperations.hpp"
#include "functions/MessageOperations.hpp"
#include "functions/PlannedCiphertextImpl.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

namespace Torvo {

namespace {

/// Applies `change` to both messages of a planned ciphertext.
template <class Change>
void changeBoth(PlannedCiphertext& x, Change change) {
    change(x.impl().exact);
    change(x.impl().noisy);
}

void keepRealParts(Message& message) {
    for (std::complex<double>& slot : message) slot = slot.real();
}

void multiply(Message& message, std::complex<double> c) {
    for (std::complex<double>& slot : message) slot *= c;
}

} // namespace

double PlanOperations::scaleRatio(u64 from, u64 to) const {
    return scaleRatioOf(plan_->getContext(), from, to);
}

double PlanOperations::rescaleGain(u64 level) const {
    return rescaleGainOf(plan_->getContext(), level);
}

SlotNoise PlanOperations::noise(u64 from, u64 to, u64 log_slots) const {
    const Context& context = plan_->getContext();
    return plan_->precision() ? noiseWithBootstraps(context, from, to, log_slots, *plan_->precision())
                              : noiseOf(context, from, to, log_slots);
}

u64 PlanOperations::mostLogSlots() const {
    return getLogFullSlots(plan_->getContext());
}

void PlanOperations::readWithLogSlots(const PlannedCiphertext& in, u64 log_slots,
                                      PlannedCiphertext& out) const {
    out = in;
    changeBoth(out, [&](Message& message) { message = repeated(message, log_slots); });
}

std::complex<double> PlanOperations::cut(std::complex<double> c, u64 level, int owed) const {
    const double scale =
        std::exp2(plan_->getContext()->scale_factors.log_scale[level - static_cast<u64>(owed)]);
    return {std::trunc(c.real() * scale) / scale, std::trunc(c.imag() * scale) / scale};
}

// ---- guards

void PlanOperations::requireOperand(const PlannedCiphertext& x) const {
    require(x.getMessage().getSize() > 0, message::emptyMessage);
    require(x.impl().numElements == 2, message::sizeNotTwo);
    utils::requireNothingOwed(x);
}

void PlanOperations::bootstrap(PlannedCiphertext& x, bool isComplex) const {
    const bool isExtended = plan_->precision() == BootstrappingEvaluator::Precision::Extended;
    plan_->countBootstrap(x.getLevel(), x.getLogSlots());
    x.impl().level = BootParameter(plan_->getContext()).levelAfter(plan_->getContext());
    if (!isComplex) changeBoth(x, keepRealParts);
    const ParameterPreset preset = plan_->getContext()->parameter.preset;
    plan_->disturb(x.impl().noisy, bootstrapVariance(preset, isComplex, isExtended));
}

void PlanOperations::prepare(const std::string& what, u64 levels, Range range,
                             std::vector<PlannedCiphertext*> values) const {
    if (!plan_->precision()) return requireLevels(*this, what, levels, values);
    const bool isExtended = plan_->precision() == BootstrappingEvaluator::Precision::Extended;
    const BootstrapLevels limits{BootParameter::slot_to_coeff_depth + (isExtended ? 1 : 0),
                                 BootParameter(plan_->getContext()).levelAfter(plan_->getContext())};
    bootstrapWhereNeeded<PlannedCiphertext>(
        *this, limits, what, levels, range, values,
        [&](PlannedCiphertext& x) { bootstrap(x, !range.isReal); },
        [&](const PlannedCiphertext& pair, PlannedCiphertext& real, PlannedCiphertext& imaginary) {
            PlannedCiphertext both = pair;
            bootstrap(both, true);
            real = imaginary = both;
            changeBoth(real, keepRealParts);
            changeBoth(imaginary, [](Message& message) {
                for (std::complex<double>& slot : message) slot = slot.imag();
            });
        });
}

// ---- sums

template <class Sign>
void PlanOperations::combine(const PlannedCiphertext& a, const PlannedCiphertext& b, PlannedCiphertext& out,
                             Sign sign) const {
    require(a.getLogSlots() == b.getLogSlots(), message::differentLogSlots);
    require(a.getRescaleCounter() == b.getRescaleCounter(), message::differentRescaleCounters);
    const u64 level = std::min(a.getLevel(), b.getLevel());
    PlannedCiphertext first = a, second = b;
    if (a.getLevel() > level) levelDown(a, level, first);
    if (b.getLevel() > level) levelDown(b, level, second);
    plan_->count(Step::Add, level);
    PlannedCiphertextImpl &sum = first.impl(), &term = second.impl();
    for (u64 i = 0; i < sum.exact.getSize(); ++i) {
        sum.exact[i] = sign(sum.exact[i], term.exact[i]);
        sum.noisy[i] = sign(sum.noisy[i], term.noisy[i]);
    }
    sum.numElements = std::max(sum.numElements, term.numElements);
    out = std::move(first);
}

void PlanOperations::add(const PlannedCiphertext& a, const PlannedCiphertext& b,
                         PlannedCiphertext& out) const {
    combine(a, b, out, std::plus<>());
}

void PlanOperations::sub(const PlannedCiphertext& a, const PlannedCiphertext& b,
                         PlannedCiphertext& out) const {
    combine(a, b, out, std::minus<>());
}

void PlanOperations::add(const PlannedCiphertext& in, std::complex<double> c, PlannedCiphertext& out) const {
    out = in;
    for (std::complex<double>& slot : out.impl().exact) slot += c;
    const std::complex<double> rounded = cut(c, in.getLevel(), in.getRescaleCounter());
    for (std::complex<double>& slot : out.impl().noisy) slot += rounded;
}

void PlanOperations::addSlots(const PlannedCiphertext& in, const Message& numbers,
                              PlannedCiphertext& out) const {
    require(in.getLogSlots() == numbers.getLogSlots(), message::differentLogSlots);
    out = in;
    changeBoth(out, [&](Message& message) {
        for (u64 i = 0; i < message.getSize(); ++i) message[i] += numbers[i];
    });
    const u64 level = in.getLevel() - static_cast<u64>(in.getRescaleCounter());
    plan_->disturb(out.impl().noisy, plan_->noise().encoding(level, numbers.getSize()));
}

void PlanOperations::negate(const PlannedCiphertext& in, PlannedCiphertext& out) const {
    multInteger(in, -1, out);
}

// ---- products

void PlanOperations::multInteger(const PlannedCiphertext& in, long n, PlannedCiphertext& out) const {
    out = in;
    changeBoth(out, [&](Message& message) { multiply(message, static_cast<double>(n)); });
}

void PlanOperations::multImagUnit(const PlannedCiphertext& in, PlannedCiphertext& out) const {
    out = in;
    changeBoth(out, [](Message& message) { multiply(message, {0, 1}); });
}

void PlanOperations::multAtLevel(const PlannedCiphertext& in, std::complex<double> c, u64 level,
                                 PlannedCiphertext& out) const {
    utils::requireReadyToMultiply(in);
    require(level > 0, message::levelZero);
    plan_->count(Step::ConstantProduct, level);
    const double ratio = scaleRatio(in.getLevel(), level);
    out = in;
    out.impl().level = level;
    out.impl().rescale_counter = 1;
    multiply(out.impl().exact, c * ratio);
    multiply(out.impl().noisy, cut(c, level, 0) * ratio);
}

void PlanOperations::multSlotsAtLevel(const PlannedCiphertext& in, const Message& factors, u64 level,
                                      PlannedCiphertext& out) const {
    utils::requireReadyToMultiply(in);
    require(level > 0, message::levelZero);
    require(in.getLogSlots() == factors.getLogSlots(), message::differentLogSlots);
    plan_->requireEncodable(factors, level);
    plan_->count(Step::PlaintextProduct, level);
    const double ratio = scaleRatio(in.getLevel(), level);
    Message rounded = factors;
    plan_->disturb(rounded, plan_->noise().encoding(level, factors.getSize()));
    out = in;
    out.impl().level = level;
    out.impl().rescale_counter = 1;
    for (u64 i = 0; i < factors.getSize(); ++i) {
        out.impl().exact[i] *= factors[i] * ratio;
        out.impl().noisy[i] *= rounded[i] * ratio;
    }
}

void PlanOperations::tensor(const PlannedCiphertext& a, const PlannedCiphertext& b,
                            PlannedCiphertext& out) const {
    require(a.impl().numElements == 2 && b.impl().numElements == 2, message::sizeAboveTwo);
    utils::requireReadyToMultiply(a, b);
    require(a.getLogSlots() == b.getLogSlots(), message::differentLogSlots);
    const u64 level = std::min(a.getLevel(), b.getLevel());
    plan_->count(Step::Tensor, level);
    const double ratio = scaleRatio(a.getLevel(), level) * scaleRatio(b.getLevel(), level);
    PlannedCiphertextImpl product{level, 1, 3, a.getMessage(), a.getNoisyMessage()};
    for (u64 i = 0; i < product.exact.getSize(); ++i) {
        product.exact[i] *= b.getMessage()[i] * ratio;
        product.noisy[i] *= b.getNoisyMessage()[i] * ratio;
    }
    out = PlannedCiphertext(std::move(product));
}

void PlanOperations::disturbByKeySwitch(PlannedCiphertext& x) const {
    double variance = plan_->noise().keySwitch(x.getLevel(), x.getMessage().getSize());
    // Data that owes a rescale has the square of the scale.
    if (x.getRescaleCounter() > 0)
        variance *= std::exp2(-2 * plan_->getContext()->scale_factors.log_scale[x.getLevel()]);
    plan_->disturb(x.impl().noisy, variance);
}

void PlanOperations::relinearize(PlannedCiphertext& in_out) const {
    if (in_out.impl().numElements == 2) return;
    plan_->count(Step::Relinearize, in_out.getLevel());
    disturbByKeySwitch(in_out);
    in_out.impl().numElements = 2;
}

void PlanOperations::rescale(PlannedCiphertext& in_out) const {
    utils::requireLevelAboveZero(in_out);
    const u64 level = in_out.getLevel();
    require(in_out.getRescaleCounter() > 0, message::ciphertextOwesNoRescale);
    plan_->count(Step::Rescale, level);
    changeBoth(in_out, [&](Message& message) { multiply(message, rescaleGain(level)); });
    in_out.impl().level = level - 1;
    --in_out.impl().rescale_counter;
    plan_->disturb(in_out.impl().noisy, plan_->noise().rescale(level - 1, in_out.getMessage().getSize()));
    plan_->reach(level - 1);
}

void PlanOperations::levelDown(const PlannedCiphertext& in, u64 level, PlannedCiphertext& out) const {
    require(level <= in.getLevel(), message::levelDownUpwards);
    if (level == in.getLevel()) {
        out = in;
        return;
    }
    multAtLevel(in, 1 / (scaleRatio(in.getLevel(), level + 1) * rescaleGain(level + 1)), level + 1, out);
    rescale(out);
}

// ---- rotations

void PlanOperations::leftRotate(const PlannedCiphertext& in, u64 index, PlannedCiphertext& out) const {
    const u64 r = index % in.getMessage().getSize();
    out = in;
    if (r == 0) return;
    plan_->countRotation(Step::Rotate, r, in.getLevel());
    changeBoth(out, [&](Message& message) {
        std::rotate(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(r), message.end());
    });
    disturbByKeySwitch(out);
}

void PlanOperations::leftRotate(const PlannedCiphertext& in, const std::vector<u64>& indices,
                                std::vector<PlannedCiphertext>& outs) const {
    std::vector<PlannedCiphertext> rotated(indices.size());
    for (u64 k = 0; k < indices.size(); ++k) leftRotate(in, indices[k], rotated[k]);
    outs = std::move(rotated);
}

void PlanOperations::conjugate(const PlannedCiphertext& in, PlannedCiphertext& out) const {
    plan_->count(Step::Conjugate, in.getLevel());
    out = in;
    changeBoth(out, [](Message& message) {
        for (std::complex<double>& slot : message) slot = std::conj(slot);
    });
    disturbByKeySwitch(out);
}

} // namespace Torvo
