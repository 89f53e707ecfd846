#include <Torvo/LWECiphertext.hpp>

#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <numeric>

namespace Torvo::LWE {
namespace {

using test::Bytes;
using test::sameWords;
using test::smallLWEContext;

/// With numbers of its own in every word.
Ciphertext filled(const Context& context, u64 level) {
    Ciphertext ct(context);
    ct.setLevel(level);
    ct.setRescaleCounter(static_cast<int>(level));
    std::iota(ct.getAx().getData().begin(), ct.getAx().getData().end(), 1000);
    std::iota(ct.getBx().getData().begin(), ct.getBx().getData().end(), 7);
    return ct;
}

std::string fileOf(const Ciphertext& ct) {
    return test::bytesOf([&](std::ostream& stream) { ct.save(stream); });
}

Ciphertext loaded(const Context& context, const std::string& file) {
    Ciphertext ct(context);
    std::istringstream stream(file);
    ct.load(stream);
    return ct;
}

TEST(LWECiphertext, StartsAtTheEncryptionLevelOwingNothing) {
    for (const auto preset : {ParameterPreset::SS7, ParameterPreset::SD3, ParameterPreset::FGbD12L0}) {
        const Context context = makeContext(preset);
        const Ciphertext ct(context);
        EXPECT_EQ(ct.getContext(), context);
        EXPECT_EQ(ct.getLevel(), getEncryptionLevel(context));
        EXPECT_EQ(ct.getBx().getLevel(), ct.getLevel());
        EXPECT_EQ(ct.getRescaleCounter(), 0);
        EXPECT_EQ(ct.getAx().getDimension(), getDimension(context));
        EXPECT_EQ(ct.getAx().getData().size(), (ct.getLevel() + 1) * getDimension(context));
        EXPECT_EQ(ct.getBx().getData().size(), ct.getLevel() + 1);
        EXPECT_EQ(ct.getDevice(), Device{});
    }
}

TEST(LWECiphertext, ChangesTheLevelOfBothPartsKeepingTheLeadingRows) {
    Ciphertext ct = filled(smallLWEContext(), 2);
    ct.setLevel(0);
    EXPECT_EQ(ct.getLevel(), 0U);
    EXPECT_EQ(ct.getBx().getLevel(), 0U);
    EXPECT_EQ(ct.getAx().getData().size(), 64U);
    EXPECT_EQ(ct.getBx().getData().size(), 1U);
    EXPECT_EQ(ct.getAx().getRow(0)[63], 1063U);
    EXPECT_EQ(ct.getBx()[0], 7U);
    EXPECT_EQ(ct.getRescaleCounter(), 2) << "the counter is not looked at";
}

TEST(LWECiphertext, BoundsTheCounterByTheLevelAndThenByZero) {
    Ciphertext ct = filled(smallLWEContext(), 1);
    const std::string aboveLevel = "Rescale counter should be less than or equal to the level";
    EXPECT_REFUSED(ct.setRescaleCounter(2), aboveLevel);
    EXPECT_REFUSED(ct.setRescaleCounter(INT_MAX), aboveLevel);
    EXPECT_REFUSED(ct.setRescaleCounter(-1), "Rescale counter should be greater than or equal to zero");
    EXPECT_EQ(ct.getRescaleCounter(), 1);
}

TEST(LWECiphertext, GoesToOtherDevicesWithBothParts) {
    Ciphertext ct = filled(smallLWEContext(), 1);
    const Device second{DeviceType::CPU, 1};
    ct.to(second);
    EXPECT_EQ(ct.getDevice(), second);
    EXPECT_EQ(ct.getBx().getDevice(), second);
    EXPECT_THROW(ct.to(Device{DeviceType::GPU, 0}), RuntimeException);
}

TEST(LWECiphertext, CopiesTheDataAndSharesTheContext) {
    Ciphertext original = filled(smallLWEContext(), 1);
    const Ciphertext before = original;
    Ciphertext assigned(makeContext(ParameterPreset::SD3));
    assigned = original;
    original.getAx().getRow(0)[5] = 1;
    EXPECT_TRUE(sameWords(assigned, before));
    EXPECT_FALSE(sameWords(original, before));
    EXPECT_EQ(assigned.getContext(), smallLWEContext());
    Ciphertext moved = std::move(assigned);
    const Ciphertext& self = moved;
    moved = self;
    EXPECT_TRUE(sameWords(moved, before));
}

TEST(LWECiphertext, ItsFileIsThatOfItsTable) {
    const Ciphertext ct = filled(smallLWEContext(), 1);
    Bytes bytes = Bytes::frame().u64s({smallLWEContext()->context_hash}).u32(3).u32(1);
    bytes.u64s({64, 1, 2 * 64});
    for (const u64 word : ct.getAx().getData()) bytes.u64s({word});
    bytes.u64s({3, 1}).u8(0).u64s({2, 7, 8});
    EXPECT_EQ(fileOf(ct), bytes.str());
}

TEST(LWECiphertext, ComesBackFromStreamsAndFiles) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/ciphertext", absent = directory.path() + "/none/ciphertext";
    for (u64 level = 0; level <= 2; ++level) {
        const Ciphertext ct = filled(smallLWEContext(), level);
        EXPECT_TRUE(sameWords(loaded(smallLWEContext(), fileOf(ct)), ct));
        ct.save(path);
        Ciphertext again(smallLWEContext());
        again.load(path);
        EXPECT_TRUE(sameWords(again, ct));
        EXPECT_REFUSED(ct.save(absent), "Cannot open file " + absent);
        EXPECT_REFUSED(again.load(absent), "Cannot open file " + absent);
    }
}

TEST(LWECiphertext, AFileIsOfItsContextAndKindOnly) {
    const u64 hash = smallLWEContext()->context_hash;
    const std::string file = fileOf(filled(smallLWEContext(), 1));
    EXPECT_EQ(loaded(makeContext(64, 3, 50, 40), file).getLevel(), 1U) << "a twin";
    EXPECT_REFUSED(loaded(makeContext(ParameterPreset::SD3), file), test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), Bytes::frame().u64s({hash + 1}).u32(3).str()),
                   test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), Bytes::frame().u64s({hash}).u32(4).str()), test::notVerified);
}

