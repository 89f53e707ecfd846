#include "arithmetic/elements/Polynomial.hpp"
#include "context/ContextContent.hpp"
#include "support/BigIntegers.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/Seeded.hpp"

#include <Torvo/EnDecoder.hpp>

#include <cmath>
#include <numbers>
#include <thread>

namespace Torvo {
namespace {

using test::BigInt;
using test::chineseRemainder;
using test::contextOf;
using test::productOf;
using test::Seeded;
using test::slice;
using test::wordResidueOf;

constexpr double unitRoundoff = 0x1p-53;

const Context& fx() {
    return contextOf(ParameterPreset::FX);
}

double logScale(const Context& context, u64 level) {
    return context->scale_factors.log_scale[level];
}

/// Level and rescale counter of an encoding.
struct Target {
    u64 level;
    int counter;
};

std::vector<Target> targets() {
    return {{0, 0}, {1, 0}, {1, 1}, {2, 1}, {5, 0}, {5, 3}, {5, 5}, {12, 0}, {13, 1}, {24, 0}, {24, 2}};
}

/// Coefficient k of the real polynomial of degree below 2n whose values at eta^(5^j), eta = exp(i*pi/(2n)),
/// are the slots: 1/n * Re(sum of z_j * eta^(-5^j * k)), in extended precision.
std::vector<long double> embedded(const Message& message) {
    const u64 n = message.getSize();
    std::vector<long double> coefficients(2 * n);
    for (u64 k = 0; k < 2 * n; ++k) {
        long double sum = 0;
        u64 power = 1;
        for (u64 j = 0; j < n; ++j, power = power * 5 % (4 * n)) {
            const long double angle = std::numbers::pi_v<long double> *
                                      static_cast<long double>(power * k % (4 * n)) /
                                      static_cast<long double>(2 * n);
            sum += message[j].real() * std::cos(angle) + message[j].imag() * std::sin(angle);
        }
        coefficients[k] = sum / static_cast<long double>(n);
    }
    return coefficients;
}

/// How far the transform of n slots of modulus at most 1.5 may be off in any coefficient (or, unscaled, a
/// slot from n coefficients of that modulus, divided by n). Each of the log2(n) stages adds, relative to the
/// 2-norm, at most the rounding of a butterfly and of its root, below 8 units; the unitary transform keeps
/// the 2-norm, which is at most 1.5 * sqrt(n) for the slots, and 1.5 for the scaled coefficients.
double transformError(u64 logSlots) {
    return 1.5 * unitRoundoff * 8 * static_cast<double>(logSlots + 1);
}

/// The primes from `first` to `last`, both included.
std::vector<u64> primesOf(u64 first, u64 last) {
    return slice(getPrimeList(fx()), first, last + 1);
}

/// The integer under coefficient k of a plaintext in coefficient form.
BigInt coefficientOf(const Plaintext& plaintext, u64 k) {
    std::vector<u64> residues;
    for (u64 i = 0; i <= plaintext.getLevel(); ++i) residues.push_back(plaintext.getMxData(i)[k]);
    return chineseRemainder(residues, primesOf(0, plaintext.getLevel()));
}

/// The integer nearest to x / p. There are no ties, p being odd.
BigInt dividedBy(const BigInt& x, u64 p) {
    return (x - test::centredResidueOf(x, p)) / p;
}

/// What rounds away the fraction, halves away from zero.
BigInt rounded(double x) {
    return BigInt(std::trunc(x + std::copysign(0.5, x)));
}

/// A plaintext in coefficient form that holds the integers `values` at its leading coefficients.
Plaintext holding(const std::vector<BigInt>& values, Target target, u64 logSlots) {
    Plaintext plaintext(fx());
    plaintext.setLevel(target.level);
    plaintext.setRescaleCounter(target.counter);
    plaintext.setLogSlots(logSlots);
    plaintext.getMx().setNTT(false);
    for (u64 i = 0; i <= target.level; ++i)
        for (u64 k = 0; k < values.size(); ++k)
            plaintext.getMxData(i)[k] = wordResidueOf(values[k], fx()->primes.getPrime(i));
    return plaintext;
}

Message messageOfSize(u64 size) {
    Message message(u64{0}, {1.0, 0.0});
    message.resize(size);
    return message;
}

// ---- refusals

TEST(EnDecoder, RefusesMessagesInTheOrderOfTheRules) {
    const EnDecoder encoder(fx());
    EXPECT_REFUSED(encoder.encode(Message(), 25, 26), "[encode] Cannot encode a message of size 0");
    EXPECT_REFUSED(encoder.encode(messageOfSize(65), 25, 26),
                   "[encode] The message size should be a power of two");
    EXPECT_REFUSED(encoder.encode(messageOfSize(64), 25, 26),
                   "[encode] The target level is greater than the maximum possible level");
    EXPECT_REFUSED(encoder.encode(messageOfSize(64), 24, 25), "[encode] Message size is too large.");
    EXPECT_REFUSED(encoder.encode(messageOfSize(32), 24, 25),
                   "[encode] The target rescale counter should be less than or equal to the target level.");
}

TEST(EnDecoder, RefusesTheSameWithoutTransform) {
    const EnDecoder encoder(fx());
    EXPECT_REFUSED(encoder.encodeWithoutNTT(Message(), 25, 26), "[encode] Cannot encode a message of size 0");
    EXPECT_REFUSED(encoder.encodeWithoutNTT(messageOfSize(32), 24, 25),
                   "[encode] The target rescale counter should be less than or equal to the target level.");
}

TEST(EnDecoder, RefusesCoefficientsInTheOrderOfTheRules) {
    const EnDecoder encoder(fx());
    const auto coefficients = [](u64 n) { return std::vector<double>(n, std::nan("")); };
    EXPECT_REFUSED(encoder.encodeWithoutNTT(coefficients(65), 25, 26),
                   "[encode] The target level is greater than the maximum possible level");
    EXPECT_REFUSED(encoder.encodeWithoutNTT(coefficients(0), 24, 25),
                   "[encode] Cannot encode a message with a size less than 2");
    EXPECT_REFUSED(encoder.encodeWithoutNTT(coefficients(1), 24, 25),
                   "[encode] Cannot encode a message with a size less than 2");
    EXPECT_REFUSED(encoder.encodeWithoutNTT(coefficients(65), 24, 25),
                   "[encode] The message size should be a power of two");
    EXPECT_REFUSED(encoder.encodeWithoutNTT(coefficients(64), 24, 25),
                   "[encode] The target rescale counter should be less than or equal to the target level.");
}

TEST(EnDecoder, RefusesCountsOfCoefficientsThatHaveNoStride) {
    EXPECT_REFUSED(EnDecoder(fx()).encodeWithoutNTT(std::vector<double>(3, std::nan("")), 1, 0),
                   "[embeddingToN] The degree of polynomial should be divided by the size of message.");
}

TEST(EnDecoder, LeavesNegativeCountersToTheCounter) {
    const EnDecoder encoder(fx());
    const char* refusal = "Rescale counter should be greater than or equal to zero";
    EXPECT_REFUSED(encoder.encode(messageOfSize(32), 24, -1), refusal);
    EXPECT_REFUSED(encoder.encodeWithoutNTT(messageOfSize(32), 0, -1), refusal);
    EXPECT_REFUSED(encoder.encodeWithoutNTT(std::vector<double>(2, std::nan("")), 0, -1), refusal);
}

TEST(EnDecoder, RefusesToDecodeMoreSlotsThanTheRingHas) {
    Plaintext plaintext = EnDecoder(fx()).encode(messageOfSize(1), 0, 0);
    for (const u64 logSlots : {u64{6}, u64{64}, ~u64{0}}) {
        plaintext.setLogSlots(logSlots);
        EXPECT_REFUSED(EnDecoder(fx()).decode(plaintext), "[encode] Message size is too large.");
    }
}

TEST(EnDecoder, RefusesToDecodeWhatOwesMoreRescalesThanItHasLevels) {
    Plaintext plaintext = EnDecoder(fx()).encode(messageOfSize(1), 3, 2);
    plaintext.setLevel(1);
    EXPECT_REFUSED(EnDecoder(fx()).decode(plaintext),
                   "Rescale counter should be less than or equal to the level");
}

// ---- results

TEST(EnDecoder, EncodesAtTheEncryptionLevelUnlessTold) {
    const Plaintext plaintext = EnDecoder(fx()).encode(messageOfSize(4));
    EXPECT_EQ(plaintext.getLevel(), getEncryptionLevel(fx()));
    EXPECT_EQ(plaintext.getRescaleCounter(), 0);
    EXPECT_EQ(plaintext.getLogSlots(), 2U);
    EXPECT_TRUE(plaintext.getMx().isNTT());
    EXPECT_EQ(plaintext.getMx().getData().size(), 13U * 64);
}

TEST(EnDecoder, StampsLevelCounterSlotsAndForm) {
    const std::vector<double> coefficients(8, 1.0);
    for (const auto [level, counter] : targets()) {
        SCOPED_TRACE(testing::Message() << "level=" << level << " counter=" << counter);
        const EnDecoder encoder(fx());
        const Plaintext plaintexts[] = {encoder.encode(messageOfSize(4), level, counter),
                                        encoder.encodeWithoutNTT(messageOfSize(4), level, counter),
                                        encoder.encodeWithoutNTT(coefficients, level, counter)};
        for (const Plaintext& plaintext : plaintexts) {
            EXPECT_EQ(plaintext.getLevel(), level);
            EXPECT_EQ(plaintext.getRescaleCounter(), counter);
            EXPECT_EQ(plaintext.getLogSlots(), 2U);
            EXPECT_EQ(plaintext.getMx().isNTT(), &plaintext == plaintexts);
            EXPECT_EQ(plaintext.getMx().getData().size(), (level + 1) * 64);
        }
    }
}

TEST(EnDecoder, TakesMemoryForTheLevelOnly) {
    for (const u64 level : {0, 3, 24}) {
        const Plaintext plaintext = EnDecoder(fx()).encode(Message(5, 0.5), level);
        EXPECT_EQ(plaintext.getMx().getData().capacity(), (level + 1) * 64);
    }
}

TEST(EnDecoder, CountsHalfTheCoefficientsAsSlots) {
    for (u64 logSize = 1; logSize <= 6; ++logSize) {
        const std::vector<double> coefficients(u64{1} << logSize, 1.0);
        EXPECT_EQ(EnDecoder(fx()).encodeWithoutNTT(coefficients, 0, 0).getLogSlots(), logSize - 1);
    }
}

TEST(EnDecoder, LeavesTheMessageAsItWas) {
    Seeded random(11);
    const Message message = random.message(5), copy = message;
    EnDecoder(fx()).encode(message, 3, 1);
    EXPECT_TRUE(std::equal(message.begin(), message.end(), copy.begin()));
}

// The integer differs from scale * c by at most half for the rounding, the error of the transform, and the
// rounding of the product by the scale and of the added half, each half a unit of a number below
// 1.5 * scale + 1.
TEST(EnDecoder, PutsTheScaledEmbeddingOnTheCoefficients) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const u64 level : {0, 1, 7, 12, 13, 24}) {
            SCOPED_TRACE(testing::Message() << "logSlots=" << logSlots << " level=" << level);
            const Message message = random.message(logSlots);
            const auto expected = embedded(message);
            const u64 gap = 64 / expected.size();
            const Plaintext plaintext = EnDecoder(fx()).encodeWithoutNTT(message, level, 0);
            const double scale = std::pow(2.0, logScale(fx(), level));
            const double bound = 0.5 + scale * (transformError(logSlots) + 4 * unitRoundoff);
            for (u64 k = 0; k < 64; ++k) {
                const BigInt got = coefficientOf(plaintext, k);
                if (k % gap != 0)
                    ASSERT_EQ(got, 0) << "k=" << k;
                else
                    ASSERT_NEAR(
                        static_cast<double>(static_cast<long double>(got) - scale * expected[k / gap]), 0.0,
                        bound)
                        << "k=" << k;
            }
        }
}

