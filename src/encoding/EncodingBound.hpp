#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "context/ScaleFactors.hpp"
#include "core/Integers.hpp"

#include <cmath>
#include <span>
#include <string>

namespace Torvo {

/// Which numbers can be encoded at a level and a rescale counter. x * scale must stay below
///   half the product of the primes 0 to level - counter, since residues wrap around there (the primes still
///   owed multiply both sides); and
///   2^127, the limit of 128 bits.
/// The product is rounded as the encoders round it, and the limit is the smallest double that is not below
/// the true one. So a number passes exactly if its rounded product is below the limit.
class EncodingBound {
public:
    /// `level - rescale_counter` is a level of the chain.
    EncodingBound(const PrimeModuli& primes, const ScaleFactors& scales, u64 level, int rescale_counter);

    /// 2^log_scale[level - rescale_counter].
    double scale() const { return scale_; }
    /// False for NaN, infinities and numbers that are too large.
    bool holds(double x) const { return std::fabs(x) * scale_ < limit_; }
    /// Whether `holds` is true for all `numbers`. Costs little compared to an encode.
    bool holdsAll(std::span<const double> numbers) const;
    /// The largest double that `holds`; 0 if the scale itself is not a number and nothing holds.
    double largest() const;
    /// @throws RuntimeException with `value`, described as `what`, and the largest allowed number
    [[noreturn]] void refuse(const char* what, double value) const;

private:
    u64 level_;
    int rescale_counter_;
    double scale_;
    double limit_;
};

/// The shortest decimal form that reads back as x, in every locale.
std::string decimal(double x);

} // namespace Torvo
