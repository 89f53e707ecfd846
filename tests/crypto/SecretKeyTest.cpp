#include <Torvo/SecretKey.hpp>

#include "arithmetic/elements/PolyGerm.hpp"
#include "context/ContextContent.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/SecretKeyImpl.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/Serialize.hpp"
#include "support/Bytes.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/NewThread.hpp"
#include "support/PolynomialBytes.hpp"
#include "support/Sanitizer.hpp"
#include "support/ScriptedEntropy.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace Torvo {
namespace {

using test::Bytes;
using test::smallContext;
using MLWEKey = SecretKeyBase<EncryptionType::MLWE>;

constexpr std::array<unsigned long, 4> pinnedSeed{1, 2, 3, 4};

const std::string notRankOne = "[Secret Key] The number of RLWE secret key must be equal to one.";
const std::string notRLWE = "[load SecretKey] The serialized secret key is not for RLWE encryption.";
const std::string notMLWE = "[load SecretKey] The serialized secret key is not for MLWE encryption.";
const std::string unknownOption = "[load SecretKey] Invalid serialize option";

const Context& toy() {
    static const Context context = makeContext(ParameterPreset::FX);
    return context;
}

/// Four ring elements of degree 64.
const Context& rankFour() {
    static const Context context = makeContext(ParameterPreset::SD3D6R2);
    return context;
}

template <class Key>
std::vector<int> coefficientsOf(const Key& key) {
    const auto& parameter = key.getContext()->parameter;
    return {key.getCoefficients(), key.getCoefficients() + parameter.rank * parameter.degree};
}

template <class Key>
std::string fullFile(const Key& key) {
    return test::bytesOf([&](std::ostream& stream) { key.save(stream); });
}

template <class Key>
std::string seedFile(const Key& key) {
    return test::bytesOf([&](std::ostream& stream) { key.saveSeedOnly(stream); });
}

template <class Key>
Key loaded(const Context& context, const std::string& file) {
    std::istringstream stream(file);
    return Key(context, stream);
}

std::vector<int> alternating(u64 size) {
    std::vector<int> coefficients(size);
    for (u64 i = 0; i < size; ++i) coefficients[i] = static_cast<int>(i % 3) - 1;
    return coefficients;
}

void expectSameData(const Polynomial& a, const Polynomial& b) {
    ASSERT_TRUE(std::equal(a.getData().begin(), a.getData().end(), b.getData().begin(), b.getData().end()));
}

u64 multiply(u64 a, u64 b, u64 p) {
    return static_cast<u64>(static_cast<u128>(a) * b % p);
}

u64 power(u64 base, u64 exponent, u64 p) {
    u64 result = 1;
    for (; exponent != 0; exponent >>= 1, base = multiply(base, base, p))
        if ((exponent & 1) != 0) result = multiply(result, base, p);
    return result;
}

/// An odd power of a primitive 2N-th root of unity: a root of X^N + 1.
u64 rootModulo(u64 p, u64 degree) {
    for (u64 x = 2;; ++x) {
        const u64 root = power(x, (p - 1) / (2 * degree), p);
        if (power(root, degree, p) == p - 1) return root;
    }
}

/// By Horner's rule.
u64 valueAt(u64 point, const std::vector<int>& coefficients, u64 p) {
    u64 value = 0;
    for (u64 k = coefficients.size(); k-- > 0;)
        value = (multiply(value, point, p) + p + static_cast<u64>(coefficients[k])) % p;
    return value;
}

/// Every row of `poly` must hold the values of the coefficients at all roots of X^N + 1, in some order. Which
/// order is a matter of the tests of the transform.
void expectTransformOf(const std::vector<int>& coefficients, const Polynomial& poly) {
    for (u64 i = 0; i < poly.getNumRows(); ++i) {
        const u64 p = poly.getPrimes()[i], root = rootModulo(p, poly.getDegree());
        std::vector<u64> values;
        for (u64 k = 0; k < poly.getDegree(); ++k)
            values.push_back(valueAt(power(root, 2 * k + 1, p), coefficients, p));
        std::vector<u64> row(poly.getRow(i), poly.getRow(i) + poly.getDegree());
        std::sort(values.begin(), values.end());
        std::sort(row.begin(), row.end());
        ASSERT_EQ(row, values) << "row " << i;
    }
}

TEST(SecretKey, HasExactlyTheHammingWeight) {
    for (int i = 0; i < 20; ++i) {
        const auto values = coefficientsOf(SecretKey(toy()));
        EXPECT_EQ(values.size(), 64U);
        EXPECT_EQ(values.size() - std::count(values.begin(), values.end(), 0),
                  toy()->parameter.hamming_weight);
        EXPECT_TRUE(std::all_of(values.begin(), values.end(), [](int v) { return v >= -1 && v <= 1; }));
    }
}

TEST(SecretKey, OfRankFourHasTheWeightOverAllElementsTogether) {
    for (int i = 0; i < 20; ++i) {
        const auto values = coefficientsOf(MLWEKey(rankFour()));
        EXPECT_EQ(values.size(), 256U);
        EXPECT_EQ(values.size() - std::count(values.begin(), values.end(), 0),
                  rankFour()->parameter.hamming_weight);
    }
}

TEST(SecretKey, IsWhatTheSamplerDrawsFromTheStateBefore) {
    setSeed(pinnedSeed);
    const SecretKey key(toy());
    const u64 next = threadGenerator()();
    setSeed(pinnedSeed);
    DeviceSpecificArray<int> expected;
    RandomSampler().sampleHWT(expected, 64, toy()->parameter.hamming_weight);
    EXPECT_EQ(coefficientsOf(key), std::vector<int>(expected.begin(), expected.end()));
    EXPECT_EQ(next, threadGenerator()());
}

TEST(SecretKey, SxIsTheTransformOfTheCoefficientsOnAllRows) {
    const SecretKey key(toy());
    EXPECT_TRUE(key.getSx().isModUp());
    EXPECT_TRUE(key.getSx().isNTT());
    EXPECT_EQ(key.getSx().getNumRows(), getPrimeList(toy()).size());
    expectTransformOf(coefficientsOf(key), key.getSx());
    const MLWEKey vector(rankFour());
    const auto values = coefficientsOf(vector);
    for (u64 i = 0; i < 4; ++i)
        expectTransformOf({values.begin() + 64 * i, values.begin() + 64 * (i + 1)}, vector.getSx(i));
    EXPECT_THROW(vector.getSx(4), std::out_of_range);
}

TEST(SecretKey, OfGivenCoefficientsHoldsThemUncheckedAndUnseeded) {
    const auto coefficients = alternating(64);
    const SecretKey key(toy(), coefficients.data());
    EXPECT_EQ(coefficientsOf(key), coefficients);
    expectTransformOf(coefficients, key.getSx());
    EXPECT_REFUSED(seedFile(key), "The secret key is not randomly generated");
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/key.bin";
    EXPECT_REFUSED(key.saveSeedOnly(path), "The secret key is not randomly generated");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SecretKey, OfRLWERefusesAContextOfHigherRank) {
    const auto coefficients = alternating(256);
    EXPECT_REFUSED(SecretKey{rankFour()}, notRankOne);
    EXPECT_REFUSED(SecretKey(rankFour(), coefficients.data()), notRankOne);
    EXPECT_REFUSED(loaded<SecretKey>(rankFour(), seedFile(MLWEKey(rankFour()))), notRankOne);
    EXPECT_NO_THROW(MLWEKey{toy()});
}

TEST(SecretKey, LivesOnTheCPU) {
    SecretKey key(toy());
    EXPECT_EQ(key.getDevice(), Device{});
    EXPECT_NO_THROW(key.to(Device{}));
    EXPECT_THROW(key.to(Device{DeviceType::GPU, 0}), RuntimeException);
}

TEST(SecretKey, TheFullFileIsThatOfItsTable) {
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    const SecretKey random(smallContext());
    const auto file = [&](const SecretKey& key, bool isRandom, const std::string& rngState) {
        Bytes bytes = Bytes::frame().u8(0).u32(0).u32(1).u64s({smallContext()->context_hash}).u32(2);
        bytes.u8(isRandom ? 1 : 0).u64s({rngState.size()}).raw(rngState).u64s({64});
        for (const int value : coefficientsOf(key)) bytes.u32(static_cast<std::uint32_t>(value));
        bytes.u64s({1}).raw(test::smallPolynomialHead(true, true, 1, true).str()).u64s({3 * 64});
        for (const u64 word : key.getSx().getData()) bytes.u64s({word});
        return bytes.str();
    };
    EXPECT_EQ(fullFile(random), file(random, true, state));
    const SecretKey given(smallContext(), alternating(64).data());
    EXPECT_EQ(fullFile(given), file(given, false, ""));
}

TEST(SecretKey, TheSeedFileIsThatOfItsTable) {
    setSeed(pinnedSeed);
    const std::string state = threadGenerator().getState();
    const SecretKey key(smallContext());
    const std::string file = Bytes::frame().u8(0).u32(1).u32(1).u32(2).u64s({49}).raw(state).str();
    EXPECT_EQ(file.size(), 71U);
    EXPECT_EQ(seedFile(key), file);
    const MLWEKey vector(rankFour());
    EXPECT_EQ(seedFile(vector).substr(0, 10), Bytes::frame().u8(0).u32(1).u32(0).str());
}

template <class Key>
void expectSameKey(const Key& a, const Key& b) {
    EXPECT_EQ(coefficientsOf(a), coefficientsOf(b));
    for (u64 i = 0; i < a.getContext()->parameter.rank; ++i) expectSameData(a.getSx(i), b.getSx(i));
    EXPECT_EQ(fullFile(a), fullFile(b));
}

TEST(SecretKey, BothFormsGiveTheKeyBack) {
    const SecretKey key(toy());
    expectSameKey(loaded<SecretKey>(toy(), fullFile(key)), key);
    expectSameKey(loaded<SecretKey>(toy(), seedFile(key)), key);
    const MLWEKey vector(rankFour());
    expectSameKey(loaded<MLWEKey>(rankFour(), fullFile(vector)), vector);
    expectSameKey(loaded<MLWEKey>(rankFour(), seedFile(vector)), vector);
    const SecretKey given(toy(), alternating(64).data());
    expectSameKey(loaded<SecretKey>(toy(), fullFile(given)), given);
    EXPECT_REFUSED(seedFile(loaded<SecretKey>(toy(), fullFile(given))),
                   "The secret key is not randomly generated");
}

TEST(SecretKey, BothFormsGoThroughFiles) {
    const test::TemporaryDirectory directory;
    const std::string full = directory.path() + "/full.bin", seed = directory.path() + "/seed.bin";
    const SecretKey key(toy());
    key.save(full);
    key.saveSeedOnly(seed);
    EXPECT_EQ(std::filesystem::file_size(seed), 71U);
    expectSameKey(SecretKey(toy(), full), key);
    expectSameKey(SecretKey(toy(), seed), key);
    const std::string absent = directory.path() + "/absent/key.bin";
    EXPECT_REFUSED(key.save(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(key.saveSeedOnly(absent), "Cannot open file " + absent);
    EXPECT_REFUSED(SecretKey(toy(), absent), "Cannot open file " + absent);
}

// The position in the stream matters too: the key was drawn late in a buffer and reaches into the next one.
TEST(SecretKey, ItsFilesAreTheOwnersAlone) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path() + "/key.bin";
    const SecretKey key(toy());
    for (const bool isInFull : {true, false}) {
        std::ofstream(path) << "what others may read";
        std::filesystem::permissions(path, static_cast<std::filesystem::perms>(0666));
        isInFull ? key.save(path) : key.saveSeedOnly(path);
        EXPECT_EQ(std::filesystem::status(path).permissions(), static_cast<std::filesystem::perms>(0600));
        expectSameKey(SecretKey(toy(), path), key);
    }
}

TEST(SecretKey, LoadingTheSeedLeavesTheThreadsStreamUndisturbed) {
    setSeed(pinnedSeed);
    std::vector<u64> words(131072 - 10);
    threadGenerator().getRandomNumbers(words.data(), words.size());
    const SecretKey key(toy());
    const std::string state = threadGenerator().getState();
    const SecretKey again = loaded<SecretKey>(toy(), seedFile(key));
    expectSameKey(again, key);
    EXPECT_EQ(threadGenerator().getState(), state);
    const u64 next = threadGenerator()();
    threadGenerator().setState(state);
    EXPECT_EQ(threadGenerator()(), next);
}

/// What an attacker with the seed file of a key gets out of it, who draws what the thread drew.
template <class Key>
void expectFileTellsNothingElse(const Context& context) {
    const std::string before = threadGenerator().getState();
    const Key a(context);
    const std::string file = seedFile(a);
    const PolyGerm mask;
    const Key b(context);

    const std::string state = file.substr(file.size() - 49);
    EXPECT_NE(state.substr(0, 33), before.substr(0, 33)) << "no seed of what was drawn before";
    test::onNewThread([&] {
        threadGenerator().setState(state);
        EXPECT_EQ(coefficientsOf(Key(context)), coefficientsOf(a)) << "the file is the key";
        const std::string behind = threadGenerator().getState();
        EXPECT_NE(PolyGerm(), mask);
        EXPECT_NE(coefficientsOf(Key(context)), coefficientsOf(b));
        threadGenerator().setState(behind);
        EXPECT_NE(coefficientsOf(Key(context)), coefficientsOf(b));
    });
}

TEST(SecretKey, TheFileTellsNothingOfOtherKeysAndMasks) {
    test::onNewThread([] {
        expectFileTellsNothingElse<SecretKey>(toy());
        expectFileTellsNothingElse<MLWEKey>(rankFour());
    });
}

// The key that fails may have been seen by nobody, but its sampling took a seed, which is used for nothing
// else. A fresh seed at the end shows when the thread draws again.
TEST(SecretKey, ThatCannotBeFinishedTakesItsSeedAlong) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    test::onNewThread([] {
        for (u64 before = 0, failures = 0;; ++before) {
            threadGenerator()();
            const test::ScriptedEntropy entropy({});
            bool hasFailed = false;
            {
                const test::FailingAllocation failing(before, test::FailingAllocation::Thread::Calling);
                try {
                    const SecretKey key(toy());
                } catch (const std::bad_alloc&) {
                    ++failures;
                }
                hasFailed = failing.hasFailed();
            }
            const u64 taken = entropy.callCount();
            threadGenerator()();
            EXPECT_EQ(entropy.callCount(), taken == 0 ? 0U : 2U) << before;
            if (!hasFailed) {
                EXPECT_EQ(taken, 1U);
                EXPECT_GT(failures, 3U);
                return;
            }
        }
    });
}

TEST(SecretKey, IsNotMadeWithoutAFreshSeed) {
    test::onNewThread([] {
        threadGenerator()();
        const std::string state = threadGenerator().getState();
        {
            const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
            EXPECT_THROW(SecretKey{toy()}, RuntimeException);
        }
        EXPECT_EQ(threadGenerator().getState(), state);
    });
}

TEST(SecretKey, LoadingTheSeedWithoutMemoryLeavesTheThreadsStreamUndisturbed) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const SecretKey key(toy());
    const std::string file = seedFile(key);
    for (const bool isSeededBySystem : {true, false}) {
        test::onNewThread([&] {
            if (!isSeededBySystem) setSeed(pinnedSeed);
            const std::string state = threadGenerator().getState();
            for (u64 before = 0, failures = 0;; ++before) {
                bool hasFailed = false;
                std::istringstream stream(file);
                {
                    const test::FailingAllocation failing(before, test::FailingAllocation::Thread::Calling);
                    try {
                        const SecretKey again(toy(), stream);
                    } catch (const std::bad_alloc&) {
                        ++failures;
                    }
                    hasFailed = failing.hasFailed();
                }
                ASSERT_EQ(threadGenerator().getState(), state) << before;
                ASSERT_EQ(threadGenerator().isSeededBySystem(), isSeededBySystem) << before;
                if (!hasFailed) {
                    EXPECT_GT(failures, 3U);
                    return;
                }
            }
        });
    }
}

