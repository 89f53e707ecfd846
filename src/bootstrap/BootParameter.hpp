#pragma once

#include "core/Integers.hpp"

#include <Torvo/Context.hpp>

#include <vector>

namespace Torvo {

/// The numbers by which bootstrapping is adapted to a preset; empty for presets without bootstrapping.
struct BootParameter {
    /// Empty for a preset without bootstrapping.
    explicit BootParameter(const Context& context);

    /// The level of a bootstrapped ciphertext.
    u64 levelAfter(const Context& context) const;

    u64 pre_raise_factor = 0;                ///< integer gain before the modulus raise
    u64 post_raise_factor = 0;               ///< integer gain after it
    std::vector<double> cosine_coefficients; ///< block coefficients of the cosine polynomial
    double range_bound = 0;                  ///< K: the raised value over q0 lies in (-K, K)
    bool separate_normalization = false;     ///< divide by 2K in a multiplication of its own, one level more
    u64 log_cosine_blocks = 0;               ///< g: the cosine polynomial has 2^g blocks, 3 + g levels
    u64 double_angle_count = 0;              ///< m: double-angle steps, one level each
    u64 arcsine_degree = 1;                  ///< 1 (none), 3 or 7: 0, 2 or 3 levels
    double coeff_to_slot_constant = 0;       ///< product of all constants of coefficient-to-slot, full slots
    double slot_to_coeff_constant = 0;
    /// Levels of the transforms, whatever the number of their stages.
    static constexpr u64 coeff_to_slot_depth = 3, slot_to_coeff_depth = 3;
    u64 extended_high_shift = 0; ///< bits by which extended bootstrap shifts the message down at first
    u64 extended_low_shift = 0;  ///< bits by which it shifts the residual up

private:
    void setTransformConstants(const ContextContent& context);
};

/// The factor whose `count`-th power is `constant`: each of `count` multiplications, 1 to 3, applies it.
double equalShare(double constant, u64 count);

/// A fraction as a key of the cosine tables: 16/5 and 32/10 are one key.
struct Rational {
    int numerator;
    int denominator;
    friend bool operator<(const Rational& a, const Rational& b) {
        return a.numerator * b.denominator < b.numerator * a.denominator;
    }
};

/// The block coefficients c of the even polynomial that interpolates cos(pi * r * y) at the zeros of T_2D:
/// sum over blocks j of (c[4j] + c[4j+1] T2 + c[4j+2] T4 + c[4j+3] T6) * product over set bits k of j of
/// T_(8 * 2^k), for D = `degree` coefficients.
/// @throws std::out_of_range "map::at" for a pair without table
std::vector<double> getCosineCoeff(Rational r, u64 degree);

} // namespace Torvo
