#include "core/Forks.hpp"

#include <omp.h>
#include <pthread.h>

#include <atomic>
#include <new>
#include <vector>

namespace Torvo {

namespace {

std::atomic<u64> forks{0};

/// The mutexes to hold, guarded by one of their own.
struct HeldMutexes {
    std::mutex mutex;
    std::vector<std::mutex*> all;
};

HeldMutexes& heldMutexes() {
    static auto& held = *new HeldMutexes; // never destroyed: static objects may fork at their end
    return held;
}

// The pause keeps the settings of OpenMP. Inside a parallel region OpenMP refuses it, and it has no effect.
void beforeFork() {
    omp_pause_resource_all(omp_pause_soft);
    HeldMutexes& held = heldMutexes();
    held.mutex.lock();
    for (std::mutex* mutex : held.all) mutex->lock();
}

void afterFork() {
    HeldMutexes& held = heldMutexes();
    for (std::mutex* mutex : held.all) mutex->unlock();
    held.mutex.unlock();
}

void afterForkInChild() {
    forks.fetch_add(1, std::memory_order_relaxed);
    afterFork();
}

// The system drops the handlers of a library that is unloaded. It refuses to register them only if memory is
// exhausted while the library is loaded. A library without them would give keys away, so the program ends
// then.
[[maybe_unused]] const bool isRegistered = [] {
    heldMutexes();
    if (pthread_atfork(beforeFork, afterFork, afterForkInChild) != 0) throw std::bad_alloc();
    return true;
}();

} // namespace

u64 forkCount() noexcept {
    return forks.load(std::memory_order_relaxed);
}

void holdDuringForks(std::mutex& mutex) {
    HeldMutexes& held = heldMutexes();
    const std::lock_guard lock(held.mutex);
    held.all.push_back(&mutex);
}

} // namespace Torvo
