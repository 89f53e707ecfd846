#include "crypto/KeyPackImpl.hpp"
#include "support/AllocationBudget.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ForeignRings.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Torvo {
namespace {

using namespace test;
namespace fs = std::filesystem;

const std::string cannot = "[KeyPack] a key can be unloaded only when it can be read again, but ";

/// A pack of a directory with an encryption, a multiplication and a conjugation key and rotations by 1 and
/// 31, all in memory.
class UnloadedKeys : public testing::Test {
protected:
    UnloadedKeys() {
        const KeyGenerator generator(ring, SecretKey(ring), pack);
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        generator.genLeftRotKey(1);
        generator.genLeftRotKey(31);
        pack.save(directory.path());
    }

    std::string file(const std::string& name) const { return directory.path() + "/PK/" + name; }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
    }
    std::string missing(const std::string& name) const {
        return cannot + "there is no file " + file(name) + "; save the pack into its directory first";
    }
    std::string other(const std::string& name) const {
        return cannot + "another key stands in " + file(name) + "; save the pack into its directory first";
    }

    const Context ring = ringOfDigits(2);
    const TemporaryDirectory directory;
    KeyPack pack{ring};
};

TEST_F(UnloadedKeys, AreReadAgainWhenTheyAreAskedFor) {
    const std::string enc = saved(*pack.getEncKey()), mult = saved(*pack.getMultKey()),
                      conj = saved(*pack.getConjKey()), rot = saved(*pack.getLeftRotKey(1)),
                      right = saved(*pack.getRightRotKey(1));
    pack.unloadEncKey();
    pack.unloadMultKey();
    pack.unloadConjKey();
    pack.unloadLeftRotKey(1);
    pack.unloadRightRotKey(1);
    EXPECT_FALSE(pack.isEncKeyLoaded() || pack.isMultKeyLoaded() || pack.isConjKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1) || pack.isRightRotKeyLoaded(1));
    EXPECT_EQ(saved(*pack.getEncKey()), enc);
    EXPECT_EQ(saved(*pack.getMultKey()), mult);
    EXPECT_EQ(saved(*pack.getConjKey()), conj);
    EXPECT_EQ(saved(*pack.getLeftRotKey(1)), rot);
    EXPECT_EQ(saved(*pack.getRightRotKey(1)), right);
}

TEST_F(UnloadedKeys, GoWithTheirLastHolder) {
    const std::weak_ptr<EvaluationKey> mult = pack.getMultKey(), rot = pack.getLeftRotKey(1);
    auto held = pack.getMultKey();
    const std::string bytes = saved(*held);
    pack.unloadMultKey();
    pack.unloadLeftRotKey(1);
    EXPECT_TRUE(rot.expired());
    ASSERT_FALSE(mult.expired());
    EXPECT_EQ(saved(*held), bytes);
    EXPECT_NE(pack.getMultKey(), held) << "the pack reads one of its own";
    held.reset();
    EXPECT_TRUE(mult.expired());
}

TEST_F(UnloadedKeys, AreAllOfThemAtOnce) {
    const std::string all = saved(pack);
    pack.unload();
    EXPECT_EQ(saved(pack), saved(KeyPack(ring)));
    EXPECT_NO_THROW(pack.unload()) << "nothing is left to drop";
    pack.loadEncKey();
    pack.loadMultKey();
    pack.loadConjKey();
    pack.loadLeftRotKey(1);
    pack.loadRightRotKey(1);
    EXPECT_EQ(saved(pack), all);
}

TEST_F(UnloadedKeys, AreThoseOfEveryCopyOfThePack) {
    const KeyPack copy = pack;
    copy.unloadLeftRotKey(33); // 32 slots
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
}

TEST_F(UnloadedKeys, AreNoneWithoutADirectory) {
    const KeyPack none(ring);
    const std::string refusal =
        cannot + "the pack has no key directory; set one with setKeyDirPath and save the pack into it";
    EXPECT_REFUSED(none.unloadEncKey(), refusal);
    EXPECT_REFUSED(none.unloadMultKey(), refusal);
    EXPECT_REFUSED(none.unloadConjKey(), refusal);
    EXPECT_REFUSED(none.unloadLeftRotKey(1), refusal);
    EXPECT_REFUSED(none.unloadRightRotKey(1), refusal);
    EXPECT_REFUSED(none.unloadSparseSecretEncapsulationKey(), refusal);
    EXPECT_REFUSED(none.unload(), refusal);
}

TEST_F(UnloadedKeys, StayWhereTheirFileIsGoneOrNoFile) {
    fs::remove(file("MultKey.bin"));
    fs::remove(file("RotKey1.bin"));
    fs::create_directory(file("RotKey1.bin"));
    fs::remove(file("ConjKey.bin"));
    ASSERT_EQ(mkfifo(file("ConjKey.bin").c_str(), 0600), 0); // to open it would wait for ever
    EXPECT_REFUSED(pack.unloadMultKey(), missing("MultKey.bin"));
    EXPECT_REFUSED(pack.unloadLeftRotKey(1), missing("RotKey1.bin"));
    EXPECT_REFUSED(pack.unloadConjKey(), missing("ConjKey.bin"));
    EXPECT_TRUE(pack.isMultKeyLoaded() && pack.isLeftRotKeyLoaded(1) && pack.isConjKeyLoaded());
    EXPECT_NO_THROW(pack.unloadLeftRotKey(9)) << "no such key, and no such file";
}

