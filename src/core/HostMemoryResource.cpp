#include "core/HostMemoryResource.hpp"

#include "core/BlockCache.hpp"
#include "core/Forks.hpp"

namespace Torvo {

namespace {

/// Under a sanitizer nothing is kept, so that it sees every allocation and release.
#if defined(__SANITIZE_ADDRESS__)
#define TORVO_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define TORVO_SANITIZED
#endif
#endif
#ifdef TORVO_SANITIZED
constexpr std::size_t keptBytesLimit = 0;
#else
constexpr std::size_t keptBytesLimit = std::size_t{512} << 20;
#endif

BlockCache* newHostBlocks() {
    auto* blocks = new BlockCache(keptBytesLimit);
    holdDuringForks(blocks->mutex());
    return blocks;
}

BlockCache& hostBlocks() {
    static auto& blocks = *newHostBlocks(); // never destroyed, as the arrays in static storage
    return blocks;
}

/// Constructed when the library is loaded: a child that was forked while another thread constructed it would
/// wait for ever.
[[maybe_unused]] const BlockCache& madeAtLoad = hostBlocks();

} // namespace

void* HostMemoryResource::doAllocate(std::size_t bytes, CudaStreamView) {
    return bytes == 0 ? nullptr : hostBlocks().allocate(bytes);
}

void HostMemoryResource::doDeallocate(void* p, std::size_t bytes, CudaStreamView) {
    hostBlocks().release(p, bytes);
}

} // namespace Torvo
