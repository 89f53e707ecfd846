#include "support/AllocationBudget.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "support/Sanitizer.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <vector>

using namespace Torvo;
using namespace Torvo::test;

namespace {

constexpr u64 kibibyte = 1024;

TEST(AllocationBudgets, HoldWhatIsHeldAtOneTime) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const AllocationBudget budget(100 * kibibyte);
    for (int i = 0; i < 10; ++i) EXPECT_NO_THROW(std::vector<char>(60 * kibibyte));
    EXPECT_FALSE(budget.isExceeded());
    EXPECT_GE(budget.peak(), 60 * kibibyte);
    EXPECT_LE(budget.peak(), 100 * kibibyte);
    const std::vector<char> held(60 * kibibyte);
    EXPECT_THROW(std::vector<char>(60 * kibibyte), std::bad_alloc);
    EXPECT_TRUE(budget.isExceeded());
    EXPECT_GE(budget.peak(), 120 * kibibyte);
}

TEST(AllocationBudgets, ReachTheArraysOfTheLibrary) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const AllocationBudget budget(100 * kibibyte);
    EXPECT_THROW(DeviceSpecificArray<u64>(200 * kibibyte / sizeof(u64)), std::bad_alloc);
    EXPECT_TRUE(budget.isExceeded());
}

TEST(AllocationBudgets, DoNotCountWhatWasHeldBefore) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    auto before = std::make_unique<std::vector<char>>(80 * kibibyte);
    const AllocationBudget budget(100 * kibibyte);
    before.reset();
    EXPECT_NO_THROW(std::vector<char>(90 * kibibyte));
    EXPECT_FALSE(budget.isExceeded());
}

TEST(AllocationBudgets, EndWithTheirObject) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    { const AllocationBudget budget(0); }
    EXPECT_NO_THROW(std::make_unique<int>(1));
}

} // namespace
