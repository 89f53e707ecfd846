#pragma once

#include "functions/CipherOperations.hpp"
#include "functions/PlanImpl.hpp"

#include <Torvo/Plan.hpp>

#include <map>
#include <set>

namespace Torvo {

/// Takes each step of the plan of a function as often as the function does, on operands of its level: its products,
/// rotations and rescales, and so what it takes if all else is free.
class CountedSteps {
public:
    /// @param x  at a level that no step is above
    /// @param plan  on which the function was run
    CountedSteps(const HomEvaluator& evaluator, const Ciphertext& x, const Plan& plan)
        : operations_(evaluator), plan_(plan), factors_(x.getLogSlots(), 0.5) {
        const std::set<unsigned long> rotations = plan_.getReport().leftRotations;
        if (!rotations.empty()) rotation_ = *rotations.begin();
        for (const auto& [step, times] : plan_.getImpl()->counts()) {
            const u64 level = step.second;
            if (operands_.contains(level)) continue;
            Operands& at = operands_.try_emplace(level, x).first->second;
            at.two.setLevel(level);
            if (level == 0) continue;
            operations_.tensor(at.two, at.two, at.three);
            operations_.multAtLevel(at.two, 0.5, level, at.owing);
        }
    }

    void run() {
        for (const auto& [step, times] : plan_.getImpl()->counts())
            for (u64 k = 0; k < times; ++k) take(step.first, step.second);
    }

private:
    using Step = PlanImpl::Step;

    struct Operands {
        Ciphertext two, three, owing;
        explicit Operands(const Ciphertext& x) : two(x), three(x), owing(x) {}
    };

    void take(Step step, u64 level) {
        const Operands& at = operands_.at(level);
        switch (step) {
        case Step::Tensor:
            return operations_.tensor(at.two, at.two, out_);
        case Step::ConstantProduct:
            return operations_.multAtLevel(at.two, 0.5, level, out_);
        case Step::PlaintextProduct:
            return operations_.multSlotsAtLevel(at.two, factors_, level, out_);
        case Step::Rotate:
            return operations_.leftRotate(at.two, rotation_, out_);
        case Step::Relinearize:
            out_ = at.three;
            return operations_.relinearize(out_);
        case Step::Rescale:
            out_ = at.owing;
            return operations_.rescale(out_);
        default: // sums
            return;
        }
    }

    CipherOperations operations_;
    Plan plan_;
    Message factors_;
    u64 rotation_ = 0;
    std::map<u64, Operands> operands_;
    Ciphertext out_ = operations_.unset();
};

} // namespace Torvo
