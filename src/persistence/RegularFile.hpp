#pragma once

#include "core/Integers.hpp"

#include <string>

namespace Torvo {

/// A regular file, opened without waiting, of which single pieces are read or mapped.
class RegularFile {
public:
    enum class State { Open, NotThere, NotRegular };

    /// What is there but no regular file is not opened: to open a pipe waits, to open a device can do
    /// anything.
    explicit RegularFile(const std::string& path);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    State state() const { return state_; }
    /// Why it is not there, as the system numbers it.
    int error() const { return error_; }
    /// Of the open file; it is closed with this object.
    int descriptor() const { return descriptor_; }
    /// Bytes when it was opened.
    u64 size() const { return size_; }
    /// Whether `byteCount` bytes at `offset` are now in `out`.
    bool read(u64 offset, void* out, u64 byteCount) const;
    /// Whether the length or the time of the last write is another than at the opening.
    bool hasChanged() const;

private:
    void open(const std::string& path);

    State state_ = State::NotThere;
    int error_ = 0;
    int descriptor_ = -1;
    u64 size_ = 0;
    long seconds_ = 0, nanoseconds_ = 0; ///< of the last write
};

} // namespace Torvo
