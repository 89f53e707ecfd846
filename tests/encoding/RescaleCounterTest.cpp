#include "encoding/RescaleCounter.hpp"

#include "support/Expect.hpp"

#include <limits>

namespace Torvo {
namespace {

constexpr const char* negative = "Rescale counter should be greater than or equal to zero";
constexpr int least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();

TEST(RescaleCounter, StartsAtZero) {
    EXPECT_EQ(RescaleCounter().getValue(), 0);
}

TEST(RescaleCounter, HoldsAnyValueThatIsNotNegative) {
    for (const int value : {0, 1, 29, most}) {
        EXPECT_EQ(RescaleCounter(value).getValue(), value);
        RescaleCounter counter(5);
        counter.setValue(value);
        EXPECT_EQ(counter.getValue(), value);
        EXPECT_NO_THROW(requireValidRescaleCounter(value));
    }
}

TEST(RescaleCounter, RefusesNegativeValuesAndKeepsItsOwn) {
    for (const int value : {-1, least}) {
        EXPECT_REFUSED(RescaleCounter{value}, negative);
        EXPECT_REFUSED(requireValidRescaleCounter(value), negative);
        RescaleCounter counter(5);
        EXPECT_REFUSED(counter.setValue(value), negative);
        EXPECT_EQ(counter.getValue(), 5);
    }
}

} // namespace
} // namespace Torvo
