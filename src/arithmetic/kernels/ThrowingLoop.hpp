#pragma once

#include "arithmetic/kernels/RowLoop.hpp"

#include <exception>
#include <mutex>

namespace Torvo {

/// Keeps the first exception of any thread of a team until all threads have left the parallel region, because
/// no exception may leave the region itself.
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
    /// To be called after the region: throws the exception that was caught there, if there was one.
    void rethrow() const {
        if (exception_ != nullptr) std::rethrow_exception(exception_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr exception_;
};

/// Like `forEachIndex`, for a body that may run out of memory: after all threads have left the loop, the
/// first exception of any of them is thrown.
template <class Body>
void forEachIndexOrThrow(u64 count, Body&& body) {
    FirstException failure;
    forEachIndex(count, [&](u64 i) { failure.catching([&] { body(i); }); });
    failure.rethrow();
}

/// Like `forEachIndex`, for a body that needs an object per thread whose construction may fail: every thread
/// of the team calls prepare() first. If one of them throws, no body is called, and the first exception is
/// thrown.
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
