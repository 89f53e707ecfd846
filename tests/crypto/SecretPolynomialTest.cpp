#include "crypto/SecretPolynomial.hpp"

#include "support/Contexts.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace Torvo {
namespace {

using test::contextOf;

TEST(SecretPolynomial, HasTheRowsOfItsLevel) {
    const SecretPolynomial plain(contextOf(ParameterPreset::FX), false, 3),
        modUp(contextOf(ParameterPreset::FX), true, 3);
    EXPECT_EQ(plain.getLevel(), 3U);
    EXPECT_EQ(plain.getData().size(), 4U * 64);
    EXPECT_EQ(modUp.getLevel(), 3U);
    EXPECT_EQ(modUp.getData().size(), 30U * 64);
}

// The memory of an array that goes is kept for the next of its size: what it finds there is what was left.
TEST(SecretPolynomial, LeavesNothingBehind) {
    const u64* words = nullptr;
    {
        SecretPolynomial secret(contextOf(ParameterPreset::SS7), false, 7);
        std::fill(secret.getData().begin(), secret.getData().end(), 0x5ec2e7);
        words = secret.getRow(0);
    }
    const DeviceSpecificArray<u64> next(u64{8} << 14);
    if (next.getData() != words) GTEST_SKIP() << "the memory is not used again";
    EXPECT_EQ(std::count(next.begin(), next.end(), 0x5ec2e7U), 0);
}

} // namespace
} // namespace Torvo
