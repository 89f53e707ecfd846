#pragma once

#include "core/Messages.hpp"

#include <Torvo/Device.hpp>
#include <Torvo/RuntimeException.hpp>

#include <map>
#include <mutex>
#include <utility>

namespace Torvo {

/// Moves every element of a nested sequence, or a single value, to `device`.
template <class T>
void moveToDevice(T& value, const Device& device) {
    if constexpr (requires { value.to(device); }) {
        value.to(device);
    } else {
        for (auto& element : value) moveToDevice(element, device);
    }
}

/// One logical value held on several devices, behind a mutex that is held for the look-up only.
template <class T>
class MultipleDevice {
public:
    struct Comparator {
        bool operator()(const Device& a, const Device& b) const { return a < b; }
    };
    using Map = std::map<Device, T, Comparator>;

    MultipleDevice() = default;

    /// The value on `device`; the reference lives as long as the entry.
    /// @throws std::out_of_range "map::at"
    const T& at(const Device& device) const {
        const std::lock_guard lock(mutex_);
        return map_.at(device);
    }
    T& at(const Device& device) {
        const std::lock_guard lock(mutex_);
        return map_.at(device);
    }

    bool contains(const Device& device) const {
        const std::lock_guard lock(mutex_);
        return map_.contains(device);
    }

    /// Makes or replaces the value on `device`.
    void set(const Device& device, T value) {
        const std::lock_guard lock(mutex_);
        map_.insert_or_assign(device, std::move(value));
    }

    /// Copies the first entry to `device` unless `device` has one.
    /// @throws RuntimeException "Value-device map is empty."
    void ensure(const Device& device) {
        const std::lock_guard lock(mutex_);
        ensureLocked(device);
    }

    /// Makes or replaces the value on `to` by a copy of that on `from`. Takes no lock: the caller holds
    /// `mutex()`.
    /// @throws std::out_of_range "map::at"
    void copyTo_(const Device& from, const Device& to) {
        T copy = map_.at(from);
        moveToDevice(copy, to);
        map_.insert_or_assign(to, std::move(copy));
    }

    /// Keeps the value on `device` only, copied from the first entry if `device` has none.
    /// @throws RuntimeException "Value-device map is empty."
    void removeExcept(const Device& device) {
        const std::lock_guard lock(mutex_);
        ensureLocked(device);
        std::erase_if(map_, [&](const auto& entry) { return !(entry.first == device); });
    }

    std::mutex& mutex() const { return mutex_; }
    /// The entries themselves, for a caller that holds `mutex()` or owns the object alone.
    Map& entries() { return map_; }
    const Map& entries() const { return map_; }

private:
    void ensureLocked(const Device& device) {
        if (map_.contains(device)) return;
        if (map_.empty()) throw RuntimeException(message::emptyDeviceMap);
        copyTo_(map_.begin()->first, device);
    }

    Map map_;
    mutable std::mutex mutex_;
};

} // namespace Torvo
