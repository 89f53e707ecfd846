#include "Handles.hpp"
#include "Module.hpp"

#include <pybind11/stl.h>

#include <string>

namespace TorvoPython {

using Torvo::Bootstrapper;
using Torvo::HomEvaluator;

namespace {

using Class = py::class_<BootstrapperHandle, std::shared_ptr<BootstrapperHandle>>;

void defineConstants(Class& handle) {
    handle
        .def(
            "is_ready",
            [](const BootstrapperHandle& self, unsigned long log_slots) {
                const Computing computing{reading(self)};
                return self.object().isBootstrapReady(log_slots);
            },
            py::arg("log_slots"), "Whether the constants for 2^log_slots slots exist.")
        .def(
            "make_constants",
            [](BootstrapperHandle& self, unsigned long log_slots) {
                const Computing computing{writing(self)};
                self.object().makeBootConstants(log_slots);
            },
            py::arg("log_slots"), "Builds the constants for 2^log_slots slots unless they exist.")
        .def(
            "save_constants",
            [](const BootstrapperHandle& self, unsigned long log_slots, const std::string& path) {
                const Computing computing{reading(self)};
                self.object().saveBootConstants(log_slots, path);
            },
            py::arg("log_slots"), py::arg("path"),
            "Writes the constants into a file, to be mapped or read again.")
        .def(
            "map_constants",
            [](BootstrapperHandle& self, unsigned long log_slots, const std::string& path, bool check) {
                const Computing computing{writing(self)};
                self.object().mapBootConstants(log_slots, path, check);
            },
            py::arg("log_slots"), py::arg("path"), py::arg("check") = true,
            "Takes the constants from a file, where they stay: processes that map one file share their "
            "memory. The file "
            "must not be changed meanwhile.")
        .def(
            "read_constants",
            [](BootstrapperHandle& self, unsigned long logSlots, const std::string& path, bool check) {
                const Computing computing{writing(self)};
                self.object().readBootConstants(logSlots, path, check);
            },
            py::arg("log_slots"), py::arg("path"), py::arg("check") = true,
            "The same, but into memory of this object's own; the file may change afterwards.");
}

template <void (Bootstrapper::*Member)(const Torvo::Ciphertext&, Torvo::Ciphertext&, bool) const>
void run(const BootstrapperHandle& self, const CiphertextHandle& in, CiphertextHandle& out, bool isComplex) {
    const Computing computing{reading(self), reading(in), writing(out)};
    (self.object().*Member)(in.object(), out.object(), isComplex);
}

/// Real and imaginary parts apart.
template <void (Bootstrapper::*Member)(const Torvo::Ciphertext&, Torvo::Ciphertext&, Torvo::Ciphertext&)
              const>
void runParts(const BootstrapperHandle& self, const CiphertextHandle& in, CiphertextHandle& real,
              CiphertextHandle& imaginary) {
    if (&real == &imaginary)
        throw py::value_error("One output is named for both parts; give two ciphertexts");
    const Computing computing{reading(self), reading(in), writing(real), writing(imaginary)};
    (self.object().*Member)(in.object(), real.object(), imaginary.object());
}

constexpr const char* partsText =
    "Real and imaginary parts, each as a real message, in two outputs that are not the same.";

void defineRuns(Class& handle) {
    handle
        .def("bootstrap_parts", &runParts<&Bootstrapper::bootstrap>, py::arg("operand"), py::arg("out_real"),
             py::arg("out_imag"), partsText)
        .def("bootstrap_extended_parts", &runParts<&Bootstrapper::bootstrapExtended>, py::arg("operand"),
             py::arg("out_real"), py::arg("out_imag"), partsText)
        .def(
            "slot_to_coeff",
            [](const BootstrapperHandle& self, const CiphertextHandle& in, CiphertextHandle& out) {
                const Computing computing{reading(self), reading(in), writing(out)};
                self.object().slotToCoeff(in.object(), out.object());
            },
            py::arg("operand"), py::arg("out"),
            "The first half of a bootstrap: a ciphertext of coefficients, at level 0.")
        .def("half_boot", &run<&Bootstrapper::halfBoot>, py::arg("operand"), py::arg("out"),
             py::arg("is_complex") = false,
             "The second half: coefficients in the order of slot_to_coeff to slots at a high level.")
        .def("bootstrap", &run<&Bootstrapper::bootstrap>, py::arg("operand"), py::arg("out"),
             py::arg("is_complex") = false,
             "out = the operand with its levels back. Parts lie in [-1, 1]; imaginary ones are dropped "
             "unless told to be "
             "kept.")
        .def("bootstrap_extended", &run<&Bootstrapper::bootstrapExtended>, py::arg("operand"), py::arg("out"),
             py::arg("is_complex") = false, "The same in two passes: more bits, at twice the time.")
        .def_property_readonly("level_after",
                               getter<Bootstrapper>(&Bootstrapper::getLevelAfterFullSlotBootstrap),
                               "The level of a bootstrapped ciphertext.")
        .def_property_readonly("min_level", getter<Bootstrapper>(&Bootstrapper::getMinLevelForBootstrap),
                               "The lowest level that a ciphertext to be bootstrapped may have.");
}

void bindBootstrapper(py::module_& module) {
    Class handle(module, "Bootstrapper", "Gives exhausted ciphertexts their levels back.");
    handle
        .def(py::init([](const HomEvaluator& evaluator, unsigned long log_slots, bool sequential) {
                 const py::gil_scoped_release released;
                 return std::make_shared<BootstrapperHandle>(evaluator, log_slots, sequential);
             }),
             py::arg("evaluator"), py::arg("log_slots"), py::arg("sequential_rotations") = false)
        .def(py::init([](const HomEvaluator& evaluator, const SharedContext& sparse, unsigned long log_slots,
                         bool sequential) {
                 const py::gil_scoped_release released;
                 return std::make_shared<BootstrapperHandle>(evaluator, sparse.context, log_slots,
                                                             sequential);
             }),
             py::arg("evaluator"), py::arg("context_sparse"), py::arg("log_slots"),
             py::arg("sequential_rotations") = false);
    defineConstants(handle);
    defineRuns(handle);
}

} // namespace

void bindBootstrap(py::module_& module) {
    bindBootstrapper(module);
    module.def(
        "get_rot_indices_for_bootstrap",
        [](const SharedContext& context, unsigned long logSlots) {
            const py::gil_scoped_release released;
            return Torvo::getRotIndicesForBootstrap(context.context, logSlots);
        },
        py::arg("context"), py::arg("log_slots"),
        "The rotations that bootstrapping 2^log_slots slots needs keys for; negative ones are to the right.");
    using Torvo::BootstrappingEvaluator;
    py::enum_<BootstrappingEvaluator::Precision>(module, "Precision", "Which form of bootstrapping is used.")
        .value("Standard", BootstrappingEvaluator::Precision::Standard)
        .value("Extended", BootstrappingEvaluator::Precision::Extended);
    py::class_<BootstrappingHandle>(
        module, "BootstrappingEvaluator",
        "An evaluator whose levels don't run out: given one, a function bootstraps where the "
        "levels of a ciphertext would not suffice, as late as possible.")
        .def(py::init([](const HomEvaluator& evaluator,
                         const std::shared_ptr<BootstrapperHandle>& bootstrapper,
                         BootstrappingEvaluator::Precision precision) {
                 const Computing computing{reading(*bootstrapper)};
                 return BootstrappingHandle{{evaluator, bootstrapper->object(), precision}, bootstrapper};
             }),
             py::arg("evaluator"), py::arg("bootstrapper").none(false),
             py::arg("precision") = BootstrappingEvaluator::Precision::Standard)
        .def_property_readonly(
            "evaluator", [](const BootstrappingHandle& self) { return self.evaluator.getEvaluator(); },
            "What computes.")
        .def_property_readonly(
            "bootstrapper", [](const BootstrappingHandle& self) { return self.bootstrapper; },
            "What bootstraps.")
        .def_property_readonly(
            "precision", [](const BootstrappingHandle& self) { return self.evaluator.getPrecision(); },
            "Which form of bootstrapping is used.");
}

} // namespace TorvoPython
