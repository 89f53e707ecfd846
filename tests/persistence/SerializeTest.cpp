#include "persistence/Serialize.hpp"

#include "core/DeviceSpecificArray.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/MemoryBuffer.hpp"
#include "persistence/Verifier.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/EncodingType.hpp>

#include <cereal/types/optional.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <complex>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using test::Bytes;
using test::shortRead;

template <class... Args>
std::string saved(const Args&... args) {
    return test::bytesOf([&](std::ostream& stream) { Serialize::save(stream, args...); });
}

template <class... Args>
void loadFrom(const std::string& bytes, Args&... args) {
    std::istringstream stream(bytes);
    Serialize::load(stream, args...);
}

template <class T>
DeviceSpecificArray<T> arrayOf(const std::vector<T>& values) {
    DeviceSpecificArray<T> array(values.size());
    std::copy(values.begin(), values.end(), array.begin());
    return array;
}

template <class T>
std::vector<T> valuesOf(const DeviceSpecificArray<T>& array) {
    return {array.begin(), array.end()};
}

TEST(Serialize, AFrameIsOneByteAndTheFieldsInOrder) {
    EXPECT_EQ(saved(), Bytes::frame().str());
    EXPECT_EQ(saved(u64{0x0102030405060708}, 7, true, EncodingType::Coefficient, 1.5),
              Bytes::frame().u64s({0x0102030405060708}).u32(7).u8(1).u32(1).f64(1.5).str());
}

TEST(Serialize, AnOptionalIsAFlagThatIsOneWhenEmpty) {
    EXPECT_EQ(saved(std::optional<int>(5)), Bytes::frame().u8(0).u32(5).str());
    EXPECT_EQ(saved(std::optional<int>()), Bytes::frame().u8(1).str());
}

TEST(Serialize, LoadingGivesTheFieldsBack) {
    u64 word = 0;
    int number = 0;
    loadFrom(saved(u64{42}, -3), word, number);
    EXPECT_EQ(word, 42U);
    EXPECT_EQ(number, -3);
}

// Each has its own frame, of either byte order: a load reads not one byte more than its object has.
TEST(Serialize, ObjectsFollowOneAnotherInAStream) {
    std::istringstream stream(saved(arrayOf<u64>({1, 2, 3})) + std::string("\0\0\0\0\5", 5) + saved(u64{9}) +
                              "rest");
    DeviceSpecificArray<u64> array;
    int number = 0;
    u64 word = 0;
    Serialize::load(stream, array);
    Serialize::load(stream, number);
    Serialize::load(stream, word);
    EXPECT_EQ(valuesOf(array), (std::vector<u64>{1, 2, 3}));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(word, 9U);
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest, "rest");
}

TEST(Serialize, AFileOfTheOtherEndiannessIsSwapped) {
    u64 word = 0;
    loadFrom(std::string("\0\1\2\3\4\5\6\7\10", 9), word);
    EXPECT_EQ(word, 0x0102030405060708U);
}

TEST(Serialize, AnEmptyStreamFailsOnTheFlagByte) {
    u64 word = 0;
    EXPECT_THROW_TEXT(loadFrom("", word), cereal::Exception, shortRead(1, 0));
}

TEST(Serialize, AShortFieldTellsWantedAndGot) {
    u64 word = 0;
    EXPECT_THROW_TEXT(loadFrom(Bytes::frame().u32(1).str(), word), cereal::Exception, shortRead(8, 4));
}

TEST(Serialize, AShortWriteTellsWantedAndWritten) {
    std::array<char, 12> memory{};
    detail::MemoryBuffer buffer(memory.data(), memory.size());
    std::ostream stream(&buffer);
    EXPECT_THROW_TEXT(Serialize::save(stream, u64{1}, u64{2}), cereal::Exception,
                      "Failed to write 8 bytes to output stream! Wrote 3");
}

TEST(Serialize, AFileThatDoesNotOpenIsNamed) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/absent/object.bin";
    u64 word = 1;
    EXPECT_REFUSED(Serialize::save(path, word), "Cannot open file " + path);
    EXPECT_REFUSED(Serialize::load(path, word), "Cannot open file " + path);
    EXPECT_EQ(word, 1U);
}

// A directory opens, and only the read fails.
TEST(Serialize, WhatOpensButCannotBeReadIsAShortRead) {
    const test::TemporaryDirectory directory;
    u64 word = 1;
    EXPECT_THROW_TEXT(Serialize::load(directory.path(), word), cereal::Exception, shortRead(1, 0));
    EXPECT_EQ(word, 1U);
}

TEST(Serialize, AFileIsTruncatedAndClosed) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/object.bin";
    std::ofstream(path) << std::string(100, 'x');
    Serialize::save(path, u64{9});
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    EXPECT_EQ(bytes, Bytes::frame().u64s({9}).str());
    u64 word = 0;
    Serialize::load(path, word);
    EXPECT_EQ(word, 9U);
}

// The device accepts no byte. With a buffered file a small object would seem to be saved.
TEST(Serialize, AFullDiskIsNoticed) {
    EXPECT_THROW_TEXT(Serialize::save("/dev/full", u64{9}), cereal::Exception,
                      "Failed to write 1 bytes to output stream! Wrote 0");
}

