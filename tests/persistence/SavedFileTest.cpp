#include "persistence/SavedFile.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/Expect.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Torvo {
namespace {

namespace fs = std::filesystem;
using detail::Secrecy;
using detail::writeFile;
using test::contentOf;

void write(const std::string& path, const std::string& text, Secrecy secrecy = Secrecy::Public) {
    writeFile(path, secrecy, [&](std::ostream& stream) { stream << text; });
}

mode_t modeOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

ino_t fileNumberOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

using Names = std::set<std::string>;

class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

/// A folder of a test, with a file "key" in it that holds "old".
class SavedFile : public testing::Test {
protected:
    SavedFile() { std::ofstream(key) << "old"; }

    std::string in(const std::string& name) const { return folder.path() + "/" + name; }
    void expectUntouched() const {
        EXPECT_EQ(contentOf(key), "old");
        EXPECT_EQ(namesIn(folder.path()), Names{"key"});
    }

    const test::TemporaryDirectory folder;
    const std::string key = in("key");
};

/// Runs `body` in a child of its own; true when it came to its end and gave true.
bool inChild(const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        bool isTrue = false;
        try {
            isTrue = body();
        } catch (...) {
        }
        ::_exit(isTrue ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(SavedFile, TheOldFileStandsUntilTheNewOneIsWhole) {
    std::string meanwhile;
    writeFile(key, Secrecy::Public, [&](std::ostream& stream) {
        stream << "new";
        stream.flush();
        meanwhile = contentOf(key);
    });
    EXPECT_EQ(meanwhile, "old");
    EXPECT_EQ(contentOf(key), "new");
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

TEST_F(SavedFile, WhoHasTheOldFileOpenGoesOnReadingIt) {
    std::ifstream reader(key);
    write(key, "new");
    std::string text;
    reader >> text;
    EXPECT_EQ(text, "old");
}

TEST_F(SavedFile, AnObjectThatFailsLeavesTheOldFile) {
    const auto fail = [](std::ostream& stream) {
        stream << "half";
        throw std::runtime_error("no backend");
    };
    EXPECT_THROW_TEXT(writeFile(key, Secrecy::Public, fail), std::runtime_error, "no backend");
    EXPECT_THROW_TEXT(writeFile(key, Secrecy::Secret, fail), std::runtime_error, "no backend");
    EXPECT_THROW_TEXT(writeFile(in("absent"), Secrecy::Public, fail), std::runtime_error, "no backend");
    expectUntouched();
}

// Data that is not on the CPU cannot be saved: the library itself fails in the middle of a save.
TEST_F(SavedFile, AnArrayThatCannotBeSavedLeavesTheOldFile) {
    const DeviceSpecificArray<u64> pinned(0, Device{DeviceType::PinnedHost, 0}, getDefaultStream());
    EXPECT_REFUSED(Serialize::save(key, u64{7}, pinned),
                   "Cannot support the function 'save' in the current build configuration");
    expectUntouched();
}

// The limit on the size of a file takes the place of a full disk: the archive learns of every byte of it.
TEST_F(SavedFile, AFullDiskLeavesTheOldFile) {
    EXPECT_TRUE(inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit most{100, 100};
        if (::setrlimit(RLIMIT_FSIZE, &most) != 0) return false;
        DeviceSpecificArray<u64> words(1000);
        try {
            Serialize::save(key, words);
        } catch (const cereal::Exception& failure) {
            return std::string(failure.what()) == "Failed to write 8000 bytes to output stream! Wrote 91";
        }
        return false;
    }));
    expectUntouched();
}

/// Whether a file is refused as one that cannot be opened. Runs in a child, which cannot report it to the
/// test otherwise.
bool doesNotOpen(const std::string& path) {
    try {
        write(path, "new");
    } catch (const RuntimeException& failure) {
        return failure.what() == "Cannot open file " + path;
    }
    return false;
}

TEST_F(SavedFile, NoDescriptorLeftIsAFileThatDoesNotOpen) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED(); // and needs a descriptor to look at an exception
    EXPECT_TRUE(inChild([&] {
        const rlimit none{0, 0};
        return ::setrlimit(RLIMIT_NOFILE, &none) == 0 && doesNotOpen(key);
    }));
    expectUntouched();
}

TEST_F(SavedFile, DevicesAndPipesAreWrittenInPlace) {
    EXPECT_THROW_TEXT(Serialize::save("/dev/full", u64{9}), cereal::Exception,
                      "Failed to write 1 bytes to output stream! Wrote 0");
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
    write("/dev/null", "new");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));

    const std::string pipe = in("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    auto reader = std::async(std::launch::async, [&] { return contentOf(pipe); });
    write(pipe, "through the pipe", Secrecy::Secret);
    EXPECT_EQ(reader.get(), "through the pipe");
    EXPECT_TRUE(fs::is_fifo(pipe));
}

