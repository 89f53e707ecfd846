#pragma once

#include "arithmetic/kernels/RowLoop.hpp"

#include <exception>
#include <mutex>

namespace Torvo {

/// Keeps the first exception of any thread of a team until all have left the parallel region, which none may
/// leave by an exception.
class FirstException {
public:
    template <class Work>
    void catching(Work&& work) {
        try {
            work();
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (exception_ == nullptr) exception_ = std::current_exception();
        }
    }
    bool wasCaught() {
        const std::lock_guard lock(mutex_);
        return exception_ != nullptr;
    }
    /// Behind the region: throws what was caught there, if anything was.
    void rethrow() const {
        if (exception_ != nullptr) std::rethrow_exception(exception_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr exception_;
};

/// Like `forEachIndex`, for a body that may run out of memory: the first exception of any thread comes out
/// when all have left the loop.
template <class Body>
void forEachIndexOrThrow(u64 count, Body&& body) {
    FirstException failure;
    forEachIndex(count, [&](u64 i) { failure.catching([&] { body(i); }); });
    failure.rethrow();
}

/// Like `forEachIndex`, for a body that needs something on each thread whose making may fail: every thread of
/// the team calls prepare() first. When one of them throws, no body is called, and the first exception comes
/// out.
template <class Prepare, class Body>
void forEachIndexAfter(Prepare&& prepare, u64 count, Body&& body) {
    FirstException failure;
    const int threads = threadsFor(count);
#pragma omp parallel num_threads(threads)
    {
        failure.catching(prepare);
#pragma omp barrier
        if (!failure.wasCaught()) {
#pragma omp for schedule(static)
            for (u64 i = 0; i < count; ++i) body(i);
        }
    }
    failure.rethrow();
}

} // namespace Torvo
