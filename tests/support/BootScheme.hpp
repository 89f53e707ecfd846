#pragma once

#include "arithmetic/PrimeModuli.hpp"
#include "bootstrap/BootstrapperImpl.hpp"
#include "context/ContextContent.hpp"
#include "support/Scheme.hpp"
#include "support/WideArithmetic.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Torvo::test {

/// Coefficient k of a message of n slots stands in slot `reversed` of it after slot-to-coefficient.
inline u64 reversedSlot(u64 k, u64 logSlots) {
    return logSlots == 0 ? 0 : reversedBits(k, static_cast<int>(logSlots));
}

/// The toy preset with all that bootstrapping needs for every number of slots, made once per process.
class BootScheme {
public:
    static const BootScheme& toy() {
        static const BootScheme made;
        return made;
    }

    const BootstrapperImpl& of(bool sequential) const { return sequential ? inSequence : batched; }

    /// Like `Scheme::encrypt`, at any level, above that of encryption too, and without an error: b = m - a s.
    Ciphertext encryptAt(const Message& message, u64 level) const {
        return encryptPlaintext(scheme.encoder.encode(message, level));
    }
    Ciphertext encryptPlaintext(const Plaintext& plaintext) const {
        const PrimeModuli& primes = scheme.context->primes;
        Polynomial m = plaintext.getMx();
        if (!m.isNTT()) primes.forwardNTT(m, m);
        Polynomial a = m, masked = m;
        Seeded random(7);
        for (u64 i = 0; i <= a.getLevel(); ++i)
            std::ranges::copy(random.row(a.getDegree(), primes.getPrime(i)), a.getRow(i));
        primes.hadamardMult(a, scheme.secretKey.getSx(), masked);
        Ciphertext out(scheme.context);
        out.setNumPoly(2);
        primes.sub(m, masked, out.getPoly(0));
        out.getPoly(1) = a;
        out.setLogSlots(plaintext.getLogSlots());
        return out;
    }

    /// What the message is divided by under the sine: its period is q0, the message's scale 2^log_scale[0].
    double eps() const {
        const auto& context = *scheme.context;
        const double q0 = static_cast<double>(context.primes.getPrime(0));
        return static_cast<double>(parameter.pre_raise_factor) *
               std::exp2(context.scale_factors.log_scale[0]) / q0;
    }

    /// How far sin(2 pi eps m) / (2 pi eps) lies from m at most: (2 pi eps)^2 / 6 * |m|^3.
    double bend(double m) const {
        const double x = 2 * std::numbers::pi * eps();
        return x * x / 6 * m * m * m;
    }

    /// The rest of the error. Below the raise: four roundings (to level 3 and on the three levels below) and
    /// as many key switches, at scales no lower than that of level 0. Above it, an error of y comes out
    /// K / eps times larger, that of the steepest place of sin(2 pi K y) / (2 pi eps). No later step is taken
    /// for worse; there are fewer than 64, each with a rounding and a switch. The cosine polynomial's own
    /// error, 9.0e-15, is multiplied by 4 in each double-angle step and by the amplitude 1 / (2 pi eps) in
    /// all.
    double noise() const {
        const ErrorModel& e = scheme.errors;
        const double step = e.rescale() + e.keySwitch();
        const double top = e.logScale(scheme.topLevel() - 3);
        const double angles = std::exp2(2.0 * static_cast<double>(parameter.double_angle_count));
        return 8 * e.atLevel(step, 0) + 64 * step * std::exp2(-top) * parameter.range_bound / eps() +
               9.0e-15 * angles / (2 * std::numbers::pi * eps());
    }

    /// Of one part of a bootstrapped message whose parts are at most m.
    double realBound(double m = 1.0) const { return bend(m) + noise(); }
    /// Of a complex slot: both parts, each with its own bend.
    double complexBound(double m = 1.0) const { return std::numbers::sqrt2 * bend(m) + 2 * noise(); }

    const Scheme& scheme;
    BootstrapperImpl batched, inSequence;
    const BootParameter& parameter;

private:
    BootScheme()
        : scheme(withKeys()), batched(scheme.evaluator, std::nullopt, 5, false),
          inSequence(scheme.evaluator, std::nullopt, 5, true), parameter(batched.getParameter()) {
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
