#pragma once

#include "bootstrap/BootParameter.hpp"
#include "core/Integers.hpp"
#include "support/TransformErrors.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Message.hpp>

#include <complex>
#include <random>
#include <vector>

namespace Torvo::test {

/// The phases of a bootstrap in which ciphertexts take errors.
struct ErrorSources {
    /// Scales are kept as logarithms in doubles: each rescale is off by some 2^-47, the same in every run.
    bool scales = true;
    bool slotToCoeff = true; ///< and encryption
    bool coeffToSlot = true; ///< and the rescale after it
    bool cosine = true;      ///< and the normalisation before it
    bool doubleAngle = true;
    bool arcsine = true;
};

/// The result of a bootstrap of a message, slot by slot in plain numbers. It follows the formulas of the sine
/// as ciphertexts do, and adds a normal error wherever those are rounded, with the variance that
/// docs/noise.md derives. So no formula is needed for how errors grow and combine. For the linear transforms
/// see `TransformErrors`; docs/bootstrapping.md has the sums.
class SimulatedBootstrap {
public:
    SimulatedBootstrap(const Context& context, u64 logSlots, bool isSequential, ErrorSources sources = {});

    /// Of a message encrypted under the secret key at the lowest level that serves.
    Message bootstrap(const Message& in, bool isComplex);
    Message bootstrapExtended(const Message& in, bool isComplex);

private:
    using Real = long double;
    using Complex = std::complex<Real>;
    struct Number {
        Complex value;
        u64 level;
    };

    /// The errors of the linear transforms, as deviations.
    struct Deviations {
        double part;     ///< of a part of the message before the raise
        double multiple; ///< of the multiples of the base prime
        double argument; ///< of the argument of the sine
    };

    Message pass(const Message& in, bool isComplex, double factor, const TransformErrors& transforms,
                 double errorOfInput);
    Number argument(double part, const Deviations& deviations);
    Complex removeI(double part, double factor, const Deviations& deviations);
    Number cosine(const Number& y, Real amplitude);
    Number joinFour(std::vector<Number>& P, std::vector<Number>& U);
    Number joinEight(std::vector<Number>& P, std::vector<Number>& U);
    Number doubleAngles(Number x, Real amplitude);
    Number arcsine(const Number& s, Real factor);

    /// What becomes of a product of values at `level`.
    Number rescaled(Complex product, u64 level);
    Number lowered(const Number& a) { return rescaled(a.value, a.level); }
    Number chebyshevDouble(const Number& a);
    /// By what the rescale from a level multiplies a value.
    Real liftOf(u64 level) const;
    double normal() { return normal_(random_); }
    Complex complexNormal(double square);
    void drawSecret();

    Context context_;
    BootParameter boot_;
    ErrorSources sources_;
    u64 logSlots_;
    TransformErrors errors_;
    bool isSequential_;
    Real epsilon_;                 ///< what the message is multiplied by under the sine, whose period is 1
    Real normalization_ = 1;       ///< what coefficient-to-slot leaves to be multiplied
    double secretSquare_ = 0;      ///< |s|^2 of the slot that is being worked on
    bool isNoisy_ = true;          ///< whether the current phase takes errors
    std::mt19937_64 random_{2026}; // NOLINT(bugprone-random-generator-seed): the same in every run
    std::normal_distribution<double> normal_;
};

} // namespace Torvo::test
