#include "arithmetic/kernels/RowLoop.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"
#include "support/RingPhases.hpp"
#include "support/Sanitizer.hpp"
#include "support/SecretsLeftBehind.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>

#include <gtest/gtest.h>

#include <omp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <new>

namespace Torvo {

namespace {

using namespace test;
using enum EncryptionType;

constexpr u64 chainLength = 3;
constexpr RingPacker packer;

const char* const totalDimension =
    "[modPack] Total dimension of encrypting messages of input and output does not match";
const char* const keysDoNotFit =
    "[modPack] Input or output ciphertexts is not compatible to the given modpack keys";
const char* const levelTooHigh = "[modPack] The level of given ciphertext(s) is more than the level of max "
                                 "encryption level of the output ciphertext";
const char* const notOnCoefficients = "The operand have to encode the message on its coefficients";

template <EncryptionType E>
double weightOf(const SecretKeyBase<E>& key) {
    return static_cast<double>(key.getContext()->parameter.hamming_weight);
}

/// A module of rank `rankIn` and degree 2^logIn, packed into one of rank `rankOut` and degree 2^logOut.
template <EncryptionType E>
struct Packing {
    Packing(u64 logIn, u64 rankIn, u64 logOut, u64 rankOut)
        : in(familyModule(logIn, chainLength, rankIn)), out(familyModule(logOut, chainLength, rankOut)),
          keyRing(familyRing(logOut + logOf(rankOut), chainLength)), inKey(in), outKey(out),
          keys(KeyGenerator(keyRing).genModPackKeyBundle(inKey, outKey)) {}

    static u64 logOf(u64 rank) { return static_cast<u64>(__builtin_ctzl(rank)); }

    std::vector<CiphertextBase<MLWE>> random(u64 level, Seeded& seeded) const {
        std::vector<CiphertextBase<MLWE>> ciphertexts;
        for (u64 j = 0; j < getNumCiphertextsToModPack(in, out); ++j)
            ciphertexts.push_back(randomOnCoefficients<MLWE>(in, level, seeded));
        return ciphertexts;
    }
    Phases phasesOf(const std::vector<CiphertextBase<MLWE>>& ciphertexts) const {
        std::vector<Phases> phases;
        for (const auto& ciphertext : ciphertexts) phases.push_back(test::phasesOf(ciphertext, inKey));
        return interleaved(phases);
    }
    double bound(u64 level) const {
        return SwitchNoise(keyRing, weightOf(outKey), static_cast<double>(keys.getNumKeys())).bound(level);
    }