TEST(SecretKey, ASeedFileIsTakenByAnyContextOfItsType) {
    const SecretKey key(toy());
    const SecretKey other = loaded<SecretKey>(smallContext(), seedFile(key));
    EXPECT_EQ(coefficientsOf(other).size(), 64U);
    const Context wide = makeContext(7, 2, 50, 40, 60, 2);
    const SecretKey wider = loaded<SecretKey>(wide, seedFile(key));
    EXPECT_NE(coefficientsOf(wider), coefficientsOf(key));
    EXPECT_EQ(seedFile(wider), seedFile(key));
}

TEST(SecretKey, AFullFileIsOfItsRingOnly) {
    EXPECT_REFUSED(loaded<SecretKey>(smallContext(), fullFile(SecretKey(toy()))), test::notVerified);
}

// One fault at a time, each with all that come after it.
TEST(SecretKey, LoadingRefusesInOrder) {
    const u64 hash = toy()->context_hash;
    EXPECT_REFUSED(loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(2).u32(0).u64s({0}).u32(9).str()),
                   unknownOption);
    EXPECT_REFUSED(loaded<MLWEKey>(toy(), Bytes::frame().u8(0).u32(7).u32(1).u64s({0}).u32(9).str()),
                   unknownOption);
    for (const std::uint32_t option : {0U, 1U}) {
        EXPECT_REFUSED(
            loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(option).u32(0).u64s({0}).u32(9).str()),
            notRLWE);
        EXPECT_REFUSED(
            loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(option).u32(7).u64s({0}).u32(9).str()),
            notRLWE);
        EXPECT_REFUSED(loaded<MLWEKey>(toy(), Bytes::frame().u8(0).u32(option).u32(1).u64s({0}).u32(9).str()),
                       notMLWE);
    }
    EXPECT_REFUSED(loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(0).u32(1).u64s({hash + 1}).u32(2).str()),
                   test::notVerified);
    EXPECT_REFUSED(loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(0).u32(1).u64s({hash}).u32(3).str()),
                   test::notVerified);
    EXPECT_REFUSED(loaded<SecretKey>(toy(), Bytes::frame().u8(0).u32(1).u32(1).u32(3).str()),
                   test::notVerified);
}

