#include "support/BootRoundTrip.hpp"

#include <gtest/gtest.h>

// A bootstrap on every preset, all slots and few slots, with one, two and three stages and with none.

namespace Torvo {
namespace {

using test::BootRoundTrip;

TEST(BootstrapFull, OneSlotOnFVa) {
    BootRoundTrip(ParameterPreset::FVa, {0}).expectMessageBack(0, true);
}

TEST(BootstrapFull, FullSlotsOnFVa) {
    const BootRoundTrip boot(ParameterPreset::FVa, {16});
    boot.expectMessageBack(boot.logFullSlots(), true);
}

TEST(BootstrapFull, TwoToTheFourteenSlotsOnFVb) {
    BootRoundTrip(ParameterPreset::FVb, {14}).expectMessageBack(14, true);
}

TEST(BootstrapFull, TwoToTheSeventhSlotsOnFVc) {
    BootRoundTrip(ParameterPreset::FVc, {7}).expectMessageBack(7, true);
}

TEST(BootstrapFull, SixteenSlotsAndFullSlotsOnFGa) {
    const BootRoundTrip boot(ParameterPreset::FGa, {4, 15});
    boot.expectMessageBack(4, true);
    boot.expectMessageBack(boot.logFullSlots(), false);
}

TEST(BootstrapFull, FullSlotsWithAKeyForEachRotationOnFGb) {
    const BootRoundTrip boot(ParameterPreset::FGb, {15}, BootRoundTrip::Rotations::Batched);
    boot.expectMessageBack(boot.logFullSlots(), true);
}

TEST(BootstrapFull, TwoSlotsAndTwoToTheEighthSlotsOnFGd) {
    const BootRoundTrip boot(ParameterPreset::FGd, {1, 8});
    boot.expectMessageBack(1, true);
    boot.expectMessageBack(8, true);
}

TEST(BootstrapFull, AnyNumberOfSlotsOnFTa) {
    const BootRoundTrip boot(ParameterPreset::FTa, {0, 1, 4, 7, 8, 14}, BootRoundTrip::Rotations::Batched);
    for (const u64 logSlots : {0, 1, 4, 7, 8, 14}) boot.expectMessageBack(logSlots, true);
}

TEST(BootstrapFull, OneSlotAndTwoToTheEighthSlotsOnFTb) {
    const BootRoundTrip boot(ParameterPreset::FTb, {0, 8});
    boot.expectMessageBack(0, false);
    boot.expectMessageBack(8, true);
}

} // namespace
} // namespace Torvo
