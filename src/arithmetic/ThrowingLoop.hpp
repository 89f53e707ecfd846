#pragma once

#include "arithmetic/RowLoop.hpp"

#include <exception>
#include <mutex>

namespace Torvo {

/// Like `forEachIndex`, for a body that may run out of memory: the first exception of any thread comes out
/// when all have left the loop.
template <class Body>
void forEachIndexOrThrow(u64 count, Body&& body) {
    std::exception_ptr failure;
    std::mutex mutex;
    forEachIndex(count, [&](u64 i) {
        try {
            body(i);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (failure == nullptr) failure = std::current_exception();
        }
    });
    if (failure != nullptr) std::rethrow_exception(failure);
}

} // namespace Torvo
