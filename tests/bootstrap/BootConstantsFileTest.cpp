#include "bootstrap/BootConstantsFile.hpp"

#include "persistence/SavedFile.hpp"
#include "support/BootScheme.hpp"
#include "support/Bytes.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/SealedHead.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cereal/details/helpers.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::blake3;
using test::resealed;
using Stages = std::vector<std::vector<Plaintext>>;

constexpr u64 headBytes = BootConstantsFile::headBytes;

/// Custom rings of one shape. Only presets bootstrap; but constants can be made for these too.
Context ring() {
    return makeContext(6, 4, 58, 55, 58, 2);
}
Context ringOfOtherPrimes() {
    return makeContext(6, 4, 57, 54, 58, 2);
}

BootRecipe recipe(u64 logSlots, const Context& context = ring(), double inverse = 0.4, double forward = 1.7) {
    return {context, logSlots, inverse, forward};
}

BootConstants made(const BootRecipe& from) {
    return BootConstants(from.log_slots, from.coeff_to_slot_constant, from.slot_to_coeff_constant,
                         from.context, std::make_shared<EnDecoder>(from.context));
}

std::string savedBy(const BootConstants& constants) {
    return test::bytesOf([&](std::ostream& stream) { BootConstantsFile::save(constants, stream); });
}

void expectSame(const Stages& expected, const Stages& found) {
    ASSERT_EQ(found.size(), expected.size());
    for (u64 s = 0; s < found.size(); ++s) {
        ASSERT_EQ(found[s].size(), expected[s].size());
        for (u64 k = 0; k < found[s].size(); ++k)
            ASSERT_TRUE(test::sameWords(found[s][k], expected[s][k])) << s << ' ' << k;
    }
}

void expectSame(const BootConstants& expected, const BootStages& found) {
    expectSame(expected.getV0(Device{}), found.slotToCoeff);
    expectSame(expected.getInvV0(Device{}), found.coeffToSlot);
}

std::string wordsOf(const Stages& stages, std::string& digests) {
    std::string all;
    for (const auto& stage : stages)
        for (const Plaintext& plaintext : stage) {
            test::Bytes words;
            for (const u64 word : plaintext.getMx().getData()) words.u64s({word});
            digests += blake3(words.str());
            all += words.str();
        }
    return all;
}

class BootConstantsFiles : public testing::Test {
protected:
    std::string write(const std::string& bytes) const {
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    std::string refusal(const std::string& reason) const {
        return "Cannot take bootstrapping constants from " + path + ": " + reason;
    }
    static std::string streamRefusal(const std::string& reason) {
        return "Cannot take bootstrapping constants from the stream: " + reason;
    }
    /// Every way to take constants refuses `bytes` for one reason.
    void expectRefused(const BootConstantsFile& by, const std::string& bytes,
                       const std::string& reason) const {
        write(bytes);
        for (const bool check : {true, false}) {
            EXPECT_REFUSED(by.map(path, check), refusal(reason));
            EXPECT_REFUSED(by.read(path, check), refusal(reason));
            std::istringstream stream(bytes);
            EXPECT_REFUSED(by.read(stream, check), streamRefusal(reason));
        }
    }

    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/constants";
    const BootConstants constants = made(recipe(3));
    const BootConstantsFile file{recipe(3)};
    const std::string sound = savedBy(constants);
};

// ---- the format

TEST_F(BootConstantsFiles, HaveAHeadAndThenTheRowsOfAllPlaintexts) {
    std::string digests, words = wordsOf(constants.getV0(Device{}), digests);
    words += wordsOf(constants.getInvV0(Device{}), digests);
    test::Bytes numbers;
    numbers.f64(0.4).f64(1.7);
    for (u64 level = 0; level < 4; ++level) numbers.f64(ring()->scale_factors.log_scale[level]);
    test::Bytes head = test::Bytes::frame();
    head.u64s({ring()->context_hash}).u32(6).u64s({3, 64, 4});
    head.raw(blake3(numbers.str())).raw(blake3(digests)).raw(std::string(59, '\0'));
    EXPECT_EQ(sound.substr(0, headBytes), head.str() + blake3(head.str()));
    EXPECT_TRUE(sound.substr(headBytes) == words);
    EXPECT_EQ(sound.size(), BootConstantsFile::byteCount(3, 64, 4));
}

TEST_F(BootConstantsFiles, AreTheSameByEveryWayToSave) {
    BootConstantsFile::save(constants, path);
    std::ifstream stream(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), sound);
    EXPECT_EQ(savedBy(BootConstants(recipe(3), file.map(path, true))), sound);
    EXPECT_EQ(savedBy(BootConstants(recipe(3), file.read(path, true))), sound);
}

