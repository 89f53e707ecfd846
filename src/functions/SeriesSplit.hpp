#pragma once

#include "core/Integers.hpp"

#include <vector>

namespace Torvo {

/// The number of levels that a polynomial of `degree` spends: ceil(log2(degree + 1)).
u64 seriesDepth(u64 degree);

/// How polynomials are computed from powers of their argument (or, in the same way, from Chebyshev polynomials of it):
/// which powers are made, and where each part is divided.
///
/// A part of degree d is a sum of powers that exist, or q * T_m + r with a power T_m and parts q of degree d - m and r
/// of degree below m. All products of the chain of remainders are added up before they are relinearised and rescaled
/// together, so q alone needs a relinearisation and a level of its own. (Paterson and Stockmeyer, SIAM J. Comput. 2,
/// 1973; with the depth as a bound: Bossuat, Mouchet, Troncoso-Pastoriza and Hubaux, IACR ePrint 2020/1203.)
///
/// The powers are 1 to k and the doublings of one of them, or the odd ones up to k and powers of two; which they are,
/// and the divisions, are those of the least cost, found by dynamic programming, among those that spend no level more than `seriesDepth`.
class SeriesSplit {
public:
    enum class Terms { All, Odd };
    /// T_index, from T_first and T_second, whose indices differ by that of a power before it, or by 0.
    struct Power {
        u64 index, first, second;
    };
    struct Cost {
        unsigned tensors = 0;
        unsigned relinearizations = 0;
    };

    /// For all of several polynomials of one argument, of `degrees` from 1 on. With `Odd` terms the degrees are odd.
    SeriesSplit(const std::vector<u64>& degrees, Terms terms);

    /// In the order in which they can be made; without the first, the argument.
    const std::vector<Power>& powers() const { return powers_; }
    /// The index of the power by which a part of `degree`, whose sum may be at `depth`, is divided; 0 for a sum of
    /// powers. If it is `degree`, the quotient is a number.
    u64 divisor(u64 degree, u64 depth) const;
    /// Of the powers and of all polynomials.
    Cost cost() const { return cost_; }

private:
    struct Part {
        Cost cost;
        u64 divisor = 0;
        unsigned round = 0; ///< in which this was found
        bool isPossible = false;
        bool isProduct = false; ///< of three elements before it is relinearised
    };

    /// With powers up to `small`, and the doublings of one of them up to `large`.
    void makePowers(u64 small, u64 doubled, u64 large);
    /// The degree of what is left of a part that is divided by T_m.
    u64 remainderDegree(u64 m) const { return terms_ == Terms::All || m < 2 ? m - 1 : m - 1 - m % 2; }
    bool isSumOfPowers(u64 degree, u64 depth) const;
    const Part& part(u64 degree, u64 depth) const;
    Part bestPart(u64 degree, u64 depth) const;
    u64 leastWeight(const std::vector<u64>& degrees) const;
    bool evaluateAll(const std::vector<u64>& degrees);

    Terms terms_;
    u64 largest_; ///< of the degrees
    u64 small_ = 1;
    std::vector<Power> powers_;
    std::vector<u64> indices_; ///< those by which a part can be divided
    Cost cost_;
    unsigned round_ = 0;              ///< of the powers that were tried
    mutable std::vector<Part> parts_; ///< by depth and degree
};

} // namespace Torvo