TEST(LWECiphertext, AShapeOfAnotherContextIsRefused) {
    const auto withShape = [](u64 dimension, u64 level, u64 numPrimes, u64 elementLevel, u64 count) {
        Bytes bytes = Bytes::frame().u64s({smallLWEContext()->context_hash}).u32(3).u32(0);
        bytes.u64s({dimension, level, dimension * (level + 1)});
        for (u64 i = 0; i < dimension * (level + 1); ++i) bytes.u64s({0});
        bytes.u64s({numPrimes, elementLevel}).u8(0).u64s({count});
        for (u64 i = 0; i < count; ++i) bytes.u64s({0});
        return bytes.str();
    };
    EXPECT_NO_THROW(loaded(smallLWEContext(), withShape(64, 1, 3, 1, 2)));
    EXPECT_NO_THROW(loaded(smallLWEContext(), withShape(64, 3, 3, 3, 4))) << "above the chain";
    EXPECT_REFUSED(loaded(smallLWEContext(), withShape(63, 1, 3, 1, 2)), test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), withShape(64, 3, 4, 3, 4)), test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), withShape(64, 1, 4, 1, 2)), test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), withShape(64, 1, 3, 0, 1)), test::notVerified);
    EXPECT_REFUSED(loaded(smallLWEContext(), withShape(64, 1, 3, 1, 3)), test::notVerified);
}

TEST(LWECiphertext, ADimensionMayBeLargerThanTheDegreeOfAnyRing) {
    const Context context = makeContext((u64{1} << 20) + 1, 1, 50, 40);
    const Ciphertext ct = filled(context, 0);
    EXPECT_TRUE(sameWords(loaded(context, fileOf(ct)), ct));
}

TEST(LWECiphertext, ADimensionThatNoMemoryHoldsDoesNotWrapAround) {
    const Context context = makeContext(u64{1} << 61, 8, 50, 40); // 2^64 words
    EXPECT_THROW(Ciphertext{context}, std::bad_alloc);
    Ciphertext ct = filled(smallLWEContext(), 1);
    const Ciphertext before = ct;
    EXPECT_THROW(ct.setLevel((u64{1} << 58) - 1), std::bad_alloc);
    EXPECT_TRUE(sameWords(ct, before));
}

TEST(LWECiphertext, ShortAndDamagedFilesDoNoHarm) {
    const Context context = makeContext(8, 2, 50, 40);
    const std::string file = fileOf(filled(context, 1));
    const auto load = [&](std::istream& stream) {
        Ciphertext ct(context);
        ct.load(stream);
    };
    test::expectShortReads(file, load);
    test::expectNoHarmFromDamage(file, file.size(), load);
}

} // namespace
} // namespace Torvo::LWE
