#include "encoding/EncodingBound.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "encoding/ConstantEnDecoder.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/NumbersOutOfRange.hpp"
#include "support/Seeded.hpp"

#include <Torvo/EnDecoder.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <limits>

namespace Torvo {
namespace {

using test::BigInt;
using test::contextOf;
using test::expectOutOfRange;
using test::neverEncodable;
using test::nextAbove;
using test::slice;

constexpr double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::nan("");

const Context& fx() {
    return contextOf(ParameterPreset::FX);
}

/// Half the modulus decides at low levels, 2^127 at high ones.
const std::vector<std::pair<u64, int>> targets = {{0, 0}, {1, 0}, {1, 1},  {2, 1},  {5, 5},
                                                  {7, 0}, {7, 4}, {24, 0}, {24, 3}, {24, 24}};

double largestAt(u64 level, int counter) {
    const u64 settled = level - static_cast<u64>(counter);
    return test::largestEncodable(slice(getPrimeList(fx()), 0, settled + 1),
                                  getDefaultScaleFactorList(fx())[settled]);
}

/// The integer that `residues` at `level` are of, once the primes owed are divided out.
BigInt settledInteger(const std::vector<u64>& residues, u64 level, int counter) {
    const u64 settled = level - static_cast<u64>(counter);
    const auto primes = getPrimeList(fx());
    const BigInt whole = test::chineseRemainder(residues, slice(primes, 0, level + 1));
    const BigInt owed = test::productOf(slice(primes, settled + 1, level + 1));
    EXPECT_EQ(whole % owed, 0);
    return whole / owed;
}

std::vector<u64> residuesOf(const Plaintext& plaintext, u64 k) {
    std::vector<u64> residues;
    for (u64 i = 0; i <= plaintext.getLevel(); ++i) residues.push_back(plaintext.getMxData(i)[k]);
    return residues;
}

/// x times the scale, as the encoders round it, cut to an integer.
BigInt scaledInteger(double x, u64 level, int counter) {
    return BigInt(
        std::trunc(x * std::pow(2.0, getDefaultScaleFactorList(fx())[level - static_cast<u64>(counter)])));
}

// ---- the bound

template <class SomeContext>
void expectBound(const SomeContext& context, const std::vector<u64>& primes,
                 const std::vector<double>& scales) {
    for (u64 level = 0; level < scales.size(); ++level)
        for (u64 settled = 0; settled <= level; ++settled) {
            SCOPED_TRACE(testing::Message() << "level=" << level << " settled=" << settled);
            const double expected = test::largestEncodable(slice(primes, 0, settled + 1), scales[settled]);
            const EncodingBound bound(context->primes, context->scale_factors, level,
                                      static_cast<int>(level - settled));
            ASSERT_EQ(bound.largest(), expected);
            EXPECT_TRUE(bound.holds(expected) && bound.holds(-expected));
            EXPECT_FALSE(bound.holds(nextAbove(expected)) || bound.holds(-nextAbove(expected)));
            for (const double x : {0.0, -0.0, DBL_MIN, -DBL_MIN, 0x1p-1074}) EXPECT_TRUE(bound.holds(x));
            for (const double x : neverEncodable()) EXPECT_FALSE(bound.holds(x)) << x;
            auto wrong = neverEncodable();
            wrong.insert(wrong.end(), {nextAbove(expected), -nextAbove(expected)});
            for (const u64 count : {1, 2, 7, 64}) {
                std::vector<double> numbers(count, -expected);
                EXPECT_TRUE(bound.holdsAll(numbers));
                for (const double x : wrong)
                    for (const u64 place : {u64{0}, count / 2, count - 1}) {
                        numbers[place] = x;
                        EXPECT_FALSE(bound.holdsAll(numbers)) << x;
                        numbers[place] = -0.0;
                    }
            }
            EXPECT_TRUE(bound.holdsAll({}));
        }
}

TEST(EncodingBound, IsTheLastDoubleBelowHalfTheModulusAnd127Bits) {
    expectBound(fx(), getPrimeList(fx()), getDefaultScaleFactorList(fx()));
    // Primes of 36 bits, where a double has room for fractions of the limit; and of 61.
    for (const u64 bits : {36, 45, 61}) {
        SCOPED_TRACE(bits);
        const Context ring = makeContext(6, 4, bits, bits, bits, 4);
        expectBound(ring, getPrimeList(ring), getDefaultScaleFactorList(ring));
        const LWE::Context numbers = LWE::makeContext(64, 3, bits, 36);
        expectBound(numbers, LWE::getPrimeList(numbers), LWE::getDefaultScaleFactorList(numbers));
    }
}

/// Scales of long custom chains drift from level to level, at last out of all bounds.
TEST(EncodingBound, IsZeroWhereTheScaleIsNoNumber) {
    const Context context = makeContext(6, 50, 36, 36, 36, 50);
    ASSERT_EQ(std::pow(2.0, getDefaultScaleFactorList(context)[0]), infinity);
    const EncodingBound bound(context->primes, context->scale_factors, 0, 0);
    EXPECT_EQ(bound.largest(), 0.0);
    EXPECT_FALSE(bound.holds(0.0));
    EXPECT_FALSE(bound.holdsAll(std::vector{0.0}));
    expectOutOfRange([&] { EnDecoder(context).encode(Message(0, 0.5), 0, 0); }, "coefficient", 0.5, 0, 0,
                     0.0);
    EXPECT_NO_THROW(EnDecoder(context).encode(Message(0, 0.25), 49, 0));
}

TEST(EncodingBound, TakesEveryNumberWhereTheScaleIsNextToNothing) {
    const Context context = makeContext(6, 50, 36, 36, 37, 50);
    ASSERT_LT(std::pow(2.0, getDefaultScaleFactorList(context)[0]), 0x1p-1000);
    const EncodingBound bound(context->primes, context->scale_factors, 0, 0);
    EXPECT_EQ(bound.largest(), DBL_MAX);
    EXPECT_FALSE(bound.holds(infinity));
    EXPECT_FALSE(bound.holds(notANumber));
}

TEST(EncodingBound, TellsTheNumberAndTheLargestAllowed) {
    EXPECT_REFUSED(EnDecoder(fx()).encode(Message(3, {0.0, notANumber}), 0, 0),
                   "[encode] Cannot encode the number nan at level 0 with rescale counter 0: the magnitude "
                   "should be at most 31907.546165474414. Give a smaller number or a higher level.");
    EXPECT_REFUSED(
        ConstantEnDecoder(fx()).encodeConst(-1e300, 3, 2),
        "[encode] Cannot encode the number -1e+300 at level 3 with rescale counter 2: the magnitude "
        "should be at most " +
            decimal(largestAt(3, 2)) + ". Give a smaller number or a higher level.");
}

TEST(EncodingBound, WritesNumbersThatReadBack) {
    test::Seeded random(71);
    SCOPED_TRACE(random.describe());
    for (int i = 0; i < 1000; ++i) {
        const double x = std::bit_cast<double>(random.word());
        if (!std::isfinite(x)) continue;
        EXPECT_EQ(std::stod(decimal(x)), x);
    }
    EXPECT_EQ(decimal(-0.0), "-0");
    EXPECT_EQ(decimal(DBL_MAX), "1.7976931348623157e+308");
    EXPECT_EQ(decimal(-infinity), "-inf");
}

// ---- the encoders, on both sides of the bound

TEST(EncodingBound, ConstantsAreExactUpToItAndRefusedFromThereOn) {
    const ConstantEnDecoder encoder(fx());
    for (const auto& [level, counter] : targets) {
        SCOPED_TRACE(testing::Message() << "level=" << level << " counter=" << counter);
        const double largest = largestAt(level, counter);
        for (const double x : {largest, -largest, DBL_MIN, -0.0}) {
            const LevelledElement element = encoder.encodeConst(x, level, counter);
            std::vector<u64> residues(element.getData().begin(), element.getData().end());
            EXPECT_EQ(settledInteger(residues, level, counter), scaledInteger(x, level, counter)) << x;
        }
        auto wrong = neverEncodable();
        wrong.insert(wrong.end(), {nextAbove(largest), -nextAbove(largest)});
        for (const double x : wrong)
            expectOutOfRange([&, l = level, r = counter] { encoder.encodeConst(x, l, r); }, "number", x,
                             level, counter, largest);
    }
}

TEST(EncodingBound, CoefficientsAreExactUpToItAndRefusedFromThereOn) {
    const EnDecoder encoder(fx());
    for (const auto& [level, counter] : targets) {
        SCOPED_TRACE(testing::Message() << "level=" << level << " counter=" << counter);
        const double largest = largestAt(level, counter);
        const std::vector<double> good = {largest, 1.0, -largest, -0.0};
        const Plaintext plaintext = encoder.encodeWithoutNTT(good, level, counter);
        for (const u64 k : {0, 2})
            EXPECT_EQ(settledInteger(residuesOf(plaintext, k * 16), level, counter),
                      scaledInteger(good[k], level, counter));
        auto wrong = neverEncodable();
        wrong.insert(wrong.end(), {nextAbove(largest), -nextAbove(largest)});
        for (const double x : wrong)
            for (const u64 place : {0, 1, 3}) {
                std::vector<double> bad = good;
                bad[place] = x;
                expectOutOfRange([&, l = level, r = counter] { encoder.encodeWithoutNTT(bad, l, r); },
                                 "number", x, level, counter, largest);
            }
    }
}

/// A message of one slot is its own two coefficients.
TEST(EncodingBound, MessagesAreExactUpToItAndRefusedFromThereOn) {
    const EnDecoder encoder(fx());
    for (const auto& [level, counter] : targets) {
        SCOPED_TRACE(testing::Message() << "level=" << level << " counter=" << counter);
        const double largest = largestAt(level, counter);
        const Plaintext plaintext = encoder.encodeWithoutNTT(Message(0, {largest, -largest}), level, counter);
        EXPECT_EQ(settledInteger(residuesOf(plaintext, 0), level, counter),
                  scaledInteger(largest, level, counter));
        EXPECT_EQ(settledInteger(residuesOf(plaintext, 32), level, counter),
                  scaledInteger(-largest, level, counter));
        auto wrong = neverEncodable();
        wrong.insert(wrong.end(), {nextAbove(largest), -nextAbove(largest)});
        for (const double x : wrong)
            for (const std::complex<double> slot : {std::complex{x, 0.5}, std::complex{0.5, x}}) {
                const char* what = std::isfinite(x) ? "coefficient" : "number";
                const Message message(0, slot);
                expectOutOfRange([&, l = level, r = counter] { encoder.encode(message, l, r); }, what, x,
                                 level, counter, largest);
                expectOutOfRange([&, l = level, r = counter] { encoder.encodeWithoutNTT(message, l, r); },
                                 what, x, level, counter, largest);
            }
    }
}

TEST(EncodingBound, OneSlotAmongManyIsEnough) {
    const EnDecoder encoder(fx());
    for (const double x : {notANumber, -infinity})
        for (const u64 place : {0, 17, 31}) {
            Message message(5, {0.25, -0.5});
            message[place].imag(x);
            expectOutOfRange([&] { encoder.encode(message, 4, 1); }, "number", x, 4, 1, largestAt(4, 1));
        }
    // The mean of the slots is a coefficient; if their sum overflows, the text names the overflowed value.
    expectOutOfRange([&] { encoder.encode(Message(5, 1e30), 4, 0); }, "coefficient", 1e30, 4, 0,
                     largestAt(4, 0));
    expectOutOfRange([&] { encoder.encode(Message(5, DBL_MAX), 4, 0); }, "coefficient", infinity, 4, 0,
                     largestAt(4, 0));
}

/// What was encoded as noise before: 2^64 at level 0, whose modulus has 58 bits.
TEST(EncodingBound, WhatALevelCannotHoldAHigherOneCan) {
    const EnDecoder encoder(fx());
    const double x = 0x1p20;
    const auto told = test::rangeRefusalOf([&] { encoder.encode(Message(5, x), 0, 0); });
    EXPECT_EQ(told.what, "coefficient") << told.text;
    EXPECT_GT(told.value, told.largest);
    const Message decoded = encoder.decode(encoder.encode(Message(5, x), 1, 0));
    for (const auto slot : decoded) EXPECT_NEAR(std::abs(slot - x), 0, x * 0x1p-35);
}

// ---- the order of the checks

TEST(EncodingBound, IsHeldAgainstNumbersAfterAllOtherRules) {
    const EnDecoder encoder(fx());
    Message message(6, {notANumber, 0.0});
    EXPECT_REFUSED(encoder.encode(message, 25, 26),
                   "[encode] The target level is greater than the maximum possible level");
    EXPECT_REFUSED(encoder.encode(message, 24, 25), "[encode] Message size is too large.");
    message.resize(65);
    EXPECT_REFUSED(encoder.encode(message, 25, 26), "[encode] The message size should be a power of two");
    message.resize(32);
    EXPECT_REFUSED(encoder.encode(message, 24, 25),
                   "[encode] The target rescale counter should be less than or equal to the target level.");
    EXPECT_REFUSED(encoder.encode(message, 24, -1),
                   "Rescale counter should be greater than or equal to zero");
    message.to(Device{DeviceType::CPU, 1});
    EXPECT_REFUSED(
        encoder.encode(message, 24, 0),
        "The generated context does not support the operation with current operands; check the device.");
}

} // namespace
} // namespace Torvo
