#pragma once

#include "Handles.hpp"

#include <Torvo/FunctionEvaluator.hpp>

#include <utility>
#include <vector>

namespace TorvoPython {

// What a function is computed with, and on which objects. A source says which lock it wants and what the library is
// to be given.
struct OnEvaluator {
    using Handle = const Torvo::HomEvaluator;
    using Object = Torvo::Ciphertext;
    static const Torvo::HomEvaluator& of(const Torvo::HomEvaluator& handle) { return handle; }
    static std::vector<Wanted> wanted(const Torvo::HomEvaluator&) { return {}; }
};
struct OnBootstrapping {
    using Handle = const BootstrappingHandle;
    using Object = Torvo::Ciphertext;
    static const Torvo::BootstrappingEvaluator& of(const BootstrappingHandle& handle) {
        return handle.evaluator;
    }
    static std::vector<Wanted> wanted(const BootstrappingHandle& handle) {
        return {reading(*handle.bootstrapper)};
    }
};
struct OnPlan {
    using Handle = PlanHandle;
    using Object = Torvo::PlannedCiphertext;
    static const Torvo::Plan& of(const PlanHandle& handle) { return handle.object(); }
    static std::vector<Wanted> wanted(PlanHandle& handle) { return {writing(handle)}; }
};
/// In the clear, by the operations that run on ciphertexts.
struct OnMessages {
    using Handle = const Torvo::HomEvaluator;
    using Object = ViewedMessage;
    static const Torvo::HomEvaluator& of(const Torvo::HomEvaluator& handle) { return handle; }
    static std::vector<Wanted> wanted(const Torvo::HomEvaluator&) { return {}; }
};

template <class On>
using ValueOf = LibraryOf<typename On::Object>;
template <class On>
using ValueHandle = Guarded<typename On::Object>;
template <class On>
using ValueOperands = Operands<typename On::Object>;
template <class On>
using Of = const Torvo::FunctionEvaluator<ValueOf<On>>&;

/// The call itself: the locks of the operands, of the source and of the output, then the function, whose first
/// argument is the source.
template <class On, class Call>
void compute(typename On::Handle& on, std::vector<Wanted> operands, ValueHandle<On>& out, Call&& call) {
    operands.push_back(writing(out));
    const Computing computing(joined(std::move(operands), On::wanted(on)));
    const Torvo::FunctionEvaluator<ValueOf<On>> evaluator(On::of(on));
    call(evaluator, outputOf(out));
}

} // namespace TorvoPython