/// The bytes that `write` sends to the standard output of a process, which is `output`.
void writeToStandardOutput(const std::string& output, const std::string& text) {
    EXPECT_TRUE(inChild([&] {
        const int descriptor = ::open(output.c_str(), O_WRONLY);
        if (descriptor < 0 || ::dup2(descriptor, STDOUT_FILENO) < 0) return false;
        write("/dev/stdout", text);
        return ::write(STDOUT_FILENO, "more", 4) == 4;
    }));
}

// Otherwise what the process goes on to write would go to a file without a name.
TEST_F(SavedFile, TheStandardOutputStaysTheFileThatItIs) {
    const ino_t number = fileNumberOf(key);
    writeToStandardOutput(key, "new text");
    EXPECT_EQ(contentOf(key), "moretext"); // two descriptors, each at its own place
    EXPECT_EQ(fileNumberOf(key), number);
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

TEST_F(SavedFile, AnOpenFileWithoutANameIsWrittenInPlace) {
    const int descriptor = ::open(key.c_str(), O_RDWR);
    ASSERT_GE(descriptor, 0);
    fs::remove(key);
    write("/proc/self/fd/" + std::to_string(descriptor), "new");
    char text[4] = {};
    EXPECT_EQ(::pread(descriptor, text, 3, 0), 3);
    EXPECT_STREQ(text, "new");
    EXPECT_EQ(namesIn(folder.path()), Names{});
    ::close(descriptor);
}

TEST_F(SavedFile, ALinkStaysAndItsFileIsReplaced) {
    fs::create_directory(in("other"));
    std::ofstream(in("other/file")) << "old";
    fs::create_symlink("other/file", in("relative"));
    fs::create_symlink(in("relative"), in("absolute"));
    write(in("absolute"), "new");
    EXPECT_EQ(contentOf(in("other/file")), "new");
    EXPECT_TRUE(fs::is_symlink(in("relative")) && fs::is_symlink(in("absolute")));
    EXPECT_EQ(namesIn(in("other")), Names{"file"});
    EXPECT_EQ(namesIn(folder.path()), (Names{"key", "other", "relative", "absolute"}));
}

TEST_F(SavedFile, AFileIsMadeAtTheEndOfALinkToNothing) {
    fs::create_directory(in("other"));
    fs::create_symlink("other/absent", in("dangling"));
    write(in("dangling"), "new");
    EXPECT_TRUE(fs::is_symlink(in("dangling")));
    EXPECT_FALSE(fs::is_symlink(in("other/absent")));
    EXPECT_EQ(contentOf(in("other/absent")), "new");
    EXPECT_EQ(namesIn(in("other")), Names{"absent"});
}

TEST_F(SavedFile, WhatDoesNotOpenIsNamedAsTheCallerNamesIt) {
    fs::create_symlink("loop", in("loop"));
    fs::create_symlink("absent/file", in("astray"));
    fs::create_directory(in("folder"));
    const std::string tooLong = in(std::string(300, 'x'));
    for (const std::string& path : {in("loop"), in("astray"), in("folder"), in("key/"), in("key/file"),
                                    in("absent/file"), in("absent/"), std::string(), tooLong})
        for (const Secrecy secrecy : {Secrecy::Public, Secrecy::Secret})
            EXPECT_REFUSED(write(path, "new", secrecy), "Cannot open file " + path);
    EXPECT_EQ(namesIn(folder.path()), (Names{"key", "loop", "astray", "folder"}));
    EXPECT_EQ(namesIn(in("folder")), Names{});
}

TEST_F(SavedFile, ANameMayBeAsLongAsTheFolderTakesIt) {
    const std::string longest(255, 'x');
    write(in(longest), "first");
    write(in(longest), "second");
    EXPECT_EQ(contentOf(in(longest)), "second");
    EXPECT_EQ(namesIn(folder.path()), (Names{"key", longest}));
}

TEST_F(SavedFile, ANameWithoutAFolderIsOneOfTheWorkingDirectory) {
    EXPECT_TRUE(inChild([&] {
        if (::chdir(folder.path().c_str()) != 0) return false;
        write("key", "new");
        write("other", "more");
        return contentOf("key") == "new" && contentOf("other") == "more";
    }));
    EXPECT_EQ(namesIn(folder.path()), (Names{"key", "other"}));
}

TEST_F(SavedFile, AnExistingFileKeepsItsMode) {
    const Umask none(0);
    for (const mode_t mode : {0600, 0640, 0664, 0777, 0200}) {
        fs::permissions(key, static_cast<fs::perms>(mode));
        mode_t whileOpen = 0;
        writeFile(key, Secrecy::Public, [&](std::ostream& stream) {
            stream << "new";
            for (const std::string& name : namesIn(folder.path()))
                if (name != "key") whileOpen = modeOf(in(name));
        });
        EXPECT_EQ(modeOf(key), mode);
        EXPECT_EQ(whileOpen, mode);
    }
}

TEST_F(SavedFile, ANewFileHasTheModeThatTheUmaskLets) {
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{0, 0666}, {022, 0644}, {077, 0600}}) {
        const Umask umask(mask);
        write(in("new"), "new");
        EXPECT_EQ(modeOf(in("new")), mode);
        fs::remove(in("new"));
    }
}