TEST(EnDecoder, PutsOneSlotOnTwoCoefficients) {
    const Message message(u64{0}, {3.0, -5.0});
    const Plaintext plaintext = EnDecoder(fx()).encodeWithoutNTT(message, 1, 0);
    const double scale = std::pow(2.0, logScale(fx(), 1));
    for (u64 k = 0; k < 64; ++k) {
        const double expected = k == 0 ? 3.0 * scale : k == 32 ? -5.0 * scale : 0.0;
        EXPECT_EQ(coefficientOf(plaintext, k), rounded(expected)) << "k=" << k;
    }
}

TEST(EnDecoder, RoundsHalvesAwayFromZero) {
    // The scale is no power of two: the quotients are those whose product with it is a half exactly.
    const double scale = std::pow(2.0, logScale(fx(), 1));
    u64 found = 0;
    for (double half = 0.5; half < 64; half += 1.0) {
        const double value = half / scale;
        if (value * scale != half) continue;
        ++found;
        const Plaintext plaintext = EnDecoder(fx()).encodeWithoutNTT(std::vector{value, -value}, 1, 0);
        EXPECT_EQ(coefficientOf(plaintext, 0), BigInt(half + 0.5));
        EXPECT_EQ(coefficientOf(plaintext, 32), BigInt(-half - 0.5));
    }
    EXPECT_GT(found, 10U);
}