TEST_F(UnloadedKeys, StayWhereAnotherKeyStandsInTheirFile) {
    const std::string mult = contentOf(file("MultKey.bin")), enc = contentOf(file("EncKey.bin"));
    const auto expectStays = [&](const std::string& bytes) {
        write("MultKey.bin", bytes);
        EXPECT_REFUSED(pack.unloadMultKey(), other("MultKey.bin"));
        EXPECT_TRUE(pack.isMultKeyLoaded());
    };
    std::string lastByte = mult;
    lastByte.back() ^= 1;
    expectStays(lastByte);
    expectStays(mult.substr(0, mult.size() - 1));
    expectStays(mult + "x");
    expectStays("");
    expectStays(enc);
    write("MultKey.bin", mult);
    EXPECT_NO_THROW(pack.unloadMultKey());
}

// A key that was made anew and is nowhere but in memory.
TEST_F(UnloadedKeys, AreNotThoseThatWereMadeSinceTheSave) {
    KeyGenerator(ring, SecretKey(ring), pack).genMultKey();
    EXPECT_REFUSED(pack.unloadMultKey(), other("MultKey.bin"));
    pack.save(directory.path());
    EXPECT_NO_THROW(pack.unloadMultKey());
}

TEST_F(UnloadedKeys, AreDroppedUpToTheFirstRefusal) {
    fs::remove(file("ConjKey.bin"));
    EXPECT_REFUSED(pack.unload(), missing("ConjKey.bin"));
    EXPECT_FALSE(pack.isEncKeyLoaded() || pack.isMultKeyLoaded());
    EXPECT_TRUE(pack.isConjKeyLoaded() && pack.isLeftRotKeyLoaded(1));
}

TEST_F(UnloadedKeys, OfAnEncapsulationNeedTheSecondContextToBeReadBy) {
    pack.getImpl()->sparseKey.replace([&] { return makeEmptySparseSecretEncapsulationKey(ring, ring); });
    pack.save(directory.path());
    EXPECT_REFUSED(pack.unloadSparseSecretEncapsulationKey(),
                   "[KeyPack] context does not support sparse secret encapsulation");
    EXPECT_TRUE(pack.isSparseSecretEncapsulationKeyLoaded());
}

// The comparison reads the file piece by piece.
TEST_F(UnloadedKeys, AreComparedWithinLittleMemory) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const AllocationBudget budget(32768);
    pack.unloadMultKey();
    pack.unloadLeftRotKey(1);
    EXPECT_FALSE(budget.isExceeded());
}

TEST_F(UnloadedKeys, StayWhereMemoryRunsOut) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    for (u64 before = 0;; ++before) {
        bool hasFailed = false;
        {
            const FailingAllocation failing(before, FailingAllocation::Thread::Calling);
            try {
                pack.unloadLeftRotKey(1);
            } catch (const std::exception&) {
            }
            hasFailed = failing.hasFailed();
        }
        // A stream may swallow the failure: the file then counts as another one.
        if (!hasFailed) break;
        if (!pack.isLeftRotKeyLoaded(1)) pack.loadLeftRotKey(1);
    }
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
    EXPECT_EQ(saved(*pack.getLeftRotKey(1)), contentOf(file("RotKey1.bin")));
}

// No reader is ever told that there is no key, and each gets a whole one.
TEST_F(UnloadedKeys, AreNeverMissedByThreadsThatAskForThemMeanwhile) {
    const u64 rotBytes = pack.getLeftRotKey(1)->savedSize(), multBytes = pack.getMultKey()->savedSize();
    constexpr int rounds = 200;
    std::atomic<bool> isOver = false;
    std::vector<std::future<int>> readers;
    for (int i = 0; i < 3; ++i)
        readers.push_back(std::async(std::launch::async, [&] {
            int missed = 0;
            while (!isOver) {
                const auto rot = pack.getLeftRotKey(1), mult = pack.getMultKey();
                missed += !rot || rot->savedSize() != rotBytes || !mult || mult->savedSize() != multBytes;
            }
            return missed;
        }));
    std::vector<std::future<void>> evictors;
    for (int i = 0; i < 2; ++i)
        evictors.push_back(std::async(std::launch::async, [&] {
            for (int round = 0; round < rounds; ++round) {
                pack.unloadLeftRotKey(1);
                pack.unloadMultKey();
            }
        }));
    for (auto& evictor : evictors) evictor.get();
    isOver = true;
    for (auto& reader : readers) EXPECT_EQ(reader.get(), 0);
}

} // namespace
} // namespace Torvo
