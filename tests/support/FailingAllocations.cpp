#include "support/FailingAllocations.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace Torvo::test {

namespace {

using Thread = FailingAllocation::Thread;

constexpr long disarmed = -1;
std::atomic<long> left{disarmed}; ///< allocations before the one that fails; below 0 none does
std::atomic<bool> failed{false};
std::atomic<Thread> watched{Thread::Any};
thread_local bool isArming = false; // of the thread that made the object

bool isWatched() {
    switch (watched.load(std::memory_order_relaxed)) {
    case Thread::Calling:
        return isArming;
    case Thread::Others:
        return !isArming;
    default:
        return true;
    }
}

bool isToFail() {
    if (left.load(std::memory_order_relaxed) < 0 || !isWatched()) return false;
    if (left.fetch_sub(1) != 0) return false;
    failed = true;
    return true;
}

} // namespace

FailingAllocation::FailingAllocation(u64 before, Thread thread) {
    isArming = true;
    failed = false;
    watched = thread;
    left = static_cast<long>(before);
}

FailingAllocation::~FailingAllocation() {
    left = disarmed;
    isArming = false;
}

bool FailingAllocation::hasFailed() const {
    return failed;
}

} // namespace Torvo::test

// The operators of the whole test program; the forms not named here call these.

void* operator new(std::size_t bytes) {
    if (Torvo::test::isToFail()) throw std::bad_alloc();
    if (void* memory = std::malloc(bytes != 0 ? bytes : 1)) return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t bytes, std::align_val_t alignment) {
    const auto align = static_cast<std::size_t>(alignment);
    if (Torvo::test::isToFail()) throw std::bad_alloc();
    const std::size_t rounded = (bytes / align + 1) * align;
    if (rounded < bytes) throw std::bad_alloc();
    if (void* memory = std::aligned_alloc(align, rounded)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
