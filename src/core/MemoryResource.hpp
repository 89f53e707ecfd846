#pragma once

#include "core/CudaStreamView.hpp"

#include <Torvo/Device.hpp>

#include <cstddef>

namespace Torvo {

/// Allocator of one kind of device. Implementations are thread-safe.
class MemoryResource {
public:
    MemoryResource() = default;
    MemoryResource(const MemoryResource&) = delete;
    MemoryResource& operator=(const MemoryResource&) = delete;
    virtual ~MemoryResource() = default;

    /// Memory of at least `bytes` bytes, never zero-filled; null for 0 bytes.
    virtual void* doAllocate(std::size_t bytes, CudaStreamView stream) = 0;
    /// Releases memory that `doAllocate` returned for the same `bytes`. Must not throw.
    virtual void doDeallocate(void* p, std::size_t bytes, CudaStreamView stream) = 0;
};

/// The process-wide resource of a device, made at its first use and valid until the process ends.
/// Thread-safe.
/// @throws RuntimeException "Cannot find a proper memory resource for the requested device."
MemoryResource& getPerDeviceMemoryResource(const Device& device);

} // namespace Torvo
