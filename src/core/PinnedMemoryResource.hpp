#pragma once

#include "core/MemoryResource.hpp"

namespace Torvo {

/// Host memory that a GPU can reach. Without a GPU backend there is none: every allocation returns null
/// without an exception, and copies from or to it fail.
class PinnedMemoryResource final : public MemoryResource {
public:
    void* doAllocate(std::size_t bytes, CudaStreamView stream) override;
    void doDeallocate(void* p, std::size_t bytes, CudaStreamView stream) override;
};

} // namespace Torvo