TEST(SecretKey, TheKindsRefuseEachOthersFiles) {
    const SecretKey rlwe(toy());
    const MLWEKey mlwe(toy());
    for (const std::string& file : {fullFile(rlwe), seedFile(rlwe)})
        EXPECT_REFUSED(loaded<MLWEKey>(toy(), file), notMLWE);
    for (const std::string& file : {fullFile(mlwe), seedFile(mlwe)})
        EXPECT_REFUSED(loaded<SecretKey>(toy(), file), notRLWE);
}

TEST(SecretKey, SavingWithAnotherOptionIsRefused) {
    const SecretKeyImpl<EncryptionType::RLWE> key(toy());
    std::ostringstream stream;
    EXPECT_REFUSED(Serialize::save(stream, detail::CerealAdaptor(key, 2)),
                   "[save SecretKey] Invalid serialize option");
}

/// A full file of a given key, but with this many coefficients in front of the ring elements, which are as
/// they should be.
template <class Key>
std::string fileWithCoefficients(const Context& context, u64 count) {
    const u64 size = getRank(context) * getDegree(context);
    const std::string file = fullFile(Key(context, alternating(size).data()));
    // Frame, option, type, hash, tag, flag, an empty state.
    constexpr u64 head = 1 + 1 + 4 + 4 + 8 + 4 + 1 + 8;
    Bytes bytes;
    bytes.raw(file.substr(0, head)).u64s({count});
    for (u64 i = 0; i < count; ++i) bytes.u32(1);
    return bytes.raw(file.substr(head + 8 + 4 * size)).str();
}

