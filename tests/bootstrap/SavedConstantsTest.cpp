// Constants of a bootstrapper, saved and taken back.

#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ForkedChild.hpp"
#include "support/NamelessFile.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <cereal/details/helpers.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using test::boot;
using test::toy;
namespace fs = std::filesystem;

constexpr unsigned long logSlots = 3;

class SavedConstants : public testing::Test {
protected:
    SavedConstants() { Bootstrapper(toy().evaluator, logSlots).saveBootConstants(logSlots, path); }

    /// Without constants.
    static Bootstrapper bare() { return Bootstrapper(toy().evaluator, 0); }
    Bootstrapper mapped() const {
        Bootstrapper made = bare();
        made.mapBootConstants(logSlots, path);
        return made;
    }
    std::string refusal(const std::string& reason) const {
        return "Cannot take bootstrapping constants from " + path + ": " + reason;
    }

    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/constants";
};

Ciphertext input(unsigned long slots = logSlots) {
    static test::Seeded random(11);
    return boot().encryptAt(random.message(slots, 0.7), 3);
}

Ciphertext bootstrapped(const Bootstrapper& bootstrapper, const Ciphertext& in) {
    Ciphertext out(toy().context);
    bootstrapper.bootstrap(in, out, true);
    return out;
}

std::string saved(const Bootstrapper& bootstrapper, unsigned long slots = logSlots) {
    std::ostringstream stream;
    bootstrapper.saveBootConstants(slots, stream);
    return stream.str();
}

// ---- what they are for

TEST_F(SavedConstants, BootstrapToTheWordsOfThoseThatAreBuilt) {
    for (unsigned long slots = 1; slots <= 5; ++slots) {
        SCOPED_TRACE(slots);
        Bootstrapper built(toy().evaluator, slots), fromFile = bare(), fromStream = bare(),
                                                    unchecked = bare(), read = bare();
        built.saveBootConstants(slots, path);
        fromFile.mapBootConstants(slots, path);
        unchecked.mapBootConstants(slots, path, false);
        read.readBootConstants(slots, path);
        std::stringstream stream;
        built.saveBootConstants(slots, stream);
        fromStream.readBootConstants(slots, stream);
        const Ciphertext in = input(slots), expected = bootstrapped(built, in);
        for (const Bootstrapper* other : {&fromFile, &unchecked, &read, &fromStream}) {
            EXPECT_TRUE(other->isBootstrapReady(slots));
            EXPECT_TRUE(test::sameWords(bootstrapped(*other, in), expected));
        }
    }
}

TEST_F(SavedConstants, AreForSequentialRotationsToo) {
    Bootstrapper inSequence(toy().evaluator, 0, true);
    inSequence.mapBootConstants(logSlots, path);
    const Ciphertext in = input();
    EXPECT_TRUE(test::sameWords(bootstrapped(inSequence, in),
                                bootstrapped(Bootstrapper(toy().evaluator, logSlots, true), in)));
}

/// How often this process has mapped the file.
long mappingsOf(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    long count = 0;
    for (std::string line; std::getline(maps, line);) count += line.find(path) != std::string::npos ? 1 : 0;
    return count;
}

TEST_F(SavedConstants, AreNotBuiltAgain) {
    Bootstrapper bootstrapper = mapped();
    EXPECT_EQ(mappingsOf(path), 1);
    bootstrapper.makeBootConstants(logSlots);
    EXPECT_EQ(mappingsOf(path), 1);
}

TEST_F(SavedConstants, TakeThePlaceOfThoseThatExist) {
    Bootstrapper bootstrapper(toy().evaluator, logSlots);
    const Ciphertext in = input(), expected = bootstrapped(bootstrapper, in);
    bootstrapper.mapBootConstants(logSlots, path);
    EXPECT_TRUE(test::sameWords(bootstrapped(bootstrapper, in), expected));
    bootstrapper.mapBootConstants(logSlots, path, false); // in place of mapped ones
    EXPECT_TRUE(test::sameWords(bootstrapped(bootstrapper, in), expected));
    EXPECT_EQ(mappingsOf(path), 1);
    bootstrapper.readBootConstants(logSlots, path);
    EXPECT_EQ(mappingsOf(path), 0);
    EXPECT_TRUE(test::sameWords(bootstrapped(bootstrapper, in), expected));
}

