#include <Torvo/SecurityLevel.hpp>

#include <gtest/gtest.h>

namespace Torvo {
namespace {

using enum SecurityLevel;

struct Row {
    unsigned long logDimension, for128, for192, for256;
};

/// The largest modulus of each security level, in bits.
constexpr Row rows[] = {{10, 27, 19, 14},      {11, 54, 37, 29},      {12, 109, 75, 58},
                        {13, 218, 152, 118},   {14, 438, 305, 237},   {15, 881, 611, 476},
                        {16, 1750, 1199, 929}, {17, 3523, 2411, 1867}};

TEST(SecurityLevelUtils, AnEnumeratorIsItsClaimInBits) {
    EXPECT_EQ(static_cast<unsigned>(None), 0u);
    EXPECT_EQ(static_cast<unsigned>(Bits128), 128u);
    EXPECT_EQ(static_cast<unsigned>(Bits192), 192u);
    EXPECT_EQ(static_cast<unsigned>(Bits256), 256u);
    EXPECT_EQ(sizeof(SecurityLevel), 4u);
}

TEST(SecurityLevelUtils, EveryBoundOfTheTableIsTheLastOfItsLevel) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.logDimension);
        const auto level = [&](unsigned long bits) {
            return computeLWESecurityLevel(row.logDimension, bits);
        };
        EXPECT_EQ(level(1), Bits256);
        EXPECT_EQ(level(row.for256), Bits256);
        EXPECT_EQ(level(row.for256 + 1), Bits192);
        EXPECT_EQ(level(row.for192), Bits192);
        EXPECT_EQ(level(row.for192 + 1), Bits128);
        EXPECT_EQ(level(row.for128), Bits128);
        EXPECT_EQ(level(row.for128 + 1), None);
        EXPECT_EQ(level(~0ul), None);
    }
}

TEST(SecurityLevelUtils, DimensionsOutsideTheTableHaveNoClaim) {
    for (const unsigned long logDimension : {0ul, 9ul, 18ul, ~0ul})
        for (const unsigned long bits : {0ul, 1ul, 27ul, 5000ul})
            EXPECT_EQ(computeLWESecurityLevel(logDimension, bits), None) << logDimension << " " << bits;
}

TEST(SecurityLevelUtils, AModulusOfNoBitsHasNoClaim) {
    EXPECT_EQ(computeLWESecurityLevel(15, 0), None);
}

} // namespace
} // namespace Torvo
