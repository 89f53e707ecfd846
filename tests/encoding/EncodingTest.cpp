#include "encoding/Encoding.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "context/ContextContent.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/Seeded.hpp"

#include <Torvo/EnDecoder.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Torvo {
namespace {

using namespace test;

/// The centred integers of a row in NTT form modulo prime i.
std::vector<long> integersOf(const PrimeModuli& primes, u64 i, const u64* row) {
    std::vector<u64> words(row, row + primes.getDegree());
    primes[i].getNTT().computeBackward<1>(words.data());
    std::vector<long> integers;
    for (const u64 word : words)
        integers.push_back(word > primes.getPrime(i) / 2 ? -static_cast<long>(primes.getPrime(i) - word)
                                                         : static_cast<long>(word));
    return integers;
}

TEST(Encoding, GivesRowsModuloPrimesOutsideTheLevelToo) {
    const Context& context = contextOf(ParameterPreset::FX);
    const PrimeModuli& primes = context->primes;
    Seeded random(61);
    SCOPED_TRACE(random.describe());
    for (const u64 log_slots : {5UL, 2UL}) {
        const Message message = random.message(log_slots, 0x1p-20); // below half of every prime, scaled
        const Plaintext plaintext = EnDecoder(context).encode(message, 3, 0);
        const std::vector<u64> chosen{0, 3, 24, 25, 29};
        std::vector<u64> rows(chosen.size() * 64);
        Encoding(context, message, 3, 0).takeRows(chosen, rows.data());
        EXPECT_TRUE(std::equal(rows.begin(), rows.begin() + 64, plaintext.getMx().getRow(0)));
        EXPECT_TRUE(std::equal(rows.begin() + 64, rows.begin() + 128, plaintext.getMx().getRow(3)));
        const auto integers = integersOf(primes, 0, rows.data());
        for (u64 k = 1; k < chosen.size(); ++k)
            EXPECT_EQ(integersOf(primes, chosen[k], rows.data() + k * 64), integers) << chosen[k];
    }
}

TEST(Encoding, GivesNoRowsOfNumbersOutOfRange) {
    const Context& context = contextOf(ParameterPreset::FX);
    const std::vector<u64> chosen{0};
    std::vector<u64> rows(64, 7);
    const auto take = [&] { Encoding(context, Message(1, 1e300), 3, 0).takeRows(chosen, rows.data()); };
    EXPECT_THROW(take(), RuntimeException);
    EXPECT_EQ(rows, std::vector<u64>(64, 7));
}

} // namespace
} // namespace Torvo
