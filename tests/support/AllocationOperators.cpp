// The operators new and delete of the test programs and their controls: one unit, so that a program that
// links one of them has all.

#include "support/AllocationBudget.hpp"
#include "support/FailingAllocations.hpp"
#include "support/Sanitizer.hpp"
#include "support/WatchedMemory.hpp"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace Torvo::test {

namespace {

using Thread = FailingAllocation::Thread;

constexpr long disarmed = -1;
std::atomic<long> left{disarmed}; ///< allocations before the one that fails; below 0 none does
std::atomic<bool> failed{false};
std::atomic<Thread> watched{Thread::Any};
thread_local bool isArming = false; // of the thread that made the object
std::atomic<bool> isArmed{false};
std::atomic<u64> armings{0};
thread_local u64 failsAgainIn = 0; ///< the arming in which this thread asks for an array once more

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

/// The library repeats a failed request for an array once: the second request fails too.
[[maybe_unused]] bool isArrayToFail() {
    if (std::exchange(failsAgainIn, 0) == armings && isArmed) return true;
    if (!isToFail()) return false;
    failsAgainIn = armings;
    return true;
}

} // namespace

FailingAllocation::FailingAllocation(u64 before, Thread thread) {
    isArming = true;
    failed = false;
    ++armings;
    isArmed = true;
    watched = thread;
    left = static_cast<long>(before);
}

FailingAllocation::~FailingAllocation() {
    left = disarmed;
    isArmed = false;
    isArming = false;
}

bool FailingAllocation::hasFailed() const {
    return failed;
}

// ---- a budget

namespace {

constexpr long unlimited = std::numeric_limits<long>::max();

// Signed: memory that was allocated before may be released during the budget.
std::atomic<long> limit{unlimited};
std::atomic<long> held{0};
std::atomic<long> highest{0};

bool isCounting() {
    return limit.load(std::memory_order_relaxed) != unlimited;
}

void raiseHighest(long bytes) {
    long seen = highest;
    while (seen < bytes && !highest.compare_exchange_weak(seen, bytes)) {
    }
}

} // namespace

AllocationBudget::AllocationBudget(u64 bytes) {
    held = 0;
    highest = 0;
    limit = static_cast<long>(bytes);
}

AllocationBudget::~AllocationBudget() {
    limit = unlimited;
}

bool AllocationBudget::isExceeded() const {
    return highest > limit;
}

u64 AllocationBudget::peak() const {
    return static_cast<u64>(highest);
}

namespace {

[[maybe_unused]] bool isWithinBudget(std::size_t bytes) {
    if (!isCounting()) return true;
    const long most = unlimited / 2;
    const long wanted = held + static_cast<long>(std::min(bytes, static_cast<std::size_t>(most)));
    raiseHighest(wanted);
    return wanted <= limit;
}

[[maybe_unused]] void countAllocation(void* memory) {
    if (isCounting()) held += static_cast<long>(malloc_usable_size(memory));
}

[[maybe_unused]] void countRelease(void* memory) {
    if (isCounting()) held -= static_cast<long>(malloc_usable_size(memory));
}

} // namespace

} // namespace Torvo::test

// All operators of the whole test program. Under a sanitizer those of its own do not call each other, so that
// one left out here would not count. The thread sanitizer lets none be replaced.
#ifndef TORVO_TESTS_UNDER_THREAD_SANITIZER

namespace {

void* allocate(std::size_t bytes) {
    if (Torvo::test::isToFail() || !Torvo::test::isWithinBudget(bytes)) return nullptr;
    void* memory = std::malloc(bytes != 0 ? bytes : 1);
    Torvo::test::countAllocation(memory);
    Torvo::test::onAllocation(memory);
    return memory;
}

void* allocate(std::size_t bytes, std::align_val_t alignment) {
    if (Torvo::test::isArrayToFail() || !Torvo::test::isWithinBudget(bytes)) return nullptr;
    const auto align = static_cast<std::size_t>(alignment);
    const std::size_t rounded = (bytes / align + 1) * align;
    void* memory = rounded < bytes ? nullptr : std::aligned_alloc(align, rounded);
    Torvo::test::countAllocation(memory);
    Torvo::test::onAllocation(memory);
    return memory;
}

void* orThrow(void* memory) {
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    Torvo::test::countRelease(memory);
    Torvo::test::onRelease(memory);
    std::free(memory);
}

} // namespace

// clang-format off
void* operator new(std::size_t n) { return orThrow(allocate(n)); }
void* operator new[](std::size_t n) { return orThrow(allocate(n)); }
void* operator new(std::size_t n, std::align_val_t a) { return orThrow(allocate(n, a)); }
void* operator new[](std::size_t n, std::align_val_t a) { return orThrow(allocate(n, a)); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, a); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, a); }

void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
// clang-format on

#endif
