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

/// What a call of the library takes of the object in a handle: the object, unless a handle's header says otherwise.
template <class T>
struct Library {
    using type = T;
};
template <class T>
using LibraryOf = typename Library<T>::type;

/// A list of operands. It keeps them itself: another thread may change Python's list while the call computes.
template <class T>
struct Operands {
    std::vector<py::object> kept;
    std::vector<Guarded<T>*> pointers;
};

/// A reading lock on each.
template <class T>
std::vector<Wanted> readingAll(const Operands<T>& operands) {
    std::vector<Wanted> wanted;
    for (const Guarded<T>* operand : operands.pointers) wanted.push_back(reading(*operand));
    return wanted;
}

/// All of two lists of locks.
inline std::vector<Wanted> joined(std::vector<Wanted> wanted, const std::vector<Wanted>& more) {
    wanted.insert(wanted.end(), more.begin(), more.end());
    return wanted;
}

/// Copies of a list of operands, for members that take them by value. Only while they are locked.
template <class T>
std::vector<LibraryOf<T>> copiesOf(const Operands<T>& operands) {
    std::vector<LibraryOf<T>> copies;
    copies.reserve(operands.pointers.size());
    for (const Guarded<T>* operand : operands.pointers) copies.push_back(operand->object());
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

namespace pybind11::detail {

/// Any sequence whose elements are handles of one kind; None is none.
template <class T>
struct type_caster<TorvoPython::Operands<T>> {
    PYBIND11_TYPE_CASTER(TorvoPython::Operands<T>, const_name("Sequence"));

    bool load(handle source, bool convert) {
        if (!isinstance<sequence>(source) || isinstance<str>(source) || isinstance<bytes>(source))
            return false;
        // A tuple of our own, which nobody else changes.
        const auto elements = reinterpret_steal<tuple>(PySequence_Tuple(source.ptr()));
        if (!elements) throw error_already_set();
        value = {};
        for (const handle element : elements) {
            make_caster<TorvoPython::Guarded<T>> caster;
            if (element.is_none() || !caster.load(element, convert)) return false;
            value.kept.push_back(reinterpret_borrow<object>(element));
            value.pointers.push_back(cast_op<TorvoPython::Guarded<T>*>(caster));
        }
        return true;
    }
};

} // namespace pybind11::detail
