#include "Module.hpp"

namespace py = pybind11;

PYBIND11_MODULE(_torvo, module) {
    module.doc() =
        "The classes of libTorvo, one for each handle of the C++ headers. The package torvo puts arrays "
        "and operators on top of them.";
    py::options options;
    options.disable_function_signatures();
    using namespace TorvoPython;
    bindErrors(module);
    bindDevices(module);
    bindContext(module);
    bindMessage(module);
    bindEncoding(module);
    bindCiphertext(module);
    bindKeys(module);
    bindCrypto(module);
    bindEvaluator(module);
    bindBootstrap(module);
    bindSeries(module);
    bindPlan(module);
    bindFunctions(module);
    bindLinear(module);
    bindComparisons(module);
    bindAdvice(module);
    bindLWE(module);
    bindPacking(module);
    bindFiles(module);
    bindThreads(module);
}