TEST(Flag, IsOneByteAndRefusesAllButZeroAndOne) {
    bool flag = true;
    EXPECT_EQ(saved(detail::Flag(flag)), Bytes::frame().u8(1).str());
    detail::Flag field(flag);
    loadFrom(Bytes::frame().u8(0).str(), field);
    EXPECT_FALSE(flag);
    for (const std::uint8_t byte : {2, 3, 128, 255})
        EXPECT_REFUSED(loadFrom(Bytes::frame().u8(byte).str(), field), test::notVerified);
}

TEST(DeviceSpecificArrayArchive, IsACountAndTheRawElements) {
    EXPECT_EQ(saved(arrayOf<u64>({7, 8})), Bytes::frame().u64s({2, 7, 8}).str());
    EXPECT_EQ(saved(arrayOf<int>({-1, 1})), Bytes::frame().u64s({2}).u32(0xffffffff).u32(1).str());
    EXPECT_EQ(saved(arrayOf<std::complex<double>>({{0.5, -2.0}})),
              Bytes::frame().u64s({1}).f64(0.5).f64(-2.0).str());
    EXPECT_EQ(saved(DeviceSpecificArray<u64>()), Bytes::frame().u64s({0}).str());
}

template <class T>
void expectRoundTrip(const std::vector<T>& values) {
    for (const u64 before : {u64{0}, u64{3}, u64{values.size() + 9}}) {
        DeviceSpecificArray<T> loaded(before);
        loadFrom(saved(arrayOf(values)), loaded);
        ASSERT_EQ(valuesOf(loaded), values);
    }
}

TEST(DeviceSpecificArrayArchive, RoundTripsReplaceSizeAndElements) {
    for (const u64 size : {0UL, 1UL, 5UL, 131071UL, 131072UL, 131073UL, 500000UL}) {
        std::vector<u64> words(size);
        for (u64 i = 0; i < size; ++i) words[i] = i * 0x9e3779b97f4a7c15;
        expectRoundTrip(words);
    }
    expectRoundTrip<int>({1, -1, 0});
    expectRoundTrip<std::complex<double>>({{1.0, 2.0}, {-3.0, 0.25}});
}

TEST(DeviceSpecificArrayArchive, LoadingReusesTheAllocation) {
    DeviceSpecificArray<u64> array(10);
    const u64* data = array.getData();
    loadFrom(saved(arrayOf<u64>({1, 2, 3})), array);
    EXPECT_EQ(array.getData(), data);
    EXPECT_EQ(array.size(), 3U);
}

TEST(DeviceSpecificArrayArchive, ScalarsOfTheOtherEndiannessAreSwapped) {
    std::string file("\0\0\0\0\0\0\0\0\1", 9);
    file += std::string("\x3f\xe0\0\0\0\0\0\0", 8) + std::string("\xc0\0\0\0\0\0\0\0", 8);
    DeviceSpecificArray<std::complex<double>> array;
    loadFrom(file, array);
    EXPECT_EQ(valuesOf(array), (std::vector<std::complex<double>>{{0.5, -2.0}}));
}

TEST(DeviceSpecificArrayArchive, AShortReadTellsTheWholeFieldHoweverLong) {
    DeviceSpecificArray<u64> array;
    EXPECT_THROW_TEXT(loadFrom(Bytes::frame().u64s({3, 1}).u8(9).str(), array), cereal::Exception,
                      shortRead(24, 9));
    EXPECT_THROW_TEXT(loadFrom(Bytes::frame().u64s({~u64{0}, 1}).str(), array), cereal::Exception,
                      "Failed to read 147573952589676412920 bytes from input stream! Read 8");
    DeviceSpecificArray<std::complex<double>> slots;
    EXPECT_THROW_TEXT(loadFrom(Bytes::frame().u64s({u64{1} << 60}).str(), slots), cereal::Exception,
                      "Failed to read 18446744073709551616 bytes from input stream! Read 0");
}

TEST(DeviceSpecificArrayArchive, PinnedMemoryHasNoArchive) {
    DeviceSpecificArray<u64> pinned(0, Device{DeviceType::PinnedHost, 0}, getDefaultStream());
    EXPECT_REFUSED(saved(pinned), "Cannot support the function 'save' in the current build configuration");
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({0}).str(), pinned),
                   "Cannot support the function 'load' in the current build configuration");
}

// 3 mebibytes are there, 2^40 words are asked for.
TEST(DeviceSpecificArrayArchive, OfAGPUGoesThroughTheHostWhichFindsNoWay) {
    const Device gpu{DeviceType::GPU, 0};
    DeviceSpecificArray<u64> array(0, gpu, getDefaultStream());
    EXPECT_REFUSED(saved(array), "Not supported. Build with TORVO_CUDA flag.");
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({0}).str(), array),
                   "Not supported. Build with TORVO_CUDA flag.");
    EXPECT_REFUSED(loadFrom(Bytes::frame().u64s({1, 7}).str(), array),
                   "Cannot support the function 'doAllocate' in the current build configuration");
    EXPECT_EQ(array.getDevice(), gpu);
    EXPECT_EQ(array.size(), 0U);
}

