#include "arithmetic/kernels/Feature.hpp"

namespace Torvo {

// These functions are alone in their unit so that the tests can replace them by definitions that force a form
// of the kernels, from one call to the next.

u64 getCurrentFeature() {
    return detail::readProcessorFeature();
}

KernelForm currentForm() {
    static const KernelForm form =
        (getCurrentFeature() & featureAVX2) != 0 ? detail::readWidestForm() : KernelForm::Scalar;
    return form;
}

} // namespace Torvo