TEST_F(SavedConstants, LeaveThoseThatExistWhenTheyAreRefused) {
    Bootstrapper bootstrapper(toy().evaluator, logSlots);
    const Ciphertext in = input(), expected = bootstrapped(bootstrapper, in);
    fs::resize_file(path, 1000);
    EXPECT_THROW(bootstrapper.mapBootConstants(logSlots, path), RuntimeException);
    EXPECT_THROW(bootstrapper.readBootConstants(logSlots, path), cereal::Exception);
    EXPECT_TRUE(test::sameWords(bootstrapped(bootstrapper, in), expected));
    Bootstrapper other = bare();
    EXPECT_THROW(other.mapBootConstants(logSlots, path), RuntimeException);
    EXPECT_FALSE(other.isBootstrapReady(logSlots));
    other.makeBootConstants(logSlots);
    EXPECT_TRUE(test::sameWords(bootstrapped(other, in), expected));
}

TEST_F(SavedConstants, AreSharedByBootstrappersThatComeAndGo) {
    std::optional<Bootstrapper> first = mapped();
    const Bootstrapper second = mapped(), copy = *first;
    const Ciphertext in = input(), expected = bootstrapped(*first, in);
    EXPECT_EQ(mappingsOf(path), 2) << "the copy is another handle of one object";
    first.reset();
    EXPECT_EQ(mappingsOf(path), 2);
    fs::remove(path);
    EXPECT_TRUE(test::sameWords(bootstrapped(second, in), expected));
    EXPECT_TRUE(test::sameWords(bootstrapped(copy, in), expected));
}

// A save in place would cut off the file that it reads.
TEST_F(SavedConstants, LeaveTheFileThatTheyAreMappedFrom) {
    const Bootstrapper bootstrapper = mapped();
    const std::string bytes = saved(bootstrapper), link = directory.path() + "/link";
    const auto written = fs::last_write_time(path);
    fs::create_symlink(path, link);
    bootstrapper.saveBootConstants(logSlots, path);
    bootstrapper.saveBootConstants(logSlots, link);
    EXPECT_EQ(fs::last_write_time(path), written);
    EXPECT_EQ(saved(bootstrapper), bytes);
    fs::remove(path);
    bootstrapper.saveBootConstants(logSlots, path);
    EXPECT_EQ(saved(mapped()), bytes) << "and save to a new one of its name";
}

TEST_F(SavedConstants, AreMappedThroughALink) {
    const std::string link = directory.path() + "/link";
    fs::create_symlink(path, link);
    Bootstrapper bootstrapper = bare();
    bootstrapper.mapBootConstants(logSlots, link);
    EXPECT_EQ(saved(bootstrapper), saved(mapped()));
}

TEST_F(SavedConstants, AreReadFromAPipe) {
    const std::string pipe = directory.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Bootstrapper source = mapped();
    auto writer = std::async(std::launch::async, [&] { source.saveBootConstants(logSlots, pipe); });
    Bootstrapper bootstrapper = bare();
    bootstrapper.readBootConstants(logSlots, pipe);
    writer.get();
    EXPECT_EQ(saved(bootstrapper), saved(source));
}

// ---- refusals

