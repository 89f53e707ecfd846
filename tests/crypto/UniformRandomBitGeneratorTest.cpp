#include "crypto/UniformRandomBitGenerator.hpp"

#include "arithmetic/elements/RandomWords.hpp"
#include "persistence/MemoryBuffer.hpp"
#include "support/Bytes.hpp"
#include "support/ChiSquare.hpp"
#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/Sanitizer.hpp"
#include "support/ScriptedEntropy.hpp"

#include <Torvo/Randomseeds.hpp>

#include <cereal/details/helpers.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Torvo {
namespace {

using Seed = std::array<unsigned long, 4>;
using test::Bytes;

constexpr Seed pinnedSeed{0x0123456789abcdef, 0xfedcba9876543210, 0x0f1e2d3c4b5a6978, 0x8796a5b4c3d2e1f0};
constexpr u64 bufferWords = 131072;

/// On the heap, since a generator can neither be copied nor moved.
std::unique_ptr<UniformRandomBitGenerator> generatorOf(const Seed& seed) {
    auto generator = std::make_unique<UniformRandomBitGenerator>();
    generator->setSeed(seed);
    return generator;
}

void skip(UniformRandomBitGenerator& generator, u64 count) {
    std::vector<u64> words(count);
    generator.getRandomNumbers(words.data(), count);
}

std::vector<u64> take(UniformRandomBitGenerator& generator, u64 count) {
    std::vector<u64> words(count);
    for (auto& word : words) word = generator();
    return words;
}

/// First and last word, and the exclusive or of all 131072, of one buffer.
struct KnownBuffer {
    u64 counter, first, second, middle, last, all;
};

// b3sum --keyed -l 1048576 --no-names counter < key, with the 32 bytes of the seed's words in `key` and the 8
// bytes of the number in `counter`, all little-endian; words 0, 1, 65536 and 131071 of its output.
constexpr KnownBuffer knownBuffers[] = {
    {0, 0x765e6ee2f380faae, 0xa19629c1328ef7fb, 0x248798fd1b26d064, 0x6dd7fab8dcdd4652, 0x7a656e01bdd861ba},
    {1, 0x0d7bc9bdcbe7f03c, 0xba737772b3abc345, 0x228893a9b1c780fc, 0x9ea3a501535d96e9, 0x66ce32690bc3cfe1},
};

TEST(UniformRandomBitGenerator, TheStreamAgreesWithTheReferenceProgram) {
    const auto generator = generatorOf(pinnedSeed);
    for (const KnownBuffer& known : knownBuffers) {
        const auto words = take(*generator, bufferWords);
        u64 all = 0;
        for (const u64 word : words) all ^= word;
        EXPECT_EQ(generator->getCounter(), known.counter);
        EXPECT_EQ(words[0], known.first);
        EXPECT_EQ(words[1], known.second);
        EXPECT_EQ(words[65536], known.middle);
        EXPECT_EQ(words.back(), known.last);
        EXPECT_EQ(all, known.all);
    }
}

TEST(UniformRandomBitGenerator, AFreshGeneratorHasSeedWordsOf32BitsAndStandsAtTheBeginning) {
    const auto a = std::make_unique<UniformRandomBitGenerator>();
    const auto b = std::make_unique<UniformRandomBitGenerator>();
    for (const auto word : a->getSeed()) EXPECT_EQ(word >> 32, 0U);
    EXPECT_EQ(a->getCounter(), 0U);
    EXPECT_EQ(a->getIndex(), 0U);
    EXPECT_NE(a->getSeed(), b->getSeed());
    const auto replay = generatorOf(a->getSeed());
    EXPECT_EQ(take(*a, 10), take(*replay, 10));
}

TEST(UniformRandomBitGenerator, AFreshSeedStartsAgainFromTheBeginning) {
    const auto generator = generatorOf(pinnedSeed);
    EXPECT_FALSE(generator->isSeededBySystem());
    skip(*generator, bufferWords + 5);
    generator->takeFreshSeed();
    EXPECT_TRUE(generator->isSeededBySystem());
    for (const auto word : generator->getSeed()) EXPECT_EQ(word >> 32, 0U);
    const Seed seed = generator->getSeed();
    EXPECT_EQ(take(*generator, 10), take(*generatorOf(seed), 10));
    generator->takeFreshSeed();
    EXPECT_NE(generator->getSeed(), seed);
    generator->setSeed(pinnedSeed);
    EXPECT_FALSE(generator->isSeededBySystem());
    EXPECT_EQ((*generator)(), knownBuffers[0].first);
}

TEST(UniformRandomBitGenerator, AFreshSeedThatCannotBeHadChangesNothing) {
    const auto generator = generatorOf(pinnedSeed);
    skip(*generator, 1);
    const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
    EXPECT_THROW(generator->takeFreshSeed(), RuntimeException);
    EXPECT_FALSE(generator->isSeededBySystem());
    EXPECT_EQ((*generator)(), knownBuffers[0].second);
    EXPECT_THROW(UniformRandomBitGenerator(), RuntimeException);
}

// A reference to the generator may be older than that.
TEST(UniformRandomBitGenerator, AForgottenSeedIsReplacedBeforeAnythingIsDrawn) {
    const auto generator = generatorOf(pinnedSeed);
    skip(*generator, 7);
    generator->forgetSeed();
    {
        const test::ScriptedEntropy entropy({.kernelError = ENOSYS});
        EXPECT_THROW((*generator)(), RuntimeException);
        EXPECT_THROW(generator->renewIfStale(), RuntimeException);
    }
    const u64 word = (*generator)();
    const Seed seed = generator->getSeed();
    EXPECT_NE(seed, pinnedSeed);
    EXPECT_NE(seed, Seed{});
    EXPECT_TRUE(generator->isSeededBySystem());
    EXPECT_EQ(generator->getIndex(), 1U);
    EXPECT_EQ(word, (*generatorOf(seed))());
    generator->renewIfStale();
    EXPECT_EQ(generator->getSeed(), seed) << "only once";
}

TEST(UniformRandomBitGenerator, ADrawWithoutMemoryForTheBufferDrawsNothing) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    for (const bool isBulk : {false, true}) {
        UniformRandomBitGenerator generator;
        generator.setSeed(pinnedSeed);
        u64 word = 0;
        {
            const test::FailingAllocation failing(0);
            EXPECT_THROW(isBulk ? generator.getRandomNumbers(&word, 1) : void(generator()), std::bad_alloc);
        }
        EXPECT_EQ(generator.getIndex(), 0U);
        EXPECT_EQ(generator(), knownBuffers[0].first);
    }
}

