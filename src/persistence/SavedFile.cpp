#include "persistence/SavedFile.hpp"

#include "persistence/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <linux/magic.h>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string_view>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Torvo::detail {

namespace {

namespace fs = std::filesystem;

constexpr mode_t secretMode = 0600;
constexpr mode_t publicMode = 0666; // less the umask
/// Excludes the set-user and set-group bits: the new file may belong to another owner.
constexpr mode_t permissions = 0777;

[[noreturn]] void throwCannotOpen(const std::string& path) {
    throw RuntimeException(message::cannotOpenFile + path);
}

[[noreturn]] void throwCannotFinish(const std::string& path, int error) {
    throw RuntimeException(message::cannotFinishFile + path + ": " + std::generic_category().message(error));
}

/// Repeats `call` until no signal interrupts it, and returns its result.
template <class Call>
auto uninterrupted(Call&& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

class Descriptor {
public:
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : number_(uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); })) {}
    ~Descriptor() {
        if (isOpen()) ::close(number_);
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return number_ >= 0; }
    int number() const { return number_; }
    /// Whether the close succeeded; errno says why it did not. An interrupted close counts as a success.
    bool close() { return ::close(std::exchange(number_, -1)) == 0 || errno == EINTR; }

private:
    int number_;
};

/// Writes to a descriptor without a buffer of its own. When the system accepts no more bytes, the rest is not
/// written, and the archive reports that.
class DescriptorBuffer : public std::streambuf {
public:
    explicit DescriptorBuffer(const Descriptor& descriptor) : descriptor_(descriptor) {}

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        std::streamsize done = 0;
        while (done < count) {
            const auto step = uninterrupted([&] {
                return ::write(descriptor_.number(), bytes + done, static_cast<std::size_t>(count - done));
            });
            if (step <= 0) break;
            done += step;
        }
        return done;
    }
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        const char byte = traits_type::to_char_type(character);
        return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
    }

private:
    const Descriptor& descriptor_;
};

