#include "crypto/SeedState.hpp"

#include "arithmetic/elements/RandomWords.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/FailingAllocations.hpp"
#include "support/NewThread.hpp"
#include "support/Sanitizer.hpp"
#include "support/ScriptedEntropy.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

namespace Torvo {
namespace {

constexpr std::array<unsigned long, 4> pinnedSeed{5, 6, 7, 8};

TEST(SeedState, OfAThreadIsWhereItsGeneratorStands) {
    setSeed(pinnedSeed);
    threadGenerator()();
    const SeedState seed = SeedState::ofThread();
    EXPECT_TRUE(seed.isRandom());
    EXPECT_EQ(seed.getState(), threadGenerator().getState());
    EXPECT_FALSE(SeedState().isRandom());
    EXPECT_TRUE(SeedState().getState().empty());
}

TEST(SeedState, AMovedOneIsThatOfAGivenKey) {
    SeedState seed = SeedState::ofThread();
    const std::string state = seed.getState();
    SeedState copy = seed, moved = std::move(seed);
    EXPECT_FALSE(seed.isRandom()); // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(seed.getState().empty());
    EXPECT_EQ(moved.getState(), state);
    copy = SeedState();
    EXPECT_FALSE(copy.isRandom());
    copy = moved;
    EXPECT_TRUE(copy.isRandom());
    EXPECT_EQ(copy.getState(), state);
}

TEST(SeedState, ABorrowedGeneratorGoesOnWhereItStood) {
    setSeed(pinnedSeed);
    const SeedState start = SeedState::ofThread();
    const u64 first = threadGenerator()();
    const std::string state = threadGenerator().getState();
    {
        const BorrowedGenerator borrowed(start);
        EXPECT_EQ(threadGenerator()(), first);
    }
    EXPECT_EQ(threadGenerator().getState(), state);
}

TEST(SeedState, ABorrowedGeneratorIsGivenBackWithTheMarkOfItsSeed) {
    test::onNewThread([] {
        const SeedState stored = SeedState::ofThread();
        threadGenerator()();
        for (const bool isSeededBySystem : {true, false}) {
            if (!isSeededBySystem) setSeed(pinnedSeed);
            const std::string state = threadGenerator().getState();
            {
                const BorrowedGenerator borrowed(stored);
                EXPECT_FALSE(threadGenerator().isSeededBySystem());
            }
            EXPECT_EQ(threadGenerator().isSeededBySystem(), isSeededBySystem);
            EXPECT_EQ(threadGenerator().getState(), state);
        }
    });
}

TEST(BorrowedGenerator, OfAFreshSeedGoesOnWhereItStood) {
    test::onNewThread([] {
        threadGenerator()();
        for (const bool isSeededBySystem : {true, false}) {
            if (!isSeededBySystem) setSeed(pinnedSeed);
            const std::string state = threadGenerator().getState();
            {
                const BorrowedGenerator borrowed;
                EXPECT_TRUE(threadGenerator().isSeededBySystem());
                EXPECT_NE(threadGenerator().getState(), state);
                const KeySampling sampling;
                threadGenerator()();
            }
            EXPECT_EQ(threadGenerator().isSeededBySystem(), isSeededBySystem);
            EXPECT_EQ(threadGenerator().getState(), state);
        }
    });
}

TEST(BorrowedGenerator, WithoutAFreshSeedGoesOnWhereItStood) {
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    {
        const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
        EXPECT_THROW(BorrowedGenerator{}, RuntimeException);
    }
    EXPECT_EQ(threadGenerator().getState(), state);
    EXPECT_FALSE(threadGenerator().isSeededBySystem());
}

TEST(SeedState, ADamagedStateIsNotBorrowed) {
    SeedState given; // its state is empty
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    EXPECT_THROW(BorrowedGenerator{given}, cereal::Exception);
    EXPECT_EQ(threadGenerator().getState(), state);
}

// Neither runs a request for memory while it ends, nor has one that fails.
TEST(SeedState, ABorrowedGeneratorIsGivenBackWithoutMemory) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    setSeed(pinnedSeed);
    const SeedState stored = SeedState::ofThread();
    threadGenerator()();
    const std::string state = threadGenerator().getState();
    {
        auto borrowed = std::make_unique<BorrowedGenerator>(stored);
        threadGenerator()();
        const test::FailingAllocation failing(0);
        borrowed.reset();
        EXPECT_FALSE(failing.hasFailed());
    }
    EXPECT_EQ(threadGenerator().getState(), state);
}

/// Seeds of the operating system that `body` makes the calling thread take, the one before its next draw
/// included.
template <class Body>
u64 freshSeedsOf(Body&& body) {
    threadGenerator()();
    const test::ScriptedEntropy entropy({});
    body();
    threadGenerator()();
    return entropy.callCount();
}

TEST(KeySampling, BeginsAndEndsWithAFreshSeed) {
    test::onNewThread([] {
        const auto before = getSeed();
        std::array<unsigned long, 4> within{};
        EXPECT_EQ(freshSeedsOf([&] {
                      const KeySampling sampling;
                      within = getSeed();
                      EXPECT_EQ(threadGenerator().getIndex(), 0U);
                  }),
                  2U);
        EXPECT_NE(within, before);
        EXPECT_NE(within, getSeed());
        EXPECT_NE(before, getSeed());
        EXPECT_EQ(threadGenerator().getCounter(), 0U);
    });
}

TEST(KeySampling, LeavesTheStreamOfAGivenSeedAsItIs) {
    setSeed(pinnedSeed);
    EXPECT_EQ(freshSeedsOf([] { const KeySampling sampling; }), 0U);
    EXPECT_EQ(getSeed(), pinnedSeed);
    EXPECT_EQ(threadGenerator().getIndex(), 2U);
}

TEST(KeySampling, EndsWithAFreshSeedWhereSamplingFails) {
    test::onNewThread([] {
        std::array<unsigned long, 4> within{};
        try {
            const KeySampling sampling;
            within = getSeed();
            throw 1;
        } catch (int) {
            EXPECT_NE(getSeed(), within);
        }
    });
}

TEST(KeySampling, WithoutAFreshSeedDoesNotBegin) {
    test::onNewThread([] {
        threadGenerator()();
        const std::string state = threadGenerator().getState();
        {
            const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
            EXPECT_THROW(KeySampling{}, RuntimeException);
        }
        EXPECT_EQ(threadGenerator().getState(), state);
    });
}

TEST(KeySampling, WithoutAFreshSeedAtItsEndLeavesNothingToDrawFrom) {
    test::onNewThread([] {
        std::optional<KeySampling> sampling(std::in_place);
        const auto within = getSeed();
        u64 word = 0;
        {
            const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
            sampling.reset();
            EXPECT_THROW(drawRandomWords(&word, 1), RuntimeException);
            EXPECT_THROW(getSeed(), RuntimeException);
            EXPECT_THROW(SeedState::ofThread(), RuntimeException);
        }
        drawRandomWords(&word, 1);
        EXPECT_NE(getSeed(), within);
    });
}

TEST(SeedState, OnlyTheFullFormMayBeEmpty) {
    const auto load = [](const std::string& file) {
        std::istringstream stream(file);
        SeedState seed;
        Serialize::load(stream, seed);
        return seed;
    };
    EXPECT_FALSE(load(test::Bytes::frame().u8(0).u64s({0}).str()).isRandom());
    const std::string state(49, 'x');
    EXPECT_EQ(load(test::Bytes::frame().u8(1).u64s({49}).raw(state).str()).getState(), state);
    EXPECT_REFUSED(load(test::Bytes::frame().u8(1).u64s({48}).raw(state).str()), test::notVerified);
    EXPECT_REFUSED(load(test::Bytes::frame().u8(2).u64s({49}).raw(state).str()), test::notVerified);
}

} // namespace
} // namespace Torvo
