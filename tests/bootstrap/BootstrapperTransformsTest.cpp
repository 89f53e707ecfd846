#include "support/BigIntegers.hpp"
#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"
#include "support/KeyEquation.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <optional>
#include <stdexcept>
#include <vector>

// Each phase of a bootstrap before the sine, compared with the same steps in the clear.

namespace Torvo {
namespace {

using test::BigInt;
using test::boot;
using test::toy;

/// b + a s of a ciphertext in NTT form, as integers of least absolute value modulo the live primes.
std::vector<BigInt> phaseOf(const Ciphertext& ciphertext) {
    const u64 degree = getDegree(toy().context);
    const auto secret = test::coefficientsOf(toy().secretKey, degree);
    std::vector<std::vector<u64>> rows;
    for (u64 i = 0; i <= ciphertext.getLevel(); ++i)
        rows.push_back(
            test::decryptedRow(toy().context, ciphertext.getPoly(0), ciphertext.getPoly(1), secret, i));
    const auto primes = test::slice(getPrimeList(toy().context), 0, rows.size());
    std::vector<BigInt> phase;
    for (u64 k = 0; k < degree; ++k) {
        std::vector<u64> residues;
        for (const auto& row : rows) residues.push_back(row[k]);
        phase.push_back(test::chineseRemainder(residues, primes));
    }
    return phase;
}

Ciphertext inNTTForm(Ciphertext ciphertext) {
    for (u64 i = 0; i < 2; ++i)
        toy().context->primes.forwardNTT(ciphertext.getPoly(i), ciphertext.getPoly(i));
    return ciphertext;
}

/// A rounding and a key switch, as an error of slots at `level`. A transform of n slots passes an error on
/// with a gain of n at most, and consists of three stages with a switch for each of fewer than 8 rotations.
double transformError(u64 logSlots, u64 level) {
    const test::ErrorModel& e = toy().errors;
    return 24 * std::exp2(logSlots) * e.atLevel(e.rescale() + e.keySwitch(), level);
}

TEST(SlotToCoeff, LeavesTheMessageOnTheCoefficientsInBitReversedOrder) {
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const bool sequential : {false, true}) {
            SCOPED_TRACE(logSlots);
            const u64 n = u64{1} << logSlots;
            const Message m = test::Seeded(logSlots).message(logSlots);
            Ciphertext out(toy().context);
            boot().of(sequential).levelDownAndSlotToCoeff(toy().encrypt(m, 5), out);
            EXPECT_EQ(out.getLevel(), 0U);
            EXPECT_EQ(out.getLogSlots(), logSlots);
            EXPECT_EQ(out.getRescaleCounter(), 0);
            std::vector<double> c;
            toy().decryptor.decrypt(out, toy().secretKey, c);
            ASSERT_EQ(c.size(), 2 * n);
            const double bound =
                transformError(logSlots, 0) + toy().errors.atLevel(toy().errors.encryption(), 5);
            for (u64 k = 0; k < n; ++k) {
                const auto& slot = m[test::reversedSlot(k, logSlots)];
                EXPECT_NEAR(c[k], slot.real(), bound);
                EXPECT_NEAR(c[k + n], slot.imag(), bound);
            }
        }
}

TEST(LevelRecover, AddsSmallMultiplesOfTheBasePrime) {
    Ciphertext low(toy().context), raised(toy().context);
    boot().batched.levelDownAndSlotToCoeff(toy().encrypt(test::Seeded(21).message(5), 3), low);
    boot().batched.levelRecover(low, raised);
    EXPECT_EQ(raised.getLevel(), 24U);
    EXPECT_EQ(raised.getNumPoly(), 2U);
    EXPECT_EQ(raised.getLogSlots(), 5U);
    EXPECT_EQ(raised.getEncodingType(), EncodingType::Coefficient);
    EXPECT_FALSE(raised.isNTT());

    const auto before = phaseOf(inNTTForm(low)), after = phaseOf(inNTTForm(raised));
    const BigInt q0 = toy().context->primes.getPrime(0);
    // Residues of b and a are at most q0 / 2, and 8 coefficients of the secret are 1 or -1: the phase is at
    // most 9/2 q0, and m at most q0 / 2.
    int multiples = 0;
    for (u64 k = 0; k < after.size(); ++k) {
        const BigInt difference = after[k] - before[k];
        EXPECT_EQ(difference % q0, 0) << k;
        EXPECT_LE(abs(difference / q0), 5) << k;
        multiples += difference != 0 ? 1 : 0;
    }
    EXPECT_GT(multiples, 0);

    boot().batched.levelRecover(low, low);
    EXPECT_TRUE(test::sameWords(low, raised));
}

TEST(LevelRecover, WritesTheCentredResidueToEveryPrime) {
    Ciphertext low = toy().encrypt(Message(3, {0.5, -0.25}), 0), raised(toy().context);
    low.setNumPoly(3);
    for (u64 i = 0; i < 3; ++i) toy().context->primes.backwardNTT(low.getPoly(i), low.getPoly(i));
    boot().batched.levelRecover(low, raised);
    ASSERT_EQ(raised.getNumPoly(), 3U);
    EXPECT_EQ(raised.getLogSlots(), 3U);
    EXPECT_EQ(raised.getEncodingType(), EncodingType::Slot);
    const auto primes = getPrimeList(toy().context);
    for (u64 i = 0; i < 3; ++i)
        for (u64 row = 0; row <= 24; ++row)
            for (u64 k = 0; k < getDegree(toy().context); ++k) {
                const u64 x = low.getPoly(i).getRow(0)[k], p = primes[row];
                const u64 expected = x <= primes[0] / 2 ? x % p : (p - (primes[0] - x) % p) % p;
                ASSERT_EQ(raised.getPoly(i).getRow(row)[k], expected) << i << ", " << row << ", " << k;
            }
}

TEST(LevelRecover, RefusesOperandsInOrder) {
    Ciphertext in = toy().encrypt(Message(5, 0.5), 1), out(toy().context);
    in.setRescaleCounter(1);
    EXPECT_REFUSED(boot().batched.levelRecover(in, out), "[levelRecover] Level should be zero");
    in.setLevel(0);
    EXPECT_REFUSED(boot().batched.levelRecover(in, out), "[levelRecover] RescaleCounter should be zero");
}

TEST(CoeffToSlot, PutsTheCoefficientsOverTheConstantOnTheSlots) {
    const u64 top = toy().topLevel();
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots)
        for (const bool sequential : {false, true}) {
            SCOPED_TRACE(logSlots);
            const u64 n = u64{1} << logSlots;
            test::Seeded random(30 + logSlots);
            std::vector<double> c(2 * n);
            for (auto& x : c) x = random.real(-4, 4);
            Ciphertext out = boot().encryptPlaintext(
                toy().encoder.encodeWithoutNTT(c, top)); // on regular strides: in the subring already
            boot().of(sequential).coeffToSlot(out, out);
            // Three levels whatever the number of stages, the last rescale owed.
            EXPECT_EQ(out.getLevel(), top - 2);
            EXPECT_EQ(out.getRescaleCounter(), 1);
            EXPECT_EQ(out.getLogSlots(), logSlots);

            const double folded = std::exp2(5 - logSlots);
            const double constant = boot().parameter.coeff_to_slot_constant / folded;
            Message expected(logSlots);
            for (u64 k = 0; k < n; ++k)
                expected[test::reversedSlot(k, logSlots)] = constant * std::complex<double>(c[k], c[k + n]);
            // The diagonals are rounded doubles at a scale of 2^58.
            const double bound = transformError(logSlots, top - 3) + 32 * test::ErrorModel::relative * 6;
            EXPECT_LT(test::maxError(toy().decrypt(out), expected), bound);
        }
}

