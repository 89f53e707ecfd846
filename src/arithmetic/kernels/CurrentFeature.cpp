#include "arithmetic/kernels/Feature.hpp"

namespace Torvo {

// This function is alone in its unit so that the tests can replace it by a definition that forces a form of
// the kernels.
u64 getCurrentFeature() {
    return detail::readProcessorFeature();
}

} // namespace Torvo