TEST_F(BootConstantsFiles, GiveTheWordsThatAreBuilt) {
    for (const u64 logSlots : {1, 2, 3, 4, 5}) {
        SCOPED_TRACE(logSlots);
        const BootConstants built = made(recipe(logSlots));
        const BootConstantsFile ofSlots(recipe(logSlots));
        BootConstantsFile::save(built, path);
        for (const bool check : {true, false}) {
            expectSame(built, ofSlots.map(path, check));
            expectSame(built, ofSlots.read(path, check));
            std::istringstream stream(savedBy(built) + "and more");
            expectSame(built, ofSlots.read(stream, check));
            EXPECT_EQ(stream.get(), 'a');
        }
    }
}

TEST(BootConstantsFilesOfRealPreset, GiveTheWordsThatAreBuilt) {
    const Context context = makeContext(ParameterPreset::FGb);
    const BootParameter parameter(context);
    const BootRecipe from{context, 2, parameter.coeff_to_slot_constant, parameter.slot_to_coeff_constant};
    const BootConstants built = made(from);
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/constants";
    BootConstantsFile::save(built, path);
    expectSame(built, BootConstantsFile(from).map(path, true));
    expectSame(built, BootConstantsFile(from).read(path, true));
}

TEST_F(BootConstantsFiles, HoldMappedRowsAlignedForKernels) {
    const BootStages stages = file.map(write(sound), true);
    for (const auto& stage : stages.coeffToSlot)
        for (const Plaintext& plaintext : stage) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plaintext.getMxData(0)) % 64, 0u);
            EXPECT_EQ(plaintext.getMx().getData().capacity(), 0u) << "borrowed";
        }
}

// ---- what mapped constants outlive

TEST_F(BootConstantsFiles, StayMappedAsLongAsOnePlaintextDoes) {
    std::optional<BootStages> stages = file.map(write(sound), true);
    const Plaintext moved = std::move(stages->slotToCoeff[0][1]), copy = stages->coeffToSlot[0][1];
    EXPECT_NE(copy.getMx().getData().capacity(), 0u) << "a copy is memory of its own";
    stages.reset();
    std::filesystem::remove(path);
    EXPECT_TRUE(test::sameWords(moved, constants.getV0(Device{})[0][1]));
    EXPECT_TRUE(test::sameWords(copy, constants.getInvV0(Device{})[0][1]));
}

TEST_F(BootConstantsFiles, StayMappedWhenTheFileIsSavedAgain) {
    BootConstantsFile::save(constants, path);
    const BootConstants mapped(recipe(3), file.map(path, true));
    BootConstantsFile::save(made(recipe(2)), path);
    expectSame(constants, {mapped.getV0(Device{}), mapped.getInvV0(Device{})});
    BootConstantsFile::save(mapped, path); // from the old file to a new one of its name
    expectSame(constants, file.map(path, true));
}

TEST_F(BootConstantsFiles, CanBeWorkedOnAsCopiesOnly) {
    const BootStages stages = file.map(write(sound), true);
    Plaintext lowered = stages.coeffToSlot[0][0];
    lowered.setLevel(1);
    lowered.getMxData(0)[0] ^= 1;
    Polynomial reused = constants.getV0(Device{})[0][0].getMx();
    reused = stages.coeffToSlot[0][0].getMx();
    reused.clear();
    expectSame(constants, stages);
}

TEST_F(BootConstantsFiles, AreCopiedToAnotherDevice) {
    constexpr Device other{DeviceType::CPU, 1};
    BootConstants mapped(recipe(3), file.map(write(sound), true));
    mapped.load(other);
    EXPECT_EQ(mapped.getV0(other)[0][0].getDevice(), other);
    expectSame(constants.getV0(Device{}), mapped.getV0(other));
    EXPECT_EQ(mapped.getV0(Device{})[0][0].getMx().getData().capacity(), 0u) << "still borrowed";
}

// ---- damage

const char* const noConstants = "it holds none; give what saveBootConstants wrote";
const char* const damagedHead = "its head is damaged; save them again";
const char* const otherRing =
    "they are of another ring; make the bootstrapper with the context that they were saved with";
const char* const otherParameters = "they were made with other parameters of bootstrapping, or where numbers "
                                    "round otherwise; save them again";
const char* const damagedRows = "the constants in it are damaged; save them again";

TEST_F(BootConstantsFiles, AreRefusedForEveryBitOfTheirHeads) {
    for (u64 i = 0; i < headBytes; ++i)
        for (int bit = 0; bit < 8; ++bit) {
            SCOPED_TRACE("bit " + std::to_string(bit) + " of byte " + std::to_string(i));
            std::string damaged = sound;
            damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
            const bool isFrameOrTag = i == 0 || (9 <= i && i < 13);
            write(damaged);
            EXPECT_REFUSED(file.map(path, false), refusal(isFrameOrTag ? noConstants : damagedHead));
            std::istringstream stream(damaged);
            if (i != 0) {
                EXPECT_REFUSED(file.read(stream, false),
                               streamRefusal(isFrameOrTag ? noConstants : damagedHead));
            } else if (bit ==
                       0) { // the other byte order; the archive takes every other bit for its own order
                EXPECT_REFUSED(file.read(stream, false), streamRefusal(noConstants));
            }
        }
}

