#include "bootstrap/BootstrapperImpl.hpp"
#include "bootstrap/Messages.hpp"
#include "core/Failure.hpp"
#include "crypto/OutputShape.hpp"
#include "encoding/Stamp.hpp"

#include <cmath>
#include <utility>

namespace Torvo {

const BootConstants& BootstrapperImpl::constants(u64 log_slots) const {
    return *boot_constants_.at(log_slots);
}

// ---- down to level 0 and up again

Ciphertext BootstrapperImpl::takeDown(const Ciphertext& in) const {
    const auto gain = static_cast<long>(parameter_.pre_raise_factor);
    Ciphertext t = unsetCiphertext(context_);
    if (in.getEncodingType() == EncodingType::Slot) {
        evaluator_->levelDown(in, getMinLevelForBootstrap(), t);
        evaluator_->multInteger(t, gain, t);
        slotToCoeff(t, t);
    } else {
        t = in;
        t.setEncodingType(EncodingType::Slot); // the operations require it; the values are on coefficients
        evaluator_->levelDown(t, 0, t);
        evaluator_->multInteger(t, gain, t);
    }
    return t;
}

void BootstrapperImpl::raiseModulus(Ciphertext& t) const {
    if (context_->parameter.has_sparse_encapsulation) {
        switchKeyDTS(t, t, false);
        levelRecover(t, t);
        switchKeySTD(t, t, true);
        return;
    }
    const PrimeModuli& primes = context_->primes;
    if (t.getPoly(0).isNTT())
        for (u64 i = 0; i < 2; ++i) primes.backwardNTT(t.getPoly(i), t.getPoly(i));
    levelRecover(t, t);
    for (u64 i = 0; i < 2; ++i) primes.forwardNTT(t.getPoly(i), t.getPoly(i));
}

void BootstrapperImpl::levelRecover(const Ciphertext& in, Ciphertext& out) const {
    require(in.getLevel() == 0, message::levelNotZero);
    require(in.getRescaleCounter() == 0, message::rescaleCounterNotZero);
    Ciphertext raised = unsetCiphertext(context_, in.getNumPoly());
    for (u64 i = in.getNumPoly(); i-- > 0;)
        context_->primes.normalizeMod(raised.getPoly(i), in.getPoly(i), 0,
                                      context_->parameter.chain_length - 1);
    Stamp::of(in).putOn(raised);
    out = std::move(raised);
}

void BootstrapperImpl::fold(Ciphertext& t, u64 log_slots) const {
    Ciphertext turned = unsetCiphertext(context_);
    for (u64 i = log_slots; i < getLogFullSlots(context_); ++i) {
        evaluator_->leftRotate(t, u64{1} << i, turned);
        evaluator_->add(t, turned, t);
    }
}

// ---- the linear transforms

void BootstrapperImpl::coeffToSlot(const Ciphertext& in, Ciphertext& out) const {
    const RadixDecomposition plan(in.getLogSlots());
    out = in;
    for (u64 stage = 0; stage < plan.numStages; ++stage) {
        applyStage(plan, stage, constants(in.getLogSlots()).getInvV0(out.getDevice())[stage], out);
        // That of the last level stays owed.
        if (stage + 1 < BootParameter::coeff_to_slot_depth) evaluator_->rescale(out);
    }
    multiplyForMissingStages(out, plan.numStages);
}

/// As many multiplications in all as the transform has levels, stages included, the last of which stays
/// unrescaled. Each takes an equal share of the constant of the whole transform.
void BootstrapperImpl::multiplyForMissingStages(Ciphertext& x, u64 stages) const {
    const u64 folded = context_->parameter.num_slots / x.getNumberOfSlots();
    const double constant = parameter_.coeff_to_slot_constant / static_cast<double>(folded);
    // One slot spends a level less if all levels have primes of one size.
    const bool isShort = stages == 0 && !context_->parameter.hasLevelsAboveEncryption();
    const u64 total = BootParameter::coeff_to_slot_depth - (isShort ? 1 : 0);
    const double root = equalShare(constant, total);
    for (u64 done = stages; done < total; ++done) {
        if (x.getRescaleCounter() > 0) evaluator_->rescale(x);
        evaluator_->multWithoutRescale(x, std::complex<double>(root, 0.0), x);
    }
}

void BootstrapperImpl::slotToCoeff(const Ciphertext& in, Ciphertext& out) const {
    const RadixDecomposition plan(in.getLogSlots());
    out = in;
    const u64 depth = BootParameter::slot_to_coeff_depth;
    const double root = equalShare(parameter_.slot_to_coeff_constant, depth);
    for (u64 missing = plan.numStages; missing < depth; ++missing) {
        evaluator_->multWithoutRescale(out, std::complex<double>(root, 0.0), out);
        evaluator_->rescale(out);
    }
    for (u64 stage = plan.numStages; stage-- > 0;) {
        applyStage(plan, stage, constants(in.getLogSlots()).getV0(out.getDevice())[stage], out);
        evaluator_->rescale(out);
    }
}

/// x = sum over diagonals d of the stage of diag(d) * rotate(x, d). With d = g + j, g a multiple of
/// baby * step, the diagonals were rotated back by g when they were encoded. So x is rotated only by the baby
/// parts j, and each group's sum once, by g.
void BootstrapperImpl::applyStage(const RadixDecomposition& plan, u64 stage,
                                  const std::vector<Plaintext>& diagonals, Ciphertext& x) const {
    const std::vector<Ciphertext> sums = groupSums(plan, stage, diagonals, babyRotations(plan, stage, x));
    if (sequential_rotations_)
        combineInSequence(plan, stage, sums, x);
    else
        evaluator_->rotSum(sums, convertFromSgnIdx(plan.getRotIndicesForGiantStep(stage), context_), x);
}

std::vector<Ciphertext> BootstrapperImpl::babyRotations(const RadixDecomposition& plan, u64 stage,
                                                        const Ciphertext& x) const {
    std::vector<Ciphertext> turned;
    if (!sequential_rotations_) {
        evaluator_->leftRotate(x, convertFromSgnIdx(plan.getRotIndicesForBabyStep(stage), context_), turned);
        return turned;
    }
    turned.reserve(plan.babySteps[stage]);
    turned.push_back(x);
    while (turned.size() < plan.babySteps[stage]) {
        turned.push_back(unsetCiphertext(context_));
        evaluator_->leftRotate(turned[turned.size() - 2], plan.step[stage], turned.back());
    }
    return turned;
}

/// For each giant step the inner product of its diagonals with the baby rotations. The diagonals of a stage
/// after the first begin with the second position.
std::vector<Ciphertext> BootstrapperImpl::groupSums(const RadixDecomposition& plan, u64 stage,
                                                    const std::vector<Plaintext>& diagonals,
                                                    const std::vector<Ciphertext>& turned) const {
    const u64 baby = plan.babySteps[stage];
    const u64 skipped = stage == 0 ? 0 : 1;
    std::vector<Ciphertext> sums;
    sums.reserve(plan.giantSteps[stage]);
    for (u64 k = 0; k < plan.giantSteps[stage]; ++k) {
        const u64 first = k == 0 ? skipped : 0;
        const Plaintext* begin = diagonals.data() + k * baby + first - skipped;
        evaluator_->innerProduct(begin, begin + (baby - first), turned.data() + first,
                                 sums.emplace_back(unsetCiphertext(context_)));
    }
    return sums;
}

/// The sum over k of sums[k] rotated to the left by (k - giant / 2) * gap, in steps of one gap.
void BootstrapperImpl::combineInSequence(const RadixDecomposition& plan, u64 stage,
                                         const std::vector<Ciphertext>& sums, Ciphertext& x) const {
    const u64 giant = sums.size();
    const u64 gap = plan.babySteps[stage] * plan.step[stage];
    if (stage == 0 && giant >= 3) {
        // giant * gap is a full rotation, so all steps go to the right.
        x = sums[giant / 2 + 1];
        for (u64 u = 2; u <= giant; ++u) {
            evaluator_->rightRotate(x, gap, x);
            evaluator_->add(x, sums[(giant / 2 + u) % giant], x);
        }
        return;
    }
    x = sums[giant - 1];
    for (u64 k = giant - 1; k > giant / 2; --k) {
        evaluator_->leftRotate(x, gap, x);
        evaluator_->add(x, sums[k - 1], x);
    }
    if (giant < 2) return;
    Ciphertext rest = unsetCiphertext(context_);
    evaluator_->rightRotate(sums[0], gap, rest);
    for (u64 k = 1; k < giant / 2; ++k) {
        evaluator_->add(rest, sums[k], rest);
        evaluator_->rightRotate(rest, gap, rest);
    }
    evaluator_->add(x, rest, x);
}

} // namespace Torvo
