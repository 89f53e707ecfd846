#include "persistence/RegularFile.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torvo {

RegularFile::RegularFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        error_ = errno;
    else if (!S_ISREG(status.st_mode))
        state_ = State::NotRegular;
    else
        open(path);
}

RegularFile::~RegularFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

// What has taken the place of the file since it was looked at is not waited for either.
void RegularFile::open(const std::string& path) {
    do descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    while (descriptor_ < 0 && errno == EINTR);
    struct stat status {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) {
        error_ = errno;
        return;
    }
    state_ = S_ISREG(status.st_mode) ? State::Open : State::NotRegular;
    size_ = static_cast<u64>(status.st_size);
    seconds_ = status.st_mtim.tv_sec;
    nanoseconds_ = status.st_mtim.tv_nsec;
}

bool RegularFile::read(u64 offset, void* out, u64 byteCount) const {
    for (u64 done = 0; done < byteCount;) {
        const auto step = ::pread(descriptor_, static_cast<char*>(out) + done, byteCount - done,
                                  static_cast<off_t>(offset + done));
        if (step < 0 && errno == EINTR) continue;
        if (step <= 0) return false;
        done += static_cast<u64>(step);
    }
    return true;
}

bool RegularFile::hasChanged() const {
    struct stat status {};
    return ::fstat(descriptor_, &status) != 0 || static_cast<u64>(status.st_size) != size_ ||
           status.st_mtim.tv_sec != seconds_ || status.st_mtim.tv_nsec != nanoseconds_;
}

} // namespace Torvo