TEST_F(BootConstantsFiles, AreRefusedForNumbersThatDoNotFitUnderAWholeHead) {
    const auto with = [&](std::size_t offset, const std::string& bytes) {
        return resealed(std::string(sound).replace(offset, bytes.size(), bytes));
    };
    const auto number = [](u64 value) { return test::Bytes().u64s({value}).str(); };
    expectRefused(file, with(1, number(1)), otherRing);
    expectRefused(file, with(13, number(~u64{0})),
                  "they are for log slots 18446744073709551615, not 3; give theirs or save others");
    for (const u64 forged : {u64{0}, u64{128}, ~u64{0}, u64{1} << 63}) {
        expectRefused(file, with(21, number(forged)), otherParameters);
        expectRefused(file, with(29, number(forged)), otherParameters);
    }
    expectRefused(file, with(37, "x"), otherParameters);
    expectRefused(file, with(120, "x"), otherParameters);
}

TEST_F(BootConstantsFiles, AreRefusedForOthersThanTheyWereMadeFor) {
    const std::string otherSlots = "they are for log slots 3, not ";
    expectRefused(BootConstantsFile(recipe(4)), sound, otherSlots + "4; give theirs or save others");
    expectRefused(BootConstantsFile(recipe(3, ringOfOtherPrimes())), sound, otherRing);
    expectRefused(BootConstantsFile(recipe(3, ring(), 0.5)), sound, otherParameters);
    expectRefused(BootConstantsFile(recipe(3, ring(), 0.4, std::nextafter(1.7, 2.0))), sound,
                  otherParameters);
    const Context toy = makeContext(ParameterPreset::FX);
    expectRefused(BootConstantsFile(recipe(3, toy)), sound, otherRing);
}

TEST_F(BootConstantsFiles, AreRefusedWhenTheyAreOtherThings) {
    const std::string plaintext = test::saved(constants.getV0(Device{})[0][0]);
    ASSERT_GT(plaintext.size(), headBytes);
    expectRefused(file, plaintext, noConstants);
    expectRefused(file, std::string(1000, '\0'), noConstants);
    expectRefused(file, std::string(1000, '\1'), noConstants);
}

TEST_F(BootConstantsFiles, AreMappedAtTheirWholeLengthOnly) {
    const auto refusalOf = [&](u64 length) {
        return refusal("it holds " + std::to_string(length) + " bytes, not " + std::to_string(sound.size()) +
                       "; save them again");
    };
    for (const u64 length : {u64{0}, u64{1}, headBytes - 1, headBytes, headBytes + 1, sound.size() - 1}) {
        write(sound.substr(0, length));
        EXPECT_REFUSED(file.map(path, false), refusalOf(length));
        EXPECT_REFUSED(file.map(path, true), refusalOf(length));
    }
    write(sound + "x");
    EXPECT_REFUSED(file.map(path, true), refusalOf(sound.size() + 1));
}

TEST_F(BootConstantsFiles, AreReadAtTheirWholeLengthOnly) {
    for (const u64 length : {u64{1}, u64{12}, headBytes - 1, headBytes, headBytes + 1, sound.size() - 1}) {
        const std::string cut = sound.substr(0, length);
        std::istringstream stream(cut);
        EXPECT_THROW(file.read(stream, true), cereal::Exception) << length;
        write(cut);
        EXPECT_THROW(file.read(path, true), cereal::Exception) << length;
    }
    write(sound + "x");
    EXPECT_REFUSED(file.read(path, true), "The file is longer than what is to be loaded: " + path +
                                              " holds " + std::to_string(sound.size() + 1) + " bytes, not " +
                                              std::to_string(sound.size()) +
                                              "; give the path of a file of the right kind");
}

TEST_F(BootConstantsFiles, AreRefusedForEveryDamagedRowThatIsChecked) {
    for (u64 at = headBytes; at < sound.size(); at += 4 * 64 + 3) {
        SCOPED_TRACE(at);
        std::string damaged = sound;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        write(damaged);
        EXPECT_REFUSED(file.map(path, true), refusal(damagedRows));
        EXPECT_REFUSED(file.read(path, true), refusal(damagedRows));
        EXPECT_NO_THROW(file.map(path, false));
        EXPECT_NO_THROW(file.read(path, false));
    }
    // Rows in each other's place are damage too.
    std::string swapped = sound;
    std::swap_ranges(swapped.begin() + headBytes, swapped.begin() + headBytes + 512,
                     swapped.begin() + headBytes + 512);
    write(swapped);
    EXPECT_REFUSED(file.map(path, true), refusal(damagedRows));
}

} // namespace
} // namespace Torvo
