#include "core/BlockCache.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <new>

namespace Torvo {

namespace {

/// Asks for pages of 2 MiB under a block. The request covers whole pages of 4 KiB, including those at both
/// ends that the block shares with its neighbours. So adjacent blocks stay one mapping of the system, and a
/// process may have only a limited number of mappings. If the system does not grant the request, nothing
/// changes.
void wishForHugePages(void* block, std::size_t bytes) noexcept {
    constexpr std::uintptr_t page = 4096;
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t offset = address % page;
    const std::size_t length = (offset + bytes + page - 1) / page * page;
    madvise(static_cast<char*>(block) - offset, length, MADV_HUGEPAGE);
}

void* newBlock(std::size_t bytes) {
    void* block = ::operator new[](bytes, std::align_val_t{BlockCache::alignment});
    if (bytes >= BlockCache::minHugePageBlock) wishForHugePages(block, bytes);
    return block;
}

void deleteBlock(void* block) noexcept {
    ::operator delete[](block, std::align_val_t{BlockCache::alignment});
}

} // namespace

BlockCache::BlockCache(std::size_t limit) : limit_(limit) {
    blocks_.reserve(limit / minBlock); // `release` must not throw
}

BlockCache::~BlockCache() {
    clear();
}

void* BlockCache::allocate(std::size_t bytes) {
    const std::size_t size = keeps(bytes) ? sizeClass(bytes) : bytes;
    if (void* block = take(size)) return block;
    try {
        return newBlock(size);
    } catch (const std::bad_alloc&) {
        clear();
        return newBlock(size);
    }
}

void BlockCache::release(void* block, std::size_t bytes) noexcept {
    if (!keeps(bytes)) {
        deleteBlock(block);
        return;
    }
    const std::size_t size = sizeClass(bytes);
    const std::lock_guard lock(mutex_);
    while (keptBytes_ + size > limit_) dropOldest();
    blocks_.push_back({block, size});
    keptBytes_ += size;
}

std::size_t BlockCache::keptBytes() const {
    const std::lock_guard lock(mutex_);
    return keptBytes_;
}

std::size_t BlockCache::sizeClass(std::size_t bytes) {
    const std::size_t step = std::bit_floor(bytes) / 8;
    return (bytes + step - 1) / step * step;
}

/// The block of this size that was given back last, which the processor's caches may still hold; null if
/// there is none.
void* BlockCache::take(std::size_t size) noexcept {
    if (size < minBlock) return nullptr;
    const std::lock_guard lock(mutex_);
    const auto newest = std::find_if(blocks_.rbegin(), blocks_.rend(),
                                     [&](const Block& block) { return block.size == size; });
    if (newest == blocks_.rend()) return nullptr;
    void* data = newest->data;
    blocks_.erase(std::next(newest).base());
    keptBytes_ -= size;
    return data;
}

void BlockCache::dropOldest() noexcept {
    deleteBlock(blocks_.front().data);
    keptBytes_ -= blocks_.front().size;
    blocks_.erase(blocks_.begin());
}

void BlockCache::clear() noexcept {
    const std::lock_guard lock(mutex_);
    while (!blocks_.empty()) dropOldest();
}

} // namespace Torvo
