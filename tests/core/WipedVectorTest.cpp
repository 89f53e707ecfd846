#include "core/WipedVector.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace Torvo {
namespace {

/// Reports the content of its memory at its release.
struct Witness {
    ~Witness() { last = std::max(last, value); }

    int value = 0;
    static inline int last = 0;
};

TEST(WipedVector, StartsAtZeroAndHoldsWhatIsWritten) {
    utils::WipedVector<long> values(5);
    EXPECT_EQ(values.size(), 5U);
    EXPECT_EQ(std::count(values.data(), values.data() + 5, 0), 5);
    values[3] = -7;
    EXPECT_EQ(values.data()[3], -7);
    EXPECT_EQ(std::as_const(values)[3], -7);
    EXPECT_EQ(utils::WipedVector<int>(0).size(), 0U);
}

TEST(WipedVector, IsWipedBeforeItsElementsGo) {
    {
        utils::WipedVector<Witness> secret(100);
        for (u64 i = 0; i < 100; ++i) secret[i].value = 1;
        Witness::last = 0;
    }
    EXPECT_EQ(Witness::last, 0);
    { const Witness open{1}; }
    EXPECT_EQ(Witness::last, 1);
}

} // namespace
} // namespace Torvo
