#include "functions/EncodedTransformImpl.hpp"
#include "functions/LinearTransformImpl.hpp"
#include "support/Archives.hpp"
#include "support/Bytes.hpp"
#include "support/CiphertextWords.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/LinearMaps.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <fstream>

namespace Torvo {
namespace {

using namespace test;

class EncodedTransformFile : public testing::Test {
protected:
    const Context context = archives::ring(); // degree 64, two primes and one temporary one
    const LinearTransform transform =
        LinearTransform::fromDiagonals(4, {{0, {0.5, -0.25, {0, 1}, 0.0}}, {3, {1.0, 0.0, 0.0, 2.0}}});
    const EncodedTransform encoded{context, transform, 3, 1};

    void load(const std::string& file, EncodedTransform& object) const { loadFrom(file, object); }
};

TEST_F(EncodedTransformFile, IsLaidOutAsDocumented) {
    const EncodedTransformImpl impl(
        context,
        LinearTransformImpl(4, {{0, {{0, 0.5}, {1, -0.25}, {2, {0, 1}}}}, {3, {{0, 1.0}, {3, 2.0}}}}), {3, 1},
        99);
    ASSERT_EQ(impl.getDiagonals().size(), 3U);
    Bytes file = Bytes::frame();
    file.u64s({context->context_hash}).u32(8);
    file.u64s({3, 1, 64, impl.getSteps().stride, impl.getSteps().babySteps, 3});
    for (const auto& [rotation, rows] : impl.getDiagonals()) {
        file.u64s({rotation, 3 * 64});
        for (const u64 word : rows) file.u64s({word});
    }
    EXPECT_EQ(saved(encoded), file.str());
    EXPECT_EQ(encoded.savedSize(), file.str().size());
    // Diagonal 0; diagonal 3, to the left by 3 in the first row, and to the right by 1 in the others.
    EXPECT_EQ(impl.getDiagonals()[0].rotation, 0U);
    EXPECT_EQ(impl.getDiagonals()[1].rotation, 3U);
    EXPECT_EQ(impl.getDiagonals()[2].rotation, 7U);
}

TEST_F(EncodedTransformFile, GivesBackTheTransform) {
    const SecretKey secret(context);
    const KeyGenerator generator(context, secret);
    for (const u64 index : encoded.getRotationIndices()) generator.genLeftRotKey(index);
    const HomEvaluator evaluator(context, generator.getKeyPack());
    Ciphertext in(context), expected(context), out(context);
    Encryptor(context).encrypt(archives::message(3), secret, in, 1, 0);
    encoded.apply(evaluator, in, expected);

    const TemporaryDirectory directory;
    encoded.save(directory.path() + "/transform");
    EncodedTransform fromPath(context), fromStream(context, transform, 4, 1);
    fromPath.load(directory.path() + "/transform");
    load(saved(encoded), fromStream);
    for (const EncodedTransform* loaded : {&fromPath, &fromStream}) {
        EXPECT_EQ(loaded->getLogSlots(), 3U);
        EXPECT_EQ(loaded->getLevel(), 1U);
        EXPECT_EQ(loaded->getRotationIndices(), encoded.getRotationIndices());
        EXPECT_EQ(saved(*loaded), saved(encoded));
        loaded->apply(evaluator, in, out);
        EXPECT_TRUE(sameWords(out, expected));
    }
}

TEST_F(EncodedTransformFile, IsNotWrittenForAnEmptyOne) {
    const std::string refusal =
        "[EncodedTransform] It is empty, so there is nothing to apply or save; assign "
        "one that was encoded, or load a file first";
    const EncodedTransform empty(context);
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/transform";
    encoded.save(path);
    EXPECT_REFUSED(empty.save(path), refusal);
    EXPECT_REFUSED(saved(empty), refusal);
    EXPECT_REFUSED(empty.savedSize(), refusal);
    EncodedTransform again(context);
    again.load(path);
    EXPECT_EQ(saved(again), saved(encoded));
}

TEST_F(EncodedTransformFile, OfAnotherRingIsRefused) {
    EncodedTransform other(archives::narrow()), same(makeContext(6, 2, 50, 40, 60, 2));
    EXPECT_REFUSED(load(saved(encoded), other), notVerified);
    load(saved(encoded), same);
    EXPECT_EQ(saved(same), saved(encoded));
}

TEST_F(EncodedTransformFile, OfImpossibleNumbersIsRefused) {
    const std::string file = saved(encoded);
    const auto expectRefused = [&](u64 offset, u64 value) {
        SCOPED_TRACE(std::to_string(value) + " at byte " + std::to_string(offset));
        std::string damaged = file;
        std::memcpy(damaged.data() + offset, &value, sizeof value);
        EncodedTransform object = encoded;
        EXPECT_REFUSED(load(damaged, object), notVerified);
        EXPECT_EQ(saved(object), file);
    };
    constexpr u64 slotsAt = 13, levelAt = 21, degreeAt = 29, strideAt = 37, babyAt = 45, countAt = 53,
                  firstAt = 61;
    constexpr u64 secondAt = firstAt + 16 + 3 * 64 * 8;
    for (const u64 log_slots : {6UL, 64UL, ~0UL}) expectRefused(slotsAt, log_slots);
    for (const u64 level : {0UL, 2UL, ~0UL}) expectRefused(levelAt, level);
    for (const u64 degree : {32UL, 128UL, 0UL}) expectRefused(degreeAt, degree);
    for (const u64 stride : {0UL, 2UL, 9UL, ~0UL}) expectRefused(strideAt, stride);
    for (const u64 steps : {0UL, 3UL, 16UL, ~0UL}) expectRefused(babyAt, steps);
    for (const u64 count : {0UL, 9UL, ~0UL}) expectRefused(countAt, count);
    for (const u64 rotation : {3UL, 8UL, ~0UL}) expectRefused(firstAt, rotation); // no room for the next
    for (const u64 rotation : {0UL, 8UL}) expectRefused(secondAt, rotation);
    for (const u64 words : {0UL, 64UL, 3 * 64UL - 1, 3 * 64UL + 1, ~0UL}) expectRefused(firstAt + 8, words);
}

TEST_F(EncodedTransformFile, CutShortOrDamagedLeavesTheObjectAsItWas) {
    const std::string file = saved(encoded);
    EncodedTransform object(context, LinearTransform::fromPermutation({1, 0}), 1, 1);
    const std::string before = saved(object);
    expectShortReads(file, [&](std::istream& stream) { object.load(stream); });
    EXPECT_EQ(saved(object), before);
    expectNoHarmFromDamage(file, 80, [&](std::istream& stream) {
        EncodedTransform damaged(context);
        damaged.load(stream);
        EXPECT_LE(saved(damaged).size(), file.size());
    });
    EXPECT_THROW(object.load("/nowhere/transform"), RuntimeException);
    EXPECT_EQ(saved(object), before);
}

} // namespace
} // namespace Torvo
