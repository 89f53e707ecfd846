#include "functions/UnitCosts.hpp"

#include "crypto/UniformRandomBitGenerator.hpp"

#include <Torvo/Plan.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

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

} // namespace
} // namespace Torvo
