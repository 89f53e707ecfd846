#pragma once

#include "core/MemoryResource.hpp"

namespace Torvo {

/// Host memory, aligned to the 32 bytes of the vectors of the row kernels.
class HostMemoryResource final : public MemoryResource {
public:
    static constexpr std::size_t alignment = 32;

    /// @throws std::bad_alloc
    void* doAllocate(std::size_t bytes, CudaStreamView stream) override;
    void doDeallocate(void* p, std::size_t bytes, CudaStreamView stream) override;
};

} // namespace Torvo
