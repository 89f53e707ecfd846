#include "persistence/MappedFile.hpp"

#include "persistence/Messages.hpp"
#include "persistence/RegularFile.hpp"

#include <Torvo/RuntimeException.hpp>

#include <cerrno>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>

namespace Torvo {

namespace {

[[noreturn]] void refuse(const char* what, const std::string& path, const std::string& reason) {
    throw RuntimeException(what + path + ": " + reason);
}

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

} // namespace

MappedFile::MappedFile(const std::string& path) {
    const RegularFile file(path);
    using State = RegularFile::State;
    if (file.state() == State::NotThere) refuse(message::cannotOpenFile, path, reasonOf(file.error()));
    if (file.state() == State::NotRegular) refuse(message::cannotMapFile, path, message::notMappable);
    struct stat status {};
    if (::fstat(file.descriptor(), &status) != 0) refuse(message::cannotMapFile, path, reasonOf(errno));
    fileSystem_ = status.st_dev;
    number_ = status.st_ino;
    size_ = file.size();
    if (size_ == 0) return; // the system maps no empty file
    void* memory = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file.descriptor(), 0);
    if (memory == MAP_FAILED) refuse(message::cannotMapFile, path, reasonOf(errno));
    data_ = static_cast<char*>(memory);
    // Fewer and larger reads where the system has such pages for files; without them nothing changes.
    ::madvise(memory, size_, MADV_HUGEPAGE);
}

MappedFile::~MappedFile() {
    if (data_ != nullptr) ::munmap(data_, size_);
}

bool MappedFile::isAt(const std::string& path) const {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && status.st_dev == fileSystem_ && status.st_ino == number_;
}

} // namespace Torvo
