#pragma once

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>

namespace Torvo {

/// An evaluator whose levels don't run out: given one, a function bootstraps where the levels of a ciphertext would not
/// suffice, as late as possible.
///
/// Every ciphertext keeps the three levels that a bootstrap needs (four for the extended form), and one more while its
/// numbers may lie outside the unit square, because a bootstrap takes numbers in [-1, 1]: it is then divided by a
/// bound that the function knows, and multiplied again afterwards, and its error with it. Two ciphertexts of real
/// numbers are bootstrapped as one of complex ones.
///
/// A shared handle. Thread-safe.
class TORVO_API BootstrappingEvaluator {
public:
    /// Which form of bootstrapping is used.
    enum class Precision {
        Standard, ///< `Bootstrapper::bootstrap`
        Extended, ///< `Bootstrapper::bootstrapExtended`: more bits, twice the time
    };

    /// Shares both. The bootstrapper must have the constants for the slots of the ciphertexts.
    /// @throws RuntimeException "This parameter does not support extended bootstrap"
    BootstrappingEvaluator(const HomEvaluator& evaluator, const Bootstrapper& bootstrapper,
                           Precision precision = Precision::Standard);

    const HomEvaluator& getEvaluator() const { return evaluator_; }
    const Bootstrapper& getBootstrapper() const { return bootstrapper_; }
    Precision getPrecision() const { return precision_; }

private:
    HomEvaluator evaluator_;
    Bootstrapper bootstrapper_;
    Precision precision_;
};

} // namespace Torvo
