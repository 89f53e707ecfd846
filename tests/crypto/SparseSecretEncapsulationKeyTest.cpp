#include "arithmetic/elements/Ring.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/Bytes.hpp"
#include "support/Expect.hpp"

#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <gtest/gtest.h>

#include <cereal/cereal.hpp>
#include <filesystem>

namespace Torvo {

namespace {

using namespace test;

const Device secondCpu{DeviceType::CPU, 1};

/// The class asks nothing of its contexts, so two of degree 64 will do: one of a chain, one of a single
/// prime.
struct Pair {
    Context dense = makeContext(6, 4, 50, 42, 50, 2);
    Context sparse = makeContext(6, 1, 50, 42, 51, 1);
};

void fillWithPattern(EvaluationKey& key, u64 start) {
    for (u64 j = 0; j < key.getGadgetRank(); ++j)
        for (Polynomial* poly : {&key.getAxIter(Device{})[j], &key.getBxIter(Device{})[j]})
            for (u64& word : poly->getData()) word = start++;
}

std::string fileOf(const EvaluationKey& key) {
    return bytesOf([&](std::ostream& stream) { key.save(stream); });
}

std::string fileOf(const SparseSecretEncapsulationKey& key) {
    return bytesOf([&](std::ostream& stream) { save(key, stream); });
}

std::unique_ptr<SparseSecretEncapsulationKey> patternedKey(const Pair& contexts) {
    auto key = makeEmptySparseSecretEncapsulationKey(contexts.dense, contexts.sparse);
    fillWithPattern(*key->getDTSPart(), 1);
    fillWithPattern(*key->getSTDPart(), 100000);
    return key;
}

} // namespace

TEST(SparseSecretEncapsulationKey, EachPartBelongsToItsContext) {
    const Pair contexts;
    const SparseSecretEncapsulationKey key(contexts.dense, contexts.sparse);
    EXPECT_EQ(key.getDTSPart()->getContext(), contexts.sparse);
    EXPECT_EQ(key.getSTDPart()->getContext(), contexts.dense);
    for (const EvaluationKey* part : {key.getDTSPart(), key.getSTDPart()}) {
        EXPECT_EQ(part->getType(), 's');
        EXPECT_EQ(part->getType(), 115);
        EXPECT_EQ(part->getRotationIndex(), 0u);
    }
    EXPECT_EQ(key.getDTSPart()->getGadgetRank(), 1u);
    EXPECT_EQ(key.getSTDPart()->getGadgetRank(), 2u);
}

TEST(SparseSecretEncapsulationKey, AFileIsBothPartsInARowBehindOneFrame) {
    const auto key = patternedKey(Pair());
    const std::string file = fileOf(*key);
    EXPECT_EQ(file, fileOf(*key->getDTSPart()) + fileOf(*key->getSTDPart()).substr(1));
    EXPECT_EQ(bytesOf([&](std::ostream& stream) { key->save(stream); }), file);
}

TEST(SparseSecretEncapsulationKey, WhatWasSavedIsLoaded) {
    const Pair contexts;
    const auto key = patternedKey(contexts);
    const auto target = makeEmptySparseSecretEncapsulationKey(contexts.dense, contexts.sparse);
    std::istringstream stream(fileOf(*key));
    load(*target, stream);
    EXPECT_EQ(fileOf(*target), fileOf(*key));

    const auto path = std::filesystem::path(testing::TempDir()) / "SparseSecretEncapsulationKeyTest.bin";
    key->save(path.string());
    SparseSecretEncapsulationKey fromFile(contexts.dense, contexts.sparse);
    fromFile.load(path.string());
    EXPECT_EQ(fileOf(fromFile), fileOf(*key));
    std::filesystem::remove(path);
}

TEST(SparseSecretEncapsulationKey, DamagedFilesFailCleanly) {
    const Pair contexts;
    const auto key = patternedKey(contexts);
    const std::string file = fileOf(*key);
    SparseSecretEncapsulationKey target(contexts.dense, contexts.sparse);
    const auto loadBytes = [&](const std::string& bytes) {
        std::istringstream stream(bytes);
        target.load(stream);
    };
    EXPECT_THROW_TEXT(loadBytes(""), cereal::Exception, shortRead(1, 0));
    EXPECT_THROW(loadBytes(file.substr(0, file.size() - 1)), cereal::Exception);
    SparseSecretEncapsulationKey swapped(contexts.sparse, contexts.dense); // parts of the other's shapes
    std::istringstream stream(file);
    EXPECT_REFUSED(swapped.load(stream), "[Verifier::load] Validation failed during deserializing objects.");
    const u64 kindOfSecond = fileOf(*key->getDTSPart()).size() + 4 + 8;
    for (const u64 kind : {u64{1} + 4 + 8, kindOfSecond}) {
        std::string ofOtherKind = file;
        ASSERT_EQ(ofOtherKind[kind], 's');
        ofOtherKind[kind] = 'm';
        EXPECT_REFUSED(loadBytes(ofOtherKind),
                       "[Verifier::load] Validation failed during deserializing objects.");
    }
    EXPECT_REFUSED(target.save(std::string("/no/such/directory/key")),
                   "Cannot open file /no/such/directory/key");
    EXPECT_REFUSED(target.load(std::string("/no/such/directory/key")),
                   "Cannot open file /no/such/directory/key");
}

TEST(SparseSecretEncapsulationKey, DeviceCallsReachBothParts) {
    const Pair contexts;
    SparseSecretEncapsulationKey key(contexts.dense, contexts.sparse);
    key.copyTo(secondCpu);
    for (EvaluationKey* part : {key.getDTSPart(), key.getSTDPart()}) {
        EXPECT_NO_THROW(part->getAxIter(Device{}));
        EXPECT_NO_THROW(part->getAxIter(secondCpu));
    }
    key.removeExcept(secondCpu);
    for (EvaluationKey* part : {key.getDTSPart(), key.getSTDPart()}) {
        EXPECT_THROW_TEXT(part->getAxIter(Device{}), std::out_of_range, "map::at");
        EXPECT_NO_THROW(part->getBxIter(secondCpu));
    }
}

} // namespace Torvo
