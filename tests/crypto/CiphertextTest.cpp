#include <Torvo/Ciphertext.hpp>

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Decryptor.hpp>
#include <Torvo/SecretKey.hpp>

#include <climits>

namespace Torvo {
namespace {

using test::contextOf;
using test::sameWords;
using test::smallContext;

using ModuleCiphertext = CiphertextBase<EncryptionType::MLWE>;

constexpr const char* counterAboveLevel = "Rescale counter should be less than or equal to the level";
constexpr const char* levelDoesNotFit = "The level of input ciphertext does not fit in current context";

const Context& fx() {
    return contextOf(ParameterPreset::FX);
}

const Context& module() {
    return contextOf(ParameterPreset::SD3D6R2);
}

/// A ciphertext of the small ring with content of its own in every field.
Ciphertext filled(u64 level, u64 numPoly = 2) {
    Ciphertext ciphertext(smallContext());
    ciphertext.setNumPoly(numPoly);
    ciphertext.setLevel(level);
    ciphertext.setLogSlots(3);
    ciphertext.setRescaleCounter(static_cast<int>(level));
    for (u64 i = 0; i < numPoly; ++i) test::fillWithNumbers(ciphertext.getPoly(i), 1000 * i);
    return ciphertext;
}

template <EncryptionType E>
std::string fileOf(const CiphertextBase<E>& ciphertext) {
    return test::bytesOf([&](std::ostream& stream) { ciphertext.save(stream); });
}

Ciphertext loaded(const Context& context, const std::string& file) {
    Ciphertext ciphertext(context);
    std::istringstream stream(file);
    ciphertext.load(stream);
    return ciphertext;
}

// ---- construction

TEST(Ciphertext, StartsAtTheTopOnAllSlotsOwingNothing) {
    for (const bool isModUp : {false, true}) {
        const Ciphertext ciphertext(fx(), isModUp);
        EXPECT_EQ(ciphertext.getContext(), fx());
        EXPECT_EQ(ciphertext.getParameterPreset(), ParameterPreset::FX);
        EXPECT_EQ(ciphertext.getNumPoly(), 2U);
        EXPECT_EQ(ciphertext.getSize(), 2U);
        EXPECT_EQ(ciphertext.getLogSlots(), 5U);
        EXPECT_EQ(ciphertext.getNumberOfSlots(), 32U);
        EXPECT_EQ(ciphertext.getLevel(), 24U);
        EXPECT_EQ(ciphertext.getRescaleCounter(), 0);
        EXPECT_EQ(ciphertext.getEncodingType(), EncodingType::Slot);
        EXPECT_EQ(ciphertext.isModUp(), isModUp);
        EXPECT_TRUE(ciphertext.isNTT());
        EXPECT_EQ(ciphertext.getDevice(), Device{});
    }
}

TEST(Ciphertext, HasOneElementMoreThanTheRank) {
    EXPECT_EQ(ModuleCiphertext(module()).getNumPoly(), getRank(module()) + 1);
}

TEST(Ciphertext, RefusesAContextOfTheOtherType) {
    const char* refusal =
        "[Ciphertext] The parameter does not support the encryption type of the creating ciphertext";
    EXPECT_REFUSED(Ciphertext{module()}, refusal);
    EXPECT_REFUSED(ModuleCiphertext{fx()}, refusal);
}

// ---- number of elements

TEST(Ciphertext, GrowsByCopiesOfTheFirstElement) {
    Ciphertext ciphertext = filled(1);
    ciphertext.getPoly(0).setNTT(false);
    ciphertext.getPoly(1).setNTT(false);
    ciphertext.setNumPoly(5); // beyond the capacity: the first element moves meanwhile
    ASSERT_EQ(ciphertext.getNumPoly(), 5U);
    EXPECT_FALSE(sameWords(ciphertext.getPoly(1), ciphertext.getPoly(0)));
    for (u64 i = 2; i < 5; ++i) EXPECT_TRUE(sameWords(ciphertext.getPoly(i), ciphertext.getPoly(0)));
    EXPECT_NE(ciphertext.getPolyData(2, 0), ciphertext.getPolyData(0, 0));
}

TEST(Ciphertext, ShrinksByTheLastElements) {
    Ciphertext ciphertext = filled(1, 4);
    const Ciphertext before = ciphertext;
    ciphertext.setSize(2);
    ASSERT_EQ(ciphertext.getSize(), 2U);
    for (u64 i = 0; i < 2; ++i) EXPECT_TRUE(sameWords(ciphertext.getPoly(i), before.getPoly(i)));
}

TEST(Ciphertext, KeepsTwoElementsAtLeast) {
    Ciphertext ciphertext = filled(1, 3);
    const Ciphertext before = ciphertext;
    for (const u64 n : {0, 1}) {
        EXPECT_REFUSED(ciphertext.setNumPoly(n), "The size of a ciphertext should be greater than 1");
        EXPECT_REFUSED(ciphertext.setSize(n), "The size of a ciphertext should be greater than 1");
    }
    EXPECT_TRUE(sameWords(ciphertext, before));
}

// ---- level, counter, labels

TEST(Ciphertext, ChangesTheLevelOfEveryElementKeepingTheLeadingRows) {
    Ciphertext ciphertext = filled(1);
    ciphertext.setLevel(0);
    EXPECT_EQ(ciphertext.getLevel(), 0U);
    for (u64 i = 0; i < 2; ++i) {
        EXPECT_EQ(ciphertext.getPoly(i).getData().size(), 64U);
        EXPECT_EQ(ciphertext.getPolyData(i, 0)[63], 1000 * i + 63);
    }
}

TEST(Ciphertext, KeepsTheRowsOfAModUpElementWhateverTheLevel) {
    Ciphertext ciphertext(fx(), true);
    ciphertext.setLevel(2);
    EXPECT_EQ(ciphertext.getPoly(1).getData().size(), 30U * 64);
}

TEST(Ciphertext, BoundsTheCounterByTheLevelAndThenByZero) {
    Ciphertext ciphertext(fx());
    ciphertext.setLevel(3);
    ciphertext.setRescaleCounter(3);
    EXPECT_REFUSED(ciphertext.setRescaleCounter(4), counterAboveLevel);
    EXPECT_REFUSED(ciphertext.setRescaleCounter(INT_MAX), counterAboveLevel);
    EXPECT_REFUSED(ciphertext.setRescaleCounter(-1),
                   "Rescale counter should be greater than or equal to zero");
    EXPECT_EQ(ciphertext.getRescaleCounter(), 3);
}

TEST(Ciphertext, KeepsTheCounterWhenTheLevelFallsBelowIt) {
    Ciphertext ciphertext(fx());
    ciphertext.setRescaleCounter(5);
    ciphertext.setLevel(2);
    EXPECT_EQ(ciphertext.getRescaleCounter(), 5);
    EXPECT_REFUSED(ciphertext.setRescaleCounter(5), counterAboveLevel);
}

TEST(Ciphertext, TellsThePrimeAndTheScaleOfItsLevel) {
    Ciphertext ciphertext(fx());
    const auto scales = getDefaultScaleFactorList(fx());
    const auto primes = getPrimeList(fx());
    for (const u64 level : {0, 1, 12, 24}) {
        ciphertext.setLevel(level);
        EXPECT_EQ(ciphertext.getCurrentPrime(), primes[level]);
        EXPECT_EQ(ciphertext.getCurrentScaleFactor(), scales[level]);
    }
}

TEST(Ciphertext, StoresLogSlotsAndEncodingUnchecked) {
    Ciphertext ciphertext(fx());
    ciphertext.setLogSlots(40);
    ciphertext.setEncodingType(EncodingType::Coefficient);
    EXPECT_EQ(ciphertext.getLogSlots(), 40U);
    EXPECT_EQ(ciphertext.getNumberOfSlots(), u64{1} << 40);
    EXPECT_EQ(ciphertext.getEncodingType(), EncodingType::Coefficient);
}

// ---- elements

TEST(Ciphertext, AddressesItsElementsAndRows) {
    Ciphertext ciphertext(fx());
    const Ciphertext& view = ciphertext;
    EXPECT_EQ(ciphertext.getPolyData(1, 7), ciphertext.getPoly(1).getData().getData() + 7 * 64);
    EXPECT_EQ(view.getPolyData(1, 7), ciphertext.getPolyData(1, 7));
    EXPECT_EQ(&view.getPoly(1), &ciphertext.getPolys().getPoly(1));
    EXPECT_EQ(&view.getPolys(), &ciphertext.getPolys());
}

TEST(Ciphertext, RefusesAnElementPastTheEnd) {
    Ciphertext ciphertext(fx());
    const Ciphertext& view = ciphertext;
    const char* refusal = "vector::_M_range_check: __n (which is 2) >= this->size() (which is 2)";
    EXPECT_THROW_TEXT(ciphertext.getPoly(2), std::out_of_range, refusal);
    EXPECT_THROW_TEXT(view.getPoly(2), std::out_of_range, refusal);
}

TEST(Ciphertext, RefusesToAnswerForElementsThatDisagree) {
    Ciphertext ciphertext(fx());
    ciphertext.getPoly(1) = Polynomial(fx(), true, false);
    ciphertext.getPoly(1).setLevel(3);
    ciphertext.getPoly(1).to(Device{DeviceType::CPU, 1});
    EXPECT_REFUSED(ciphertext.getLevel(), "Polynomials have different levels");
    EXPECT_REFUSED(ciphertext.isModUp(), "Polynomials have different modUp states");
    EXPECT_REFUSED(ciphertext.isNTT(), "Polynomials have different NTT states");
    EXPECT_REFUSED(ciphertext.getDevice(), "Polynomials are in different devices");
    EXPECT_REFUSED(ciphertext.setRescaleCounter(0), "Polynomials have different levels");
}

TEST(Ciphertext, GoesToOtherDevicesAsItsElementsDo) {
    Ciphertext ciphertext = filled(1);
    const Device second{DeviceType::CPU, 1};
    ciphertext.to(second);
    EXPECT_EQ(ciphertext.getDevice(), second);
    EXPECT_EQ(ciphertext.getPolyData(1, 0)[5], 1005U);
    ciphertext.allocate(Device{});
    EXPECT_EQ(ciphertext.getDevice(), Device{});
    EXPECT_REFUSED(ciphertext.to(Device{DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
    EXPECT_EQ(ciphertext.getDevice(), Device{});
}

// ---- copies

TEST(Ciphertext, CopiesTheDataAndSharesTheContext) {
    Ciphertext original = filled(1, 3);
    original.setEncodingType(EncodingType::Coefficient);
    const Ciphertext before = original;
    Ciphertext assigned(smallContext());
    assigned = original;
    original.getPolyData(2, 1)[9] = 1;
    original.setEncodingType(EncodingType::Slot);
    EXPECT_TRUE(sameWords(assigned, before));
    EXPECT_EQ(assigned.getEncodingType(), EncodingType::Coefficient);
    EXPECT_EQ(assigned.getContext(), original.getContext());
    EXPECT_FALSE(sameWords(assigned, original));
}

TEST(Ciphertext, MovesAndIsAssignedToItself) {
    const Ciphertext original = filled(1);
    Ciphertext source = original;
    Ciphertext moved = std::move(source);
    Ciphertext& self = moved;
    moved = self;
    EXPECT_TRUE(sameWords(moved, original));
}

/// Chains of 2 and 3 primes for one degree.
const Context& longerContext() {
    static const Context context = makeContext(6, 3, 50, 40, 60, 3);
    return context;
}

TEST(Ciphertext, CopiesItsWordsUnderAnotherContext) {
    for (const u64 level : {0, 1}) {
        Ciphertext original(longerContext());
        original.setNumPoly(3);
        original.setLevel(level);
        for (u64 i = 0; i < 3; ++i) {
            test::fillWithNumbers(original.getPoly(i), 100 * i);
            original.getPoly(i).setNTT(false);
        }
        original.setLogSlots(2);
        original.setRescaleCounter(static_cast<int>(level));
        original.setEncodingType(EncodingType::Coefficient);
        const Ciphertext copy(smallContext(), original);
        EXPECT_EQ(copy.getContext(), smallContext());
        EXPECT_TRUE(sameWords(copy, original));
        EXPECT_EQ(copy.getEncodingType(), EncodingType::Coefficient);
        EXPECT_EQ(copy.getPoly(0).getNumBase(), 2U);
        EXPECT_EQ(copy.getPoly(2).getPrimes(), Ciphertext(smallContext()).getPoly(0).getPrimes());
    }
}

TEST(Ciphertext, CopiesUnderAnotherContextToTheDeviceOfTheOriginal) {
    Ciphertext original = filled(1);
    original.to(Device{DeviceType::CPU, 1});
    const Ciphertext copy(longerContext(), original);
    EXPECT_EQ(copy.getDevice(), original.getDevice());
    EXPECT_TRUE(sameWords(copy, original));
}

TEST(Ciphertext, RefusesToCopyFromAboveTheTopOfTheOtherContext) {
    EXPECT_REFUSED(Ciphertext(smallContext(), Ciphertext(longerContext())), levelDoesNotFit);
    EXPECT_EQ(Ciphertext(longerContext(), Ciphertext(smallContext())).getLevel(), 1U);
}

TEST(Ciphertext, RefusesToCopyASingleElement) {
    Ciphertext single(longerContext());
    single.getPolys().setSize(1);
    EXPECT_REFUSED(Ciphertext(smallContext(), single), "The size of a ciphertext should be greater than 1");
}

TEST(Ciphertext, RefusesToCopyFromARingOfAnotherDegree) {
    static const Context wide = makeContext(7, 2, 50, 40, 60, 2);
    EXPECT_REFUSED(Ciphertext(smallContext(), Ciphertext(wide)), levelDoesNotFit);
    EXPECT_REFUSED(Ciphertext(wide, Ciphertext(smallContext())), levelDoesNotFit);
}

TEST(Ciphertext, RefusesToCopyWhatOwesMoreThanItsLevel) {
    Ciphertext original = filled(1);
    original.setLevel(0);
    EXPECT_REFUSED(Ciphertext(longerContext(), original), counterAboveLevel);
}

TEST(Ciphertext, CopiesModUpElementsWhole) {
    const Ciphertext original(smallContext(), true);
    const Context twin = makeContext(6, 2, 50, 40, 60, 2);
    EXPECT_TRUE(sameWords(Ciphertext(twin, original), original));
}

// ---- files

TEST(Ciphertext, ComesBackFromAStream) {
    for (const u64 numPoly : {2, 3}) {
        Ciphertext original = filled(1, numPoly);
        original.setEncodingType(EncodingType::Coefficient);
        const Ciphertext copy = loaded(smallContext(), fileOf(original));
        EXPECT_TRUE(sameWords(copy, original));
        EXPECT_EQ(copy.getEncodingType(), EncodingType::Coefficient);
    }
    const Ciphertext modUp(smallContext(), true);
    EXPECT_TRUE(sameWords(loaded(smallContext(), fileOf(modUp)), modUp));
}

TEST(Ciphertext, ComesBackFromAFileWithModules) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/ciphertext";
    ModuleCiphertext original(module()), copy(module());
    for (u64 i = 0; i < original.getNumPoly(); ++i) test::fillWithNumbers(original.getPoly(i), i);
    original.save(path);
    copy.load(path);
    EXPECT_TRUE(sameWords(copy, original));
}

TEST(Ciphertext, TellsThePathThatDoesNotOpen) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/none/ciphertext";
    Ciphertext ciphertext(smallContext());
    EXPECT_REFUSED(ciphertext.save(path), "Cannot open file " + path);
    EXPECT_REFUSED(ciphertext.load(path), "Cannot open file " + path);
}

TEST(Ciphertext, LoadsOverAnObjectOfAnyShape) {
    const Ciphertext original = filled(1);
    Ciphertext used(smallContext(), true);
    used.setNumPoly(4);
    std::istringstream stream(fileOf(original));
    used.load(stream);
    EXPECT_TRUE(sameWords(used, original));
}

TEST(Ciphertext, RefusesAFileOfAnotherRing) {
    EXPECT_REFUSED(loaded(fx(), fileOf(filled(0))), test::notVerified);
}

TEST(Ciphertext, RefusesAFileOfASingleElementOrOfElementsThatDisagree) {
    Ciphertext single = filled(0);
    single.getPolys().setSize(1);
    EXPECT_REFUSED(loaded(smallContext(), fileOf(single)), test::notVerified);

    Ciphertext levels = filled(1), forms = filled(1), states = filled(1);
    levels.getPoly(1).setLevel(0);
    forms.getPoly(1).setNTT(false);
    states.getPoly(1) = Polynomial(smallContext(), true, true);
    for (const Ciphertext& odd : {levels, forms, states})
        EXPECT_REFUSED(loaded(smallContext(), fileOf(odd)), test::notVerified);
}

TEST(Ciphertext, RefusesEveryShortFile) {
    test::expectShortReads(fileOf(filled(0)),
                           [](std::istream& stream) { Ciphertext(smallContext()).load(stream); });
}

TEST(Ciphertext, ComesToNoHarmFromADamagedFile) {
    const SecretKey secretKey(smallContext());
    test::expectNoHarmFromDamage(fileOf(filled(1)), 140, [&](std::istream& stream) {
        Ciphertext ciphertext(smallContext());
        ciphertext.load(stream);
        // What was taken is fit for use.
        EXPECT_GE(ciphertext.getNumPoly(), 2U);
        EXPECT_LT(ciphertext.getLevel(), 2U);
        EXPECT_GE(ciphertext.getRescaleCounter(), 0);
        Plaintext out(smallContext());
        ciphertext.setEncodingType(EncodingType::Slot);
        if (ciphertext.getRescaleCounter() <= static_cast<int>(ciphertext.getLevel()))
            Decryptor(smallContext()).decrypt(ciphertext, secretKey, out);
    });
}

} // namespace
} // namespace Torvo
