#include "Handles.hpp"
#include "Module.hpp"

#include <Torvo/PresetAdvice.hpp>
#include <Torvo/RuntimeException.hpp>

#include <pybind11/stl.h>

#include <optional>
#include <string>

namespace TorvoPython {

using Torvo::BootstrappingEvaluator;
using Torvo::Plan;
using Torvo::PlannedCiphertext;
using Torvo::PlanReport;
using Torvo::PresetAdvice;

namespace {

void bindReport(py::module_& module) {
    py::class_<PlanReport>(module, "PlanReport", "What the functions of a plan would do.")
        .def_readonly("tensors", &PlanReport::tensors, "Products of two ciphertexts.")
        .def_readonly("relinearizations", &PlanReport::relinearizations, "Key switches behind products.")
        .def_readonly("rotations", &PlanReport::rotations, "Key switches of rotations.")
        .def_readonly("conjugations", &PlanReport::conjugations, "Key switches of conjugations.")
        .def_readonly("plaintext_products", &PlanReport::plaintextProducts,
                      "Products with a number for each slot.")
        .def_readonly("constant_products", &PlanReport::constantProducts, "Products with one number.")
        .def_readonly("rescales", &PlanReport::rescales, "Divisions by a prime.")
        .def_readonly("bootstraps", &PlanReport::bootstraps, "Bootstraps.")
        .def_readonly("lowest_level", &PlanReport::lowestLevel, "The lowest level that a ciphertext came to.")
        .def_readonly("left_rotations", &PlanReport::leftRotations,
                      "The rotations to the left that need a key, besides those inside a bootstrap.")
        .def_readonly("key_bytes", &PlanReport::keyBytes, "Bytes in memory of the keys that are needed.")
        .def_readonly("constant_bytes", &PlanReport::constantBytes,
                      "Bytes in memory of encoded constants, of transforms and of bootstraps.")
        .def_property_readonly("key_switches", &PlanReport::keySwitches, "All but those inside a bootstrap.");
}

std::unique_ptr<MessageHandle> messageOf(const PlannedHandle& self,
                                         const Torvo::Message& (PlannedCiphertext::*get)() const) {
    const Computing computing{reading(self)};
    return std::make_unique<MessageHandle>(Torvo::Message((self.object().*get)()));
}

void bindPlanned(py::module_& module) {
    py::class_<PlannedHandle>(
        module, "PlannedCiphertext",
        "What a plan keeps of a ciphertext: its level, and the numbers in its slots, with and "
        "without the errors that are expected.")
        .def(py::init<>())
        .def_property_readonly("level", getter<PlannedCiphertext>(&PlannedCiphertext::getLevel), "Its level.")
        .def_property_readonly("log_slots", getter<PlannedCiphertext>(&PlannedCiphertext::getLogSlots),
                               "log2 of the number of slots.")
        .def_property_readonly("rescale_counter",
                               getter<PlannedCiphertext>(&PlannedCiphertext::getRescaleCounter),
                               "How many rescales are owed.")
        .def_property_readonly("error", getter<PlannedCiphertext>(&PlannedCiphertext::getError),
                               "The root mean square of the error, an absolute number.")
        .def_property_readonly("largest_error",
                               getter<PlannedCiphertext>(&PlannedCiphertext::getLargestError),
                               "The largest error of a slot.")
        .def_property_readonly(
            "message",
            [](const PlannedHandle& self) { return messageOf(self, &PlannedCiphertext::getMessage); },
            "What the operations give without any error.")
        .def_property_readonly(
            "noisy_message",
            [](const PlannedHandle& self) { return messageOf(self, &PlannedCiphertext::getNoisyMessage); },
            "The same with errors as they are predicted.");
}

void bindPlanItself(py::module_& module) {
    py::class_<PlanHandle>(
        module, "Plan",
        "A dry run: functions that are given a plan and planned ciphertexts need no key; they count "
        "what they would do, refuse what they would refuse, and predict the error. Plan(other) shares the "
        "counts of a plan, and no other thread may use that one meanwhile.")
        .def(py::init(
                 [](const SharedContext& context) { return std::make_unique<PlanHandle>(context.context); }),
             py::arg("context"))
        .def(py::init([](const SharedContext& context, BootstrappingEvaluator::Precision precision) {
                 return std::make_unique<PlanHandle>(context.context, precision);
             }),
             py::arg("context"), py::arg("precision"))
        .def(py::init([](const PlanHandle& other) {
                 const Computing computing{reading(other)};
                 return std::make_unique<PlanHandle>(other.object());
             }),
             py::arg("other"))
        .def(
            "encrypt",
            [](PlanHandle& self, const MessageHandle& message, std::optional<unsigned long> level) {
                const Computing computing{writing(self), reading(message)};
                Plan& plan = self.object();
                return std::make_unique<PlannedHandle>(level ? plan.encrypt(message.object(), *level)
                                                             : plan.encrypt(message.object()));
            },
            py::arg("message"), py::arg("level") = py::none(), "A planned ciphertext of the message.")
        .def_property_readonly(
            "report",
            [](PlanHandle& self) {
                const Computing computing{writing(self)};
                return self.object().getReport();
            },
            "The counts of all functions since the plan was made or reset.")
        .def(
            "estimate_seconds",
            [](PlanHandle& self) {
                const Computing computing{writing(self)};
                return self.object().estimateSeconds();
            },
            "Seconds that the real functions would take here; single steps are measured when it is first "
            "asked for.")
        .def(
            "reset",
            [](PlanHandle& self) {
                const Computing computing{writing(self)};
                self.object().reset();
            },
            "Sets all counts to 0.")
        .def_property_readonly(
            "context", [](const PlanHandle& self) { return contextOf(self); },
            "The context it was made for.");
}

/// The circuit of Python as the library calls it. What torvo.Error refuses is a refusal to the library too, which then
/// tries the next preset; any other exception ends the search.
PlannedCiphertext plannedBy(const py::function& circuit, const Plan& plan) {
    const py::gil_scoped_acquire acquired;
    try {
        const py::object result = circuit(py::cast(std::make_unique<PlanHandle>(plan)));
        if (!py::isinstance<PlannedHandle>(result))
            throw py::type_error("The circuit returned a " +
                                 py::cast<std::string>(py::type::of(result).attr("__name__")) +
                                 "; return the planned ciphertext of its result");
        const auto& planned = py::cast<const PlannedHandle&>(result);
        const Computing computing{reading(planned)};
        return planned.object();
    } catch (py::error_already_set& error) {
        if (!error.matches(errorClass())) throw;
        throw Torvo::RuntimeException(py::cast<std::string>(py::str(error.value())));
    }
}

} // namespace

void bindAdvice(py::module_& module) {
    py::class_<PresetAdvice>(module, "PresetAdvice", "A preset on which a circuit runs.")
        .def_readonly("preset", &PresetAdvice::preset, "The preset.")
        .def_readonly("uses_bootstrap", &PresetAdvice::usesBootstrap, "Whether it needs bootstraps.")
        .def_readonly("report", &PresetAdvice::report, "What the circuit does there.")
        .def_readonly("error", &PresetAdvice::error,
                      "The largest error of a slot of the result, an absolute number.");
    module.def(
        "advise_presets",
        [](const py::function& circuit, double error) {
            const py::gil_scoped_release released;
            return Torvo::advisePresets([&circuit](const Plan& plan) { return plannedBy(circuit, plan); },
                                        error);
        },
        py::arg("circuit"), py::arg("error"),
        "The presets on which `circuit`, a function of a plan that returns its planned result, errs by at "
        "most `error`: those of the smallest ring first.");
}

void bindPlan(py::module_& module) {
    bindReport(module);
    bindPlanned(module);
    bindPlanItself(module);
}

} // namespace TorvoPython
