#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "bootstrap/BootstrapperImpl.hpp"
#include "context/ContextContent.hpp"
#include "support/Scheme.hpp"
#include "support/WideArithmetic.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Torvo::test {

/// Coefficient k after slot-to-coefficient belongs to slot `reversed` of a message of n slots.
inline u64 reversedSlot(u64 k, u64 logSlots) {
    return logSlots == 0 ? 0 : reversedBits(k, static_cast<int>(logSlots));
}

/// An encryption at any level, above that of encryption too, and without an error: b = m - a s.
inline Ciphertext encryptAbove(const Context& context, const SecretKey& secretKey,
                               const Plaintext& plaintext) {
    const PrimeModuli& primes = context->primes;
    Polynomial m = plaintext.getMx();
    if (!m.isNTT()) primes.forwardNTT(m, m);
    Polynomial a = m, masked = m;
    Seeded random(7);
    for (u64 i = 0; i <= a.getLevel(); ++i)
        std::ranges::copy(random.row(a.getDegree(), primes.getPrime(i)), a.getRow(i));
    primes.hadamardMult(a, secretKey.getSx(), masked);
    Ciphertext out(context);
    out.setNumPoly(2);
    primes.sub(m, masked, out.getPoly(0));
    out.getPoly(1) = a;
    out.setLogSlots(plaintext.getLogSlots());
    return out;
}

/// The largest error of the cosine polynomial of a preset on [-1, 1].
inline double cosineErrorOf(ParameterPreset preset) {
    switch (preset) {
    case ParameterPreset::FVa:
        return 1.1e-14;
    case ParameterPreset::FVb:
    case ParameterPreset::FVc:
        return 1.6e-14;
    case ParameterPreset::FGa:
        return 1.1e-13;
    case ParameterPreset::FTa:
    case ParameterPreset::FTb:
        return 5.2e-11;
    default: // FGb, FGd, FX
        return 9.0e-15;
    }
}

/// How far a bootstrapped slot may lie from the message.
class BootErrorModel {
public:
    BootErrorModel(const Context& context, const BootParameter& parameter)
        : errors_(context), arcsineDegree_(parameter.arcsine_degree),
          userLevel_(context->parameter.encryption_level), rangeBound_(parameter.range_bound),
          angles_(std::exp2(2.0 * static_cast<double>(parameter.double_angle_count))),
          topScale_(errors_.logScale(context->parameter.chain_length - 4)),
          gain_(static_cast<double>(parameter.pre_raise_factor)),
          cosineError_(cosineErrorOf(context->parameter.preset)) {
        const double q0 = static_cast<double>(context->primes.getPrime(0));
        eps_ = gain_ * std::exp2(context->scale_factors.log_scale[0]) / q0;
    }

    /// The factor of the message in the argument of the sine, whose period is 1.
    double eps() const { return eps_; }

    /// The largest distance of sin(2 pi eps m) / (2 pi eps) from m: (2 pi eps)^2 / 6 * |m|^3. An arcsine
    /// polynomial of degree 3 or 7 leaves the first term of the series that it omits, 3/40 s^5 or 35/1152
    /// s^9; the further terms are less than a tenth of it for the small s here.
    double bend(double m) const {
        const double x = 2 * std::numbers::pi * eps_;
        if (arcsineDegree_ == 3) return 1.1 * 3.0 / 40 * std::pow(x, 4) * std::pow(m, 5);
        if (arcsineDegree_ == 7) return 1.1 * 35.0 / 1152 * std::pow(x, 8) * std::pow(m, 9);
        return x * x / 6 * m * m * m;
    }

