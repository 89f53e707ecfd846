#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/ScaleFactors.hpp"
#include "core/Integers.hpp"

#include <cmath>
#include <span>
#include <string>

namespace Torvo {

/// Which numbers can be encoded at a level and a rescale counter. x * scale has to stay below
///   half the product of the primes 0 to level - counter, where residues begin to wrap around: the primes
///   still owed multiply both sides; and
///   2^127, which is what 128 bits hold.
/// The product is rounded as the encoders round it, and the limit is the smallest double that is not below
/// the true one: so a number passes exactly if its rounded product is below the limit.
class EncodingBound {
public:
    /// `level - rescaleCounter` is a level of the chain.
    EncodingBound(const PrimeModuli& primes, const ScaleFactors& scales, u64 level, int rescaleCounter);

    /// 2^log_scale[level - rescaleCounter].
    double scale() const { return scale_; }
    /// False for NaN, infinities and what is too large.
    bool holds(double x) const { return std::fabs(x) * scale_ < limit_; }
    /// Whether every one of `numbers` does: at a tenth of a percent or so of an encode.
    bool holdsAll(std::span<const double> numbers) const;
    /// The largest double that `holds`; 0 where the scale itself is no number, and nothing does.
    double largest() const;
    /// @throws RuntimeException with `value`, which is told as `what`, and the largest allowed
    [[noreturn]] void refuse(const char* what, double value) const;

private:
    u64 level_;
    int rescaleCounter_;
    double scale_;
    double limit_;
};

/// The shortest decimal form that reads back as x, in every locale.
std::string decimal(double x);

} // namespace Torvo
