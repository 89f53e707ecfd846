#include "support/KeyEquation.hpp"
#include "support/ObjectFiles.hpp"

#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

namespace Torvo {

namespace {

using namespace test;

const Device secondCpu{DeviceType::CPU, 1};

} // namespace

TEST(RingSwitchKey, ANewOneIsAnUnsetKeyOfItsRing) {
    const RingSwitchKey key(smallContext());
    EXPECT_EQ(key.getContext(), smallContext());
    EXPECT_EQ(key.getKey().getType(), 'w');
    EXPECT_EQ(key.getKey().getType(), 119);
    EXPECT_EQ(key.getKey().getRotationIndex(), 0U);
    EXPECT_EQ(key.getKey().getGadgetRank(), 2U);
}

TEST(RingSwitchKey, CopiesSeeTheSameKey) {
    const RingSwitchKey key(smallContext()), copy = key;
    EXPECT_EQ(&copy.getKey(), &key.getKey());
}

TEST(RingSwitchKey, MovesToOneDevice) {
    RingSwitchKey key(smallContext());
    fillWithNumbers(key.getKey(), 7);
    key.to(secondCpu);
    EXPECT_THROW_TEXT(key.getKey().getAxIter(Device{}), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(key.getKey().getBxIter(Device{}), std::out_of_range, "map::at");
    EXPECT_EQ(key.getKey().getAxIter(secondCpu)->getRow(0)[1], 8U);
    EXPECT_REFUSED(key.to({DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(RingSwitchKeyFile, IsThatOfAnEvaluationKey) {
    RingSwitchKey key(smallContext()), other(smallContext());
    fillWithNumbers(key.getKey(), 300);
    const std::string file = Bytes::frame().raw(smallEvaluationKeyFields('w', 0, 300)).str();
    expectFile(key, file, other);
    EXPECT_EQ(saved(key.getKey()), file);
    expectRobust(file, 110, other);
}

TEST(RingSwitchKeyFile, OfAnotherKindIndexOrRingIsRefused) {
    RingSwitchKey key(smallContext());
    for (const auto& fields : {smallEvaluationKeyFields('r', 5), smallEvaluationKeyFields('p', 0),
                               smallEvaluationKeyFields('w', 5)})
        EXPECT_REFUSED(loadFrom(Bytes::frame().raw(fields).str(), key), notVerified);
    std::string otherHash = Bytes::frame().raw(smallEvaluationKeyFields('w', 0)).str();
    EXPECT_NO_THROW(loadFrom(otherHash, key));
    otherHash[1 + 4] ^= 1;
    EXPECT_REFUSED(loadFrom(otherHash, key), notVerified);
    EXPECT_EQ(key.getKey().getType(), 'w');
    RingSwitchKey ofOtherRing(makeContext(7, 2, 50, 40, 60, 2));
    EXPECT_REFUSED(loadFrom(saved(key), ofOtherRing), notVerified);
}

TEST(RingSwitchKeyFile, HoldsTheGermsOfAGeneratedKeyWhichStillSwitches) {
    const SecretKey s(smallContext()), small(smallContext());
    const RingSwitchKey key = KeyGenerator(smallContext(), s).genComposeKey(small);
    RingSwitchKey loaded(smallContext());
    loadFrom(saved(key), loaded);
    EXPECT_EQ(saved(loaded), saved(key));
    expectSwitches(smallContext(), loaded.getKey(), coefficientsOf(s, 64), coefficientsOf(small, 64));
    const u64 inFull = 1 + smallEvaluationKeyFields('w', 0).size();
    EXPECT_EQ(saved(key).size(), inFull - 2 * (8 + 8 * 192 - 1024));
}

} // namespace Torvo