    /// The rest of the error.
    /// Below the raise: four roundings (to level 3 and on the three levels below) and as many key switches,
    /// at scales no lower than that of level 0, after the gain.
    /// Above it, an error of y becomes K / eps times larger, by the steepest slope of sin(2 pi K y) / (2 pi
    /// eps). Errors of the Chebyshev polynomials on the way to the cosine count for more: that of T_2 with
    /// the slope (pi R)^2 / 4 of the cosine in it, those of T_4, T_8, ... with slopes that fall by 4 from one
    /// to the next. With the tables' coefficients the slopes of all roundings together are less than 128
    /// times K / eps. Key switches count less: those of products are divided by the following rescale, and
    /// those of the baby rotations by the constant of coefficient-to-slot, to less than one in all. The
    /// cosine polynomial's own error is multiplied by 4 in each double-angle step, and by the amplitude
    /// 1 / (2 pi eps) in the end. An arcsine has fewer than 8 roundings of its own, at the scale of the
    /// user's levels, each multiplied by 8 at most.
    double noise() const {
        const double above = errors_.keySwitch() + 128 * errors_.rescale();
        const double arcsine = arcsineDegree_ == 1 ? 0 : 64 * errors_.atLevel(errors_.rescale(), userLevel_);
        return errors_.atLevel(4 * (errors_.rescale() + errors_.keySwitch()), 0) / gain_ + arcsine +
               above * std::exp2(-topScale_) * rangeBound_ / eps_ +
               cosineError_ * angles_ / (2 * std::numbers::pi * eps_);
    }

    /// Of one part of a bootstrapped message whose parts are at most m.
    double realBound(double m = 1.0) const { return bend(m) + noise(); }
    /// Of a complex slot: both parts, each with its own bend.
    double complexBound(double m = 1.0) const { return std::numbers::sqrt2 * bend(m) + 2 * noise(); }

private:
    ErrorModel errors_;
    u64 arcsineDegree_, userLevel_;
    double eps_, rangeBound_, angles_, topScale_, gain_, cosineError_;
};

/// The toy preset with all that bootstrapping needs for every number of slots, made once per process.
class BootScheme {
public:
    static const BootScheme& toy() {
        static const BootScheme made;
        return made;
    }

    const BootstrapperImpl& of(bool sequential) const { return sequential ? inSequence : batched; }

    /// Like `Scheme::encrypt`, at any level.
    Ciphertext encryptAt(const Message& message, u64 level) const {
        return encryptPlaintext(scheme.encoder.encode(message, level));
    }
    Ciphertext encryptPlaintext(const Plaintext& plaintext) const {
        return encryptAbove(scheme.context, scheme.secretKey, plaintext);
    }

    double eps() const { return errors.eps(); }
    double bend(double m) const { return errors.bend(m); }
    double noise() const { return errors.noise(); }
    double realBound(double m = 1.0) const { return errors.realBound(m); }
    double complexBound(double m = 1.0) const { return errors.complexBound(m); }

    const Scheme& scheme;
    BootstrapperImpl batched, inSequence;
    const BootParameter& parameter;
    BootErrorModel errors;

private:
    BootScheme()
        : scheme(withKeys()), batched(scheme.evaluator, std::nullopt, 5, false),
          inSequence(scheme.evaluator, std::nullopt, 5, true), parameter(batched.getParameter()),
          errors(scheme.context, parameter) {
        for (u64 logSlots = 0; logSlots < 5; ++logSlots) {
            batched.makeBootConstants(logSlots);
            inSequence.makeBootConstants(logSlots);
        }
    }

    static const Scheme& withKeys() {
        const Scheme& scheme = Scheme::of(ParameterPreset::FX);
        const KeyGenerator generator(scheme.context, scheme.secretKey, scheme.keys);
        for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
            generator.genRotKeysForBootstrap(logSlots, false);
            generator.genRotKeysForBootstrap(logSlots, true);
        }
        return scheme;
    }
};

/// The scheme that tests on the toy preset share.
inline const BootScheme& boot() {
    return BootScheme::toy();
}
inline const Scheme& toy() {
    return boot().scheme;
}

/// The slots' real or imaginary parts alone.
inline Message realPart(Message message) {
    for (auto& slot : message) slot = slot.real();
    return message;
}
inline Message imagPart(Message message) {
    for (auto& slot : message) slot = slot.imag();
    return message;
}

} // namespace Torvo::test
