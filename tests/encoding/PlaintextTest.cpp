#include <Torvo/Plaintext.hpp>

#include "context/ContextContent.hpp"
#include "encoding/PlaintextImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/EnDecoder.hpp>

#include <climits>

namespace Torvo {
namespace {

using test::contextOf;
using test::sameWords;
using test::smallContext;

const Context& fx() {
    return contextOf(ParameterPreset::FX);
}

/// A plaintext of the small ring with content of its own in every field.
Plaintext filled(u64 level) {
    Plaintext plaintext(smallContext());
    plaintext.setLevel(level);
    plaintext.setLogSlots(3);
    plaintext.setRescaleCounter(static_cast<int>(level));
    test::fillWithNumbers(plaintext.getMx(), 7);
    return plaintext;
}

std::string fileOf(const Plaintext& plaintext) {
    return test::bytesOf([&](std::ostream& stream) { plaintext.save(stream); });
}

Plaintext loaded(const Context& context, const std::string& file) {
    Plaintext plaintext(context);
    std::istringstream stream(file);
    plaintext.load(stream);
    return plaintext;
}

TEST(Plaintext, StartsAtTheTopWithAllSlotsOwingNothing) {
    const Plaintext plaintext(fx());
    EXPECT_EQ(plaintext.getContext(), fx());
    EXPECT_EQ(plaintext.getLogSlots(), 5U);
    EXPECT_EQ(plaintext.getNumberOfSlots(), fx()->parameter.num_slots);
    EXPECT_EQ(plaintext.getLevel(), 24U);
    EXPECT_EQ(plaintext.getRescaleCounter(), 0);
    EXPECT_TRUE(plaintext.getMx().isNTT());
    EXPECT_FALSE(plaintext.getMx().isModUp());
    EXPECT_EQ(plaintext.getDevice(), Device{});
}

TEST(Plaintext, StoresLogSlotsUnchecked) {
    Plaintext plaintext(fx());
    plaintext.setLogSlots(40);
    EXPECT_EQ(plaintext.getLogSlots(), 40U);
    EXPECT_EQ(plaintext.getNumberOfSlots(), u64{1} << 40);
}

TEST(Plaintext, ResizesItsDataWithTheLevel) {
    Plaintext plaintext(fx());
    plaintext.getMxData(1)[63] = 5;
    for (const u64 level : {1, 24, 30}) { // the chain ends at 24, which is not checked
        plaintext.setLevel(level);
        EXPECT_EQ(plaintext.getLevel(), level);
        EXPECT_EQ(plaintext.getMx().getData().size(), (level + 1) * 64);
        EXPECT_EQ(plaintext.getMxData(1)[63], 5U);
    }
}

TEST(Plaintext, KeepsTheDataOfAModUpPolynomialWhateverTheLevel) {
    Plaintext plaintext(fx());
    plaintext.getMx() = Polynomial(fx(), true, true);
    plaintext.setLevel(2);
    EXPECT_EQ(plaintext.getLevel(), 2U);
    EXPECT_EQ(plaintext.getMx().getData().size(), 30U * 64);
}

TEST(Plaintext, BoundsTheCounterByTheLevelAndThenByZero) {
    Plaintext plaintext(fx());
    plaintext.setLevel(3);
    plaintext.setRescaleCounter(3);
    EXPECT_REFUSED(plaintext.setRescaleCounter(4),
                   "Rescale counter should be less than or equal to the level");
    EXPECT_REFUSED(plaintext.setRescaleCounter(INT_MAX),
                   "Rescale counter should be less than or equal to the level");
    EXPECT_REFUSED(plaintext.setRescaleCounter(-1),
                   "Rescale counter should be greater than or equal to zero");
    EXPECT_EQ(plaintext.getRescaleCounter(), 3);
    plaintext.setRescaleCounter(0);
    EXPECT_EQ(plaintext.getRescaleCounter(), 0);
}

TEST(Plaintext, AddressesItsRows) {
    Plaintext plaintext(fx());
    const Plaintext& view = plaintext;
    EXPECT_EQ(plaintext.getMxData(0), plaintext.getMx().getData().getData());
    EXPECT_EQ(plaintext.getMxData(7), plaintext.getMxData(0) + 7 * 64);
    EXPECT_EQ(view.getMxData(7), plaintext.getMxData(7));
    EXPECT_EQ(&view.getMx(), &plaintext.getMx());
}

TEST(Plaintext, CopiesTheDataAndSharesTheContext) {
    Plaintext original = filled(1);
    Plaintext copy = original, assigned(smallContext());
    assigned = original;
    EXPECT_TRUE(sameWords(copy, original));
    EXPECT_TRUE(sameWords(assigned, original));
    EXPECT_EQ(copy.getContext(), original.getContext());
    original.getMxData(0)[0] = 1;
    EXPECT_EQ(copy.getMxData(0)[0], 7U);
    EXPECT_EQ(assigned.getMxData(0)[0], 7U);
}

TEST(Plaintext, MovesAndIsAssignedToItself) {
    const Plaintext original = filled(1);
    Plaintext source = original;
    Plaintext moved = std::move(source);
    EXPECT_TRUE(sameWords(moved, original));
    Plaintext& self = moved;
    moved = self;
    EXPECT_TRUE(sameWords(moved, original));
}

TEST(Plaintext, IsZeroWhenAllLiveWordsAre) {
    Plaintext plaintext(fx());
    plaintext.setLevel(3);
    std::fill_n(plaintext.getMxData(0), 4 * 64, u64{0});
    EXPECT_TRUE(plaintext.isZero());
    plaintext.getMxData(3)[63] = 1;
    EXPECT_FALSE(plaintext.isZero());
    plaintext.setLevel(2);
    EXPECT_TRUE(plaintext.isZero());
}

TEST(Plaintext, GoesToOtherDevicesAsItsPolynomialDoes) {
    Plaintext plaintext = filled(1);
    const Device second{DeviceType::CPU, 1};
    plaintext.to(second);
    EXPECT_EQ(plaintext.getDevice(), second);
    EXPECT_EQ(plaintext.getMxData(0)[0], 7U);
    plaintext.allocate(Device{});
    EXPECT_EQ(plaintext.getDevice(), Device{});
    EXPECT_EQ(plaintext.getMx().getData().size(), 2U * 64);
    EXPECT_REFUSED(plaintext.to(Device{DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
    EXPECT_EQ(plaintext.getDevice(), Device{});
}

// ---- files

TEST(Plaintext, ComesBackFromAStream) {
    for (const u64 level : {0, 1}) {
        const Plaintext original = filled(level);
        EXPECT_TRUE(sameWords(loaded(smallContext(), fileOf(original)), original));
    }
    Plaintext onCoefficients = EnDecoder(fx()).encodeWithoutNTT(Message(2, {0.5, -1.0}), 12, 2);
    EXPECT_TRUE(sameWords(loaded(fx(), fileOf(onCoefficients)), onCoefficients));
}

TEST(Plaintext, ComesBackFromAFile) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/plaintext";
    const Plaintext original = filled(1);
    original.save(path);
    Plaintext copy(smallContext());
    copy.load(path);
    EXPECT_TRUE(sameWords(copy, original));
}

TEST(Plaintext, TellsThePathThatDoesNotOpen) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/none/plaintext";
    Plaintext plaintext = filled(0);
    EXPECT_REFUSED(plaintext.save(path), "Cannot open file " + path);
    EXPECT_REFUSED(plaintext.load(path), "Cannot open file " + path);
}

TEST(Plaintext, LoadsOverAnObjectOfAnyShape) {
    const Plaintext original = filled(1);
    Plaintext used(smallContext());
    used.getMx() = Polynomial(smallContext(), true, false);
    std::istringstream stream(fileOf(original));
    used.load(stream);
    EXPECT_TRUE(sameWords(used, original));
}

TEST(Plaintext, RefusesAFileOfAnotherRing) {
    EXPECT_REFUSED(loaded(fx(), fileOf(filled(0))),
                   "[Verifier::load] Validation failed during deserializing objects.");
}

TEST(Plaintext, RefusesEveryShortFile) {
    test::expectShortReads(fileOf(filled(0)),
                           [](std::istream& stream) { Plaintext(smallContext()).load(stream); });
}

TEST(Plaintext, ComesToNoHarmFromADamagedFile) {
    const std::string file = fileOf(filled(1));
    test::expectNoHarmFromDamage(file, 130, [](std::istream& stream) {
        Plaintext plaintext(smallContext());
        plaintext.load(stream);
        // An accepted object is usable.
        EXPECT_FALSE(plaintext.getMx().getGerm().has_value());
        EXPECT_LE(plaintext.getLevel(), 1U);
        plaintext.isZero();
        if (plaintext.getRescaleCounter() <= static_cast<int>(plaintext.getLevel()) &&
            plaintext.getLogSlots() <= 5)
            EnDecoder(smallContext()).decode(plaintext);
    });
}

} // namespace
} // namespace Torvo