TEST(CoeffToSlot, NeedsItsConstants) {
    const BootstrapperImpl bootstrapper(toy().evaluator, std::nullopt, 0, false);
    Ciphertext x = boot().encryptAt(Message(5, 0.5), toy().topLevel());
    EXPECT_THROW_TEXT(bootstrapper.coeffToSlot(x, x), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(bootstrapper.slotToCoeff(x, x), std::out_of_range, "map::at");
}

TEST(RaisedModulus, IsOnTheSlotsOverTwiceTheRange) {
    // The whole way up to the sine: a slot holds x / (2 K q0), its conjugate still to be added.
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
        SCOPED_TRACE(logSlots);
        const Message m = test::Seeded(40 + logSlots).message(logSlots);
        Ciphertext t = boot().batched.bootstrapExceptRemoveI(toy().encrypt(m, 3));
        EXPECT_EQ(t.getLevel(), 22U);
        EXPECT_EQ(t.getRescaleCounter(), 1);
        EXPECT_EQ(t.getLogSlots(), logSlots);
        const Message y = toy().decrypt(t);
        const double doubled = 2 * boot().parameter.range_bound;
        for (u64 k = 0; k < y.getSize(); ++k) {
            // x / q0 = eps m + I: off an integer by eps m.
            const std::complex<double> x = doubled * y[k];
            const double bound = boot().eps() * boot().noise() + 0x1p-30;
            EXPECT_NEAR(x.real() - std::round(x.real()), boot().eps() * m[k].real(), bound);
            EXPECT_NEAR(x.imag() - std::round(x.imag()), boot().eps() * m[k].imag(), bound);
            EXPECT_LT(std::max(std::abs(x.real()), std::abs(x.imag())), boot().parameter.range_bound);
        }
    }
}

// ---- one slot on the preset of one size of primes

/// Coefficient-to-slot of a single slot needs no keys. The fold it undoes did not happen here.
void expectOneSlot(ParameterPreset preset, u64 levelsSpent) {
    const Context context = makeContext(preset);
    const BootstrapperImpl bootstrapper(HomEvaluator(context, KeyPack(context)), std::nullopt, 0, false);
    const SecretKey secretKey(context);
    const u64 top = getDefaultScaleFactorList(context).size() - 1;
    const Message m(0, {0.75, -0.5});
    // A transparent ciphertext is enough: b = m, a = 0.
    Ciphertext x(context);
    x.setNumPoly(2);
    x.setLevel(top);
    x.getPoly(0) = EnDecoder(context).encode(m, top).getMx();
    context->primes.sub(x.getPoly(0), x.getPoly(0), x.getPoly(1));
    x.setLogSlots(0);
    bootstrapper.coeffToSlot(x, x);
    EXPECT_EQ(x.getLevel(), top - levelsSpent + 1);
    EXPECT_EQ(x.getRescaleCounter(), 1);
    const double constant = bootstrapper.getParameter().coeff_to_slot_constant /
                            static_cast<double>(context->parameter.num_slots);
    Message out;
    Decryptor(context).decrypt(x, secretKey, out);
    // A level's correction is part of the constant: the resulting value does not contain it.
    double correction = 0;
    for (u64 i = 0; i < 3; ++i)
        correction += static_cast<double>(context->scale_factors.level_correction[top - i]);
    EXPECT_NEAR(std::abs(out[0] / m[0] * std::exp2(correction) / constant - 1.0), 0.0, 0x1p-15);
}

TEST(CoeffToSlotOfRealPreset, SpendsALevelLessOnOneSlotOfFVaAlone) {
    expectOneSlot(ParameterPreset::FVa, 2);
    expectOneSlot(ParameterPreset::FTb, 3);
}

} // namespace
} // namespace Torvo