    Context in, out, keyRing;
    SecretKeyBase<MLWE> inKey;
    SecretKeyBase<E> outKey;
    ModPackKeyBundle keys;
};

template <EncryptionType E>
void expectStamp(const CiphertextBase<E>& out, const Context& context, u64 level, int rescaleCounter) {
    EXPECT_EQ(out.getContext(), context);
    EXPECT_EQ(out.getNumPoly(), getRank(context) + 1);
    EXPECT_EQ(out.getLevel(), level);
    EXPECT_EQ(out.getRescaleCounter(), rescaleCounter);
    EXPECT_EQ(out.getLogSlots(), getLogFullSlots(context));
    EXPECT_EQ(out.getEncodingType(), EncodingType::Coefficient);
    EXPECT_FALSE(out.isNTT());
    EXPECT_FALSE(out.isModUp());
}

template <EncryptionType E>
void expectPacks(u64 logIn, u64 rankIn, u64 logOut, u64 rankOut) {
    const Packing<E> packing(logIn, rankIn, logOut, rankOut);
    EXPECT_EQ(packing.keys.getNumKeys(), rankIn / rankOut);
    Seeded seeded(1000 * rankIn + logIn);
    for (u64 level = 0; level < chainLength; ++level) {
        SCOPED_TRACE(testing::Message()
                     << seeded.describe() << ": rank " << rankIn << " degree 2^" << logIn << " to rank "
                     << rankOut << " degree 2^" << logOut << ", level " << level);
        auto in = packing.random(level, seeded);
        for (auto& ciphertext : in) ciphertext.setRescaleCounter(static_cast<int>(level));
        auto out = usedModUp<E>(packing.out);
        packer.modPack(pointersTo(std::as_const(in)), packing.keys, out);
        expectStamp(out, packing.out, level, static_cast<int>(level));
        expectPhases(phasesOf(out, packing.outKey), packing.phasesOf(in), getPrimeList(packing.out),
                     packing.bound(level));
    }
}

} // namespace

TEST(RingPackerModPack, OfModulesIntoARing) {
    expectPacks<RLWE>(6, 2, 6, 1);
    expectPacks<RLWE>(6, 4, 7, 1);
    expectPacks<RLWE>(6, 3, 8, 1);
}

TEST(RingPackerModPack, OfModulesIntoModules) {
    expectPacks<MLWE>(6, 4, 6, 2);
    expectPacks<MLWE>(6, 4, 7, 2);
    expectPacks<MLWE>(6, 8, 6, 4); // the components of each of the two keys are shifted
    expectPacks<MLWE>(6, 4, 6, 4);
}

/// As many keys are multiplied at once as a cache holds, 42 here: the last of a share may be the last of them
/// too, or leave a few over.
TEST(RingPackerModPack, OfAnyNumberOfKeys) {
    const int threads = omp_get_max_threads();
    Seeded seeded(950);
    SCOPED_TRACE(seeded.describe());
    for (const u64 rank : {2, 7, 41, 42, 43, 83, 84, 85}) {
        const Packing<RLWE> packing(6, rank, 8, 1);
        const auto in = packing.random(0, seeded);
        for (const int team : {1, 2}) {
            SCOPED_TRACE(testing::Message() << rank << " keys on " << team << " threads");
            omp_set_num_threads(team);
            Ciphertext out(packing.out);
            packer.modPack(pointersTo(in), packing.keys, out);
            expectPhases(phasesOf(out, packing.outKey), packing.phasesOf(in), getPrimeList(packing.out),
                         packing.bound(0));
        }
    }
    omp_set_num_threads(threads);
}

TEST(RingPackerModPack, MayWriteOverItsInput) {
    const Packing<MLWE> packing(6, 4, 6, 4);
    Seeded seeded(951);
    auto in = packing.random(1, seeded);
    CiphertextBase<MLWE> out(packing.out);
    packer.modPack(pointersTo(std::as_const(in)), packing.keys, out);
    packer.modPack(pointersTo(std::as_const(in)), packing.keys, in[0]);
    EXPECT_TRUE(sameWords(in[0], out));
}

TEST(RingPackerModPack, GivesTheSameWordsWithAnyNumberOfThreadsAndInAParallelRegion) {
    const Packing<MLWE> packing(6, 8, 6, 2);
    Seeded seeded(952);
    const auto in = packing.random(2, seeded);
    const auto pointers = pointersTo(in);
    CiphertextBase<MLWE> expected(packing.out);
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    packer.modPack(pointers, packing.keys, expected);
    for (const int team : {2, 3, 4, 9}) {
        omp_set_num_threads(team);
        CiphertextBase<MLWE> out(packing.out);
        packer.modPack(pointers, packing.keys, out);
        EXPECT_TRUE(sameWords(out, expected)) << team << " threads";
    }
    omp_set_num_threads(threads);
    std::vector<CiphertextBase<MLWE>> nested(4, CiphertextBase<MLWE>(packing.out));
#pragma omp parallel for num_threads(2)
    for (u64 i = 0; i < nested.size(); ++i) packer.modPack(pointers, packing.keys, nested[i]);
    for (const auto& out : nested) EXPECT_TRUE(sameWords(out, expected));
}

TEST(RingPackerModPack, RefusesModulesInItsOrder) {
    const Packing<RLWE> packing(6, 4, 7, 1);
    Seeded seeded(953);
    auto in = packing.random(2, seeded);
    const Context shorter = familyRing(7, 2), largeDegree = familyRing(8, chainLength);
    Ciphertext out(shorter), wrong(largeDegree);
    const auto modPack = [&](Ciphertext& result) {
        packer.modPack(pointersTo(std::as_const(in)), packing.keys, result);
    };
    in[0].setNumPoly(4);
    in[0].setEncodingType(EncodingType::Slot);
    in[1].setLogSlots(1);
    in[1].setRescaleCounter(1);
    in[1].setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(modPack(wrong), totalDimension);
    EXPECT_REFUSED(packer.modPack(std::vector<const CiphertextBase<MLWE>*>{}, packing.keys, out),
                   totalDimension);
    auto ofLargerDegree = in;
    ofLargerDegree[1] = CiphertextBase<MLWE>(familyModule(7, chainLength, 4));
    EXPECT_REFUSED(packer.modPack(pointersTo(std::as_const(ofLargerDegree)), packing.keys, out),
                   totalDimension);
    EXPECT_REFUSED(modPack(out), keysDoNotFit); // three components for four keys
    in[0].setNumPoly(5);
    in[1].setNumPoly(4);
    EXPECT_REFUSED(modPack(out), keysDoNotFit);
    in[1].setNumPoly(5);
    EXPECT_REFUSED(modPack(out), notOnCoefficients);
    in[0].setEncodingType(EncodingType::Coefficient);
    EXPECT_REFUSED(modPack(out), "Two operands have different logSlots");
    in[1].setLogSlots(5);
    EXPECT_REFUSED(modPack(out), "Two operands have different RescaleCounter");
    in[1].setRescaleCounter(0);
    in[1].to({DeviceType::CPU, 1});
    EXPECT_REFUSED(modPack(out), "Two operands are in different devices");
    in[1].to({});
    EXPECT_REFUSED(modPack(out), "Two operands are encoding messages in different way");
    in[1].setEncodingType(EncodingType::Coefficient);
    in[1].setLevel(1);
    EXPECT_REFUSED(modPack(out), levelTooHigh);
    Ciphertext fitting(packing.out);
    EXPECT_REFUSED(modPack(fitting), "Operands have different levels.");
}

TEST(RingPackerModPack, RefusesKeysAndLevelsThatDoNotFit) {
    const Packing<RLWE> packing(6, 4, 7, 1);
    Seeded seeded(954);
    auto in = packing.random(2, seeded);
    const auto pointers = pointersTo(std::as_const(in));
    Ciphertext out(packing.out), shorter(familyRing(7, 2));
    const auto modPack = [&](const ModPackKeyBundle& keys, Ciphertext& result) {
        packer.modPack(pointers, keys, result);
    };
    EXPECT_REFUSED(modPack(ModPackKeyBundle(familyRing(7, chainLength), 3), out), keysDoNotFit);
    EXPECT_REFUSED(modPack(ModPackKeyBundle(familyRing(7, chainLength), 0), out), keysDoNotFit);
    EXPECT_REFUSED(modPack(ModPackKeyBundle(familyRing(8, chainLength), 4), out), keysDoNotFit);
    Ciphertext ofThree(packing.out);
    ofThree.setNumPoly(3);
    EXPECT_REFUSED(modPack(packing.keys, ofThree), keysDoNotFit);
    CiphertextBase<MLWE> ofRankThree(familyModule(7, chainLength, 3)); // 3 does not divide 4
    EXPECT_REFUSED(packer.modPack(pointers, packing.keys, ofRankThree), keysDoNotFit);

    for (auto& ciphertext : in)
        for (auto& poly : ciphertext.getPolys().getPolys()) poly.setNTT(true);
    EXPECT_REFUSED(modPack(packing.keys, shorter), levelTooHigh);
    EXPECT_REFUSED(modPack(ModPackKeyBundle(familyRing(7, 2), 4), out),
                   "The level of input ciphertext does not fit in current context");
    EXPECT_REFUSED(modPack(packing.keys, out), "Polynomials should be of non-NTT form in ring switching.");
    for (auto& ciphertext : in) {
        for (auto& poly : ciphertext.getPolys().getPolys()) poly.setNTT(false);
        ciphertext.setRescaleCounter(2);
        ciphertext.setLevel(1);
    }
    EXPECT_REFUSED(modPack(packing.keys, out), "Rescale counter should be less than or equal to the level");
    for (auto& ciphertext : in) {
        ciphertext.setRescaleCounter(0);
        ciphertext.to({DeviceType::CPU, 1});
    }
    EXPECT_REFUSED(
        modPack(packing.keys, out),
        "The generated context does not support the operation with current operands; check the device.");
}

namespace {

/// Ends the process with status 0 if packing with `bytes` of memory to spare either works or is refused by an
/// exception, with the output as it was.
[[noreturn]] void packWithin(u64 bytes) {
    const Context ring = makeContext(15, 8, 60, 50, 61, 1), module = makeContext(15, 8, 60, 50, 61, 1);
    module->parameter.rank = 4;
    Seeded seeded(958);
    const auto in = randomOnCoefficients<MLWE>(module, 7, seeded);
    const ModPackKeyBundle keys(ring, 4); // of zeros: nobody looks at the result
    Ciphertext out(ring);
    const u64* words = out.getPolyData(0, 0);
    omp_set_num_threads(2);
    forEachIndex(2, [](u64) {}); // wakes the team
    u64 pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * static_cast<u64>(sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit both{limit, limit};
    if (setrlimit(RLIMIT_AS, &both) != 0) std::_Exit(2);
    try {
        packer.modPack(std::vector<const CiphertextBase<MLWE>*>{&in}, keys, out);
    } catch (const std::bad_alloc&) {
        std::_Exit(out.getPolyData(0, 0) == words && out.getEncodingType() == EncodingType::Slot ? 0 : 1);
    }
    std::_Exit(0);
}

} // namespace

TEST(RingPackerModPack, TellsOfAnyAllocationThatFails) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    Seeded seeded(959);
    const Packing<MLWE> packing(6, 4, 6, 2);
    const auto in = packing.random(1, seeded);
    CiphertextBase<MLWE> expected(packing.out), out(packing.out);
    packer.modPack(pointersTo(in), packing.keys, expected);
    expectSafeOnAllThreads([&] { packer.modPack(pointersTo(in), packing.keys, out); },
                           [&](bool isDone) { EXPECT_TRUE(!isDone || sameWords(out, expected)); });
}

TEST(RingPackerModPackRealPreset, TellsWhenMemoryRunsOut) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (u64 mebibytes = 8; mebibytes <= 72; mebibytes += 8)
        EXPECT_EXIT(packWithin(mebibytes << 20), testing::ExitedWithCode(0), "") << mebibytes;
}

