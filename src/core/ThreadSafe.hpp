#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace Torvo {

/// A value behind a reader-writer lock: any number of `read`s, or one `write`.
template <class T>
class ThreadSafe {
public:
    /// Calls `f` with the value under the shared lock, which is released on return and on exception.
    template <class F>
    decltype(auto) read(F&& f) const {
        const std::shared_lock lock(mutex_);
        return std::invoke(std::forward<F>(f), value_);
    }

    /// Calls `f` with the value under the exclusive lock.
    template <class F>
    decltype(auto) write(F&& f) {
        const std::unique_lock lock(mutex_);
        return std::invoke(std::forward<F>(f), value_);
    }

private:
    mutable std::shared_mutex mutex_;
    T value_{};
};

template <class K, class V, class Cmp = std::less<K>>
using ThreadSafeMap = ThreadSafe<std::map<K, V, Cmp>>;

} // namespace Torvo