TEST(EnDecoder, PutsCoefficientsWhereTheyBelong) {
    Seeded random(13);
    SCOPED_TRACE(random.describe());
    for (u64 size = 2; size <= 64; size *= 2) {
        std::vector<double> values(size);
        for (double& value : values) value = random.real(-100, 100);
        const Plaintext plaintext = EnDecoder(fx()).encodeWithoutNTT(values, 2, 0);
        const double scale = std::pow(2.0, logScale(fx(), 2));
        for (u64 k = 0; k < 64; ++k) {
            const double scaled = k % (64 / size) == 0 ? scale * values[k / (64 / size)] : 0.0;
            ASSERT_EQ(coefficientOf(plaintext, k), rounded(scaled)) << "size=" << size << " k=" << k;
        }
    }
}

TEST(EnDecoder, MultipliesByThePrimesOwed) {
    Seeded random(14);
    SCOPED_TRACE(random.describe());
    const Message message = random.message(5);
    for (const auto [level, counter] : targets()) {
        SCOPED_TRACE(testing::Message() << "level=" << level << " counter=" << counter);
        const u64 settled = level - static_cast<u64>(counter);
        const Plaintext plain = EnDecoder(fx()).encodeWithoutNTT(message, settled, 0);
        const Plaintext owing = EnDecoder(fx()).encodeWithoutNTT(message, level, counter);
        const BigInt owed = productOf(primesOf(settled + 1, level));
        for (u64 k = 0; k < 64; ++k) ASSERT_EQ(coefficientOf(owing, k), coefficientOf(plain, k) * owed);
    }
}

