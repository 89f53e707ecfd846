#include "support/SimulatedBootstrap.hpp"

#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/ContextContent.hpp"

#include <cmath>
#include <numbers>

namespace Torvo::test {

SimulatedBootstrap::SimulatedBootstrap(const Context& context, u64 logSlots, bool isSequential,
                                       ErrorSources sources)
    : context_(context), boot_(context), sources_(sources), logSlots_(logSlots),
      errors_(context, logSlots, logSlots, isSequential), isSequential_(isSequential) {
    const std::vector<double>& logScale = context->scale_factors.log_scale;
    const auto q0 = Real(context->primes.getPrime(0));
    epsilon_ = Real(boot_.pre_raise_factor) * std::exp2(Real(logScale[0])) / q0;
    if (boot_.separate_normalization)
        normalization_ = std::exp2(Real(logScale[context->parameter.chain_length - 1])) / q0 /
                         (2 * boot_.range_bound * Real(boot_.post_raise_factor));
}

// ---- flows

Message SimulatedBootstrap::bootstrap(const Message& in, bool isComplex) {
    return pass(in, isComplex, 1.0, errors_, errors_.encryption(3));
}

/// As `BootstrapperImpl::bootstrapExtended`: the fine pass takes the transforms of full slots.
Message SimulatedBootstrap::bootstrapExtended(const Message& in, bool isComplex) {
    const double high = std::exp2(boot_.extended_high_shift), low = std::exp2(boot_.extended_low_shift);
    const TransformErrors full(context_, getLogFullSlots(context_), logSlots_, isSequential_);
    isNoisy_ = sources_.slotToCoeff;
    Message encrypted = in, coarse = in, residual = in, out = in;
    for (u64 i = 0; i < in.getSize(); ++i) {
        drawSecret();
        encrypted[i] += std::complex<double>(complexNormal(errors_.encryption(4)));
        coarse[i] = encrypted[i] / high;
    }
    coarse = pass(coarse, isComplex, 1.0, errors_, errors_.rescale(3));
    isNoisy_ = sources_.slotToCoeff;
    for (u64 i = 0; i < in.getSize(); ++i) {
        const std::complex<double> broughtDown(complexNormal(errors_.rescale(4)));
        residual[i] = (encrypted[i] - (coarse[i] * high + broughtDown)) * low;
    }
    residual = pass(residual, true, 1 / low, full, errors_.rescale(3));
    for (u64 i = 0; i < in.getSize(); ++i) out[i] = coarse[i] * high + residual[i];
    return out;
}

Message SimulatedBootstrap::pass(const Message& in, bool isComplex, double factor,
                                 const TransformErrors& transforms, double errorOfInput) {
    double meanSquare = 0;
    for (const auto& slot : in) meanSquare += std::norm(slot) / static_cast<double>(in.getSize());
    const Deviations deviations{std::sqrt(transforms.beforeRaise(meanSquare, errorOfInput)),
                                std::sqrt(transforms.multiples()), std::sqrt(transforms.afterRaise())};
    Message out = in;
    for (auto& slot : out) {
        drawSecret();
        Complex sum = removeI(slot.real(), factor, deviations);
        if (isComplex) sum += Complex(0, 1) * removeI(slot.imag(), factor, deviations);
        slot = std::complex<double>(sum);
    }
    return out;
}

// ---- the sine

/// y - 1 / (4 K), a quarter of a period before y = x / (K q0).
SimulatedBootstrap::Number SimulatedBootstrap::argument(double part, const Deviations& deviations) {
    const double noise = normal() * deviations.part, error = normal() * deviations.argument;
    const double multiple = std::round(normal() * deviations.multiple);
    const Real message = part + (sources_.slotToCoeff ? noise : 0);
    Number y{(multiple + epsilon_ * message) / boot_.range_bound, errors_.levelAfter()};

    isNoisy_ = sources_.coeffToSlot;
    for (u64 level = context_->parameter.chain_length - 1; level > y.level; --level)
        y.value *= liftOf(level) / Real(errors_.lift(level));
    y.value = y.value / normalization_ + Real(isNoisy_ ? error : 0);
    y.value += complexNormal(errors_.rescale(y.level));

    isNoisy_ = sources_.cosine;
    if (boot_.separate_normalization) y = rescaled(y.value * normalization_, y.level);
    y.value -= 0.25L / boot_.range_bound;
    return y;
}

SimulatedBootstrap::Complex SimulatedBootstrap::removeI(double part, double factor,
                                                        const Deviations& deviations) {
    const Number y = argument(part, deviations);
    // Seen at the scale below it, a value is lifted by the step between large and small primes.
    const u64 lowest = context_->parameter.encryption_level + 1;
    const Real step = context_->parameter.preset == ParameterPreset::FVa ? 1 : errors_.lift(lowest);
    const Real f = factor / (step * epsilon_ * 2 * std::numbers::pi_v<Real>);
    const bool hasArcsine = boot_.arcsine_degree > 1;
    const Real amplitude = hasArcsine ? 1 : std::pow(f, std::exp2(-Real(boot_.double_angle_count)));
    const Number sine = doubleAngles(cosine(y, amplitude), amplitude);
    return hasArcsine ? arcsine(sine, f).value : sine.value;
}

SimulatedBootstrap::Number SimulatedBootstrap::cosine(const Number& y, Real amplitude) {
    const Number t2 = chebyshevDouble(y), t4 = chebyshevDouble(t2);
    const Number t2a = lowered(t2), t2b = lowered(t2a), t4b = lowered(t4);
    Number t6 = rescaled(2.0L * t2a.value * t4.value, t4.level);
    t6.value -= t2b.value;

    std::vector<Number> blocks, giants;
    const u64 count = u64{1} << boot_.log_cosine_blocks;
    for (u64 j = 0; j < count; ++j) {
        const double* given = &boot_.cosine_coefficients[4 * j];
        const Real c0 = amplitude * given[0], c1 = amplitude * given[1], c2 = amplitude * given[2],
                   c3 = amplitude * given[3];
        if (j + 1 < count) {
            blocks.push_back(rescaled(c1 * t2b.value + c2 * t4b.value + c3 * t6.value, t6.level));
        } else {
            const Number scaled = rescaled(c3 * t2.value, t2.level);
            blocks.push_back(
                rescaled((2.0L * t4.value - 1.0L) * scaled.value + c1 * t2a.value + c2 * t4.value, t4.level));
        }
        blocks.back().value += c0;
    }
    for (u64 k = 0; k < boot_.log_cosine_blocks; ++k)
        giants.push_back(chebyshevDouble(k == 0 ? t4 : giants.back()));
    return count == 4 ? joinFour(blocks, giants) : joinEight(blocks, giants);
}

/// P0 + P1 U0 + (P2 + P3 U0) U1.
SimulatedBootstrap::Number SimulatedBootstrap::joinFour(std::vector<Number>& P, std::vector<Number>& U) {
    P[3] = rescaled(P[3].value * U[0].value, P[3].level);
    U[0] = lowered(U[0]);
    const Complex upper = P[2].value + P[3].value;
    Number sum = rescaled(P[1].value * U[0].value + upper * U[1].value, P[1].level);
    sum.value += lowered(P[0]).value;
    return sum;
}

/// P0 + P1 U0 + (P2 + P3 U0) U1 + (P4 + P5 U0 + (P6 + P7 U0) U1) U2.
SimulatedBootstrap::Number SimulatedBootstrap::joinEight(std::vector<Number>& P, std::vector<Number>& U) {
    P[7] = rescaled(P[7].value * U[0].value, P[7].level);
    U[0] = lowered(U[0]);
    P[6] = rescaled(P[5].value * U[0].value + (P[6].value + P[7].value) * U[1].value, P[6].level);
    P[4] = lowered(P[4]);
    P[4].value += P[6].value;

    P[3] = rescaled(P[3].value * U[0].value, P[3].level);
    for (Number* low : {&P[1], &U[0], &P[2], &U[1]}) *low = lowered(*low);
    P[2].value += P[3].value;
    Number sum =
        rescaled(P[1].value * U[0].value + P[2].value * U[1].value + U[2].value * P[4].value, P[4].level);
    const Number low = rescaled(P[0].value, P[4].level); // two levels in one step
    sum.value += low.value;
    return sum;
}

SimulatedBootstrap::Number SimulatedBootstrap::doubleAngles(Number x, Real amplitude) {
    isNoisy_ = sources_.doubleAngle;
    for (u64 i = 0; i < boot_.double_angle_count; ++i) {
        const auto lift = Real(errors_.lift(x.level));
        amplitude *= amplitude;
        Number product = rescaled(x.value * x.value, x.level);
        x = {2.0L * product.value - amplitude * lift, product.level};
    }
    return x;
}

SimulatedBootstrap::Number SimulatedBootstrap::arcsine(const Number& s, Real factor) {
    isNoisy_ = sources_.arcsine;
    Number u = rescaled(s.value * s.value, s.level);
    if (boot_.arcsine_degree == 3) {
        const Number v = rescaled(s.value * (factor / 6), s.level);
        return rescaled(v.value * (u.value + 6.0L), u.level);
    }
    constexpr Real p = 2.966683928392619, q = -1.2866839283926188, r = 7.550517864616794;
    const Number v = rescaled(u.value * u.value + q * u.value, u.level);
    const Number h = rescaled(s.value * (factor * 5 / 112), s.level);
    const Number x = rescaled(h.value * (u.value + p), u.level);
    return rescaled(x.value * (v.value + r), v.level);
}

// ---- numbers with errors

SimulatedBootstrap::Real SimulatedBootstrap::liftOf(u64 level) const {
    if (!sources_.scales) return errors_.lift(level);
    const std::vector<double>& logScale = context_->scale_factors.log_scale;
    const auto above = Real(logScale[level]);
    return std::exp2(2 * above - Real(logScale[level - 1])) / Real(context_->primes.getPrime(level));
}

SimulatedBootstrap::Number SimulatedBootstrap::rescaled(Complex product, u64 level) {
    return {product * liftOf(level) + complexNormal(errors_.rescale(level - 1)), level - 1};
}

SimulatedBootstrap::Number SimulatedBootstrap::chebyshevDouble(const Number& a) {
    const Number square = rescaled(a.value * a.value, a.level);
    return {2.0L * square.value - 1.0L, square.level};
}

/// The error of a rescale is r0 + r1 s: where the secret is large, so is the error.
SimulatedBootstrap::Complex SimulatedBootstrap::complexNormal(double square) {
    const double weight = static_cast<double>(context_->parameter.hamming_weight);
    const double deviation = std::sqrt(square * (1 + secretSquare_) / (1 + weight) / 2);
    const double real = deviation * normal(), imag = deviation * normal();
    return isNoisy_ ? Complex(real, imag) : Complex(0);
}

/// |s|^2 of a slot of the secret is h times an exponential variable; the slots of the ring that make one of
/// a sparse message take the mean of theirs.
void SimulatedBootstrap::drawSecret() {
    const double folded = static_cast<double>(context_->parameter.num_slots >> logSlots_);
    const double weight = static_cast<double>(context_->parameter.hamming_weight);
    secretSquare_ = std::gamma_distribution<double>(folded, weight / folded)(random_);
}

} // namespace Torvo::test