TEST(UniformRandomBitGenerator, AMadeBufferNeedsNoMemoryEverAfter) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    UniformRandomBitGenerator generator;
    generator.setSeed(pinnedSeed);
    generator.makeBuffer();
    const test::FailingAllocation failing(0);
    for (u64 i = 0; i <= bufferWords; ++i) generator();
    generator.takeFreshSeed();
    generator.setSeed(pinnedSeed);
    EXPECT_EQ(generator(), knownBuffers[0].first);
    EXPECT_FALSE(failing.hasFailed());
}

// Every thread of a program pays for it with its stack.
TEST(UniformRandomBitGenerator, HoldsItsBufferElsewhere) {
    EXPECT_LE(sizeof(UniformRandomBitGenerator), 128U);
}

/// The mappings of this process that it may write, except stacks.
std::vector<std::pair<const u64*, const u64*>> writableMemory() {
    std::vector<std::pair<const u64*, const u64*>> ranges;
    std::ifstream mappings("/proc/self/maps");
    for (std::string line; std::getline(mappings, line);) {
        std::uintptr_t begin = 0, end = 0;
        char dash = 0;
        std::string rights;
        std::istringstream head(line);
        head >> std::hex >> begin >> dash >> end >> rights;
        if (rights.starts_with("rw") && line.find("[stack]") == std::string::npos)
            ranges.emplace_back(reinterpret_cast<const u64*>(begin), reinterpret_cast<const u64*>(end));
    }
    return ranges;
}