TEST(EnDecoder, EncodesTheTransformOfTheCoefficientForm) {
    Seeded random(15);
    SCOPED_TRACE(random.describe());
    const Message message = random.message(4);
    for (const auto [level, counter] : targets()) {
        const Plaintext coefficients = EnDecoder(fx()).encodeWithoutNTT(message, level, counter);
        Plaintext transformed = EnDecoder(fx()).encode(message, level, counter);
        for (u64 i = 0; i <= level; ++i) {
            fx()->primes[i].getNTT().computeBackward<1>(transformed.getMxData(i));
            EXPECT_TRUE(std::equal(transformed.getMxData(i), transformed.getMxData(i) + 64,
                                   coefficients.getMxData(i)));
        }
    }
}

// ---- decoding

/// The decoding of an integer: one conversion, one product.
double decoded(const BigInt& value, u64 level) {
    const double magnitude = static_cast<double>(static_cast<u128>(abs(value)));
    return (value < 0 ? -magnitude : magnitude) * std::pow(2.0, -logScale(fx(), level));
}

TEST(EnDecoder, DecodesTheIntegersUnderTheRows) {
    Seeded random(16);
    SCOPED_TRACE(random.describe());
    for (const auto [level, counter] : targets())
        for (const bool isNTT : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << "level=" << level << " counter=" << counter << " isNTT=" << isNTT);
            const u64 settled = level - static_cast<u64>(counter);
            const BigInt readable = productOf(primesOf(0, settled == 0 ? 0 : 1));
            const BigInt owed = productOf(primesOf(settled + 1, level));
            std::vector<BigInt> values, expected;
            for (u64 k = 0; k < 64; ++k) {
                const BigInt word = random.word();
                const BigInt value = test::centredResidueOf(word * random.word(), readable);
                // The owed primes, and a small amount that the rescales must round away.
                BigInt scaled = value * owed + (counter > 0 ? random.word() >> 30 : 0);
                values.push_back(scaled);
                for (u64 i = level; i > settled; --i) scaled = dividedBy(scaled, fx()->primes.getPrime(i));
                expected.push_back(scaled);
            }
            Plaintext plaintext = holding(values, {level, counter}, 5);
            if (isNTT) fx()->primes.forwardNTT(plaintext.getMx(), plaintext.getMx());
            const std::vector<double> got = EnDecoder(fx()).decodeWithoutFFT(plaintext);
            ASSERT_EQ(got.size(), 64U);
            for (u64 k = 0; k < 64; ++k) ASSERT_EQ(got[k], decoded(expected[k], settled)) << "k=" << k;
        }
}