// No one else may open it at any moment; whoever has the replaced file open reads the old one.
TEST_F(SavedFile, ASecretIsItsOwnersAloneFromTheBeginning) {
    const Umask none(0);
    fs::permissions(key, static_cast<fs::perms>(0666));
    for (const std::string& path : {key, in("new")}) {
        std::set<mode_t> modes;
        writeFile(path, Secrecy::Secret, [&](std::ostream& stream) {
            for (const std::string& name : namesIn(folder.path()))
                if (name.starts_with(".")) modes.insert(modeOf(in(name)));
            stream << "secret";
            stream.flush();
        });
        EXPECT_EQ(modes, std::set<mode_t>{0600});
        EXPECT_EQ(modeOf(path), 0600U);
        EXPECT_EQ(contentOf(path), "secret");
    }
}

TEST_F(SavedFile, ASecretWrittenInPlaceIsItsOwnersAloneBeforeItsFirstByte) {
    fs::permissions(key, static_cast<fs::perms>(0666));
    const int descriptor = ::open(key.c_str(), O_RDWR);
    ASSERT_GE(descriptor, 0);
    mode_t before = 0;
    writeFile("/proc/self/fd/" + std::to_string(descriptor), Secrecy::Secret, [&](std::ostream& stream) {
        before = modeOf(key);
        stream << "secret";
    });
    ::close(descriptor);
    EXPECT_EQ(before, 0600U);
    EXPECT_EQ(contentOf(key), "secret");
}

