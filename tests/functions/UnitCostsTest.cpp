#include "functions/UnitCosts.hpp"

#include "crypto/UniformRandomBitGenerator.hpp"
#include "support/ForkedChild.hpp"

#include <Torvo/Plan.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

// A program with a seed draws the same words whether it is the first that asks what steps take, or not.
TEST(UnitCosts, AreMeasuredWithoutTheWordsOfTheCallersSeed) {
    const Context context = makeContext(6, 4, 50, 40, 60, 2); // of a ring that no other test measures
    setSeed({31, 32, 33, 34});
    const std::string before = threadGenerator().getState();
    const Plan plan(context);
    EXPECT_EQ(plan.estimateSeconds(), 0); // nothing was planned, yet the steps are measured
    EXPECT_EQ(threadGenerator().getState(), before);
    EXPECT_GT(UnitCosts::of(context).of(UnitCosts::Step::Tensor, 3), 0);
}

// A child has the threads of its parent no more, and so nobody who would end a measurement that another one began.
TEST(UnitCosts, AreThereForAChildThatIsForkedWhileAnotherThreadMeasures) {
    const Context context = makeContext(6, 4, 50, 40, 60, 1);
    UnitCosts::of(context);
    std::atomic<bool> measures{false};
    std::thread other([&] {
        const Context larger = makeContext(ParameterPreset::SS7);
        measures = true;
        UnitCosts::of(larger);
    });
    while (!measures) std::this_thread::yield();
    const std::vector<u64> seen = test::inChild(
        [&] { return std::vector<u64>{UnitCosts::of(context).of(UnitCosts::Step::Add, 1) > 0}; });
    other.join();
    EXPECT_EQ(seen, std::vector<u64>{1});
}

// Several threads that ask at once get times, each of its own measurement or of another's.
TEST(UnitCosts, OfOneRingAreAskedForByManyThreads) {
    const Context context = makeContext(6, 4, 50, 41, 60, 2);
    std::vector<std::thread> threads;
    std::vector<double> seconds(4);
    for (u64 k = 0; k < seconds.size(); ++k)
        threads.emplace_back([&, k] { seconds[k] = UnitCosts::of(context).of(UnitCosts::Step::Tensor, 2); });
    for (std::thread& thread : threads) thread.join();
    for (const double each : seconds) EXPECT_GT(each, 0);
}

} // namespace
} // namespace Torvo
