#include "core/CudaStreamView.hpp"

namespace Torvo {

CudaStreamView getDefaultStream() {
    return {0};
}

} // namespace Torvo
