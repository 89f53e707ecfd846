#pragma once

#include "core/MemoryResource.hpp"

namespace Torvo {

/// Host memory, aligned to the 64 bytes of the widest vectors of the row kernels. Large blocks come from one
/// `BlockCache` of the process, which keeps up to 512 MiB of released blocks.
class HostMemoryResource final : public MemoryResource {
public:
    /// @throws std::bad_alloc
    void* doAllocate(std::size_t bytes, CudaStreamView stream) override;
    void doDeallocate(void* p, std::size_t bytes, CudaStreamView stream) override;
};

} // namespace Torvo
