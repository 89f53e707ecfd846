#include <Torvo/FunctionEvaluator.hpp>

#include "bootstrap/Messages.hpp"
#include "core/Failure.hpp"
#include "functions/CipherOperations.hpp"
#include "functions/MessageOperations.hpp"
#include "functions/PlanOperations.hpp"

namespace Torvo {

BootstrappingEvaluator::BootstrappingEvaluator(const HomEvaluator& evaluator,
                                               const Bootstrapper& bootstrapper, Precision precision)
    : evaluator_(evaluator), bootstrapper_(bootstrapper), precision_(precision) {
    if (precision == Precision::Extended)
        require(isExtendedBootstrapSupported(evaluator.getContext()), message::noExtendedBootstrap);
}

namespace detail {

OperationsOn<Ciphertext> operationsOf(std::type_identity<Ciphertext> /*on*/, const HomEvaluator& evaluator) {
    return std::make_shared<CipherOperations>(evaluator);
}

OperationsOn<Message> operationsOf(std::type_identity<Message> /*on*/, const HomEvaluator& evaluator) {
    return std::make_shared<MessageOperations>(evaluator);
}

OperationsOn<Ciphertext> operationsOf(std::type_identity<Ciphertext> /*on*/,
                                      const BootstrappingEvaluator& evaluator) {
    return std::make_shared<BootstrappingOperations>(evaluator);
}

OperationsOn<PlannedCiphertext> operationsOf(std::type_identity<PlannedCiphertext> /*on*/, const Plan& plan) {
    return std::make_shared<PlanOperations>(plan);
}

} // namespace detail

} // namespace Torvo