/// How often two words stand next to each other in memory. They come masked, so as not to be found here.
u64 occurrences(u64 maskedFirst, u64 maskedSecond, u64 mask) {
    u64 count = 0;
    for (const auto& [begin, end] : writableMemory())
        for (const u64* word = begin; word + 1 < end; ++word)
            if ((word[0] ^ mask) == maskedFirst && (word[1] ^ mask) == maskedSecond) ++count;
    return count;
}

void discard(UniformRandomBitGenerator& generator, u64 count) {
    for (u64 i = 0; i < count; ++i) generator();
}

// The memory is looked through for two words of the last piece, which stand in the buffer and nowhere else.
TEST(UniformRandomBitGenerator, WordsAreWipedWithTheirSeedThoseOfEarlierCountersToo) {
    SKIP_WHERE_CODE_IS_INSTRUMENTED();
    constexpr u64 mask = 0x5a5a5a5a5a5a5a5a;
    u64 first = 0, second = 0;
    {
        UniformRandomBitGenerator generator;
        generator.setSeed({7, 8, 9, 10});
        discard(generator, bufferWords - 100);
        first = generator() ^ mask;
        second = generator() ^ mask;
    }
    EXPECT_EQ(occurrences(first, second, mask), 0U);
    const auto expectWiped = [&](auto&& replaceWords) {
        UniformRandomBitGenerator generator;
        generator.setSeed({7, 8, 9, 10});
        discard(generator, bufferWords);
        EXPECT_EQ(occurrences(first, second, mask), 1U);
        replaceWords(generator);
        EXPECT_EQ(occurrences(first, second, mask), 0U);
    };
    const std::string state = generatorOf(pinnedSeed)->getState();
    expectWiped([](auto& generator) { generator.setSeed(pinnedSeed); });
    expectWiped([](auto& generator) { generator.takeFreshSeed(); });
    expectWiped([](auto& generator) { generator.forgetSeed(); });
    expectWiped([&](auto& generator) { generator.setState(state); });
    expectWiped([](auto& generator) {
        generator(); // the next counter's piece leaves this word where it is
        generator.forgetSeed();
    });
}

TEST(UniformRandomBitGenerator, TheWordAfter131072BeginsTheNextBuffer) {
    const auto generator = generatorOf(pinnedSeed);
    skip(*generator, bufferWords);
    EXPECT_EQ(generator->getCounter(), 0U);
    EXPECT_EQ(generator->getIndex(), bufferWords);
    EXPECT_EQ((*generator)(), knownBuffers[1].first);
    EXPECT_EQ(generator->getCounter(), 1U);
    EXPECT_EQ(generator->getIndex(), 1U);
}

TEST(UniformRandomBitGenerator, BulkDrawsAreTheSameWordsAcrossBuffers) {
    const auto single = generatorOf(pinnedSeed), bulk = generatorOf(pinnedSeed);
    for (const u64 count : {1UL, 7UL, bufferWords - 10, 3UL, 2 * bufferWords + 5, bufferWords}) {
        std::vector<u64> words(count);
        bulk->getRandomNumbers(words.data(), count);
        ASSERT_EQ(words, take(*single, count)) << count;
    }
}

TEST(UniformRandomBitGenerator, ABulkDrawThatEndsWithTheBufferLeavesTheNextOneUnmade) {
    const auto generator = generatorOf(pinnedSeed);
    skip(*generator, bufferWords);
    EXPECT_EQ(generator->getCounter(), 0U);
    skip(*generator, bufferWords);
    EXPECT_EQ(generator->getCounter(), 1U);
    EXPECT_EQ(generator->getIndex(), bufferWords);
}

// Places around the ends of the pieces in which the buffer is filled.
TEST(UniformRandomBitGenerator, WordsDoNotDependOnWhereADrawBegins) {
    constexpr u64 piece = UniformRandomBitGenerator::pieceWords;
    const auto generator = generatorOf(pinnedSeed);
    const auto words = take(*generator, bufferWords + 3 * piece);
    for (const u64 place : {u64{0}, piece - 1, piece, 3 * piece + 5, bufferWords - piece, bufferWords - 1,
                            bufferWords, bufferWords + piece - 1}) {
        const u64 counter = place / bufferWords, index = place % bufferWords;
        generator->setState(Bytes::frame()
                                .u64s({pinnedSeed[0], pinnedSeed[1], pinnedSeed[2], pinnedSeed[3]})
                                .u64s({counter, index})
                                .str());
        const auto begin = words.begin() + static_cast<long>(place);
        EXPECT_EQ(take(*generator, piece + 1), std::vector<u64>(begin, begin + piece + 1)) << place;
    }
}