TEST_F(SavedConstants, AreRefusedInOrder) {
    const Bootstrapper none = bare();
    Bootstrapper taking = bare();
    std::ostringstream out;
    std::istringstream empty;
    const std::string oneSlot = "A message of one slot needs no constants. Give log_slots from 1 on.";
    EXPECT_REFUSED(none.saveBootConstants(0, path), oneSlot);
    EXPECT_REFUSED(none.saveBootConstants(0, out), oneSlot);
    EXPECT_REFUSED(none.saveBootConstants(2, path), "Bootstrapping constants for log slots 2 do not exist.");
    EXPECT_REFUSED(none.saveBootConstants(99, out), "Bootstrapping constants for log slots 99 do not exist.");
    const std::string absent = directory.path() + "/absent";
    EXPECT_REFUSED(taking.mapBootConstants(0, absent), oneSlot);
    EXPECT_REFUSED(taking.readBootConstants(0, absent), oneSlot);
    EXPECT_REFUSED(taking.readBootConstants(0, empty), oneSlot);
    EXPECT_REFUSED(taking.mapBootConstants(6, absent), "log_slots should not exceed 5");
    EXPECT_REFUSED(taking.readBootConstants(6, absent), "log_slots should not exceed 5");
    EXPECT_REFUSED(taking.readBootConstants(~0UL, empty), "log_slots should not exceed 5");
    EXPECT_REFUSED(taking.mapBootConstants(2, absent),
                   "Cannot open file " + absent + ": No such file or directory");
    EXPECT_REFUSED(taking.readBootConstants(2, absent), "Cannot open file " + absent);
    EXPECT_REFUSED(taking.mapBootConstants(2, directory.path()),
                   "Cannot map file " + directory.path() +
                       ": it is no regular file; give the path of a file that was saved");
    EXPECT_THROW(taking.readBootConstants(2, directory.path()), cereal::Exception);
    EXPECT_REFUSED(taking.mapBootConstants(2, path),
                   refusal("they are for log slots 3, not 2; give theirs or save others"));
    std::istream noBuffer(nullptr);
    EXPECT_REFUSED(taking.readBootConstants(2, noBuffer),
                   "The stream has no buffer. Give one that is connected to a file or to memory.");
    std::ostream noTarget(nullptr);
    EXPECT_REFUSED(mapped().saveBootConstants(logSlots, noTarget),
                   "The stream has no buffer. Give one that is connected to a file or to memory.");
}

TEST_F(SavedConstants, AreNotMappedFromAPipeThatNobodyWritesTo) {
    const std::string pipe = directory.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Bootstrapper bootstrapper = bare();
    EXPECT_REFUSED(bootstrapper.mapBootConstants(logSlots, pipe),
                   "Cannot map file " + pipe +
                       ": it is no regular file; give the path of a file that was saved");
}

TEST_F(SavedConstants, AreRefusedWhereTheSystemMapsNothing) {
    const test::NamelessFile file;
    fs::resize_file(file.path(), u64{1} << 62);
    Bootstrapper bootstrapper = bare();
    EXPECT_REFUSED(bootstrapper.mapBootConstants(logSlots, file.path()),
                   "Cannot map file " + file.path() + ": Cannot allocate memory");
    EXPECT_FALSE(bootstrapper.isBootstrapReady(logSlots));
}

// Damage that nobody looked for gives wrong slots, and nothing worse.
TEST_F(SavedConstants, GiveSomeResultWhateverTheirWordsAre) {
    const std::string sound = saved(mapped());
    for (const char byte : {'\0', '\x55', '\xff'}) {
        std::ofstream(path, std::ios::binary)
            << sound.substr(0, 192) << std::string(sound.size() - 192, byte);
        Bootstrapper bootstrapper = bare();
        EXPECT_REFUSED(bootstrapper.mapBootConstants(logSlots, path),
                       refusal("the constants in it are damaged; save them again"));
        bootstrapper.mapBootConstants(logSlots, path, false);
        EXPECT_EQ(bootstrapped(bootstrapper, input()).getLevel(),
                  bootstrapper.getLevelAfterFullSlotBootstrap());
    }
}

// ---- full disks, failed allocations

TEST_F(SavedConstants, LeaveTheOldFileOnAFullDisk) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const auto before = fs::file_size(path);
    const Bootstrapper larger(toy().evaluator, 5);
    const std::vector<u64> result = test::inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit most{before, before};
        if (::setrlimit(RLIMIT_FSIZE, &most) != 0) return std::vector<u64>{0};
        try {
            larger.saveBootConstants(5, path);
        } catch (const cereal::Exception& failure) {
            return std::vector<u64>{std::string(failure.what()).starts_with("Failed to write ") ? u64{1}
                                                                                                : u64{2}};
        }
        return std::vector<u64>{3};
    });
    EXPECT_EQ(result, std::vector<u64>{1});
    EXPECT_EQ(fs::file_size(path), before);
    EXPECT_NO_THROW(mapped());
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 1) << "no temporary file";
    EXPECT_THROW(larger.saveBootConstants(5, "/dev/full"), cereal::Exception);
}