TEST(EnDecoder, ReadsTheUpperHalfOfTheModulusAsNegative) {
    for (const u64 level : {0, 1}) {
        const BigInt half = productOf(primesOf(0, level)) / 2;
        const std::vector<BigInt> values = {0, 1, -1, half, -half, half - 1, 1 - half};
        std::vector<BigInt> padded = values;
        padded.resize(64);
        const auto got = EnDecoder(fx()).decodeWithoutFFT(holding(padded, {level, 0}, 5));
        for (u64 k = 0; k < values.size(); ++k) EXPECT_EQ(got[k], decoded(values[k], level)) << "k=" << k;
        EXPECT_FALSE(std::signbit(got[0]));
        EXPECT_GT(got[3], 0.0);
        EXPECT_LT(got[4], 0.0);
    }
}

TEST(EnDecoder, ReadsOneCoefficientInEveryStride) {
    std::vector<BigInt> values(64);
    for (u64 k = 0; k < 64; ++k) values[k] = k + 1;
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
        const u64 count = u64{2} << logSlots;
        const auto got = EnDecoder(fx()).decodeWithoutFFT(holding(values, {2, 0}, logSlots));
        ASSERT_EQ(got.size(), count);
        for (u64 k = 0; k < count; ++k) EXPECT_EQ(got[k], decoded(values[k * (64 / count)], 2));
    }
}

TEST(EnDecoder, ReadsNoMoreThanTwoRows) {
    Seeded random(17);
    Plaintext plaintext = EnDecoder(fx()).encode(random.message(5), 6, 0);
    const auto before = EnDecoder(fx()).decodeWithoutFFT(plaintext);
    for (u64 i = 2; i <= 6; ++i)
        for (u64 k = 0; k < 64; ++k) plaintext.getMxData(i)[k] = random.below(fx()->primes.getPrime(i));
    EXPECT_EQ(EnDecoder(fx()).decodeWithoutFFT(plaintext), before);
}

TEST(EnDecoder, LeavesThePlaintextAsItWas) {
    Seeded random(18);
    const Plaintext plaintext = EnDecoder(fx()).encode(random.message(5), 4, 2);
    const Plaintext copy = plaintext;
    EnDecoder(fx()).decode(plaintext);
    EXPECT_EQ(plaintext.getLevel(), 4U);
    EXPECT_EQ(plaintext.getRescaleCounter(), 2);
    EXPECT_TRUE(plaintext.getMx().isNTT());
    EXPECT_TRUE(std::equal(plaintext.getMxData(0), plaintext.getMxData(5), copy.getMxData(0)));
}

/// A slot is a sum of 2n coefficients times numbers of modulus 1. Each coefficient is off by at most half a
/// unit of the scale for the rounding, by the error of the backward transform, and by a few units for the
/// products and conversions; the forward transform adds its own error, n times the normalised one. The
/// rescales divide a multiple of their primes, so they are exact.
double roundTripError(const Context& context, u64 logSlots, u64 settledLevel) {
    const double n = std::pow(2.0, logSlots);
    const double perCoefficient =
        0.5 * std::pow(2.0, -logScale(context, settledLevel)) + transformError(logSlots) + 6 * unitRoundoff;
    return 2 * n * perCoefficient + n * transformError(logSlots);
}