TEST(UniformRandomBitGenerator, DrawingNoWordsChangesNothing) {
    const auto generator = generatorOf(pinnedSeed);
    skip(*generator, bufferWords);
    generator->getRandomNumbers(nullptr, 0);
    EXPECT_EQ(generator->getCounter(), 0U);
    EXPECT_EQ(generator->getIndex(), bufferWords);
}

TEST(UniformRandomBitGenerator, RefillingKeepsPositionAndWords) {
    const auto generator = generatorOf(pinnedSeed), other = generatorOf(pinnedSeed);
    skip(*generator, 100);
    skip(*other, 100);
    generator->refillBuffer();
    EXPECT_EQ(generator->getIndex(), 100U);
    EXPECT_EQ(take(*generator, 50), take(*other, 50));
}

TEST(UniformRandomBitGenerator, TheStateIsFrameSeedCounterAndIndex) {
    const auto generator = generatorOf({1, 2, 3, 0x1122334455667788});
    skip(*generator, bufferWords + 5);
    const std::string expected = Bytes::frame().u64s({1, 2, 3, 0x1122334455667788, 1, 5}).str();
    ASSERT_EQ(expected.size(), 49U);
    EXPECT_EQ(generator->getState(), expected);
    EXPECT_EQ(test::bytesOf([&](std::ostream& stream) { generator->save(stream); }), expected);
}

TEST(UniformRandomBitGenerator, ALoadedStateGoesOnWhereItWasSaved) {
    const auto generator = generatorOf(pinnedSeed);
    for (const u64 position : {0UL, 1UL, bufferWords - 1, 1UL, bufferWords + 100}) {
        skip(*generator, position);
        const std::string state = generator->getState();
        const auto bySet = std::make_unique<UniformRandomBitGenerator>();
        bySet->setState(state);
        const auto byLoad = std::make_unique<UniformRandomBitGenerator>();
        std::istringstream stream(state);
        byLoad->load(stream);
        const auto next = take(*generator, 3);
        EXPECT_EQ(take(*bySet, 3), next);
        EXPECT_EQ(take(*byLoad, 3), next);
    }
}

TEST(UniformRandomBitGenerator, AStateOfBigEndianWordsIsTheSameState) {
    std::string state(1, '\0');
    for (const u64 word : {pinnedSeed[0], pinnedSeed[1], pinnedSeed[2], pinnedSeed[3], 1UL, 1UL})
        for (int shift = 56; shift >= 0; shift -= 8) state += static_cast<char>(word >> shift & 0xff);
    const auto generator = std::make_unique<UniformRandomBitGenerator>();
    generator->setState(state);
    EXPECT_EQ(generator->getSeed(), pinnedSeed);
    EXPECT_EQ((*generator)(), knownBuffers[1].second);
}

TEST(UniformRandomBitGenerator, AShortStateFailsAndLeavesTheGeneratorAsItWas) {
    const auto generator = generatorOf(pinnedSeed);
    const std::string state = generatorOf({5, 6, 7, 8})->getState();
    EXPECT_THROW_TEXT(generator->setState(""), cereal::Exception, test::shortRead(1, 0));
    EXPECT_THROW_TEXT(generator->setState(state.substr(0, 20)), cereal::Exception, test::shortRead(32, 19));
    EXPECT_THROW_TEXT(generator->setState(state.substr(0, 35)), cereal::Exception, test::shortRead(8, 2));
    for (u64 length = 0; length < state.size(); ++length)
        ASSERT_THROW(generator->setState(state.substr(0, length)), cereal::Exception) << length;
    EXPECT_EQ(generator->getSeed(), pinnedSeed);
    EXPECT_EQ((*generator)(), knownBuffers[0].first);
    UniformRandomBitGenerator bySystem;
    EXPECT_THROW(bySystem.setState(state.substr(0, 48)), cereal::Exception);
    EXPECT_TRUE(bySystem.isSeededBySystem());
    bySystem.setState(state);
    EXPECT_FALSE(bySystem.isSeededBySystem());
}

