#pragma once

#include "core/Integers.hpp"

#include <string>

namespace Torvo {

/// A regular file as memory to be read, whole, until this object ends. Pages come from the file when they are first
/// read, and processes that map one file share them. The file stays when another one takes its name. Whoever shortens
/// it takes pages from its readers: the system ends a process that reads one with SIGBUS.
class MappedFile {
public:
    /// What is no regular file is not opened, so nothing waits.
    /// @throws RuntimeException "Cannot open file ", the path, ": " and the reason that the system gives; "Cannot map
    ///         file ", the path, ": " and that reason, or "it is no regular file; give the path of a file that was
    ///         saved"
    explicit MappedFile(const std::string& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /// Begins on a page. Null for an empty file.
    const char* data() const { return data_; }
    /// Bytes when it was mapped.
    u64 size() const { return size_; }
    /// Whether `path` leads to this file.
    bool isAt(const std::string& path) const;

private:
    char* data_ = nullptr;
    u64 size_ = 0;
    u64 fileSystem_ = 0, number_ = 0; ///< by which the system knows the file
};

} // namespace Torvo
