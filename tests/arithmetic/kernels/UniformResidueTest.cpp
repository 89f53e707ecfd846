#include "arithmetic/kernels/UniformResidue.hpp"

#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace Torvo {
namespace {

const std::vector<u64> bounds{1,
                              2,
                              3,
                              64,
                              97,
                              192,
                              (u64{1} << 32) + 15,
                              1152921504606846883,
                              3689348814741910325,
                              (u64{1} << 62) - 57,
                              u64{1} << 63,
                              (u64{1} << 63) + 1,
                              ~u64{0}};

u64 biasOf(u64 bound) {
    return static_cast<u64>((static_cast<u128>(1) << 64) % bound);
}

/// Must not be called: the word must not be rejected.
u64 noMore() {
    ADD_FAILURE() << "a word was rejected";
    return ~u64{0};
}

TEST(UniformResidue, IsTheRemainderOfEveryAcceptedWord) {
    test::Seeded random(20);
    SCOPED_TRACE(random.describe());
    for (const u64 bound : bounds) {
        const UniformResidue residue(bound);
        std::vector<u64> words{biasOf(bound), biasOf(bound) + 1, ~u64{0}, ~u64{0} - 1, ~u64{0} - bound + 1};
        const u64 last = ~u64{0} / bound * bound;
        for (const u64 word : {last, last - 1, last - bound, last / 2}) words.push_back(word);
        for (int i = 0; i < 1000; ++i) words.push_back(random.word());
        for (const u64 word : words) {
            if (word < biasOf(bound)) continue;
            ASSERT_EQ(residue(word, noMore), word % bound) << word << " mod " << bound;
        }
    }
}

TEST(UniformResidue, RejectsWordsBelowTheBiasUntilOneIsNot) {
    for (const u64 bound : bounds) {
        const u64 bias = biasOf(bound);
        if (bias == 0) continue;
        const UniformResidue residue(bound);
        std::vector<u64> next{bias, 0, bias - 1};
        const auto draw = [&] {
            const u64 word = next.back();
            next.pop_back();
            return word;
        };
        EXPECT_EQ(residue(bias - 1, draw), bias % bound) << bound;
        EXPECT_TRUE(next.empty()) << bound;
    }
}

// The 2^64 words without the rejected ones are a whole number of periods.
TEST(UniformResidue, ABoundThatDividesTheWordsRejectsNone) {
    for (const u64 bound : {1UL, 2UL, 64UL, 1UL << 63}) EXPECT_EQ(UniformResidue(bound)(0, noMore), 0U);
}

} // namespace
} // namespace Torvo
