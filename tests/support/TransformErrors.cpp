#include "support/TransformErrors.hpp"

#include <algorithm>
#include <cmath>

namespace Torvo::test {

namespace {

double squared(double x) {
    return x * x;
}

/// The context of the sparse secret, or null.
Context encapsulationOf(const Context& context) {
    const Parameter& parameter = context->parameter;
    return parameter.has_sparse_encapsulation ? makeContext(getSparseParameterPresetFor(parameter.preset))
                                              : nullptr;
}

} // namespace

TransformErrors::TransformErrors(const Context& context, u64 logSlots, u64 logRead, bool isSequential)
    : context_(context), boot_(context), plan_(logSlots), noise_(context), logSlots_(logSlots),
      top_(context->parameter.chain_length - 1),
      folded_(static_cast<double>(context->parameter.num_slots >> logSlots)),
      coefficients_(static_cast<double>(u64{2} << logRead)), isSequential_(isSequential) {}

double TransformErrors::slots(double variance, u64 level) const {
    return coefficients_ * variance / squared(noise_.scale(level));
}

double TransformErrors::lift(u64 level) const {
    return std::exp2(-static_cast<double>(context_->scale_factors.level_correction[level]));
}

/// Of a diagonal. A stage's matrix is made of equal blocks, which are the smaller the later the stage. So its
/// diagonals are periodic, and their polynomials lie in the subring of as many slots as the period has: no
/// other coefficient is rounded.
double TransformErrors::encoding(u64 stage, u64 level) const {
    u64 period = u64{1} << logSlots_;
    for (u64 s = 0; s < stage; ++s) period /= plan_.radix[s];
    return std::min(1.0, 2 * static_cast<double>(period) / coefficients_) * slots(1.0 / 12, level);
}

/// The errors of the baby rotations are multiplied by the diagonals like the slots. Those of the giant ones,
/// made before the rescale, become negligible in it. Each diagonal is rounded once.
void TransformErrors::apply(u64 stage, u64 level, double rowSquare, Squares& x) const {
    const auto radix = static_cast<double>(plan_.radix[stage]);
    const auto baby = static_cast<double>(plan_.babySteps[stage]);
    const double diagonals = stage == 0 ? radix : 2 * radix - 1;
    // In sequence, the rotation by j steps has taken j switches; in batches, all but that by none take one.
    const double switches = isSequential_ ? (baby - 1) / 2 : (baby - 1) / baby;
    const double square = squared(lift(level));
    const double rounded = diagonals * x.signal * encoding(stage, level);
    x.error += switches * slots(noise_.keySwitch(level).total(), level);
    x.multiply(rowSquare * square);
    x.error += rounded * square;
}

double TransformErrors::beforeRaise(double meanSquare, double error) const {
    const double gain = squared(static_cast<double>(boot_.pre_raise_factor));
    const double constant = squared(std::cbrt(boot_.slot_to_coeff_constant));
    Squares x{gain * meanSquare, gain * error};
    u64 level = 3;
    for (; level > plan_.numStages; --level) {
        x.multiply(constant * squared(lift(level)));
        x.error += rescale(level - 1);
    }
    for (; level > 0; --level) {
        apply(level - 1, level, constant * static_cast<double>(plan_.radix[level - 1]), x);
        x.error += rescale(level - 1);
    }
    // From slots to pairs of coefficients, and to one of the pair.
    double variance = x.error / std::exp2(logSlots_) / 2;
    if (const Context sparse = encapsulationOf(context_))
        variance += NoiseModel(sparse).keySwitch(0).total() / squared(noise_.scale(0));
    return variance / gain;
}

/// Of a sum of h + 1 numbers uniform in (-1/2, 1/2).
double TransformErrors::multiples() const {
    const Context sparse = encapsulationOf(context_);
    const double weight = sparse ? NoiseModel(sparse).h : noise_.h;
    return (weight + 1) / 12;
}

/// The raised polynomial, folded: q0 I for the most part.
TransformErrors::Squares TransformErrors::raised() const {
    const double q0 = noise_.prime(0) / noise_.scale(top_);
    const double rotation = slots(noise_.keySwitch(top_).total(), top_);
    Squares x{2 * std::exp2(logSlots_) * multiples() * squared(q0), 0};
    if (context_->parameter.has_sparse_encapsulation) x.error = rotation;
    x.multiply(squared(folded_));
    for (double later = folded_ / 2; later >= 1; later /= 2) x.error += rotation * squared(later);
    x.multiply(squared(static_cast<double>(boot_.post_raise_factor)));
    return x;
}

/// One slot on FVa takes a level less.
bool TransformErrors::isShort() const {
    return plan_.numStages == 0 && context_->parameter.preset == ParameterPreset::FVa;
}

u64 TransformErrors::levelAfter() const {
    return top_ - multiplications();
}

double TransformErrors::afterRaise() const {
    const double constant = boot_.coeff_to_slot_constant / folded_;
    const double factor = std::pow(constant, 2.0 / static_cast<double>(multiplications()));
    Squares x = raised();
    for (u64 done = 0; done < multiplications(); ++done) {
        const u64 level = top_ - done;
        if (done > 0) x.error += rescale(level);
        if (done < plan_.numStages)
            apply(done, level, factor / static_cast<double>(plan_.radix[done]), x);
        else
            x.multiply(factor * squared(lift(level)));
    }
    return 2 * x.error; // twice the real part, which has half the square
}

} // namespace Torvo::test
