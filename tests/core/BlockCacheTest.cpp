#include "core/BlockCache.hpp"

#include "core/HostMemoryResource.hpp"
#include "core/Integers.hpp"
#include "support/Sanitizer.hpp"
#include "support/Seeded.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

constexpr std::size_t mebi = std::size_t{1} << 20;

TEST(BlockCache, ClassesAreAtMostAnEighthTooLargeAndTheirOwnClass) {
    test::Seeded random(101);
    for (int i = 0; i < 10000; ++i) {
        const std::size_t bytes = 8 + random.below(std::size_t{1} << (4 + i % 40));
        const std::size_t size = BlockCache::sizeClass(bytes);
        ASSERT_GE(size, bytes) << random.describe();
        ASSERT_LE(size - bytes, bytes / 8) << random.describe() << " bytes=" << bytes;
        ASSERT_EQ(BlockCache::sizeClass(size), size) << random.describe() << " bytes=" << bytes;
    }
}

TEST(BlockCache, GivesALargeBlockBackToARequestOfItsClass) {
    BlockCache cache(64 * mebi);
    void* block = cache.allocate(4 * mebi - 5);
    std::memset(block, 1, 4 * mebi - 5);
    cache.release(block, 4 * mebi - 5);
    EXPECT_EQ(cache.keptBytes(), 4 * mebi);
    EXPECT_EQ(cache.allocate(4 * mebi), block);
    EXPECT_EQ(cache.keptBytes(), 0u);
    cache.release(block, 4 * mebi);
}

TEST(BlockCache, ABlockTakenForASmallerRequestHoldsTheWholeClass) {
    BlockCache cache(64 * mebi);
    void* block = cache.allocate(4 * mebi - 5);
    cache.release(block, 4 * mebi - 5);
    block = cache.allocate(4 * mebi);
    std::memset(block, 1, 4 * mebi); // the address sanitizer would report an error
    cache.release(block, 4 * mebi);
}

TEST(BlockCache, PrefersTheBlockGivenBackLast) {
    BlockCache cache(64 * mebi);
    void *first = cache.allocate(mebi), *second = cache.allocate(mebi);
    cache.release(first, mebi);
    cache.release(second, mebi);
    EXPECT_EQ(cache.allocate(mebi), second);
    EXPECT_EQ(cache.allocate(mebi), first);
    cache.release(first, mebi);
    cache.release(second, mebi);
}

TEST(BlockCache, OtherSizesGetOtherBlocks) {
    BlockCache cache(64 * mebi);
    void* block = cache.allocate(mebi);
    cache.release(block, mebi);
    void* other = cache.allocate(2 * mebi);
    EXPECT_NE(other, block);
    EXPECT_EQ(cache.keptBytes(), mebi);
    cache.release(other, 2 * mebi);
}

TEST(BlockCache, StaysWithinItsLimitAndDropsWhatItKeptLongest) {
    BlockCache cache(8 * mebi);
    std::vector<void*> blocks;
    for (int i = 0; i < 9; ++i) blocks.push_back(cache.allocate(mebi));
    for (void* block : blocks) cache.release(block, mebi);
    EXPECT_EQ(cache.keptBytes(), 8 * mebi);
    void* large = cache.allocate(3 * mebi);
    cache.release(large, 3 * mebi); // three go for it
    EXPECT_EQ(cache.keptBytes(), 8 * mebi);
    for (int i = 8; i >= 4; --i) EXPECT_EQ(cache.allocate(mebi), blocks[i]) << i;
    EXPECT_EQ(cache.keptBytes(), 3 * mebi);
    for (int i = 4; i <= 8; ++i) cache.release(blocks[i], mebi);
}

TEST(BlockCache, DoesNotKeepWhatIsSmallOrTooLarge) {
    BlockCache cache(8 * mebi);
    for (const std::size_t bytes : {std::size_t{1}, BlockCache::minBlock - 1, 4 * mebi + 1, 100 * mebi}) {
        void* block = cache.allocate(bytes);
        static_cast<char*>(block)[bytes - 1] = 1;
        cache.release(block, bytes);
        EXPECT_EQ(cache.keptBytes(), 0u) << bytes;
    }
}

