#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace Torvo::test {

/// A file without a directory, for what is loaded by its path.
class NamelessFile {
public:
    explicit NamelessFile(const std::string& content = "") : descriptor_(memfd_create("torvo", 0)) {
        if (descriptor_ < 0) throw std::runtime_error("no file in memory");
        const auto written = write(descriptor_, content.data(), content.size());
        if (written != static_cast<ssize_t>(content.size())) throw std::runtime_error("a short write");
    }
    ~NamelessFile() { close(descriptor_); }
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    std::string content() const {
        std::string bytes(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
        const auto count = pread(descriptor_, bytes.data(), bytes.size(), 0);
        if (count != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("a short read");
        return bytes;
    }

private:
    int descriptor_;
};

} // namespace Torvo::test