void expectRoundTrip(const Context& context, const Message& message, Target target) {
    const EnDecoder coder(context);
    const Message got = coder.decode(coder.encode(message, target.level, target.counter));
    ASSERT_EQ(got.getSize(), message.getSize());
    const double bound =
        roundTripError(context, message.getLogSlots(), target.level - static_cast<u64>(target.counter));
    for (u64 j = 0; j < message.getSize(); ++j) ASSERT_LE(std::abs(got[j] - message[j]), bound) << "j=" << j;
}

TEST(EnDecoder, GivesTheMessageBackForEveryNumberOfSlots) {
    Seeded random(19);
    SCOPED_TRACE(random.describe());
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const Target target : targets()) {
            SCOPED_TRACE(testing::Message() << "logSlots=" << logSlots << " level=" << target.level
                                            << " counter=" << target.counter);
            expectRoundTrip(fx(), random.message(logSlots), target);
        }
}

TEST(EnDecoder, GivesTheMessageBackOnARealRing) {
    Seeded random(20);
    SCOPED_TRACE(random.describe());
    const Context& context = contextOf(ParameterPreset::SS7);
    for (const u64 logSlots : {0, 6, 13}) expectRoundTrip(context, random.message(logSlots), {7, 0});
    expectRoundTrip(context, random.message(13), {7, 2});
    expectRoundTrip(context, random.message(13), {0, 0});
}

TEST(EnDecoder, GivesZeroBackExactly) {
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const auto [level, counter] : targets()) {
            const Message zero(logSlots, {0.0, 0.0});
            const Plaintext plaintext = EnDecoder(fx()).encode(zero, level, counter);
            EXPECT_TRUE(plaintext.isZero());
            for (const auto& slot : EnDecoder(fx()).decode(plaintext)) {
                EXPECT_EQ(slot.real(), 0.0);
                EXPECT_EQ(slot.imag(), 0.0);
            }
        }
}

TEST(EnDecoder, GivesCoefficientsBack) {
    Seeded random(21);
    std::vector<double> values(16);
    for (double& value : values) value = random.real(-1, 1);
    for (const auto [level, counter] : targets()) {
        const auto got =
            EnDecoder(fx()).decodeWithoutFFT(EnDecoder(fx()).encodeWithoutNTT(values, level, counter));
        ASSERT_EQ(got.size(), values.size());
        // Half a unit of the scale for the rounding, and two roundings of numbers of at most 1.
        const double unit = std::pow(2.0, -logScale(fx(), level - static_cast<u64>(counter)));
        for (u64 k = 0; k < 16; ++k) EXPECT_NEAR(got[k], values[k], 0.5 * unit + 4 * unitRoundoff);
    }
}

TEST(EnDecoder, DecodesToTheDeviceOfThePlaintext) {
    Seeded random(22);
    const Device other{DeviceType::CPU, 1};
    Plaintext plaintext = EnDecoder(fx()).encode(random.message(5), 3, 1);
    const Message here = EnDecoder(fx()).decode(plaintext);
    plaintext.to(other);
    const Message there = EnDecoder(fx()).decode(plaintext);
    EXPECT_EQ(there.getDevice(), other);
    EXPECT_EQ(plaintext.getDevice(), other);
    EXPECT_TRUE(std::equal(here.begin(), here.end(), there.begin()));
}

TEST(EnDecoder, ServesManyThreads) {
    Seeded random(23);
    const Message message = random.message(5);
    const EnDecoder coder(fx());
    const Plaintext expected = coder.encode(message, 12, 1);
    std::vector<Plaintext> got(4, Plaintext(fx()));
    std::vector<std::thread> threads;
    for (Plaintext& plaintext : got) threads.emplace_back([&] { plaintext = coder.encode(message, 12, 1); });
    for (auto& thread : threads) thread.join();
    for (const Plaintext& plaintext : got)
        EXPECT_TRUE(std::equal(plaintext.getMxData(0), plaintext.getMxData(13), expected.getMxData(0)));
}

} // namespace
} // namespace Torvo
