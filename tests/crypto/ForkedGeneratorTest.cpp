#include "crypto/UniformRandomBitGenerator.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "support/Contexts.hpp"
#include "support/ForkedChild.hpp"
#include "support/NewThread.hpp"
#include "support/Sanitizer.hpp"
#include "support/ScriptedEntropy.hpp"

#include <Torvo/EnDecoder.hpp>
#include <Torvo/Encryptor.hpp>
#include <Torvo/Randomseeds.hpp>
#include <Torvo/RuntimeException.hpp>
#include <Torvo/SecretKey.hpp>

#include <gtest/gtest.h>

#include <omp.h>

#include <array>
#include <cerrno>
#include <set>
#include <vector>

/// Generators in children of a fork, which have copies of their parent's.
namespace Torvo {
namespace {

using test::inChild;
using Words = std::vector<u64>;

constexpr std::array<unsigned long, 4> pinnedSeed{1, 2, 3, 4};

/// The next words of this thread.
Words nextWords() {
    Words words(4);
    threadGenerator().getRandomNumbers(words.data(), words.size());
    return words;
}

Words seedWords() {
    const auto seed = getSeed();
    return {seed.begin(), seed.end()};
}

/// Runs body() with a generator that has drawn from a seed of the system's, and from one of a caller's.
template <class Body>
void withEitherSeed(Body&& body) {
    for (const bool isSeededBySystem : {true, false}) {
        SCOPED_TRACE(isSeededBySystem ? "seeded by the system" : "seeded by a caller");
        test::onNewThread([&] {
            if (!isSeededBySystem) setSeed(pinnedSeed);
            nextWords();
            body();
        });
    }
}

TEST(ForkedGenerator, ParentChildrenAndGrandchildrenDrawDifferentWords) {
    withEitherSeed([] {
        const std::string state = threadGenerator().getState();
        std::set<Words> seen;
        for (int i = 0; i < 2; ++i) {
            seen.insert(inChild(nextWords));
            seen.insert(inChild([] { return inChild(nextWords); })); // its parent has drawn nothing
        }
        EXPECT_FALSE(seen.contains(Words{}));
        EXPECT_EQ(threadGenerator().getState(), state) << "the parent goes on in its stream";
        seen.insert(nextWords());
        EXPECT_EQ(seen.size(), 5U);
    });
}

TEST(ForkedGenerator, TheSeedOfAChildIsAFreshOneOfTheSystem) {
    withEitherSeed([] {
        const Words parent = seedWords(), first = inChild(seedWords), second = inChild(seedWords);
        EXPECT_NE(first, parent);
        EXPECT_NE(second, parent);
        EXPECT_NE(first, second);
        for (const u64 word : first) EXPECT_EQ(word >> 32, 0U);
        EXPECT_EQ(inChild([] { return Words{threadGenerator().isSeededBySystem()}; }), Words{1});
    });
}

TEST(ForkedGenerator, ASeedSetInTheChildStands) {
    setSeed(pinnedSeed);
    const Words expected = nextWords();
    const auto fromTheSeed = [] {
        setSeed(pinnedSeed);
        return nextWords();
    };
    EXPECT_EQ(inChild(fromTheSeed), expected);
    EXPECT_NE(inChild([&] {
                  fromTheSeed();
                  return inChild([] {
                      setSeed(pinnedSeed);
                      nextWords();
                      return inChild(nextWords);
                  });
              }),
              nextWords())
        << "until the next fork";
}

TEST(ForkedGenerator, AChildThatCannotBeSeededDrawsNothing) {
    setSeed(pinnedSeed);
    const Words got = inChild([] {
        Words refused;
        {
            const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
            for (int i = 0; i < 2; ++i) {
                try {
                    nextWords();
                } catch (const RuntimeException&) {
                    refused.push_back(1);
                }
            }
        }
        for (const u64 word : nextWords()) refused.push_back(word);
        return refused;
    });
    ASSERT_EQ(got.size(), 6U);
    EXPECT_EQ(got[0] + got[1], 2U);
    EXPECT_NE(Words(got.begin() + 2, got.end()), nextWords());
}

TEST(ForkedGenerator, ThreadsOfAChildComeAndGo) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    withEitherSeed([] {
        const Words got = inChild([] {
            Words words;
            for (int i = 0; i < 3; ++i)
                test::onNewThread([&] {
                    for (const u64 word : nextWords()) words.push_back(word);
                });
            for (const u64 word : nextWords()) words.push_back(word);
            return words;
        });
        EXPECT_EQ(std::set<u64>(got.begin(), got.end()).size(), 16U);
    });
}

/// The mask of an encryption of 0 under a secret key, and the coefficients of a new key.
Words encryptAndMakeKey(const SecretKey& key) {
    const Context& context = key.getContext();
    Ciphertext out(context);
    Encryptor(context).encrypt(Message(5, {0.0, 0.0}), key, out);
    const auto& mask = out.getPoly(1).getData();
    Words words(mask.begin(), mask.end());
    const SecretKey another(context);
    for (u64 i = 0; i < 64; ++i) words.push_back(static_cast<u64>(another.getCoefficients()[i] + 1));
    return words;
}

/// Places at which the words are equal.
u64 equalPlaces(const Words& a, const Words& b) {
    EXPECT_EQ(a.size(), b.size());
    u64 count = 0;
    for (u64 i = 0; i < a.size(); ++i) count += a[i] == b[i] ? 1 : 0;
    return count;
}

// Masks are uniform below primes of some 40 bits and more: none of their words is the same by chance. A key
// has 64 more, of three values.
TEST(ForkedGenerator, MasksAndKeysOfParentAndChildrenHaveNothingInCommon) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const Context& context = test::contextOf(ParameterPreset::FX);
    withEitherSeed([&] {
        const SecretKey key(context);
        const Words a = inChild([&] { return encryptAndMakeKey(key); });
        const Words b = inChild([&] { return encryptAndMakeKey(key); });
        const Words parent = encryptAndMakeKey(key);
        for (const auto& [x, y] : {std::pair(a, b), std::pair(a, parent), std::pair(b, parent)})
            EXPECT_LT(equalPlaces(x, y), 64U);
    });
}

// The team of the region is not there any more, so the child cannot leave the region: it computes alone.
TEST(ForkedGenerator, AChildForkedInsideAParallelRegionComputesAlone) {
    SKIP_WHERE_CHILDREN_CANNOT_START_THREADS();
    const SecretKey key(test::contextOf(ParameterPreset::FX));
    Words a, b;
#pragma omp parallel num_threads(2)
#pragma omp master
    {
        a = inChild([&] { return encryptAndMakeKey(key); });
        b = inChild([&] { return encryptAndMakeKey(key); });
    }
    ASSERT_FALSE(a.empty());
    EXPECT_LT(equalPlaces(a, b), 64U);
}

} // namespace
} // namespace Torvo
