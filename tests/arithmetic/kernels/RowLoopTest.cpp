#include "arithmetic/kernels/RowLoop.hpp"

#include "arithmetic/kernels/ThrowingLoop.hpp"
#include "support/Expect.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Torvo::test {
namespace {

/// Which thread of its team took each index.
template <Nesting nesting>
std::vector<int> threadOfIndex(u64 count) {
    std::vector<int> threads(count, -1);
    forEachIndex<nesting>(count, [&](u64 i) { threads[i] = omp_get_thread_num(); });
    return threads;
}

class RowLoop : public testing::Test {
protected:
    ~RowLoop() override {
        omp_set_num_threads(threads_);
        omp_set_max_active_levels(levels_);
    }

private:
    const int threads_ = omp_get_max_threads();
    const int levels_ = omp_get_max_active_levels();
};

TEST_F(RowLoop, GivesTheFirstThreadsOneIndexMore) {
    omp_set_num_threads(3);
    EXPECT_EQ(threadOfIndex<Nesting::Guarded>(8), (std::vector<int>{0, 0, 0, 1, 1, 1, 2, 2}));
    EXPECT_EQ(threadOfIndex<Nesting::Default>(3), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(threadOfIndex<Nesting::Default>(1), (std::vector<int>{0}));
    EXPECT_EQ(threadOfIndex<Nesting::Default>(0), (std::vector<int>{}));
}

TEST_F(RowLoop, DealsIndicesInTurns) {
    for (const int team : {1, 3}) {
        omp_set_num_threads(team);
        for (const u64 count : {u64{0}, u64{1}, u64{8}}) {
            std::vector<int> threads(count, -1), expected;
            forEachIndexInTurns(count, [&](u64 i) { threads[i] = omp_get_thread_num(); });
            for (u64 i = 0; i < count; ++i) expected.push_back(static_cast<int>(i) % team);
            EXPECT_EQ(threads, expected);
        }
    }
}

TEST_F(RowLoop, OpensATeamInsideATeamUnlessItIsGuarded) {
    omp_set_max_active_levels(2);
    std::vector<int> guarded, unguarded;
#pragma omp parallel num_threads(2)
    {
#pragma omp single
        {
            omp_set_num_threads(2);
            guarded = threadOfIndex<Nesting::Guarded>(4);
            unguarded = threadOfIndex<Nesting::Default>(4);
        }
    }
    EXPECT_EQ(guarded, (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(unguarded, (std::vector<int>{0, 0, 1, 1}));
}

TEST_F(RowLoop, PreparesEveryThreadOfTheTeamBeforeAnyIndex) {
    omp_set_num_threads(3);
    for (const u64 count : {u64{0}, u64{1}, u64{2}, u64{8}}) {
        std::atomic<u64> prepared = 0;
        std::vector<u64> preparedBefore(count);
        std::vector<int> threads(count, -1);
        forEachIndexAfter([&] { ++prepared; }, count,
                          [&](u64 i) {
                              preparedBefore[i] = prepared;
                              threads[i] = omp_get_thread_num();
                          });
        EXPECT_EQ(preparedBefore, std::vector<u64>(count, count < 2 ? 1 : 3));
        EXPECT_EQ(threads, threadOfIndex<Nesting::Guarded>(count))
            << "each index has the thread it always has";
    }
}

TEST_F(RowLoop, CallsNothingWhereAThreadCannotBePrepared) {
    omp_set_num_threads(3);
    for (int failing = 0; failing < 3; ++failing) {
        std::atomic<u64> prepared = 0, called = 0;
        const auto prepare = [&] {
            ++prepared;
            if (omp_get_thread_num() == failing) throw std::runtime_error("unprepared");
        };
        EXPECT_THROW_TEXT(forEachIndexAfter(prepare, 8, [&](u64) { ++called; }), std::runtime_error,
                          "unprepared");
        EXPECT_EQ(prepared, 3U);
        EXPECT_EQ(called, 0U);
    }
}

TEST_F(RowLoop, SharesOutRangesThatBeginAtWholeCacheLines) {
    using Ranges = std::vector<std::pair<u64, u64>>;
    omp_set_num_threads(3);
    const auto rangesOf = [](u64 count) {
        Ranges ranges(3);
        forEachShare(count, [&](u64 begin, u64 end) {
            ranges[static_cast<u64>(omp_get_thread_num())] = {begin, end};
        });
        return ranges;
    };
    EXPECT_EQ(rangesOf(64), (Ranges{{0, 24}, {24, 48}, {48, 64}}));
    EXPECT_EQ(rangesOf(48), (Ranges{{0, 16}, {16, 32}, {32, 48}}));
    EXPECT_EQ(rangesOf(9), (Ranges{{0, 8}, {8, 9}, {0, 0}}));
    EXPECT_EQ(rangesOf(0), Ranges(3));
}

} // namespace
} // namespace Torvo::test
