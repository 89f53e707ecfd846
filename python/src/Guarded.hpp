#pragma once

#include <pybind11/pybind11.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <memory>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace TorvoPython {

namespace py = pybind11;

/// An object of the library with the reader-writer lock that Python's threads share it by. Classes of the library
/// allow one writer or many readers; the interpreter's lock does not see to that, because every call that
/// computes gives it up.
template <class T>
class Guarded {
public:
    template <class... Args>
    explicit Guarded(Args&&... args) : object_(std::forward<Args>(args)...) {}

    /// Only while a `Computing` holds the mutex.
    T& object() { return object_; }
    const T& object() const { return object_; }
    std::shared_mutex& mutex() const { return mutex_; }

private:
    T object_;
    mutable std::shared_mutex mutex_;
};

/// A lock that a call wants.
struct Wanted {
    std::shared_mutex* mutex;
    bool exclusive;
};

template <class T>
Wanted reading(const Guarded<T>& guarded) {
    return {&guarded.mutex(), false};
}
template <class T>
Wanted writing(Guarded<T>& guarded) {
    return {&guarded.mutex(), true};
}

/// Several locks at once, in the order of their addresses, so that no two calls wait for each other. An object that is
/// named twice is locked once, exclusively if one of the two asks for that.
class Locks {
public:
    explicit Locks(std::vector<Wanted> wanted) : wanted_(std::move(wanted)) {
        std::sort(wanted_.begin(), wanted_.end(), [](const Wanted& a, const Wanted& b) {
            return a.mutex != b.mutex ? std::less<>()(a.mutex, b.mutex) : a.exclusive && !b.exclusive;
        });
        const auto same = [](const Wanted& a, const Wanted& b) { return a.mutex == b.mutex; };
        wanted_.erase(std::unique(wanted_.begin(), wanted_.end(), same), wanted_.end());
        for (const Wanted& one : wanted_) {
            if (one.exclusive)
                one.mutex->lock();
            else
                one.mutex->lock_shared();
        }
    }
    Locks(const Locks&) = delete;
    Locks& operator=(const Locks&) = delete;
    ~Locks() {
        for (const Wanted& one : wanted_) {
            if (one.exclusive)
                one.mutex->unlock();
            else
                one.mutex->unlock_shared();
        }
    }

private:
    std::vector<Wanted> wanted_;
};

/// What a call that computes holds: not the interpreter's lock, but those of its objects. They are taken after the
/// interpreter's lock is given up and given back before it is taken again, so that a thread that waits for an
/// object keeps nobody else from running.
class Computing {
public:
    Computing(std::initializer_list<Wanted> wanted) : locks_(std::vector<Wanted>(wanted)) {}
    explicit Computing(std::vector<Wanted> wanted) : locks_(std::move(wanted)) {}

private:
    py::gil_scoped_release released_;
    Locks locks_;
};

template <class T>
using GuardedPointers = std::vector<Guarded<T>*>;

/// For a list of operands: a reading lock on each.
template <class T>
std::vector<Wanted> readingAll(const GuardedPointers<T>& operands) {
    std::vector<Wanted> wanted;
    for (const Guarded<T>* operand : operands) wanted.push_back(reading(*operand));
    return wanted;
}

/// Copies of a list of operands, for members that take them by value. Only while they are locked.
template <class T>
std::vector<T> copiesOf(const GuardedPointers<T>& operands) {
    std::vector<T> copies;
    copies.reserve(operands.size());
    for (const Guarded<T>* operand : operands) copies.push_back(operand->object());
    return copies;
}

/// A getter: reads under the lock.
template <class T, class Get>
auto getter(Get get) {
    return [get](const Guarded<T>& self) {
        const Computing computing{reading(self)};
        return std::invoke(get, self.object());
    };
}

/// A setter: writes under the lock.
template <class T, class Base, class Argument>
auto setter(void (Base::*set)(Argument)) {
    return [set](Guarded<T>& self, Argument value) {
        const Computing computing{writing(self)};
        (self.object().*set)(value);
    };
}

} // namespace TorvoPython
