#include "functions/SeriesSplit.hpp"

#include "SplitTable.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <set>
#include <vector>

namespace Torvo {
namespace {

using Terms = SeriesSplit::Terms;

TEST(SeriesSplit, EveryDegreeTakesNoMoreThanTwoProductsAboveTheLeast) {
    static_assert(std::size(test::leastProducts) == 255);
    for (u64 degree = 1; degree <= 255; ++degree) {
        SCOPED_TRACE(degree);
        const SeriesSplit::Cost cost = SeriesSplit({degree}, Terms::All).cost();
        const test::LeastProducts& least = test::leastProducts[degree - 1];
        EXPECT_GE(cost.tensors, least.tensors);
        EXPECT_LE(cost.tensors, least.tensors + 2);
        EXPECT_GE(cost.relinearizations, least.relinearizations);
        EXPECT_LE(cost.relinearizations, least.relinearizations + 2);
    }
}

TEST(SeriesSplit, OddTermsCostNoMoreThanAllOfThem) {
    for (u64 degree = 1; degree <= 1023; degree += degree < 256 ? 2 : 96) {
        SCOPED_TRACE(degree);
        const SeriesSplit::Cost all = SeriesSplit({degree}, Terms::All).cost(),
                                odd = SeriesSplit({degree}, Terms::Odd).cost();
        EXPECT_LE(2 * odd.relinearizations + odd.tensors, 2 * all.relinearizations + all.tensors);
    }
}

TEST(SeriesSplit, ManyPolynomialsCostLessTogetherThanApart) {
    const auto costOf = [](const std::vector<u64>& degrees) {
        const SeriesSplit::Cost cost = SeriesSplit(degrees, Terms::All).cost();
        return 2 * cost.relinearizations + cost.tensors;
    };
    EXPECT_LT(costOf({31, 31, 31}), 3 * costOf({31}));
    EXPECT_LT(costOf({63, 15, 7}), costOf({63}) + costOf({15}) + costOf({7}));
}

/// What is made before a power is enough to make it, in the least depth.
TEST(SeriesSplit, PowersAreMadeFromThoseBeforeThem) {
    for (const Terms terms : {Terms::All, Terms::Odd})
        for (u64 degree = 1; degree <= 255; degree += 2) {
            SCOPED_TRACE(degree);
            std::set<u64> made{0, 1};
            const SeriesSplit split({degree}, terms);
            for (const auto& [index, first, second] : split.powers()) {
                EXPECT_EQ(first + second, index);
                EXPECT_TRUE(made.contains(first));
                EXPECT_TRUE(made.contains(second));
                EXPECT_TRUE(made.contains(first > second ? first - second : second - first)) << index;
                EXPECT_EQ(std::bit_width(index - 1), 1 + std::bit_width(std::max(first, second) - 1))
                    << index;
                EXPECT_TRUE(made.insert(index).second) << index;
            }
        }
}

} // namespace
} // namespace Torvo
