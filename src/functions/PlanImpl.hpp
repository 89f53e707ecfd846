#pragma once

#include "core/Integers.hpp"
#include "functions/NoiseRules.hpp"
#include "functions/TransformPlan.hpp"

#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/Plan.hpp>

#include <map>
#include <optional>
#include <random>
#include <set>
#include <tuple>
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
        Bootstrap,
        // of linear transforms
        Decompose,       ///< of an input that is rotated by baby steps
        BabyStep,        ///< of a decomposed input
        GiantStep,       ///< of a sum of products
        DiagonalProduct, ///< of a baby step with a diagonal, as a part of a sum
        Divide           ///< a result by the temporary primes
    };

    PlanImpl(const Context& context, std::optional<BootstrappingEvaluator::Precision> precision);

    const Context& getContext() const { return context_; }
    const NoiseRules& noise() const { return noise_; }
    const std::optional<BootstrappingEvaluator::Precision>& precision() const { return precision_; }

    /// Refuses what an encoding refuses.
    void requireEncodable(const Message& message, u64 level) const;

    void count(Step step, u64 level);
    /// `step` is Rotate, BabyStep or GiantStep.
    void countRotation(Step step, u64 index, u64 level);
    void countBootstrap(u64 level, u64 log_slots);
    /// What the transform `id`, times `factor`, keeps when it is encoded; the first time that it is.
    void countEncoding(u64 id, const TransformPlace& place, double factor, u64 bytes);
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
    u64 bytesOfConstants() const;

    Context context_;
    NoiseRules noise_;
    std::optional<BootstrappingEvaluator::Precision> precision_;
    std::map<std::pair<Step, u64>, u64> counts_;
    std::set<unsigned long> leftRotations_;
    std::set<u64> bootstrapped_; ///< log slots
    std::map<std::tuple<u64, u64, u64, double>, u64> encodingBytes_;
    u64 lowestLevel_;
    std::mt19937_64 engine_;
};

} // namespace Torvo
