#include "crypto/SeedState.hpp"

#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

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
