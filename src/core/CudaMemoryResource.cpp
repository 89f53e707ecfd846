#include "core/CudaMemoryResource.hpp"

#include "core/Failure.hpp"

namespace Torvo {

void* CudaMemoryResource::doAllocate(std::size_t bytes, CudaStreamView) {
    if (bytes != 0) throwUnsupported("doAllocate");
    return nullptr;
}

void CudaMemoryResource::doDeallocate(void*, std::size_t, CudaStreamView) {}

} // namespace Torvo
