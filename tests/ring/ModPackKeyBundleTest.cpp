#include "support/KeyEquation.hpp"
#include "support/ObjectFiles.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <stdexcept>

namespace Torvo {

namespace {

using namespace test;

const Device secondCpu{DeviceType::CPU, 1};

/// Two keys, of different numbers.
ModPackKeyBundle numberedBundle() {
    ModPackKeyBundle keys(smallContext(), 2);
    fillWithNumbers(*keys.getModPackKey(0), 10);
    fillWithNumbers(*keys.getModPackKey(1), 20000);
    return keys;
}

std::string numberedFile() {
    return Bytes::frame()
        .raw(smallEvaluationKeyFields('p', 0, 10))
        .raw(smallEvaluationKeyFields('p', 0, 20000))
        .str();
}

} // namespace

TEST(ModPackKeyBundle, ANewOneHoldsAsManyUnsetKeysAsAskedFor) {
    for (const u64 count : {0, 1, 3}) {
        const ModPackKeyBundle keys(smallContext(), count);
        EXPECT_EQ(keys.getContext(), smallContext());
        ASSERT_EQ(keys.getNumKeys(), count);
        std::set<std::shared_ptr<EvaluationKey>> distinct;
        for (u64 k = 0; k < count; ++k) {
            const auto key = keys.getModPackKey(k);
            EXPECT_EQ(key->getContext(), smallContext());
            EXPECT_EQ(key->getType(), 'p');
            EXPECT_EQ(key->getType(), 112);
            EXPECT_EQ(key->getRotationIndex(), 0U);
            EXPECT_EQ(key->getGadgetRank(), 2U);
            distinct.insert(key);
        }
        EXPECT_EQ(distinct.size(), count);
        EXPECT_THROW(keys.getModPackKey(count), std::out_of_range);
        EXPECT_THROW(keys.getModPackKey(~u64{0}), std::out_of_range);
    }
}

TEST(ModPackKeyBundle, CopiesShareTheKeys) {
    const ModPackKeyBundle keys = numberedBundle(), copy = keys;
    EXPECT_EQ(copy.getModPackKey(1), keys.getModPackKey(1));
}

TEST(ModPackKeyBundle, MovesEveryKeyToOneDevice) {
    ModPackKeyBundle keys = numberedBundle();
    keys.to(secondCpu);
    for (const u64 k : {0, 1}) {
        EXPECT_THROW_TEXT(keys.getModPackKey(k)->getAxIter(Device{}), std::out_of_range, "map::at");
        EXPECT_THROW_TEXT(keys.getModPackKey(k)->getBxIter(Device{}), std::out_of_range, "map::at");
    }
    EXPECT_EQ(keys.getModPackKey(1)->getAxIter(secondCpu)->getRow(0)[0], 20000U);
    EXPECT_REFUSED(keys.to({DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(ModPackKeyBundleFile, IsTheKeysInARowBehindOneFrameWithoutACount) {
    ModPackKeyBundle other(smallContext(), 2);
    expectFile(numberedBundle(), numberedFile(), other);
    EXPECT_EQ(other.getModPackKey(1)->getBxIter(Device{})[1].getRow(0)[0], 26000U);
    EXPECT_EQ(saved(ModPackKeyBundle(smallContext(), 0)), Bytes::frame().str());
}

TEST(ModPackKeyBundleFile, IsReadUntilEveryKeyOfTheBundleHasBeenRead) {
    ModPackKeyBundle one(smallContext(), 1), three(smallContext(), 3);
    std::istringstream stream(numberedFile());
    one.load(stream);
    EXPECT_EQ(saved(one), Bytes::frame().raw(smallEvaluationKeyFields('p', 0, 10)).str());
    EXPECT_EQ(static_cast<u64>(stream.tellg()), 1 + smallEvaluationKeyFields('p', 0).size());
    EXPECT_THROW_TEXT(loadFrom(numberedFile(), three), cereal::Exception, shortRead(4, 0));
}

TEST(ModPackKeyBundleFile, OfAnotherTagRingOrLengthIsRefused) {
    ModPackKeyBundle keys(smallContext(), 2);
    const std::string file = numberedFile();
    for (const u64 tagOfKey : {u64{1}, 1 + smallEvaluationKeyFields('p', 0).size()}) {
        std::string damaged = file;
        damaged[tagOfKey] = 3;
        EXPECT_REFUSED(loadFrom(damaged, keys), notVerified);
    }
    const u64 kindOfSecond = 1 + smallEvaluationKeyFields('p', 0).size() + 4 + 8;
    std::string ofOtherKind = file, ofOtherHash = file;
    ofOtherKind[kindOfSecond] = 'w';
    ofOtherHash[kindOfSecond - 1] ^= 1;
    EXPECT_REFUSED(loadFrom(ofOtherKind, keys), notVerified);
    EXPECT_REFUSED(loadFrom(ofOtherHash, keys), notVerified);
    ModPackKeyBundle ofOtherRing(makeContext(7, 2, 50, 40, 60, 2), 2);
    EXPECT_REFUSED(loadFrom(file, ofOtherRing), notVerified);
    for (const u64 length : {u64{0}, u64{1}, file.size() / 2, file.size() - 1})
        EXPECT_THROW(loadFrom(file.substr(0, length), keys), cereal::Exception) << length;
    const auto load = [&](std::istream& stream) { keys.load(stream); };
    expectNoHarmFromDamage(file, 110, load);
}

TEST(ModPackKeyBundleFile, HoldsTheGermsOfGeneratedKeysWhichStillSwitch) {
    const Context ring = familyRing(6, 2);
    const SecretKey out(ring);
    const SecretKeyBase<MLWE> in(familyModule(6, 2, 2));
    const ModPackKeyBundle keys = KeyGenerator(ring).genModPackKeyBundle(in, out);
    ModPackKeyBundle loaded(ring, 2);
    loadFrom(saved(keys), loaded);
    EXPECT_EQ(saved(loaded), saved(keys));
    for (const u64 k : {0, 1}) {
        EXPECT_TRUE(loaded.getModPackKey(k)->getAxIter(Device{})->getGerm().has_value());
        const int* component = in.getCoefficients() + 64 * k;
        expectSwitches(ring, *loaded.getModPackKey(k), coefficientsOf(out, 64), {component, component + 64});
    }
}

} // namespace Torvo