TEST(BlockCache, WithoutALimitAboveZeroItKeepsNothing) {
    BlockCache cache(0);
    cache.release(cache.allocate(mebi), mebi);
    EXPECT_EQ(cache.keptBytes(), 0u);
}

TEST(BlockCache, BlocksAreAligned) {
    BlockCache cache(64 * mebi);
    for (std::size_t bytes = 1; bytes < 8 * mebi; bytes = 3 * bytes + 1) {
        void* block = cache.allocate(bytes);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % BlockCache::alignment, 0u) << bytes;
        cache.release(block, bytes);
    }
}

TEST(BlockCache, GivesEverythingUpBeforeAnAllocationFails) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    BlockCache cache(64 * mebi);
    cache.release(cache.allocate(mebi), mebi);
    EXPECT_THROW(cache.allocate(std::numeric_limits<std::size_t>::max() / 2), std::bad_alloc);
    EXPECT_EQ(cache.keptBytes(), 0u);
}

/// Every thread marks the ends of its block and finds its marks again: no block has two owners.
TEST(BlockCache, ThreadsNeverShareABlock) {
    constexpr int threadCount = 4, rounds = 3000;
    BlockCache cache(3 * mebi); // blocks are dropped too
    std::vector<std::thread> threads;
    std::vector<int> broken(threadCount);
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < rounds; ++i) {
                const std::size_t words = (mebi / 8) << (i % 2) >> 1;
                auto* block = static_cast<u64*>(cache.allocate(8 * words));
                block[0] = block[words - 1] = static_cast<u64>(t);
                std::this_thread::yield();
                broken[t] += block[0] != static_cast<u64>(t) || block[words - 1] != static_cast<u64>(t);
                cache.release(block, 8 * words);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(broken, std::vector<int>(threadCount));
    EXPECT_LE(cache.keptBytes(), 3 * mebi);
}

/// The flags by which the system describes the mapping that holds `address`; empty where it does not describe
/// it.
std::string mappingFlags(const void* address) {
    std::ifstream mappings("/proc/self/smaps");
    bool isIts = false;
    for (std::string line; std::getline(mappings, line);) {
        std::uintptr_t begin = 0, end = 0;
        char dash = 0;
        if (std::istringstream head(line); head >> std::hex >> begin >> dash >> end && dash == '-')
            isIts = begin <= reinterpret_cast<std::uintptr_t>(address) &&
                    reinterpret_cast<std::uintptr_t>(address) < end;
        else if (isIts && line.starts_with("VmFlags:"))
            return line + ' ';
    }
    return {};
}

TEST(BlockCache, AsksForHugePagesUnderBlocksThatHoldSome) {
    if (!std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled")) GTEST_SKIP() << "no huge pages here";
    BlockCache cache(0);
    auto* block = static_cast<std::byte*>(cache.allocate(8 * mebi));
    const std::string first = mappingFlags(block), last = mappingFlags(block + 8 * mebi - 1);
    cache.release(block, 8 * mebi);
    if (first.empty()) GTEST_SKIP() << "the system does not describe mappings";
    EXPECT_THAT(first, testing::HasSubstr(" hg "));
    EXPECT_THAT(last, testing::HasSubstr(" hg "));
}

TEST(BlockCache, ServesTheHostMemoryResource) {
    SKIP_WHERE_NEW_CANNOT_THROW(); // sanitizers see every block come and go
    HostMemoryResource resource;
    void* block = resource.doAllocate(5 * mebi, getDefaultStream());
    resource.doDeallocate(block, 5 * mebi, getDefaultStream());
    EXPECT_EQ(HostMemoryResource().doAllocate(5 * mebi, getDefaultStream()), block);
    resource.doDeallocate(block, 5 * mebi, getDefaultStream());
}

} // namespace
} // namespace Torvo
