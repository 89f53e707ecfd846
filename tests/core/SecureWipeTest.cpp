#include "core/SecureWipe.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace Torvo {
namespace {

TEST(SecureWipe, ZeroesExactlyTheBytesNamed) {
    std::array<unsigned char, 64> bytes;
    bytes.fill(0xa5);
    utils::wipe(bytes.data() + 8, 40);
    EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + 8, 0xa5), 8);
    EXPECT_EQ(std::count(bytes.begin() + 8, bytes.begin() + 48, 0), 40);
    EXPECT_EQ(std::count(bytes.begin() + 48, bytes.end(), 0xa5), 16);
}

TEST(SecureWipe, OfNothingTouchesNothing) {
    unsigned char byte = 7;
    utils::wipe(&byte, 0);
    utils::wipe(nullptr, 0);
    EXPECT_EQ(byte, 7);
}

TEST(SecureWipe, OfAnArrayReachesWhatItHeldWhenItWasLonger) {
    DeviceSpecificArray<u64> array(10);
    std::fill(array.begin(), array.end(), 0x5ec2e7);
    array.resize(2);
    utils::wipe(array);
    array.resize(10);
    EXPECT_EQ(std::count(array.begin(), array.end(), 0U), 10);
    DeviceSpecificArray<int> empty;
    EXPECT_NO_THROW(utils::wipe(empty));
}

} // namespace
} // namespace Torvo