// ---- plain LWE

namespace {

/// Plain LWE of dimension 32 packed into a ring of degree 64, with the four primes of `SD3`.
struct NumberPacking {
    LWE::Context in = LWE::makeContext(LWE::ParameterPreset::SD3);
    Context out = smallRingOfSD3();
    LWE::SecretKey inKey{in};
    SecretKey outKey{out};
    ModPackKeyBundle keys = KeyGenerator(out).genModPackKeyBundle(inKey, outKey);

    std::vector<LWE::Ciphertext> random(u64 level, Seeded& seeded) const {
        std::vector<LWE::Ciphertext> numbers;
        for (u64 i = 0; i < getNumCiphertextsToModPack(in, out); ++i)
            numbers.push_back(randomNumber(in, level, seeded));
        return numbers;
    }
};

} // namespace

TEST(RingPackerModPack, OfPlainLWEMakesNumberIThePhaseOfCoefficientI) {
    const NumberPacking packing;
    ASSERT_EQ(packing.keys.getNumKeys(), 32U);
    Seeded seeded(955);
    SCOPED_TRACE(seeded.describe());
    for (u64 level = 0; level < 4; ++level) {
        auto in = packing.random(level, seeded);
        Phases expected(level + 1);
        for (u64 row = 0; row <= level; ++row)
            for (const auto& number : in) expected[row].push_back(numberUnder(number, packing.inKey, row));
        for (auto& number : in) number.setRescaleCounter(static_cast<int>(level));
        Ciphertext out(packing.out);
        packer.modPack(pointersTo(std::as_const(in)), packing.keys, out);
        expectStamp(out, packing.out, level, static_cast<int>(level));
        expectPhases(phasesOf(out, packing.outKey), expected, getPrimeList(packing.out),
                     SwitchNoise(packing.out, weightOf(packing.outKey), 32).bound(level));
    }
}