void writeTo(const Descriptor& file, const std::function<void(std::ostream&)>& write) {
    DescriptorBuffer buffer(file);
    std::ostream stream(&buffer);
    write(stream);
}

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// A link in the file system of the processes refers to something that a process holds open, whatever name it
/// shows.
bool isOfProcess(const fs::path& link) {
    struct statfs system {};
    const std::string folder = link.has_parent_path() ? link.parent_path().string() : ".";
    return ::statfs(folder.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// Follows the links that begin at `path` to their end; empty if they do not end, or not at a name.
std::optional<fs::path> endOfLinks(fs::path path) {
    constexpr int most = 40; // as the system has it
    for (int hops = 0; hops < most; ++hops) {
        std::error_code isNoLink;
        const fs::path next = fs::read_symlink(path, isNoLink);
        if (isNoLink) return path;
        if (isOfProcess(path)) return std::nullopt;
        path = path.parent_path() / next; // an absolute one stands alone
    }
    return std::nullopt;
}

/// A file that is to be replaced, or made.
struct Target {
    fs::path path;                     ///< links resolved
    std::optional<struct stat> status; ///< of the file that is there
};

/// The target of `path`, if it can be replaced by renaming.
std::optional<Target> replaceable(const std::string& path) {
    struct stat status {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    if (exists ? !S_ISREG(status.st_mode) : errno != ENOENT) return std::nullopt;
    const std::optional<fs::path> end = endOfLinks(path);
    if (!end || !end->has_filename()) return std::nullopt;
    if (!exists) return Target{*end, std::nullopt};
    struct stat atEnd {};
    if (::stat(end->c_str(), &atEnd) != 0 || !isSameFile(status, atEnd)) return std::nullopt;
    // A folder may allow the replacement of a file that itself may not be written.
    if (!Descriptor(path, O_WRONLY).isOpen()) throwCannotOpen(path);
    return Target{*end, status};
}

/// A short name, whatever the name of the target: that may be as long as the file system allows.
std::string randomName() {
    std::uint64_t word = 0;
    if (::getrandom(&word, sizeof word, 0) != sizeof word)
        throw std::system_error(errno, std::generic_category());
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), ".torvo-%016llx", static_cast<unsigned long long>(word));
    return name.data();
}

/// Whether a file in a folder that refuses a temporary file for this reason may still be writable.
bool takesNoFiles(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENOENT || error == ENOTDIR ||
           error == ENAMETOOLONG;
}

/// Whether a file whose name cannot be replaced for this reason may still be writable: its folder holds
/// shared files, or something is mounted on it.
bool takesNoRename(int error) {
    return error == EACCES || error == EPERM || error == EBUSY || error == EXDEV;
}

/// A file under a temporary name beside its target. It is removed with this object unless it was renamed.
class TemporaryFile {
public:
    /// Empty if the folder accepts no file.
    static std::optional<TemporaryFile> beside(const Target& target, Secrecy secrecy,
                                               const std::string& path) {
        for (;;) {
            const fs::path name = target.path.parent_path() / randomName();
            Descriptor file(name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, firstMode(target, secrecy));
            const int error = errno;
            if (file.isOpen()) return TemporaryFile(name, std::move(file));
            if (takesNoFiles(error)) return std::nullopt;
            if (error != EEXIST) throwCannotOpen(path);
        }
    }

    TemporaryFile(TemporaryFile&& other) noexcept
        : name_(std::exchange(other.name_, {})), file_(std::move(other.file_)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!name_.empty()) ::unlink(name_.c_str());
    }

    const Descriptor& file() const { return file_; }

    /// Takes owner and mode of the file to be replaced, as far as the system allows: only the group if the
    /// owner may not be set. The owner comes first, because changing it removes mode bits.
    void takeOver(const Target& target, Secrecy secrecy) {
        if (target.status) {
            constexpr auto sameUser = static_cast<uid_t>(-1);
            const gid_t group = target.status->st_gid;
            [[maybe_unused]] const bool isOwned =
                ::fchown(file_.number(), target.status->st_uid, group) == 0 ||
                ::fchown(file_.number(), sameUser, group) == 0;
        }
        if (secrecy == Secrecy::Secret)
            ::fchmod(file_.number(), secretMode);
        else if (target.status)
            ::fchmod(file_.number(), target.status->st_mode & permissions);
    }

    /// Whether the file now has the name of its target; false if that name cannot be given to another file.
    /// @throws RuntimeException "Cannot finish writing file " and so on, of `path`
    bool rename(const Target& target, const std::string& path) {
        // A file system that does not support fsync brings its files to the disk in its own way.
        if (uninterrupted([&] { return ::fsync(file_.number()); }) != 0 && errno != EINVAL)
            throwCannotFinish(path, errno);
        if (!file_.close()) throwCannotFinish(path, errno);
        if (::rename(name_.c_str(), target.path.c_str()) != 0) {
            if (!takesNoRename(errno)) throwCannotFinish(path, errno);
            return false;
        }
        name_.clear();
        return true;
    }

private:
    /// Never more permissions than the file has in the end.
    static mode_t firstMode(const Target& target, Secrecy secrecy) {
        if (secrecy == Secrecy::Secret) return secretMode;
        return target.status ? target.status->st_mode & publicMode : publicMode;
    }

    TemporaryFile(fs::path name, Descriptor&& file) : name_(std::move(name)), file_(std::move(file)) {}

    fs::path name_;
    Descriptor file_;
};

/// Brings the name to the disk too. The file is whole even if that fails.
void syncFolderOf(const fs::path& file) {
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    const Descriptor descriptor(folder, O_RDONLY | O_DIRECTORY);
    if (descriptor.isOpen()) ::fsync(descriptor.number());
}

/// Writes the file beside its target and puts it in the target's place; false if that is impossible.
bool replace(const std::string& path, Secrecy secrecy, const std::function<void(std::ostream&)>& write) {
    const std::optional<Target> target = replaceable(path);
    if (!target) return false;
    std::optional<TemporaryFile> temporary = TemporaryFile::beside(*target, secrecy, path);
    if (!temporary) return false;
    temporary->takeOver(*target, secrecy);
    writeTo(temporary->file(), write);
    if (!temporary->rename(*target, path)) return false;
    syncFolderOf(target->path);
    return true;
}

void overwrite(const std::string& path, Secrecy secrecy, const std::function<void(std::ostream&)>& write) {
    const bool isSecret = secrecy == Secrecy::Secret;
    Descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC, isSecret ? secretMode : publicMode);
    if (!file.isOpen()) throwCannotOpen(path);
    struct stat status {};
    if (isSecret && ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode))
        ::fchmod(file.number(), secretMode);
    writeTo(file, write);
    if (!file.close()) throwCannotFinish(path, errno);
}

} // namespace

void writeFile(const std::string& path, Secrecy secrecy, const std::function<void(std::ostream&)>& write) {
    if (!replace(path, secrecy, write)) overwrite(path, secrecy, write);
}

} // namespace Torvo::detail