TEST(ReadPieces, TakesLittleMoreMemoryThanTheStreamHasBytes) {
    std::istringstream stream(Bytes::frame().str() + std::string(3 << 20, 'x'));
    detail::CountedInputArchive archive(stream);
    std::vector<u64> words;
    const auto grow = [&](u64 size) {
        words.resize(size);
        return words.data();
    };
    EXPECT_THROW_TEXT((detail::readPieces<u64>(archive, u64{1} << 40, grow)), cereal::Exception,
                      shortRead(u64{1} << 43, 3 << 20));
    EXPECT_LE(words.size() * sizeof(u64), u64{7} << 20);
}

TEST(Verifier, HeadsAreHashAndTagInTheirOrder) {
    EXPECT_EQ(test::bytesOf([](std::ostream& stream) {
                  OutputArchive archive(stream);
                  saveHashAndTag(archive, 0x1122, ObjectTag::Plaintext);
                  saveTag(archive, ObjectTag::EvaluationKey);
              }),
              Bytes::frame().u64s({0x1122}).u32(4).u32(1).str());
}

void verifyBytes(const std::string& bytes, u64 hash, ObjectTag tag) {
    std::istringstream stream(bytes);
    detail::CountedInputArchive archive(stream);
    verifyHashAndTag(archive, hash, tag);
}

void verifyTagBytes(const std::string& bytes, ObjectTag tag) {
    std::istringstream stream(bytes);
    detail::CountedInputArchive archive(stream);
    verifyTag(archive, tag);
}

TEST(Verifier, RefusesAnotherHashAndAnotherTag) {
    const std::string head = Bytes::frame().u64s({5}).u32(3).str();
    EXPECT_NO_THROW(verifyBytes(head, 5, ObjectTag::Ciphertext));
    EXPECT_REFUSED(verifyBytes(head, 6, ObjectTag::Ciphertext), test::notVerified);
    EXPECT_REFUSED(verifyBytes(head, 5, ObjectTag::Plaintext), test::notVerified);
    EXPECT_NO_THROW(verifyTagBytes(Bytes::frame().u32(2).str(), ObjectTag::SecretKey));
    EXPECT_REFUSED(verifyTagBytes(Bytes::frame().u32(3).str(), ObjectTag::SecretKey), test::notVerified);
}

// Of another ring, and cut off before the tag: both numbers are read before either is compared.
TEST(Verifier, ReadsTheWholeHeadFirst) {
    EXPECT_THROW_TEXT(verifyBytes(Bytes::frame().u64s({5}).str(), 6, ObjectTag::Ciphertext),
                      cereal::Exception, shortRead(4, 0));
}

/// An object of two forms.
struct TwoForms {
    u64 whole = 0;
    int seed = 0;
    void saveFull(OutputArchive& archive) const { archive(whole); }
    void saveSeed(OutputArchive& archive) const { archive(seed); }
    void loadFull(InputArchive& archive) { archive(whole); }
    void loadSeed(InputArchive& archive) { archive(seed); }
};

TEST(CerealAdaptor, WritesTheOptionThenTheForm) {
    TwoForms object{7, 8};
    EXPECT_EQ(saved(detail::CerealAdaptor(object, 0)), Bytes::frame().u8(0).u32(0).u64s({7}).str());
    EXPECT_EQ(saved(detail::CerealAdaptor(object, 1)), Bytes::frame().u8(0).u32(1).u32(8).str());
}

TEST(CerealAdaptor, ReadsEitherForm) {
    TwoForms object;
    detail::CerealAdaptor adaptor(object);
    loadFrom(Bytes::frame().u8(0).u32(0).u64s({7}).str(), adaptor);
    EXPECT_EQ(object.whole, 7U);
    EXPECT_EQ(object.seed, 0);
    loadFrom(Bytes::frame().u8(0).u32(1).u32(8).str(), adaptor);
    EXPECT_EQ(object.seed, 8);
}

TEST(CerealAdaptor, RefusesOtherOptions) {
    TwoForms object;
    const std::string saveText = "[save SecretKey] Invalid serialize option";
    const std::string loadText = "[load SecretKey] Invalid serialize option";
    detail::CerealAdaptor adaptor(object);
    EXPECT_REFUSED(saved(adaptor), saveText);
    for (const int option : {-1, 2, 256}) {
        EXPECT_REFUSED(saved(detail::CerealAdaptor(object, option)), saveText);
        EXPECT_REFUSED(loadFrom(Bytes::frame().u8(0).u32(static_cast<unsigned>(option)).str(), adaptor),
                       loadText);
    }
    EXPECT_REFUSED(loadFrom(Bytes::frame().u8(1).str(), adaptor), loadText);
    EXPECT_REFUSED(loadFrom(Bytes::frame().u8(7).u32(0).u64s({1}).str(), adaptor), test::notVerified);
}

} // namespace
} // namespace Torvo
