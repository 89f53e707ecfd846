#include <Torvo/LWEEncryptor.hpp>

#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/NumbersOutOfRange.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Encryptor.hpp>
#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/Randomseeds.hpp>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <omp.h>
#include <sstream>

namespace Torvo::LWE {
namespace {

using test::BigInt;
using test::sameWords;
using test::smallLWEContext;

const Context& contextOf(ParameterPreset preset) {
    static std::map<ParameterPreset, Context> made;
    Context& context = made[preset];
    if (context == nullptr) context = makeContext(preset);
    return context;
}

std::vector<Context> everyContext() {
    using enum ParameterPreset;
    return {contextOf(SS7), contextOf(SD3), contextOf(FGbD12L0), smallLWEContext()};
}

/// The error cannot exceed lround(3.2 * sqrt(-2 log(2^-32))) = lround(3.2 * 6.66) = 21: the logarithm's
/// argument is a multiple of 2^-32.
constexpr int maxError = 21;
/// The message is truncated to an integer, and the doubles of scale and result are exact to 2^-45 of it: two
/// units for numbers below 8.
constexpr int maxFresh = maxError + 3;

TEST(LWEEncryptor, EncryptsUpToTheErrorAtEveryLevelAndCounter) {
    test::Seeded random(5);
    SCOPED_TRACE(random.describe());
    for (const Context& context : everyContext()) {
        const SecretKey key(context);
        const auto scales = getDefaultScaleFactorList(context);
        const auto primes = getPrimeList(context);
        Ciphertext ct(context);
        for (u64 level = 0; level <= getEncryptionLevel(context); ++level)
            for (u64 owed = 0; owed <= level; ++owed) {
                const double x = random.real(-8, 8);
                Encryptor(context).encrypt(x, key, ct, level, static_cast<int>(owed));
                EXPECT_EQ(ct.getLevel(), level);
                EXPECT_EQ(ct.getBx().getData().size(), level + 1);
                EXPECT_EQ(ct.getRescaleCounter(), static_cast<int>(owed));
                const BigInt scaled(std::trunc(x * std::pow(2.0, scales[level - owed])));
                const BigInt owedPrimes = test::productOf(test::slice(primes, level - owed + 1, level + 1));
                const BigInt expected =
                    test::centredResidueOf(scaled * owedPrimes, test::modulusAt(context, level));
                EXPECT_LE(abs(test::phaseOf(ct, key) - expected), maxError) << level << ", " << owed;
            }
    }
}

TEST(LWEEncryptor, TheShortFormIsAtTheEncryptionLevelOwingNothing) {
    for (const Context& context : everyContext()) {
        const SecretKey key(context);
        Ciphertext ct(context);
        if (getEncryptionLevel(context) > 0) {
            ct.setRescaleCounter(1);
            ct.setLevel(0);
        }
        Encryptor(context).encrypt(0.5, key, ct);
        EXPECT_EQ(ct.getLevel(), getEncryptionLevel(context));
        EXPECT_EQ(ct.getRescaleCounter(), 0);
    }
}

TEST(LWEEncryptor, FillsAnOutputOfAnotherContextOrPlace) {
    const SecretKey key(smallLWEContext());
    Ciphertext ct(contextOf(ParameterPreset::SD3));
    ct.to(Device{DeviceType::CPU, 1});
    Encryptor(smallLWEContext()).encrypt(0.5, key, ct);
    EXPECT_EQ(ct.getContext(), smallLWEContext());
    EXPECT_EQ(ct.getDevice(), Device{});
    double x = 0;
    Decryptor(smallLWEContext()).decrypt(ct, key, x);
    EXPECT_NEAR(x, 0.5, maxFresh * 0x1p-39);
}

/// The primes of another context with the same sizes would fit the words, but not the hash.
TEST(LWEEncryptor, AnOutputOfOtherPrimesBecomesOneOfTheContext) {
    const SecretKey key(smallLWEContext());
    Ciphertext ct(makeContext(64, 3, 49, 38));
    Encryptor(smallLWEContext()).encrypt(0.5, key, ct);
    EXPECT_EQ(ct.getContext(), smallLWEContext());
    std::stringstream file;
    ct.save(file);
    Ciphertext loaded(smallLWEContext());
    loaded.load(file);
    EXPECT_TRUE(sameWords(loaded, ct));
}

/// An output in use may be at a level that does not allow the new counter; its new level does.
TEST(LWEEncryptor, HoldsTheCounterAgainstTheNewLevel) {
    const SecretKey key(smallLWEContext());
    for (const u64 before : {0, 1, 2})
        for (const int owed : {0, 1, 2}) {
            Ciphertext ct(smallLWEContext());
            ct.setLevel(before);
            Encryptor(smallLWEContext()).encrypt(0.5, key, ct, 2, owed);
            EXPECT_EQ(ct.getLevel(), 2U);
            EXPECT_EQ(ct.getRescaleCounter(), owed);
        }
}

TEST(LWEEncryptor, DrawsTheVectorThenTheError) {
    const Context context = contextOf(ParameterPreset::FGbD12L0);
    const SecretKey key(context);
    Ciphertext first(context), second(context), other(context);
    omp_set_num_threads(1);
    setSeed({1, 2, 3, 4});
    Encryptor(context).encrypt(0.5, key, first);
    Encryptor(context).encrypt(0.5, key, other);
    setSeed({1, 2, 3, 4});
    Encryptor(context).encrypt(0.25, key, second);
    const auto& ax = first.getAx().getData();
    EXPECT_TRUE(std::equal(ax.begin(), ax.end(), second.getAx().getData().begin()));
    EXPECT_FALSE(std::equal(ax.begin(), ax.end(), other.getAx().getData().begin()));
    const BigInt quarter(std::trunc(std::pow(2.0, getDefaultScaleFactorList(context)[0] - 2)));
    const BigInt half(std::trunc(std::pow(2.0, getDefaultScaleFactorList(context)[0] - 1)));
    EXPECT_EQ(test::phaseOf(first, key) - half, test::phaseOf(second, key) - quarter) << "the same error";
}

/// Over 2000 draws the sample variance of the rounded normal, 3.2^2 + 1/12, has a standard deviation of
/// sqrt(2 / 2000) = 3.2 %; six of them are 19 %.
TEST(LWEEncryptor, TheErrorHasItsVariance) {
    const Context& context = contextOf(ParameterPreset::SD3);
    const SecretKey key(context);
    Ciphertext ct(context);
    setSeed({11, 2, 3, 4});
    const double expected = 3.2 * 3.2 + 1.0 / 12;
    double sum = 0, squares = 0;
    constexpr int draws = 2000;
    for (int i = 0; i < draws; ++i) {
        Encryptor(context).encrypt(0.0, key, ct, 0, 0);
        const double e = static_cast<double>(test::phaseOf(ct, key));
        sum += e;
        squares += e * e;
    }
    EXPECT_NEAR(squares / draws, expected, 0.19 * expected);
    EXPECT_NEAR(sum / draws, 0, 6 * std::sqrt(expected / draws));
}

TEST(LWEEncryptor, RefusesInOrderBeforeItTouchesTheOutput) {
    const SecretKey key(smallLWEContext()), shorter(contextOf(ParameterPreset::SD3));
    const Encryptor encryptor(smallLWEContext());
    Ciphertext ct(smallLWEContext());
    encryptor.encrypt(1.0, key, ct);
    const Ciphertext before = ct;
    EXPECT_REFUSED(encryptor.encrypt(1.0, shorter, ct, 3, 4),
                   "[encode] The target level is greater than the maximum possible level");
    EXPECT_REFUSED(encryptor.encrypt(1.0, shorter, ct, 2, 3),
                   "[encode] The target rescale counter should be less than or equal to the target level.");
    EXPECT_REFUSED(encryptor.encrypt(1.0, shorter, ct, 2, -1),
                   "Rescale counter should be greater than or equal to zero");
    EXPECT_REFUSED(encryptor.encrypt(1.0, shorter, ct, 2, 0), "Operands have different dimensions.");
    const SecretKey lower(makeContext(64, 2, 50, 40));
    EXPECT_REFUSED(encryptor.encrypt(1.0, lower, ct, 2, 0), "Operands have different levels.");
    EXPECT_TRUE(sameWords(ct, before));
    EXPECT_NO_THROW(encryptor.encrypt(1.0, lower, ct, 1, 0));
}

TEST(LWEEncryptor, RefusesNumbersOutOfRangeLastAndLeavesTheOutputAsItWas) {
    const SecretKey key(smallLWEContext()), shorter(contextOf(ParameterPreset::SD3));
    const Encryptor encryptor(smallLWEContext());
    Ciphertext ct(smallLWEContext());
    encryptor.encrypt(1.0, key, ct);
    const Ciphertext before = ct;
    const double largest = test::largestEncodable(test::slice(getPrimeList(smallLWEContext()), 0, 2),
                                                  getDefaultScaleFactorList(smallLWEContext())[1]);
    auto wrong = test::neverEncodable();
    wrong.insert(wrong.end(), {test::nextAbove(largest), -test::nextAbove(largest)});
    for (const double x : wrong) {
        EXPECT_REFUSED(encryptor.encrypt(x, key, ct, 2, -1),
                       "Rescale counter should be greater than or equal to zero");
        EXPECT_REFUSED(encryptor.encrypt(x, shorter, ct, 2, 1), "Operands have different dimensions.");
        test::expectOutOfRange([&] { encryptor.encrypt(x, key, ct, 2, 1); }, "number", x, 2, 1, largest);
    }
    EXPECT_TRUE(sameWords(ct, before));
    for (const double x : {largest, -largest, -0.0}) EXPECT_NO_THROW(encryptor.encrypt(x, key, ct, 2, 1));
}

TEST(LWEEncryptor, RefusesLevelsAndCountersInTheWordsOfTheRing) {
    const Context& numbers = contextOf(ParameterPreset::SD3);
    const Torvo::Context ring = Torvo::makeContext(Torvo::ParameterPreset::SD3);
    ASSERT_EQ(getEncryptionLevel(numbers), Torvo::getEncryptionLevel(ring));
    const SecretKey key(numbers);
    const Torvo::SecretKey ringKey(ring);
    const auto refusalOf = [](const auto& encrypt) -> std::string {
        try {
            encrypt();
        } catch (const RuntimeException& refusal) {
            return refusal.what();
        }
        return "";
    };
    const struct {
        u64 level;
        int owed;
    } wrong[]{{4, 0}, {4, 5}, {4, -1}, {~u64{0}, 0}, {3, 4}, {0, 1}, {2, INT_MAX}, {2, -1}, {0, INT_MIN}};
    for (const auto& [level, owed] : wrong) {
        Ciphertext ct(numbers);
        Torvo::Ciphertext ringCt(ring);
        const std::string expected = refusalOf([&, l = level, r = owed] {
            Torvo::Encryptor(ring).encrypt(Message(1, 0.5), ringKey, ringCt, l, r);
        });
        EXPECT_FALSE(expected.empty());
        EXPECT_REFUSED(Encryptor(numbers).encrypt(0.5, key, ct, level, owed), expected);
    }
}

// ---- decryption

TEST(LWEDecryptor, GivesTheMessageBackAtEveryLevelAndCounter) {
    test::Seeded random(6);
    SCOPED_TRACE(random.describe());
    for (const Context& context : everyContext()) {
        const SecretKey key(context);
        const auto scales = getDefaultScaleFactorList(context);
        Ciphertext ct(context);
        for (u64 level = 0; level <= getEncryptionLevel(context); ++level)
            for (u64 owed = 0; owed <= level; ++owed)
                for (const double x : {0.0, 1.0, -1.0, random.real(-8, 8), random.real(-8, 8)}) {
                    Encryptor(context).encrypt(x, key, ct, level, static_cast<int>(owed));
                    double out = 99;
                    Decryptor(context).decrypt(ct, key, out);
                    // The rescales shrink the error and add half a unit each.
                    const double units = maxFresh + static_cast<double>(owed) / 2;
                    EXPECT_NEAR(out, x, units * std::exp2(-scales[level - owed])) << level << ", " << owed;
                }
    }
}

/// A ciphertext without mask is its message: decryption reads a number that the test put there.
TEST(LWEDecryptor, ReadsIntegersCentredOnZeroFromOnePrimeOrTwo) {
    const Context& context = smallLWEContext();
    const SecretKey key(context);
    const auto primes = getPrimeList(context);
    const auto scales = getDefaultScaleFactorList(context);
    for (u64 level = 0; level <= 2; ++level) {
        const BigInt Q = level == 0 ? BigInt(primes[0]) : BigInt(primes[0]) * primes[1];
        for (const BigInt& x : {BigInt(0), BigInt(1), BigInt(-1), BigInt(Q >> 1), BigInt(-(Q >> 1)),
                                BigInt(Q / 3), BigInt(-Q / 3)}) {
            Ciphertext ct(context);
            ct.setLevel(level);
            std::fill(ct.getAx().getData().begin(), ct.getAx().getData().end(), 0);
            for (u64 i = 0; i <= level; ++i) ct.getBx()[i] = test::wordResidueOf(x, primes[i]);
            double out = 99;
            Decryptor(context).decrypt(ct, key, out);
            EXPECT_EQ(out, static_cast<double>(x) / std::pow(2.0, scales[level])) << x;
        }
    }
}

TEST(LWEDecryptor, RefusesAKeyOfAnotherDimensionFirst) {
    const SecretKey shorter(contextOf(ParameterPreset::SD3)), key(smallLWEContext());
    Ciphertext ct(smallLWEContext());
    ct.setRescaleCounter(2);
    ct.setLevel(1);
    double out = 99;
    const Decryptor decryptor(smallLWEContext());
    EXPECT_REFUSED(decryptor.decrypt(ct, shorter, out), "[decrypt] ctxt and sk have different dimension");
    EXPECT_REFUSED(decryptor.decrypt(ct, key, out),
                   "Rescale counter should be less than or equal to the level");
    ct.setLevel(2);
    EXPECT_REFUSED(decryptor.decrypt(ct, SecretKey(makeContext(64, 2, 50, 40)), out),
                   "Operands have different levels.");
    ct.to(Device{DeviceType::CPU, 1});
    EXPECT_REFUSED(decryptor.decrypt(ct, key, out), "Operands are in different devices.");
    EXPECT_EQ(out, 99);
}

} // namespace
} // namespace Torvo::LWE