TEST(RingPackerModPack, RefusesPlainLWEInItsOrder) {
    const NumberPacking packing;
    Seeded seeded(956);
    auto in = packing.random(3, seeded);
    Ciphertext out(packing.out), ofOneLevel(familyRing(6, 1));
    const auto modPack = [&](u64 count, const ModPackKeyBundle& keys, Ciphertext& result) {
        auto pointers = pointersTo(std::as_const(in));
        pointers.resize(count);
        packer.modPack(pointers, keys, result);
    };
    in[1] = LWE::Ciphertext(LWE::makeContext(LWE::ParameterPreset::FGbD12L0)); // of another dimension
    in[0].setRescaleCounter(1);
    for (const u64 count : {63, 1, 0})
        EXPECT_REFUSED(modPack(count, ModPackKeyBundle(packing.out, 31), ofOneLevel), totalDimension);
    EXPECT_REFUSED(modPack(64, packing.keys, ofOneLevel), keysDoNotFit);
    in[1] = randomNumber(packing.in, 2, seeded);
    EXPECT_REFUSED(modPack(64, ModPackKeyBundle(packing.out, 31), ofOneLevel), keysDoNotFit);
    EXPECT_REFUSED(modPack(64, ModPackKeyBundle(packing.out, 0), ofOneLevel), keysDoNotFit);
    EXPECT_REFUSED(modPack(64, packing.keys, ofOneLevel), "Two operands have different RescaleCounter");
    in[0].setRescaleCounter(0);
    in[2].to({DeviceType::CPU, 1});
    EXPECT_REFUSED(modPack(64, packing.keys, ofOneLevel), "Two operands are in different devices");
    in[2].to({});
    EXPECT_REFUSED(modPack(64, packing.keys, ofOneLevel), levelTooHigh);
    EXPECT_REFUSED(modPack(64, packing.keys, out), "Operands have different levels.");
    in[1] = in[0];
    EXPECT_NO_THROW(modPack(64, packing.keys, out));
}

TEST(RingPackerModPack, RefusesPlainLWEOfARankThatTheOutputsDoesNotDivide) {
    const NumberPacking packing; // dimension 32, and an output of rank 64
    Seeded seeded(957);
    const auto in = packing.random(0, seeded);
    CiphertextBase<MLWE> out(makeContext(ParameterPreset::FGbD6R6L0));
    EXPECT_REFUSED(packer.modPack(pointersTo(in), packing.keys, out), keysDoNotFit);
}

} // namespace Torvo
