#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/Sanitizer.hpp"
#include "support/Scheme.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Torvo.hpp>

#include <cereal/details/helpers.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>

/// A public call with too large a request, or for something that does not exist, throws one of the exceptions
/// that `RuntimeException` lists, and objects are unchanged.
namespace Torvo {
namespace {

using test::sameWords;

const Context& fx() {
    return test::contextOf(ParameterPreset::FX);
}

TEST(Exceptions, MessagesOfMoreSlotsThanAllMemoryAreNoAllocation) {
    for (const u64 logSlots : {u64{60}, u64{63}, u64{64}, u64{65}, ~u64{0}}) {
        EXPECT_THROW((Message(logSlots)), RuntimeException) << logSlots;
        EXPECT_THROW(Message(logSlots, 0.5), RuntimeException) << logSlots;
    }
    Message message(2, 0.5);
    for (const u64 size : {u64{1} << 60, u64{1} << 62, ~u64{0}})
        EXPECT_THROW(message.resize(size), std::bad_array_new_length) << size;
    ASSERT_EQ(message.getSize(), 4u);
    for (const auto slot : message) EXPECT_EQ(slot, 0.5);
}

TEST(Exceptions, MessagesOfMoreSlotsThanThisMemoryAreNoAllocation) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    EXPECT_THROW(Message(45), std::bad_alloc);
    Message message(2, 0.5);
    EXPECT_THROW(message.resize(u64{1} << 45), std::bad_alloc);
    EXPECT_EQ(message.getSize(), 4u);
}

/// The words of so many rows would wrap around to few.
TEST(Exceptions, LevelsOfMoreRowsThanAllMemoryAreNoAllocation) {
    Plaintext plaintext = EnDecoder(fx()).encode(Message(2, 0.5), 3, 0);
    Ciphertext ciphertext = test::Scheme::of(ParameterPreset::FX).encrypt(Message(2, 0.5), 3);
    LWE::Ciphertext number(test::smallLWEContext());
    const Plaintext plaintextBefore = plaintext;
    const Ciphertext ciphertextBefore = ciphertext;
    for (const u64 level : {(u64{1} << 58) - 1, u64{1} << 60, ~u64{0} - 1}) {
        SCOPED_TRACE(level);
        EXPECT_THROW(plaintext.setLevel(level), std::bad_array_new_length);
        EXPECT_THROW(ciphertext.setLevel(level), std::bad_array_new_length);
        EXPECT_THROW(number.setLevel(level), std::bad_array_new_length);
    }
    EXPECT_TRUE(sameWords(plaintext, plaintextBefore));
    EXPECT_TRUE(sameWords(ciphertext, ciphertextBefore));
    EXPECT_EQ(number.getLevel(), 2u);
    EXPECT_EQ(number.getBx().getData().size(), 3u);
}

TEST(Exceptions, MoreElementsThanAVectorHoldsAreALengthError) {
    Ciphertext ciphertext = test::Scheme::of(ParameterPreset::FX).encrypt(Message(2, 0.5), 3);
    const Ciphertext before = ciphertext;
    for (const u64 count : {u64{1} << 60, u64{1} << 62, ~u64{0}}) {
        EXPECT_THROW(ciphertext.setNumPoly(count), std::length_error);
        EXPECT_THROW(ciphertext.setSize(count), std::length_error);
    }
    EXPECT_TRUE(sameWords(ciphertext, before));
}

TEST(Exceptions, GettersPastTheEndAreOutOfRange) {
    const test::Scheme& scheme = test::Scheme::of(ParameterPreset::FX);
    Ciphertext ciphertext(fx());
    const Ciphertext& constant = ciphertext;
    for (const u64 index : {u64{2}, u64{1} << 40, ~u64{0}}) {
        EXPECT_THROW(ciphertext.getPoly(index), std::out_of_range);
        EXPECT_THROW(constant.getPoly(index), std::out_of_range);
        EXPECT_THROW(ciphertext.getPolyData(index, 0), std::out_of_range);
        EXPECT_THROW(scheme.secretKey.getSx(index), std::out_of_range);
        EXPECT_THROW(ModPackKeyBundle(fx(), 2).getModPackKey(index), std::out_of_range);
    }
    ciphertext.setLevel(40);
    EXPECT_THROW(ciphertext.getCurrentPrime(), std::out_of_range);
    EXPECT_THROW(ciphertext.getCurrentScaleFactor(), std::out_of_range);
}

TEST(Exceptions, KeysAreAskedForOnlyWhereTheyAre) {
    EvaluationKey key(fx(), 'm', 0);
    const Device elsewhere{DeviceType::CPU, 1};
    EXPECT_THROW_TEXT(key.getAxIter(elsewhere), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(key.getBxIter(elsewhere), std::out_of_range, "map::at");
    key.removeExcept(elsewhere);
    std::ostringstream stream;
    EXPECT_THROW_TEXT(key.getGadgetRank(), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(key.save(stream), std::out_of_range, "map::at");
}

TEST(Exceptions, RotationsWhereThereIsNoTableAreOutOfRange) {
    const test::Scheme& scheme = test::Scheme::of(ParameterPreset::FX);
    const KeyGenerator generator(scheme.context, scheme.secretKey);
    generator.genLeftRotKey(1);
    const HomEvaluator evaluator(scheme.context, generator.getKeyPack());
    Ciphertext in = scheme.encrypt(Message(5, 0.5), 3), out(scheme.context);
    in.to(Device{DeviceType::CPU, 1});
    EXPECT_THROW_TEXT(evaluator.leftRotate(in, 1, out), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(evaluator.rightRotate(in, 31, out), std::out_of_range, "map::at");
}

/// 2^40 keys would be made one after the other until the machine has no memory left.
TEST(Exceptions, MorePackingKeysThanCoefficientsAreRefusedAtOnce) {
    for (const u64 count : {(u64{1} << 20) + 1, u64{1} << 40, ~u64{0}})
        EXPECT_REFUSED(ModPackKeyBundle(fx(), count),
                       "[ModPackKeyBundle] The number of keys should be at most 1048576");
    EXPECT_EQ(ModPackKeyBundle(fx(), 0).getNumKeys(), 0u);
}

TEST(Exceptions, ContextsOfHugeNumbersAreRefused) {
    for (const u64 huge : {u64{1} << 32, u64{1} << 62, ~u64{0}})
        for (int place = 0; place < 7; ++place) {
            SCOPED_TRACE(testing::Message() << huge << " at " << place);
            u64 n[] = {6, 4, 40, 36, 61, 4, 1};
            n[place] = huge;
            EXPECT_THROW(makeContext(n[0], n[1], n[2], n[3], n[4], n[5], n[6], {}), RuntimeException);
            if (place == 0 || place > 3) continue; // any dimension will do
            EXPECT_THROW(LWE::makeContext(64, n[1], n[2], n[3]), RuntimeException);
        }
}

TEST(Exceptions, LWEDataOfHugeDimensionsAreNoAllocation) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    for (const u64 dimension : {u64{1} << 50, u64{1} << 62, ~u64{0}}) {
        const LWE::Context context = LWE::makeContext(dimension, 3, 50, 40);
        EXPECT_THROW(LWE::Ciphertext{context}, std::bad_alloc) << dimension;
        EXPECT_THROW(LWE::SecretKey{context}, std::bad_alloc) << dimension;
    }
}

TEST(Exceptions, StreamsThatEndOrAreFullAreTheArchives) {
    class Full : public std::streambuf {
    } full;
    std::ostream out(&full);
    std::istringstream in(std::string(1, '\1'));
    Message message(2, 0.5);
    EXPECT_THROW(message.save(out), cereal::Exception);
    EXPECT_THROW(message.load(in), cereal::Exception);
    EXPECT_THROW(test::Scheme::of(ParameterPreset::FX).secretKey.save(out), cereal::Exception);
    static_assert(std::is_base_of_v<std::runtime_error, cereal::Exception>);
}

TEST(Exceptions, AKeyDirectoryThatCannotBeMadeIsTheFileSystems) {
    const test::TemporaryDirectory directory;
    std::ofstream(directory.path() + "/PK") << "a file in the way";
    KeyPack keys(fx());
    EXPECT_THROW(keys.setKeyDirPath(directory.path()), std::filesystem::filesystem_error);
    EXPECT_THROW(keys.save(directory.path()), std::filesystem::filesystem_error);
}

} // namespace
} // namespace Torvo
