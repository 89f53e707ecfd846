#include "core/HostMemoryResource.hpp"

#include <new>

namespace Torvo {

void* HostMemoryResource::doAllocate(std::size_t bytes, CudaStreamView) {
    return bytes == 0 ? nullptr : ::operator new[](bytes, std::align_val_t{alignment});
}

void HostMemoryResource::doDeallocate(void* p, std::size_t, CudaStreamView) {
    ::operator delete[](p, std::align_val_t{alignment});
}

} // namespace Torvo
