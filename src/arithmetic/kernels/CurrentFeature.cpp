#include "arithmetic/kernels/Feature.hpp"

namespace Torvo {

// Alone in its unit: the tests put another definition in its place, which can force a form of the kernels.
u64 getCurrentFeature() {
    return detail::readProcessorFeature();
}

} // namespace Torvo
