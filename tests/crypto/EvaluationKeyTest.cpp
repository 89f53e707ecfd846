#include "context/ContextContent.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/Bytes.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/KeyEquation.hpp"

#include <Torvo/EvaluationKey.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <cereal/cereal.hpp>
#include <filesystem>
#include <thread>

namespace Torvo {

namespace {

using namespace test;

const char* const notVerified = "[Verifier::load] Validation failed during deserializing objects.";
const Device secondCpu{DeviceType::CPU, 1};

Context smallContext() {
    static const Context context = makeContext(6, 4, 50, 42, 50, 2);
    return context;
}

/// A key with contents.
std::shared_ptr<EvaluationKey> generatedKey(const Context& context) {
    const KeyGenerator generator(context, SecretKey(context));
    generator.genLeftRotKey(5);
    return generator.getKeyPack().getLeftRotKey(5);
}

std::string dataOf(const Polynomial& poly) {
    const auto& data = poly.getData();
    return {reinterpret_cast<const char*>(data.getData()), data.sizeInBytes()};
}

std::string germOf(const Polynomial& poly) {
    const auto& words = poly.getGerm().value().getWords();
    return {reinterpret_cast<const char*>(words.data()), sizeof words};
}

void appendHeader(Bytes& bytes, const Context& context) {
    const auto primes = getPrimeList(context);
    const u64 numBase = ringOf(context).numBase;
    bytes.u64s({64, numBase, primes.size(), numBase - 1}).u8(1).u8(1).u64s({primes.size()});
    for (const u64 p : primes) bytes.u64s({p});
}

/// A file of `key`, field by field.
std::string expectedFile(const Context& context, const EvaluationKey& key, u64 hash, char type, u64 index) {
    Bytes bytes = Bytes::frame().u32(1).u64s({hash}).u8(static_cast<std::uint8_t>(type)).u64s({index});
    const u64 count = key.getGadgetRank();
    bytes.u64s({count});
    for (u64 j = 0; j < count; ++j) {
        const Polynomial& ax = key.getAxIter(Device{})[j];
        appendHeader(bytes, context);
        if (ax.getGerm())
            bytes.u8(0).raw(germOf(ax));
        else
            bytes.u8(1).u64s({ax.getData().size()}).raw(dataOf(ax));
    }
    bytes.u64s({count});
    for (u64 j = 0; j < count; ++j) {
        const Polynomial& bx = key.getBxIter(Device{})[j];
        appendHeader(bytes, context);
        bytes.u8(1).u64s({bx.getData().size()}).raw(dataOf(bx));
    }
    return bytes.str();
}

std::string fileOf(const EvaluationKey& key) {
    return bytesOf([&](std::ostream& stream) { key.save(stream); });
}

void loadFrom(EvaluationKey& key, const std::string& file) {
    std::istringstream stream(file);
    key.load(stream);
}

void expectSameKey(const EvaluationKey& a, const EvaluationKey& b) {
    EXPECT_EQ(a.getType(), b.getType());
    EXPECT_EQ(a.getRotationIndex(), b.getRotationIndex());
    EXPECT_EQ(a.getContextHash(), b.getContextHash());
    ASSERT_EQ(a.getGadgetRank(), b.getGadgetRank());
    for (u64 j = 0; j < a.getGadgetRank(); ++j) {
        EXPECT_EQ(dataOf(a.getAxIter(Device{})[j]), dataOf(b.getAxIter(Device{})[j]));
        EXPECT_EQ(a.getAxIter(Device{})[j].getGerm(), b.getAxIter(Device{})[j].getGerm());
        EXPECT_EQ(dataOf(a.getBxIter(Device{})[j]), dataOf(b.getBxIter(Device{})[j]));
    }
}

} // namespace

TEST(EvaluationKey, FactoriesFixTagAndIndex) {
    const Context context = smallContext();
    const auto expectKind = [](const EvaluationKey& key, char type, int tag, u64 index) {
        EXPECT_EQ(key.getType(), type);
        EXPECT_EQ(key.getType(), tag);
        EXPECT_EQ(key.getRotationIndex(), index);
    };
    expectKind(*makeEmptyMultKey(context), 'm', 109, 0);
    expectKind(*makeEmptyConjKey(context), 'c', 99, 0);
    expectKind(*makeEmptyRotKey(context, 5), 'r', 114, 5);
    expectKind(*makeEmptyModPackKey(context), 'p', 112, 0);
    expectKind(*makeEmptyRingSwitchKey(context), 'w', 119, 0);
}

TEST(EvaluationKey, ANewKeyHasOnePairPerDigit) {
    for (const Context& context : {smallContext(), contextOf(ParameterPreset::FX)}) {
        const auto key = makeEmptyMultKey(context);
        ASSERT_EQ(key->getGadgetRank(), context->parameter.gadget_rank);
        EXPECT_EQ(key->getContext(), context);
        EXPECT_EQ(key->getContextHash(), context->context_hash);
        for (u64 j = 0; j < key->getGadgetRank(); ++j) {
            for (const Polynomial* poly : {&key->getAxIter(Device{})[j], &key->getBxIter(Device{})[j]}) {
                EXPECT_TRUE(poly->isModUp());
                EXPECT_TRUE(poly->isNTT());
                EXPECT_EQ(poly->getLevel(), ringOf(context).numBase - 1);
                EXPECT_EQ(poly->getData().size(), 64 * ringOf(context).total());
            }
        }
    }
}

TEST(EvaluationKey, AnEmptyKeyHasNoPairs) {
    const EvaluationKey key;
    EXPECT_EQ(key.getGadgetRank(), 0u);
    EXPECT_EQ(key.getType(), 0);
    EXPECT_EQ(key.getRotationIndex(), 0u);
    EXPECT_EQ(key.getContext(), nullptr);
    EXPECT_NO_THROW(key.getAxIter(Device{}));
    EXPECT_NO_THROW(key.getBxIter(Device{}));
}

TEST(EvaluationKey, ADeviceWithoutCopyIsNotFound) {
    const auto key = makeEmptyMultKey(smallContext());
    const EvaluationKey& constKey = *key;
    for (const Device& device : {secondCpu, Device{DeviceType::GPU, 0}}) {
        EXPECT_THROW_TEXT(key->getAxIter(device), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(key->getBxIter(device), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(constKey.getAxIter(device), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(constKey.getBxIter(device), std::out_of_range, "map::at");
    }
    key->removeExcept(secondCpu);
    EXPECT_THROW_TEXT(key->getGadgetRank(), std::out_of_range, "map::at");
}

TEST(EvaluationKey, CopyToCopiesOnceAndKeepsTheOriginal) {
    const auto key = generatedKey(smallContext());
    const Polynomial* original = key->getAxIter(Device{});
    const u64* words = original->getData().getData();
    key->copyTo(Device{});
    EXPECT_EQ(key->getAxIter(Device{}), original);
    EXPECT_EQ(key->getAxIter(Device{})->getData().getData(), words);
    EXPECT_EQ(key->impl().ax.entries().size(), 1u);

    key->copyTo(secondCpu);
    const Polynomial* copy = key->getAxIter(secondCpu);
    for (u64 j = 0; j < key->getGadgetRank(); ++j) {
        EXPECT_EQ(copy[j].getDevice(), secondCpu);
        EXPECT_EQ(dataOf(copy[j]), dataOf(original[j]));
        EXPECT_EQ(dataOf(key->getBxIter(secondCpu)[j]), dataOf(key->getBxIter(Device{})[j]));
    }
    key->copyTo(secondCpu);
    EXPECT_EQ(key->getAxIter(secondCpu), copy);
}

TEST(EvaluationKey, CopyToNeedsAFirstEntryAndABackend) {
    EvaluationKey key;
    key.impl().ax.entries().clear();
    EXPECT_REFUSED(key.copyTo(Device{}), "Value-device map is empty.");
    EXPECT_REFUSED(key.removeExcept(Device{}), "Value-device map is empty.");
    EXPECT_REFUSED(makeEmptyMultKey(smallContext())->copyTo({DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(EvaluationKey, RemoveExceptKeepsOneDevice) {
    const auto key = generatedKey(smallContext());
    const std::string words = dataOf(key->getBxIter(Device{})[1]);
    key->removeExcept(secondCpu);
    EXPECT_EQ(key->impl().ax.entries().size(), 1u);
    EXPECT_EQ(key->impl().bx.entries().size(), 1u);
    EXPECT_EQ(dataOf(key->getBxIter(secondCpu)[1]), words);
}

TEST(EvaluationKey, ManyThreadsMayAskForOneCopy) {
    const auto key = generatedKey(smallContext());
    std::vector<const Polynomial*> found(8);
    std::vector<std::thread> threads;
    for (auto& place : found)
        threads.emplace_back([&] {
            key->copyTo(secondCpu);
            place = key->getAxIter(secondCpu);
        });
    for (auto& thread : threads) thread.join();
    for (const Polynomial* place : found) EXPECT_EQ(place, found.front());
    EXPECT_EQ(dataOf(*found.front()), dataOf(*key->getAxIter(Device{})));
}

TEST(EvaluationKey, FilesHoldTheFieldsInOrder) {
    const Context context = smallContext();
    const auto key = generatedKey(context);
    const std::string withGerms = fileOf(*key);
    EXPECT_EQ(withGerms, expectedFile(context, *key, context->context_hash, 'r', 5));
    EXPECT_EQ(bytesOf([&](std::ostream& stream) { save(*key, stream); }), withGerms);

    for (u64 j = 0; j < key->getGadgetRank(); ++j) key->getAxIter(Device{})[j].disableGerm();
    const std::string whole = fileOf(*key);
    EXPECT_EQ(whole, expectedFile(context, *key, context->context_hash, 'r', 5));
    EXPECT_EQ(whole.size() - withGerms.size(),
              key->getGadgetRank() * (8 + ringOf(context).total() * 64 * 8 - 1024));
}

TEST(EvaluationKey, WhatWasSavedIsLoadedWithAndWithoutContext) {
    const auto key = generatedKey(smallContext());
    EvaluationKey withoutContext;
    loadFrom(withoutContext, fileOf(*key));
    expectSameKey(withoutContext, *key);
    const auto withContext = makeEmptyRotKey(smallContext(), 1);
    loadFrom(*withContext, fileOf(*key));
    expectSameKey(*withContext, *key);
    std::istringstream stream(fileOf(*key));
    EvaluationKey fromFree;
    load(fromFree, stream);
    expectSameKey(fromFree, *key);

    const auto path = std::filesystem::path(testing::TempDir()) / "EvaluationKeyTest.bin";
    key->save(path.string());
    EvaluationKey fromFile;
    fromFile.load(path.string());
    expectSameKey(fromFile, *key);
    std::filesystem::remove(path);
}

TEST(EvaluationKey, HeadFieldsOfAFileAreTakenOverAndTheTagIsVerified) {
    const Context context = smallContext();
    const auto key = generatedKey(context);
    const auto target = makeEmptyRotKey(context, 1);
    loadFrom(*target, expectedFile(context, *key, 42, 'x', 7));
    EXPECT_EQ(target->getContextHash(), 42u);
    EXPECT_EQ(target->getType(), 'x');
    EXPECT_EQ(target->getRotationIndex(), 7u);

    std::string otherTag = fileOf(*key);
    otherTag[1] = 0;
    EXPECT_REFUSED(loadFrom(*target, otherTag), notVerified);
    EvaluationKey withoutContext;
    EXPECT_REFUSED(loadFrom(withoutContext, otherTag), notVerified);
}

TEST(EvaluationKey, FilesOfOtherRingsOrShapesAreRefused) {
    const auto key = generatedKey(smallContext());
    const auto ofOtherRing = makeEmptyMultKey(makeContext(6, 4, 50, 43, 51, 2));
    const auto ofOtherRank = makeEmptyMultKey(makeContext(6, 4, 50, 42, 50, 1));
    EXPECT_REFUSED(loadFrom(*ofOtherRing, fileOf(*key)), notVerified);
    EXPECT_REFUSED(loadFrom(*ofOtherRank, fileOf(*key)), notVerified);

    const auto target = makeEmptyMultKey(smallContext());
    for (const bool inNTT : {true, false}) { // a polynomial in coefficient form; one below the top level
        const auto damaged = generatedKey(smallContext());
        Polynomial& poly = damaged->getBxIter(Device{})[1];
        if (inNTT)
            poly.setLevel(1);
        else
            poly.setNTT(false);
        EXPECT_REFUSED(loadFrom(*target, fileOf(*damaged)), notVerified);
        EvaluationKey withoutContext;
        EXPECT_REFUSED(loadFrom(withoutContext, fileOf(*damaged)), notVerified);
    }
    auto& bx = key->impl().bx.at(Device{});
    bx.pop_back();
    EvaluationKey withoutContext;
    EXPECT_REFUSED(loadFrom(withoutContext, fileOf(*key)), notVerified);
    EXPECT_REFUSED(loadFrom(*target, fileOf(*key)), notVerified);
}

TEST(EvaluationKey, ForgedCountsEndWithoutTakingMemory) {
    for (const u64 count : {u64{1} << 60, ~u64{0}, u64{101}}) {
        const std::string forged = Bytes::frame().u32(1).u64s({0}).u8('m').u64s({0, count, 1, 2, 3}).str();
        EvaluationKey withoutContext;
        const auto withContext = makeEmptyMultKey(smallContext());
        EXPECT_REFUSED(loadFrom(withoutContext, forged), notVerified);
        EXPECT_REFUSED(loadFrom(*withContext, forged), notVerified);
    }
}

TEST(EvaluationKey, ShortFilesFailInTheArchive) {
    const std::string file = fileOf(*generatedKey(smallContext()));
    const auto target = makeEmptyMultKey(smallContext());
    EXPECT_THROW_TEXT(loadFrom(*target, ""), cereal::Exception, shortRead(1, 0));
    for (std::size_t length = 0; length < file.size(); length += 211) {
        EXPECT_THROW(loadFrom(*target, file.substr(0, length)), cereal::Exception) << length;
        EvaluationKey withoutContext;
        EXPECT_THROW(loadFrom(withoutContext, file.substr(0, length)), cereal::Exception) << length;
    }
}

TEST(EvaluationKey, FilesThatDoNotOpenAreNamed) {
    EvaluationKey key;
    const std::string path = "/no/such/directory/key";
    EXPECT_REFUSED(key.load(path), "Cannot open file /no/such/directory/key");
    EXPECT_REFUSED(key.save(path), "Cannot open file /no/such/directory/key");
}

TEST(EvaluationKey, MovesTakeTheKeyAlong) {
    const auto key = generatedKey(smallContext());
    const Polynomial* ax = key->getAxIter(Device{});
    EvaluationKey moved(std::move(*key));
    EXPECT_EQ(moved.getAxIter(Device{}), ax);
    EvaluationKey assigned;
    assigned = std::move(moved);
    EXPECT_EQ(std::as_const(assigned).getAxIter(Device{}), ax);
}

} // namespace Torvo
