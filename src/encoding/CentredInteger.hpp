#pragma once

#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/kernels/Centred.hpp"
#include "core/Integers.hpp"

#include <bit>

namespace Torvo {

/// Reads integers from their residues modulo the first two primes of a chain: y = x0 + q0 * t with t = (x1 - x0) / q0
/// modulo q1, by Garner's form of the Chinese remainder theorem. With both primes below 2^61 y stays below 2^122.
class TwoPrimeReader {
public:
    explicit TwoPrimeReader(const PrimeModuli& primes)
        : m1_(primes[1]), q0_(primes.getPrime(0)), inverse_(m1_.inverse(m1_.reduce(q0_))),
          product_(u128{q0_} * primes.getPrime(1)) {}

    /// The integer nearest to zero that is x0 modulo prime 0 and x1 modulo prime 1. Its magnitude is rounded once.
    double operator()(u64 x0, u64 x1) const {
        const u64 t = m1_.mult(m1_.sub(x1, m1_.reduce(x0)), inverse_);
        // Signs of coefficients are random: none is worth a jump.
        const u64 isBelowZero = static_cast<u64>(t + 1 == m1_.getPrime()) & static_cast<u64>(x0 < q0_);
        if ((static_cast<u64>(t == 0) | isBelowZero) != 0)
            return withSign(isBelowZero, toDouble(isBelowZero != 0 ? q0_ - x0 : x0));
        u128 y = u128{q0_} * t + x0;
        if (y >= product_) y -= product_; // for a word x0 that is not reduced
        const auto isNegative = static_cast<u64>(y > product_ >> 1);
        const u128 mask = -u128{isNegative};
        return withSign(isNegative, nearestDouble((y ^ mask) - mask + (product_ & mask)));
    }

private:
    /// The double nearest to x < 2^126, as a conversion by the compiler gives it, which calls a function.
    static double nearestDouble(u128 x) {
        if (x >> 63 == 0) return toDouble(static_cast<u64>(x));
        // The leading 63 bits; the last of them says whether anything is below, which decides a tie.
        const auto dropped = static_cast<u64>(std::bit_width(static_cast<u64>(x >> 63)));
        const u128 rest = x & ((u128{1} << dropped) - 1);
        const u64 leading = static_cast<u64>(x >> dropped) | (rest != 0 ? 1 : 0);
        return toDouble(leading) * std::bit_cast<double>((1023 + dropped) << 52);
    }
    /// For x < 2^63, whose conversion is one instruction.
    static double toDouble(u64 x) { return static_cast<double>(static_cast<long>(x)); }
    /// -x for `isNegative` 1, x for 0; x >= 0.
    static double withSign(u64 isNegative, double x) {
        return std::bit_cast<double>(std::bit_cast<u64>(x) | isNegative << 63);
    }

    const Modulus& m1_;
    u64 q0_;
    u64 inverse_; ///< of prime 0, modulo prime 1
    u128 product_;
};

} // namespace Torvo
