#include "persistence/MappedFile.hpp"

#include "support/Expect.hpp"
#include "support/NamelessFile.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace Torvo {
namespace {

namespace fs = std::filesystem;

class MappedFiles : public testing::Test {
protected:
    std::string write(const std::string& bytes) const {
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/file";
};

std::string contentOf(const MappedFile& file) {
    return {file.data(), file.size()};
}

TEST_F(MappedFiles, HoldTheBytesOfTheFileFromAPageOn) {
    const std::string bytes(10000, 'b');
    const MappedFile file(write(bytes));
    EXPECT_EQ(contentOf(file), bytes);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(file.data()) % 4096, 0u);
}

TEST_F(MappedFiles, MayBeEmpty) {
    const MappedFile file(write(""));
    EXPECT_EQ(file.size(), 0u);
    EXPECT_EQ(file.data(), nullptr);
}

TEST_F(MappedFiles, FollowLinks) {
    const std::string link = directory.path() + "/link";
    fs::create_symlink(write("linked"), link);
    EXPECT_EQ(contentOf(MappedFile(link)), "linked");
}

TEST_F(MappedFiles, StayWhenTheirNamesGoOrNameOthers) {
    const MappedFile first(write("first"));
    fs::remove(path);
    const MappedFile second(write("second"));
    std::ofstream(directory.path() + "/other") << "third";
    fs::rename(directory.path() + "/other", path);
    EXPECT_EQ(contentOf(first), "first");
    EXPECT_EQ(contentOf(second), "second");
}

TEST_F(MappedFiles, KnowThePathsThatLeadToThem) {
    const std::string link = directory.path() + "/link", other = directory.path() + "/other";
    const MappedFile file(write("bytes"));
    fs::create_symlink(path, link);
    EXPECT_TRUE(file.isAt(path));
    EXPECT_TRUE(file.isAt(link));
    EXPECT_FALSE(file.isAt(other));
    std::ofstream(other) << "bytes";
    EXPECT_FALSE(file.isAt(other));
    fs::rename(other, path);
    EXPECT_FALSE(file.isAt(path));
}

TEST_F(MappedFiles, AreRefusedWithTheReasonOfTheSystem) {
    EXPECT_REFUSED(MappedFile{path}, "Cannot open file " + path + ": No such file or directory");
    EXPECT_REFUSED(MappedFile{""}, "Cannot open file : No such file or directory");
    write("x");
    EXPECT_REFUSED(MappedFile{path + "/below"}, "Cannot open file " + path + "/below: Not a directory");
}

// None of them is opened: to open a pipe that nobody writes to waits for ever.
TEST_F(MappedFiles, AreRegularFiles) {
    const std::string refusal = ": it is no regular file; give the path of a file that was saved";
    EXPECT_REFUSED(MappedFile{directory.path()}, "Cannot map file " + directory.path() + refusal);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_REFUSED(MappedFile{path}, "Cannot map file " + path + refusal);
    EXPECT_REFUSED(MappedFile{"/dev/zero"}, "Cannot map file /dev/zero" + refusal);
}

TEST_F(MappedFiles, AreRefusedWhereThereIsNoRoom) {
    const test::NamelessFile file;
    ASSERT_EQ(truncate(file.path().c_str(), off_t{1} << 62), 0);
    EXPECT_REFUSED(MappedFile{file.path()}, "Cannot map file " + file.path() + ": Cannot allocate memory");
}

// What no check before can prevent, and so is told to users.
TEST_F(MappedFiles, EndTheReaderOfAFileThatIsShortened) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED(); // and has handlers of its own
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto readShortened = [&] {
        const MappedFile file(write(std::string(10000, 'b')));
        if (truncate(path.c_str(), 0) != 0) std::_Exit(1);
        volatile char last = file.data()[9999];
        std::_Exit(last == 'b' ? 2 : 3);
    };
    EXPECT_EXIT(readShortened(), testing::KilledBySignal(SIGBUS), "");
}

} // namespace
} // namespace Torvo
