#pragma once

#include "bootstrap/BootParameter.hpp"
#include "context/RadixDecomposition.hpp"
#include "core/Integers.hpp"
#include "support/NoiseModel.hpp"

#include <Torvo/Context.hpp>

namespace Torvo::test {

/// The errors that the two linear transforms of bootstrapping add. Every slot of the result depends on all
/// slots before it, so errors are summed as mean squares.
class TransformErrors {
public:
    /// @param logSlots  of the transforms
    /// @param logRead   of the message: an error counts as far as it lies in the subring of so many slots
    TransformErrors(const Context& context, u64 logSlots, u64 logRead, bool isSequential);

    /// E|slot|^2 of a rescale's error at the level to which it goes.
    double rescale(u64 level) const { return slots(noise_.rescale().total(), level); }
    double encryption(u64 level) const { return slots(noise_.secretKeyEncryption().total(), level); }
    /// By what the rescale from a level multiplies a value, seen at the scales of its levels.
    double lift(u64 level) const;

    /// Variance of a part of the message at the modulus raise.
    /// @param meanSquare  E|slot|^2 of the message
    /// @param error       of its encryption, at level 3
    double beforeRaise(double meanSquare, double error) const;
    /// Variance of a multiple of the base prime.
    double multiples() const;
    /// Variance of a real part after coefficient-to-slot and conjugation, before the rescale that is owed.
    double afterRaise() const;
    /// To which coefficient-to-slot comes with that rescale.
    u64 levelAfter() const;

private:
    /// Mean squares of a slot and of its error.
    struct Squares {
        double signal, error;
        void multiply(double square) {
            signal *= square;
            error *= square;
        }
    };

    double slots(double variance, u64 level) const;
    double encoding(u64 stage, u64 level) const;
    /// @param rowSquare  sum of the squares of a row of the stage's matrix
    void apply(u64 stage, u64 level, double rowSquare, Squares& x) const;
    Squares raised() const;
    bool isShort() const;
    u64 multiplications() const { return isShort() ? 2 : 3; }

    Context context_;
    BootParameter boot_;
    RadixDecomposition plan_;
    NoiseModel noise_;
    u64 logSlots_, top_;
    double folded_; ///< full slots over those of the transforms
    double coefficients_;
    bool isSequential_;
};

} // namespace Torvo::test
