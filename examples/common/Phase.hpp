#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace example {

/// Times a phase of an example, and says on standard error that it is at work once it takes over a second.
class Phase {
public:
    explicit Phase(std::string name)
        : name_(std::move(name)), watcher_([this](std::stop_token stop) { watch(stop); }) {}

    /// Seconds since the phase began.
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    void watch(std::stop_token stop) {
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
        if (!stop.stop_requested()) std::fprintf(stderr, "  %s ...\n", name_.c_str());
    }

    std::string name_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::jthread watcher_; // last: it uses all of the above
};

/// Runs `work` as the phase `name` and returns the seconds it took.
template <class Work>
double timed(const std::string& name, Work&& work) {
    const Phase phase(name);
    std::forward<Work>(work)();
    return phase.seconds();
}

} // namespace example
