#include "core/Blake3.hpp"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace Torvo {
namespace {

using utils::BLAKE3Output;

/// The odd multiples of a constant: 1024 bytes without pattern.
std::array<u64, 128> message() {
    std::array<u64, 128> words{};
    for (u64 i = 0; i < words.size(); ++i) words[i] = (i + 1) * 0x9e3779b97f4a7c15;
    return words;
}

std::vector<u64> output(u64 count) {
    const auto in = message();
    std::vector<u64> words(count);
    utils::doBLAKE3Hash(words.data(), count * 8, in.data(), sizeof in);
    return words;
}

// b3sum -l 1048576 --no-names <the 1024 bytes of message()>: words 0 to 3, 65536 and the last.
TEST(Blake3, HashAgreesWithTheReferenceProgram) {
    const auto words = output(0x20000);
    EXPECT_EQ(words[0], 0xc989fa6f9287670c);
    EXPECT_EQ(words[1], 0x2c4b55cb74f099f2);
    EXPECT_EQ(words[2], 0x9639396aacb3cad0);
    EXPECT_EQ(words[3], 0xa0fbb6b34c026b56);
    EXPECT_EQ(words[65536], 0x6b744630ef300639);
    EXPECT_EQ(words.back(), 0xc9602cccc5f8c381);
}

// The standard's own value for the empty input.
TEST(Blake3, HashOfNothingIsTheKnownOne) {
    std::array<std::uint8_t, 8> out{};
    utils::doBLAKE3Hash(out.data(), out.size(), nullptr, 0);
    EXPECT_EQ(out, (std::array<std::uint8_t, 8>{0xaf, 0x13, 0x49, 0xb9, 0xf5, 0xf9, 0xa1, 0xa6}));
}

TEST(Blake3, TheOutputReadInPiecesAtAnyPlaceIsTheOutputAsAWhole) {
    const auto in = message();
    const auto whole = output(512);
    const BLAKE3Output pieces(in.data(), sizeof in);
    for (const u64 first : {0UL, 1UL, 7UL, 8UL, 9UL, 100UL, 500UL}) {
        std::vector<u64> piece(12);
        pieces.read(first * 8, piece.data(), piece.size() * 8);
        for (u64 i = 0; i < piece.size(); ++i) ASSERT_EQ(piece[i], whole[first + i]) << first << "+" << i;
    }
}

TEST(Blake3, AKeyChangesTheOutput) {
    const auto in = message();
    const std::array<u64, 4> key{1, 2, 3, 4}, otherKey{1, 2, 3, 5};
    std::array<u64, 4> a{}, b{}, again{};
    utils::doBLAKE3KeyedHash(a.data(), sizeof a, in.data(), sizeof in, key.data());
    utils::doBLAKE3KeyedHash(b.data(), sizeof b, in.data(), sizeof in, otherKey.data());
    utils::doBLAKE3KeyedHash(again.data(), sizeof again, in.data(), sizeof in, key.data());
    EXPECT_NE(a, b);
    EXPECT_EQ(a, again);
    EXPECT_NE(a[0], output(1)[0]);
}

} // namespace
} // namespace Torvo