/// Lets every allocation of `work` on this thread fail in turn.
template <class Work>
void expectRefusedWithoutMemory(Work&& work, const std::function<void()>& expectUnharmed) {
    for (u64 before = 0;; ++before) {
        SCOPED_TRACE(before);
        const test::FailingAllocation failing(before);
        try {
            work();
        } catch (const std::exception&) {
        }
        if (!failing.hasFailed()) return;
        expectUnharmed();
    }
}

TEST_F(SavedConstants, LeaveThoseThatExistWithoutMemory) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    Bootstrapper bootstrapper(toy().evaluator, 1), fresh = bare();
    const std::string expected = saved(bootstrapper, 1), file = directory.path() + "/few";
    bootstrapper.saveBootConstants(1, file);
    const auto expectUnharmed = [&] {
        EXPECT_TRUE(bootstrapper.isBootstrapReady(1));
        EXPECT_EQ(saved(bootstrapper, 1), expected);
    };
    expectRefusedWithoutMemory([&] { bootstrapper.mapBootConstants(1, file); }, expectUnharmed);
    expectUnharmed();
    expectRefusedWithoutMemory([&] { bootstrapper.readBootConstants(1, file); }, expectUnharmed);
    expectUnharmed();
    expectRefusedWithoutMemory(
        [&] {
            std::istringstream stream(expected);
            fresh.readBootConstants(1, stream);
        },
        [&] { EXPECT_FALSE(fresh.isBootstrapReady(1)); });
    EXPECT_EQ(saved(fresh, 1), expected);
}

TEST_F(SavedConstants, AreSavedWholeOrNotAtAllWithoutMemory) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Bootstrapper source = mapped();
    const std::string other = directory.path() + "/other";
    expectRefusedWithoutMemory([&] { source.saveBootConstants(logSlots, other); },
                               [&] {
                                   if (fs::exists(other)) {
                                       EXPECT_EQ(fs::file_size(other), fs::file_size(path));
                                   }
                               });
    EXPECT_EQ(fs::file_size(other), fs::file_size(path));
}

// ---- threads and children

TEST_F(SavedConstants, AreMappedByThreadsAtOnce) {
    const Ciphertext in = input(), expected = bootstrapped(mapped(), in);
    std::vector<int> agree(4);
    std::vector<std::thread> threads;
    for (int& result : agree)
        threads.emplace_back([&] { result = test::sameWords(bootstrapped(mapped(), in), expected) ? 1 : 0; });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(agree, std::vector<int>(4, 1));
}

TEST_F(SavedConstants, AreUsedAndSavedByThreadsAtOnce) {
    const Bootstrapper bootstrapper = mapped();
    const Ciphertext in = input(), expected = bootstrapped(bootstrapper, in);
    const std::string bytes = saved(bootstrapper);
    std::vector<int> agree(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < agree.size(); ++i)
        threads.emplace_back([&, i] {
            agree[i] = i % 2 == 0 ? (test::sameWords(bootstrapped(bootstrapper, in), expected) ? 1 : 0)
                                  : (saved(bootstrapper) == bytes ? 1 : 0);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(agree, std::vector<int>(4, 1));
}

std::vector<u64> wordsOf(const Ciphertext& ciphertext) {
    const auto& data = ciphertext.getPoly(0).getData();
    return {data.begin(), data.end()};
}

TEST_F(SavedConstants, AreReadByAForkedChild) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const Bootstrapper bootstrapper = mapped();
    const Ciphertext in = input();
    EXPECT_EQ(test::inChild([&] { return wordsOf(bootstrapped(bootstrapper, in)); }),
              wordsOf(bootstrapped(bootstrapper, in)));
}

TEST_F(SavedConstants, AreMappedInAForkedChild) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const Ciphertext in = input();
    EXPECT_EQ(test::inChild([&] { return wordsOf(bootstrapped(mapped(), in)); }),
              wordsOf(bootstrapped(mapped(), in)));
}

} // namespace
} // namespace Torvo
