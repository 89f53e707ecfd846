#pragma once

#include "core/Integers.hpp"

#include <Torvo/Context.hpp>

namespace Torvo {

/// The variances of docs/noise.md, of the error of a slot: E|error|^2 in units of the message, for a message of
/// `slots` slots.
class NoiseRules {
public:
    explicit NoiseRules(const Context& context);

    double encoding(u64 level, u64 slots) const;
    /// Under a public key.
    double encryption(u64 level, u64 slots) const;
    /// Of a rescale that ends at `level`.
    double rescale(u64 level, u64 slots) const;
    /// Of data of the scale of `level`.
    double keySwitch(u64 level, u64 slots) const {
        return ofSlot(ofDigits(level) + ofDivision(), level, slots);
    }
    /// The same before the division by the temporary primes, as a part of what is divided by them.
    double undividedKeySwitch(u64 level, u64 slots) const { return ofSlot(ofDigits(level), level, slots); }

private:
    /// Of a coefficient, what the errors of a key add.
    double ofDigits(u64 level) const;
    /// Of a coefficient, what the division by the temporary primes rounds.
    double ofDivision() const;
    /// Of a coefficient, as an error of a slot at `level`: decoding reads 2 coefficients for each slot.
    double ofSlot(double variance, u64 level, u64 slots) const;

    Context context_;
    double degree_, weight_;
};

} // namespace Torvo
