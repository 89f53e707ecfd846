#pragma once

#include "core/Integers.hpp"
#include "functions/PlanImpl.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace Torvo {

class HomEvaluatorImpl;

/// What the steps of a plan take on this machine, with the threads that OpenMP gives now: each is timed at three levels,
/// with keys made for that, and those between are interpolated.
class UnitCosts {
public:
    using Step = PlanImpl::Step;

    /// Those of a ring, which are measured when they are first asked for in a process. Thread-safe.
    static const UnitCosts& of(const Context& context);

    /// Seconds.
    double of(Step step, u64 level) const;

private:
    struct Measured;
    struct Sample {
        u64 level;
        double seconds;
    };

    explicit UnitCosts(const Context& context);
    /// Unless the step was measured at that level before.
    void add(Step step, u64 level, const std::function<double()>& seconds);
    /// The steps of linear transforms of `x`, which has a rotation key for 1.
    void measureTransforms(const HomEvaluatorImpl& evaluator, const Ciphertext& x);
    /// From the steps that a bootstrap of full slots consists of.
    double ofBootstrap(const Context& context) const;

    std::map<Step, std::vector<Sample>> samples_; ///< in ascending order of levels
};

} // namespace Torvo
