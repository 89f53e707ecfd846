#include "arithmetic/kernels/Feature.hpp"

namespace Torvo {

// These functions are alone in their unit so that the tests can replace them by definitions that force a form
// of the kernels.

u64 getCurrentFeature() {
    return detail::readProcessorFeature();
}

KernelForm getWidestForm() {
    static const KernelForm widest = detail::readWidestForm();
    return widest;
}

} // namespace Torvo
