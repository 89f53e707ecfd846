#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/ParameterPreset.hpp>
#include <Torvo/Plan.hpp>

#include <functional>
#include <vector>

namespace Torvo {

/// A preset on which a circuit runs.
struct PresetAdvice {
    ParameterPreset preset;
    bool usesBootstrap; ///< whether it needs a bootstrapping evaluator
    PlanReport report;  ///< what it does
    double error;       ///< the largest error of a slot of the result, an absolute number
};

/// The presets on which `circuit` runs with errors of at most `error`: those of the smallest ring first, and of these
/// those with the fewest primes. Each is tried as a dry run, without bootstraps first, and with them where levels run out and
/// the preset has them. All of them are rated at 128 bits of security.
///
/// `circuit` encrypts with the plan that it is given and returns its result. It should give the functions that it calls
/// that plan, and a message that is typical. The error is that of the operations: what a polynomial differs from the
/// function that it approximates comes on top.
///
/// @throws RuntimeException "[advisePresets] No circuit is given; give one that can be called"; "[advisePresets] The
///         error is ", a number, "; give a positive one". What the circuit throws that is no RuntimeException
TORVO_API std::vector<PresetAdvice>
advisePresets(const std::function<PlannedCiphertext(const Plan&)>& circuit, double error);

} // namespace Torvo
