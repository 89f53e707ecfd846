#pragma once

#include "core/Integers.hpp"
#include "functions/NoiseRules.hpp"

#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/Plan.hpp>

#include <map>
#include <optional>
#include <random>
#include <utility>

namespace Torvo {

/// What a plan counts and draws.
class PlanImpl {
public:
    /// What takes time on ciphertexts; counted by level.
    enum class Step {
        Tensor,
        Relinearize,
        Rotate,
        Conjugate,
        PlaintextProduct,
        ConstantProduct,
        Rescale,
        Add,
        Bootstrap
    };

    PlanImpl(const Context& context, std::optional<BootstrappingEvaluator::Precision> precision);

    const Context& getContext() const { return context_; }
    const NoiseRules& noise() const { return noise_; }
    const std::optional<BootstrappingEvaluator::Precision>& precision() const { return precision_; }

    /// Refuses what an encoding refuses.
    void requireEncodable(const Message& message, u64 level) const;

    void count(Step step, u64 level);
    void countRotation(u64 index, u64 level);
    /// Says that a ciphertext came to `level`.
    void reach(u64 level);
    PlanReport getReport() const;
    /// How often each step is taken at each level.
    const std::map<std::pair<Step, u64>, u64>& counts() const { return counts_; }
    void reset();

    /// Adds a complex normal error of E|error|^2 = variance to each slot.
    void disturb(Message& message, double variance);

private:
    u64 total(Step step) const;
    u64 keysOf(const PlanReport& report) const;

    Context context_;
    NoiseRules noise_;
    std::optional<BootstrappingEvaluator::Precision> precision_;
    std::map<std::pair<Step, u64>, u64> counts_;
    std::set<unsigned long> leftRotations_;
    u64 lowestLevel_;
    std::mt19937_64 engine_;
};

} // namespace Torvo
