#pragma once

#include <Torvo/Export.hpp>

#include <utility>

namespace Torvo {

/// Owning handle with value semantics: a copy of the handle is a copy of the pointee. The public data
/// classes hold their implementation through it, so their headers need only a forward declaration.
/// Moving leaves the source null; a null handle may be destroyed, copied and assigned to, nothing else.
/// Not synchronised.
template <class T>
class Pointer {
public:
    /// Takes ownership of `pointee`, which came from `new`.
    explicit Pointer(T* pointee) : pointee_(pointee) {}

    Pointer(const Pointer& other) : pointee_(other.pointee_ ? new T(*other.pointee_) : nullptr) {}
    Pointer(Pointer&& other) noexcept : pointee_(std::exchange(other.pointee_, nullptr)) {}

    /// Assigns into the existing pointee, so its buffers are reused where they suffice.
    Pointer& operator=(const Pointer& other) {
        if (this == &other) return *this;
        if (pointee_ && other.pointee_)
            *pointee_ = *other.pointee_;
        else
            *this = Pointer(other);
        return *this;
    }

    Pointer& operator=(Pointer&& other) noexcept {
        if (this != &other) {
            delete pointee_;
            pointee_ = std::exchange(other.pointee_, nullptr);
        }
        return *this;
    }

    ~Pointer() { delete pointee_; }

    T& operator*() { return *pointee_; }
    const T& operator*() const { return *pointee_; }
    T* operator->() { return pointee_; }
    const T* operator->() const { return pointee_; }

private:
    T* pointee_;
};

} // namespace Torvo
