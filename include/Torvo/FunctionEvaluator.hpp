#pragma once

#include <Torvo/BootstrappingEvaluator.hpp>
#include <Torvo/Ciphertext.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plan.hpp>

#include <memory>
#include <type_traits>

namespace Torvo {

template <class Value>
class Operations;

/// @cond inner
namespace detail {

template <class Value>
using OperationsOn = std::shared_ptr<const Operations<Value>>;

TORVO_API OperationsOn<Ciphertext> operationsOf(std::type_identity<Ciphertext> on,
                                                const HomEvaluator& evaluator);
TORVO_API OperationsOn<Message> operationsOf(std::type_identity<Message> on, const HomEvaluator& evaluator);
TORVO_API OperationsOn<Ciphertext> operationsOf(std::type_identity<Ciphertext> on,
                                                const BootstrappingEvaluator& evaluator);
TORVO_API OperationsOn<PlannedCiphertext> operationsOf(std::type_identity<PlannedCiphertext> on,
                                                       const Plan& plan);

template <class Source, class Value>
concept ComputesOn = requires(const Source& source) {
    operationsOf(std::type_identity<Value>(), source);
};

} // namespace detail
/// @endcond

/// What a function is computed with. Functions take one as their first argument, and nobody needs to write its name:
/// an evaluator, a bootstrapping evaluator or a plan is turned into one.
///
/// | given | computes on | |
/// | --- | --- | --- |
/// | `HomEvaluator` | `Ciphertext` | with the levels that the ciphertexts have |
/// | `BootstrappingEvaluator` | `Ciphertext` | bootstraps where levels would run out |
/// | `HomEvaluator` | `Message` | in the clear, by the operations that run on ciphertexts |
/// | `Plan` | `PlannedCiphertext` | nothing: counts and predicts |
///
/// A shared handle; it keeps what it was made from alive. Thread-safe as that is.
template <class Value>
class FunctionEvaluator {
public:
    /// Of what the table allows for this type of values.
    template <detail::ComputesOn<Value> Source>
    FunctionEvaluator(const Source& source)
        : operations_(detail::operationsOf(std::type_identity<Value>(), source)) {}

    const Operations<Value>& operations() const { return *operations_; }

private:
    detail::OperationsOn<Value> operations_;
};

/// The parameter of a function on values of a type: what can be turned into a `FunctionEvaluator` of them.
template <class Value>
using Evaluating = const FunctionEvaluator<std::type_identity_t<Value>>&;

} // namespace Torvo