template <class Key>
void expectOneNumberOfCoefficients(const Context& context) {
    const u64 size = getRank(context) * getDegree(context);
    EXPECT_NO_THROW(loaded<Key>(context, fileWithCoefficients<Key>(context, size)));
    for (const u64 count : {u64{0}, size / 2, size - 1, size + 1, 2 * size})
        EXPECT_REFUSED(loaded<Key>(context, fileWithCoefficients<Key>(context, count)), test::notVerified);
}

TEST(SecretKey, AFullFileOfMoreOrFewerCoefficientsIsRefused) {
    expectOneNumberOfCoefficients<SecretKey>(toy());
    expectOneNumberOfCoefficients<MLWEKey>(rankFour());
}

TEST(SecretKey, ShortFilesFailAndLeaveTheThreadsStreamUndisturbed) {
    const SecretKey key(smallContext());
    const std::string state = threadGenerator().getState();
    const auto load = [](std::istream& stream) { SecretKey(smallContext(), stream); };
    test::expectShortReads(seedFile(key), load);
    test::expectShortReads(fullFile(key), load);
    EXPECT_EQ(threadGenerator().getState(), state);
}

TEST(SecretKey, DamagedFilesDoNoHarm) {
    const SecretKey key(smallContext());
    const auto load = [](std::istream& stream) { SecretKey(smallContext(), stream); };
    const std::set<std::string> refusals{test::notVerified, unknownOption, notRLWE};
    const std::string full = fullFile(key);
    test::expectNoHarmFromDamage(seedFile(key), 71, load, refusals);
    test::expectNoHarmFromDamage(full, 100, load, refusals);
    // The head of the ring elements.
    const u64 tail = full.size() - 8 * 3 * 64 - 100;
    for (u64 i = tail; i + 8 <= tail + 100; ++i) {
        std::string damaged = full;
        damaged.replace(i, 8, 8, '\xff');
        test::expectTakenOrRefused(damaged, load, refusals);
    }
}

TEST(SecretKey, ACopyIsAKeyOfItsOwn) {
    SecretKey key(toy());
    const std::string file = fullFile(key);
    const SecretKey copy(key);
    EXPECT_NE(copy.getCoefficients(), key.getCoefficients());
    SecretKey assigned(smallContext());
    assigned = key;
    EXPECT_EQ(assigned.getContext(), toy());
    const SecretKey moved(std::move(key));
    EXPECT_EQ(fullFile(copy), file);
    EXPECT_EQ(fullFile(assigned), file);
    EXPECT_EQ(fullFile(moved), file);
    const SecretKey& itself = assigned;
    assigned = itself;
    EXPECT_EQ(fullFile(assigned), file);
}

} // namespace
} // namespace Torvo
