#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace Torvo {

/// An allocator of host memory that keeps large blocks after their release, for the next request of their
/// size.
///
/// Polynomials of many megabytes are made and released within every key switch. The C library returns such
/// memory to the system and takes it again page by page, zeroed each time, which costs a noticeable share of
/// the time of the arithmetic on it.
///
/// Sizes are rounded up to one of eight classes per power of two, so that at most an eighth is wasted; a
/// block serves any request of its class. All blocks kept together stay within `limit` bytes: the one kept
/// longest is returned to the system first. If the system has no more memory, all of them are returned before
/// an allocation fails.
///
/// Blocks are not wiped: that is the duty of the code that held a secret in one. Thread-safe.
class BlockCache {
public:
    static constexpr std::size_t alignment = 64;
    /// The C library itself keeps smaller blocks for reuse.
    static constexpr std::size_t minBlock = std::size_t{256} << 10;

    /// From this size on, blocks lie on pages of 2 MiB where the system grants them.
    static constexpr std::size_t minHugePageBlock = std::size_t{2} << 20;

    explicit BlockCache(std::size_t limit);
    BlockCache(const BlockCache&) = delete;
    BlockCache& operator=(const BlockCache&) = delete;
    ~BlockCache();

    /// @throws std::bad_alloc
    void* allocate(std::size_t bytes);
    /// Takes back what `allocate` gave for the same `bytes`.
    void release(void* block, std::size_t bytes) noexcept;

    /// The bytes kept now.
    std::size_t keptBytes() const;

    /// The mutex to hold during forks.
    std::mutex& mutex() { return mutex_; }

    /// The size of the class that a request belongs to: at least `bytes`, at most 9/8 of it. For 8 bytes or
    /// more.
    static std::size_t sizeClass(std::size_t bytes);

private:
    struct Block {
        void* data;
        std::size_t size;
    };

    bool keeps(std::size_t bytes) const { return minBlock <= bytes && bytes <= limit_ / 2; }
    void* take(std::size_t size) noexcept;
    void dropOldest() noexcept;
    void clear() noexcept;

    const std::size_t limit_;
    mutable std::mutex mutex_;
    std::vector<Block> blocks_; ///< the one kept longest first; room for all that the limit admits
    std::size_t keptBytes_ = 0;
};

} // namespace Torvo
