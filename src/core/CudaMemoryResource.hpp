#pragma once

#include "core/MemoryResource.hpp"

#include <cstdint>

namespace Torvo {

/// Memory of a GPU: none in this build.
class CudaMemoryResource final : public MemoryResource {
public:
    /// @throws RuntimeException "Cannot support the function 'doAllocate' in the current build configuration"
    ///         unless `bytes` is 0
    void* doAllocate(std::size_t bytes, CudaStreamView stream) override;
    void doDeallocate(void* p, std::size_t bytes, CudaStreamView stream) override;

private:
    [[maybe_unused]] std::uintptr_t pool_ = 0; ///< handle of the backend's memory pool
};

} // namespace Torvo
