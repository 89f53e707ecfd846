#include "bootstrap/BootstrapperImpl.hpp"

#include "bootstrap/BootConstantsFile.hpp"
#include "bootstrap/Messages.hpp"
#include "core/Failure.hpp"
#include "crypto/KeyPackImpl.hpp"
#include "crypto/Messages.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/EvaluatorUtils.hpp"
#include "evaluator/Messages.hpp"

#include <cmath>
#include <string>
#include <utility>

namespace Torvo {

BootstrapperImpl::BootstrapperImpl(const HomEvaluator& eval, std::optional<Context> context_sparse,
                                   u64 log_slots, bool sequential_rotations)
    : context_(eval.getContext()), evaluator_(eval.getImpl()), parameter_(context_),
      context_sparse_(std::move(context_sparse)), sequential_rotations_(sequential_rotations) {
    if (context_sparse_) sparse_key_switcher_.emplace(*context_sparse_);
    require(context_->parameter.has_bootstrap, message::noBootstrap);
    if (context_sparse_)
        requireSparsePartner(context_, *context_sparse_, message::noEncapsulation,
                             message::encapsulationMismatch);
    boot_constants_[0] = nullptr; // one slot needs no matrices
    makeBootConstants(log_slots);
}

// ---- constants

bool BootstrapperImpl::isBootstrapReady(u64 log_slots) const {
    return boot_constants_.contains(log_slots);
}

void BootstrapperImpl::makeBootConstants(u64 log_slots) {
    requireLogSlots(context_->parameter, log_slots);
    if (isBootstrapReady(log_slots)) return;
    boot_constants_[log_slots] = std::make_unique<BootConstants>(log_slots, parameter_.coeff_to_slot_constant,
                                                                 parameter_.slot_to_coeff_constant, context_,
                                                                 evaluator_->getEnDecoder());
}

void BootstrapperImpl::loadBootConstants(u64 log_slots, const Device& device) const {
    if (log_slots == 0) return;
    requireBootConstants(log_slots).load(device);
}

BootConstants& BootstrapperImpl::requireBootConstants(u64 log_slots) const {
    if (!isBootstrapReady(log_slots))
        throw RuntimeException(message::constantsForSlots + std::to_string(log_slots) +
                               message::constantsMissing);
    return *boot_constants_.at(log_slots);
}

BootRecipe BootstrapperImpl::recipeFor(u64 log_slots) const {
    requireLogSlots(context_->parameter, log_slots);
    require(log_slots != 0, message::noConstantsForOneSlot);
    return {context_, log_slots, parameter_.coeff_to_slot_constant, parameter_.slot_to_coeff_constant};
}

void BootstrapperImpl::setBootConstants(const BootRecipe& recipe, BootStages&& stages) {
    boot_constants_[recipe.log_slots] = std::make_unique<BootConstants>(recipe, std::move(stages));
}

template <class Target>
void BootstrapperImpl::saveBootConstants(u64 log_slots, Target& target) const {
    require(log_slots != 0, message::noConstantsForOneSlot);
    BootConstantsFile::save(requireBootConstants(log_slots), target);
}

void BootstrapperImpl::mapBootConstants(u64 log_slots, const std::string& path, bool check) {
    const BootRecipe recipe = recipeFor(log_slots);
    setBootConstants(recipe, BootConstantsFile(recipe).map(path, check));
}

template <class Source>
void BootstrapperImpl::readBootConstants(u64 log_slots, Source& source, bool check) {
    const BootRecipe recipe = recipeFor(log_slots);
    setBootConstants(recipe, BootConstantsFile(recipe).read(source, check));
}

template void BootstrapperImpl::saveBootConstants(u64, const std::string&) const;
template void BootstrapperImpl::saveBootConstants(u64, std::ostream&) const;
template void BootstrapperImpl::readBootConstants(u64, const std::string&, bool);
template void BootstrapperImpl::readBootConstants(u64, std::istream&, bool);

u64 BootstrapperImpl::getLevelAfterFullSlotBootstrap() const {
    return parameter_.levelAfter(context_);
}

u64 BootstrapperImpl::getMinLevelForBootstrap() const {
    return BootParameter::slot_to_coeff_depth;
}

// ---- guards

void BootstrapperImpl::requireBootstrappable(const Ciphertext& in) const {
    require(in.getEncodingType() == EncodingType::Coefficient || in.getLevel() >= getMinLevelForBootstrap(),
            message::bootstrapLevelTooLow);
    require(in.getNumPoly() == 2, message::bootstrapSizeNotTwo);
    utils::requireNothingOwed(in);
}

void BootstrapperImpl::requireExtendedBootstrappable(const Ciphertext& in) const {
    require(context_->parameter.has_extended_bootstrap, message::noExtendedBootstrap);
    require(in.getLevel() >= getMinLevelForBootstrap() + 1, message::extendedLevelTooLow);
    require(in.getNumPoly() == 2, message::extendedSizeNotTwo);
    utils::requireNothingOwed(in);
}

// ---- public flows

void BootstrapperImpl::bootstrap(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    utils::requireOnSlots(in);
    requireBootstrappable(in);
    bootstrapOnce(in, out, is_complex, 1.0);
}

void BootstrapperImpl::bootstrap(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const {
    utils::requireOnSlots(in);
    requireBootstrappable(in);
    bootstrapTwoOutput(in, out_real, out_imag, 1.0);
}

void BootstrapperImpl::halfBoot(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    require(in.getEncodingType() == EncodingType::Coefficient, message::notOnCoefficients);
    requireBootstrappable(in);
    bootstrapOnce(in, out, is_complex, 1.0);
}

void BootstrapperImpl::levelDownAndSlotToCoeff(const Ciphertext& in, Ciphertext& out) const {
    utils::requireOnSlots(in);
    const u64 minLevel = getMinLevelForBootstrap();
    if (in.getLevel() < minLevel)
        throw RuntimeException(message::slotToCoeffLevelTooLow + std::to_string(minLevel));
    loadBootConstants(in.getLogSlots(), in.getDevice());
    evaluator_->levelDown(in, minLevel, out);
    slotToCoeff(out, out);
    out.setEncodingType(EncodingType::Coefficient);
    for (u64 i = 0; i < out.getNumPoly(); ++i) context_->primes.backwardNTT(out.getPoly(i), out.getPoly(i));
}

void BootstrapperImpl::bootstrapExtended(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    utils::requireOnSlots(in);
    requireExtendedBootstrappable(in);
    const u64 log_slots = in.getLogSlots();
    // The coarse pass, on a message so small that the sine is almost linear.
    Ciphertext coarse = unsetCiphertext(context_), residual = unsetCiphertext(context_);
    evaluator_->mult(in, std::pow(2.0, -static_cast<double>(parameter_.extended_high_shift)), coarse);
    bootstrapOnce(coarse, coarse, is_complex, 1.0);
    evaluator_->multInteger(coarse, 1L << parameter_.extended_high_shift, coarse);
    // The fine pass, on the error of the coarse one.
    evaluator_->sub(in, coarse, residual);
    evaluator_->multInteger(residual, 1L << parameter_.extended_low_shift, residual);
    residual.setLogSlots(getLogFullSlots(context_)); // so that nothing is folded
    bootstrapOnce(residual, residual, true,
                  std::pow(2.0, -static_cast<double>(parameter_.extended_low_shift)));
    residual.setLogSlots(log_slots);
    evaluator_->add(coarse, residual, out);
}

void BootstrapperImpl::bootstrapExtended(const Ciphertext& in, Ciphertext& out_real,
                                         Ciphertext& out_imag) const {
    requireExtendedBootstrappable(in);
    const u64 log_slots = in.getLogSlots();
    const auto high = static_cast<double>(parameter_.extended_high_shift);
    const auto low = static_cast<double>(parameter_.extended_low_shift);
    Ciphertext real = unsetCiphertext(context_), imag = unsetCiphertext(context_),
               residual = unsetCiphertext(context_);
    evaluator_->mult(in, std::pow(2.0, -high), residual);
    bootstrapTwoOutput(residual, real, imag, std::pow(2.0, high - 1)); // half, for the next step doubles
    for (Ciphertext* part : {&real, &imag}) {                          // exactly real
        Ciphertext conjugated = unsetCiphertext(context_);
        evaluator_->conjugate(*part, conjugated);
        evaluator_->add(*part, conjugated, *part);
    }
    Ciphertext coarse = unsetCiphertext(context_);
    evaluator_->multImagUnit(imag, coarse);
    evaluator_->add(real, coarse, coarse);
    evaluator_->sub(in, coarse, residual);
    evaluator_->multInteger(residual, 1L << parameter_.extended_low_shift, residual);
    residual.setLogSlots(getLogFullSlots(context_));
    bootstrapTwoOutput(residual, out_real, out_imag, std::pow(2.0, -low));
    out_real.setLogSlots(log_slots);
    out_imag.setLogSlots(log_slots);
    evaluator_->add(real, out_real, out_real);
    evaluator_->add(imag, out_imag, out_imag);
}

// ---- one pass

void BootstrapperImpl::bootstrapOnce(const Ciphertext& in, Ciphertext& out, bool is_complex,
                                     double factor) const {
    if (is_complex) {
        Ciphertext real = unsetCiphertext(context_), imag = unsetCiphertext(context_);
        bootstrapTwoOutput(in, real, imag, factor);
        evaluator_->multImagUnit(imag, imag);
        evaluator_->add(real, imag, out);
        finish(Step::Combination);
        return;
    }
    Ciphertext t = bootstrapExceptRemoveI(in), conjugated = unsetCiphertext(context_);
    evaluator_->conjugate(t, conjugated);
    evaluator_->add(t, conjugated, t);
    evaluator_->rescale(t);
    finish(Step::Conjugation);
    removeI(t, out, factor);
    finish(Step::SineOfRealPart);
}

void BootstrapperImpl::bootstrapTwoOutput(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag,
                                          double factor) const {
    const Ciphertext t = bootstrapExceptRemoveI(in);
    Ciphertext conjugated = unsetCiphertext(context_);
    evaluator_->conjugate(t, conjugated);
    evaluator_->add(t, conjugated, out_real);
    evaluator_->sub(conjugated, t, out_imag);
    evaluator_->multImagUnit(out_imag, out_imag);
    evaluator_->rescale(out_real);
    evaluator_->rescale(out_imag);
    finish(Step::Conjugation);
    removeI(out_real, out_real, factor);
    finish(Step::SineOfRealPart);
    removeI(out_imag, out_imag, factor);
    finish(Step::SineOfImaginaryPart);
}

Ciphertext BootstrapperImpl::bootstrapExceptRemoveI(const Ciphertext& in) const {
    const u64 log_slots = in.getLogSlots();
    loadBootConstants(log_slots, in.getDevice());
    Ciphertext t = takeDown(in);
    finish(Step::DownAndSlotToCoeff);
    raiseModulus(t);
    finish(Step::Raise);
    fold(t, log_slots);
    finish(Step::Fold);
    evaluator_->multInteger(t, static_cast<long>(parameter_.post_raise_factor), t);
    coeffToSlot(t, t);
    t.setLogSlots(log_slots);
    finish(Step::CoeffToSlot);
    return t;
}

} // namespace Torvo
