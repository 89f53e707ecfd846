#include "core/PinnedMemoryResource.hpp"

namespace Torvo {

void* PinnedMemoryResource::doAllocate(std::size_t, CudaStreamView) {
    return nullptr;
}

void PinnedMemoryResource::doDeallocate(void*, std::size_t, CudaStreamView) {}

} // namespace Torvo