/// `body` as a user without privileges, to whom the folder and the file belong, or its result for the user
/// who runs the test when that one has none.
bool asPlainUser(const test::TemporaryDirectory& folder, const std::string& file,
                 const std::function<bool()>& body) {
    constexpr uid_t nobody = 65534;
    return inChild([&] {
        if (::geteuid() == 0) {
            const bool isGiven = ::chown(folder.path().c_str(), nobody, nobody) == 0 &&
                                 ::chown(file.c_str(), nobody, nobody) == 0;
            if (!isGiven || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) return false;
        }
        return body();
    });
}

TEST_F(SavedFile, AFileThatMayNotBeWrittenIsNotReplaced) {
    EXPECT_TRUE(
        asPlainUser(folder, key, [&] { return ::chmod(key.c_str(), 0444) == 0 && doesNotOpen(key); }));
    expectUntouched();
}

TEST_F(SavedFile, AFolderThatTakesNoFilesHasItsFilesWrittenInPlace) {
    const ino_t number = fileNumberOf(key);
    const Umask none(0);
    EXPECT_TRUE(asPlainUser(folder, key, [&] {
        if (::chmod(folder.path().c_str(), 0555) != 0 || ::chmod(key.c_str(), 0666) != 0) return false;
        write(key, "new");
        const bool isInPlace = contentOf(key) == "new" && modeOf(key) == 0666;
        write(key, "secret", Secrecy::Secret);
        return isInPlace && contentOf(key) == "secret" && modeOf(key) == 0600;
    }));
    EXPECT_EQ(contentOf(key), "secret");
    EXPECT_EQ(fileNumberOf(key), number);
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

// A folder that all users may write to, but where each may rename only his own files.
TEST_F(SavedFile, AFileThatMayNotBeRenamedOverIsWrittenInPlace) {
    if (::geteuid() != 0) GTEST_SKIP() << "takes two users";
    const ino_t number = fileNumberOf(key);
    ASSERT_EQ(::chmod(folder.path().c_str(), 01777), 0);
    ASSERT_EQ(::chmod(key.c_str(), 0666), 0);
    EXPECT_TRUE(inChild([&] {
        constexpr uid_t nobody = 65534;
        const int descriptor = ::open(key.c_str(), O_RDWR);
        if (descriptor < 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) return false;
        try {
            write(key, "new");
        } catch (const RuntimeException&) {
            // Some systems let nobody make or truncate another's file in such a folder.
            return contentOf(key) == "old";
        }
        return contentOf(key) == "new";
    }));
    EXPECT_EQ(fileNumberOf(key), number);
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

// One thread renews a key, two others load it: each load gives one generation, whole.
TEST_F(SavedFile, LoadsBesideSavesGiveOneGenerationWhole) {
    constexpr u64 length = 20000, leastLoads = 1000, leastSaves = 100;
    const auto save = [&](u64 generation) {
        DeviceSpecificArray<u64> words(length);
        std::fill(words.begin(), words.end(), generation);
        Serialize::save(key, words);
    };
    save(0);
    std::atomic<u64> saves = 0;
    std::atomic<bool> isDone = false;
    std::thread renewing([&] {
        while (!isDone) save(++saves);
    });
    const auto load = [&] {
        u64 halves = 0;
        for (u64 i = 0; i < leastLoads || saves < leastSaves; ++i) {
            DeviceSpecificArray<u64> words;
            try {
                Serialize::load(key, words);
            } catch (const std::exception&) {
            }
            halves += words.size() != length || std::set<u64>(words.begin(), words.end()).size() != 1;
        }
        return halves;
    };
    auto second = std::async(std::launch::async, load);
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(second.get(), 0U);
    isDone = true;
    renewing.join();
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

TEST_F(SavedFile, SavesBesideOneAnotherLeaveOneOfThem) {
    const auto save = [&](char letter) {
        for (int i = 0; i < 50; ++i) write(key, std::string(10000, letter));
    };
    std::thread other(save, 'a');
    save('b');
    other.join();
    const std::string text = contentOf(key);
    EXPECT_EQ(text, std::string(10000, text.front()));
    EXPECT_EQ(namesIn(folder.path()), Names{"key"});
}

} // namespace
} // namespace Torvo