TEST(UniformRandomBitGenerator, AStateBeyondTheBufferGoesOnWithTheNextOne) {
    const auto generator = std::make_unique<UniformRandomBitGenerator>();
    std::vector<u64> word(1);
    for (const u64 index : {bufferWords, bufferWords + 1, ~0UL}) {
        const std::string state =
            Bytes::frame().u64s({pinnedSeed[0], pinnedSeed[1], pinnedSeed[2], pinnedSeed[3], 0, index}).str();
        generator->setState(state);
        EXPECT_EQ((*generator)(), knownBuffers[1].first);
        generator->setState(state);
        generator->getRandomNumbers(word.data(), 1);
        EXPECT_EQ(word[0], knownBuffers[1].first);
    }
}

TEST(UniformRandomBitGenerator, SavingToAFullStreamFails) {
    const auto generator = generatorOf(pinnedSeed);
    char memory[40];
    detail::MemoryBuffer buffer(memory, sizeof memory);
    std::ostream stream(&buffer);
    EXPECT_THROW_TEXT(generator->save(stream), cereal::Exception,
                      "Failed to write 8 bytes to output stream! Wrote 7");
}

TEST(Randomseeds, TheSeedSetIsTheSeedGot) {
    setSeed(pinnedSeed);
    EXPECT_EQ(getSeed(), pinnedSeed);
    EXPECT_EQ(threadGenerator()(), knownBuffers[0].first);
    u64 word = 0;
    drawRandomWords(&word, 1);
    EXPECT_EQ(word, knownBuffers[0].second);
    setSeed(pinnedSeed);
    EXPECT_EQ(threadGenerator()(), knownBuffers[0].first);
}

TEST(Randomseeds, TwoThreadsOfTheSameSeedDrawTheSameWords) {
    std::array<std::vector<u64>, 2> words;
    {
        std::vector<std::jthread> threads;
        for (auto& drawn : words) {
            threads.emplace_back([&drawn] {
                setSeed(pinnedSeed);
                drawn = take(threadGenerator(), bufferWords + 10);
            });
        }
    }
    EXPECT_EQ(words[0], words[1]);
    EXPECT_EQ(words[0].front(), knownBuffers[0].first);
}

TEST(Randomseeds, EveryThreadHasAGeneratorOfItsOwn) {
    setSeed(pinnedSeed);
    std::array<Seed, 16> seeds;
    std::array<const void*, 16> generators;
    {
        std::vector<std::jthread> threads;
        for (u64 i = 0; i < seeds.size(); ++i) {
            threads.emplace_back([&, i] {
                seeds[i] = getSeed();
                generators[i] = &threadGenerator();
                setSeed({i, i, i, i});
                threadGenerator()();
            });
        }
    }
    EXPECT_EQ(std::set<Seed>(seeds.begin(), seeds.end()).size(), seeds.size());
    for (const void* generator : generators) EXPECT_NE(generator, &threadGenerator());
    EXPECT_EQ(getSeed(), pinnedSeed);
    EXPECT_EQ(threadGenerator().getIndex(), 0U);
}

// 256 equally likely values of each byte of 2^20 words; the seed is fixed, the bound 6 deviations.
TEST(UniformRandomBitGenerator, EveryByteOfTheWordsIsUniform) {
    const auto words = take(*generatorOf(pinnedSeed), u64{1} << 20);
    for (int shift = 0; shift < 64; shift += 8) {
        std::vector<double> counts(256);
        for (const u64 word : words) counts[word >> shift & 0xff] += 1.0;
        EXPECT_LT(std::abs(test::chiSquareDeviation(counts)), 6.0) << shift;
    }
}

} // namespace
} // namespace Torvo
