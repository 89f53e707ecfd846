#include <Torvo/PresetAdvice.hpp>

#include "context/ContextContent.hpp"
#include "context/Parameter.hpp"
#include "core/Failure.hpp"
#include "encoding/EncodingBound.hpp"
#include "functions/Messages.hpp"

#include <algorithm>
#include <optional>
#include <tuple>

namespace Torvo {

namespace {

/// Presets for ciphertexts of users, the smallest first.
std::vector<Parameter> candidates() {
    std::vector<Parameter> all;
    for (const ParameterPreset preset : allPresets()) {
        const Parameter parameter(preset);
        // Presets with one level are partners of others, and the toy has no security.
        if (parameter.rank == 1 && parameter.encryption_level > 0 &&
            parameter.security_level != SecurityLevel::None)
            all.push_back(parameter);
    }
    std::ranges::stable_sort(all, {}, [](const Parameter& parameter) {
        return std::tuple(parameter.log_degree, parameter.chain_length);
    });
    return all;
}

/// Nothing where the circuit is refused, or errs by more.
std::optional<PresetAdvice> tried(const std::function<PlannedCiphertext(const Plan&)>& circuit,
                                  const Plan& plan, double error) {
    try {
        const double largest = circuit(plan).getLargestError();
        const PlanReport report = plan.getReport();
        if (!(largest <= error)) return std::nullopt;
        return PresetAdvice{plan.getContext()->parameter.preset, report.bootstraps > 0, report, largest};
    } catch (const RuntimeException&) {
        return std::nullopt;
    }
}

} // namespace

std::vector<PresetAdvice> advisePresets(const std::function<PlannedCiphertext(const Plan&)>& circuit,
                                        double error) {
    require(circuit != nullptr, message::noCircuit);
    if (!(error > 0)) throw RuntimeException(message::adviceError(decimal(error)));
    std::vector<PresetAdvice> advice;
    for (const Parameter& parameter : candidates()) {
        const Context context = makeContext(parameter.preset);
        std::optional<PresetAdvice> found = tried(circuit, Plan(context), error);
        if (!found && parameter.has_bootstrap)
            found = tried(circuit, Plan(context, BootstrappingEvaluator::Precision::Standard), error);
        if (found) advice.push_back(std::move(*found));
    }
    return advice;
}

} // namespace Torvo
