#include "arithmetic/chain/Validators.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace Torvo::test {
namespace {

std::vector<u64> rowsBelowTen(const ValidatorBase& validator) {
    std::vector<u64> rows;
    for (u64 i = 0; i < 10; ++i)
        if (validator.validate(i)) rows.push_back(i);
    return rows;
}

using Rows = std::vector<u64>;

TEST(Validators, AlwaysLetsEveryRowPass) {
    EXPECT_EQ(rowsBelowTen(AlwaysValidator()), (Rows{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(Validators, OutputModulusBoundIsClosedBelowAndOpenAbove) {
    EXPECT_EQ(rowsBelowTen(OutputModulusBoundValidator(2, 5)), (Rows{2, 3, 4}));
    EXPECT_EQ(rowsBelowTen(OutputModulusBoundValidator(3, 3)), Rows{});
}

TEST(Validators, ModUpEvalLetsTheLiveRowsPass) {
    EXPECT_EQ(rowsBelowTen(ModUpOutputModulusBoundEvalValidator(2, 7)), (Rows{0, 1, 2, 7, 8, 9}));
    EXPECT_EQ(rowsBelowTen(ModUpOutputModulusBoundEvalValidator(6, 7)), rowsBelowTen(AlwaysValidator()));
}

TEST(Validators, ModUpLeavesOutAHalfOpenAndAHalfClosedRange) {
    EXPECT_EQ(rowsBelowTen(ModUpOutputModulusBoundValidator(1, 3, 4, 6)), (Rows{0, 3, 4, 7, 8, 9}));
    EXPECT_EQ(rowsBelowTen(ModUpOutputModulusBoundValidator(0, 0, 5, 5)), rowsBelowTen(AlwaysValidator()));
}

} // namespace
} // namespace Torvo::test
