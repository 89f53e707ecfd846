#include "support/BootRoundTrip.hpp"

#include <gtest/gtest.h>

// One bootstrap at each of the two real ring degrees that fit a test, with few keys.

namespace Torvo {
namespace {

TEST(BootstrapOnRealPreset, FGbGivesAComplexMessageOf256SlotsBack) {
    test::BootRoundTrip(ParameterPreset::FGb, {8}).expectMessageBack(8, true);
}

TEST(BootstrapOnRealPreset, FTbGivesARealMessageOfFullSlotsBack) {
    test::BootRoundTrip(ParameterPreset::FTb, {14}).expectMessageBack(14, false);
}

} // namespace
} // namespace Torvo
