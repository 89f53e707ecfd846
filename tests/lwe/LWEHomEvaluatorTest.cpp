#include <Torvo/LWEHomEvaluator.hpp>

#include "support/Bytes.hpp"
#include "support/Expect.hpp"
#include "support/LWEPhase.hpp"
#include "support/NumbersOutOfRange.hpp"
#include "support/Seeded.hpp"

#include <Torvo/LWEDecryptor.hpp>
#include <Torvo/LWEEncryptor.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <vector>

namespace Torvo::LWE {
namespace {

using test::BigInt;
using test::sameWords;
using test::smallLWEContext;

const std::string levelZero = "The level of the operand is zero";
const std::string owesRescale = "The Operand should have rescale counter zero";
const std::string owesNothing = "[rescale] Rescale Counter of the Ciphertext is zero or less";
const std::string differentDimensions = "Operands have different dimensions.";
const std::string counterAboveLevel = "Rescale counter should be less than or equal to the level";

/// Keys and services of one context.
struct Scheme {
    explicit Scheme(const Context& itsContext) : context(itsContext) {}

    Ciphertext encrypt(double x, u64 level, int owed = 0) const {
        Ciphertext ct(context);
        encryptor.encrypt(x, key, ct, level, owed);
        return ct;
    }
    double decrypt(const Ciphertext& ct) const {
        double x = 0;
        decryptor.decrypt(ct, key, x);
        return x;
    }
    BigInt phase(const Ciphertext& ct) const { return test::phaseOf(ct, key); }
    BigInt modulus(u64 level) const { return test::modulusAt(context, level); }
    double scale(u64 level) const { return std::pow(2.0, scales[level]); }
    /// In units of the scale: the error of a fresh encryption is 21 at most, the truncation to an integer
    /// adds one, and the doubles of scale and result are exact to two for numbers below 8.
    double fresh() const { return 24; }
    /// Dividing by a prime rounds b, and the entries of a that meet a coefficient: half a unit each. The
    /// factor before it was cut to an integer, which the scaled number x feels as x / p units, p near the
    /// scale. Scales of neighbouring levels differ by far less than the unit added.
    double afterProduct(double before, double c, double x) const {
        return std::abs(c) * before * 1.01 + std::abs(x) * 1.01 + (weight + 1) / 2 + 1;
    }

    Context context;
    SecretKey key{context};
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    HomEvaluator evaluator{context};
    std::vector<double> scales = getDefaultScaleFactorList(context);
    std::vector<unsigned long> primes = getPrimeList(context);
    double weight = std::round(2.0 * static_cast<double>(getDimension(context)) / 3.0);
};

const Scheme& small() {
    static const Scheme scheme(smallLWEContext());
    return scheme;
}

const std::vector<Scheme>& schemes() {
    using enum ParameterPreset;
    static const std::vector<Scheme> all{Scheme(makeContext(SS7)), Scheme(makeContext(SD3)),
                                         Scheme(makeContext(FGbD12L0)), Scheme(makeContext(64, 3, 50, 40))};
    return all;
}

using Unary = std::function<void(const Ciphertext&, Ciphertext&)>;
using Binary = std::function<void(const Ciphertext&, const Ciphertext&, Ciphertext&)>;

/// A context of the same sizes with primes of its own.
const Context& otherPrimes(const Context& context) {
    static std::map<Context, Context> made;
    Context& other = made[context];
    if (other == nullptr) other = makeContext(getDimension(context), getPrimeList(context).size(), 49, 38);
    return other;
}

/// In every word, and in the hash with which they are saved.
void expectOfOneContext(const Ciphertext& out, const Ciphertext& expected) {
    EXPECT_EQ(out.getContext()->context_hash, expected.getContext()->context_hash);
    EXPECT_TRUE(sameWords(out, expected));
    const auto save = [](const Ciphertext& ct) {
        return test::bytesOf([&](std::ostream& stream) { ct.save(stream); });
    };
    EXPECT_EQ(save(out), save(expected));
}

/// Runs an operation into a fresh output, into one that was used for something else, and in place: all must
/// agree in every word.
Ciphertext everyWay(const Unary& operation, const Ciphertext& in) {
    Ciphertext out(in.getContext()), inPlace = in, foreign(makeContext(3, 2, 45, 40));
    out.setLevel(0);
    operation(in, out);
    operation(inPlace, inPlace);
    operation(in, foreign);
    EXPECT_TRUE(sameWords(inPlace, out));
    expectOfOneContext(foreign, out);
    // Of the same sizes, so that only its primes show that it is of another context.
    Ciphertext lookalike(otherPrimes(in.getContext()));
    operation(in, lookalike);
    expectOfOneContext(lookalike, out);
    EXPECT_EQ(out.getBx().getData().size(), out.getLevel() + 1);
    EXPECT_EQ(out.getAx().getData().size(), (out.getLevel() + 1) * getDimension(in.getContext()));
    return out;
}

Ciphertext everyWay(const Binary& operation, const Ciphertext& a, const Ciphertext& b) {
    Ciphertext out(a.getContext()), overA = a, overB = b, lookalike(otherPrimes(a.getContext()));
    operation(a, b, out);
    operation(a, b, lookalike);
    expectOfOneContext(lookalike, out);
    operation(overA, b, overA);
    operation(a, overB, overB);
    EXPECT_TRUE(sameWords(overA, out));
    EXPECT_TRUE(sameWords(overB, out));
    return out;
}

/// The residue centred on zero modulo the primes of the level.
BigInt within(const Scheme& scheme, const BigInt& x, u64 level) {
    return test::centredResidueOf(x, scheme.modulus(level));
}

/// trunc(|c| * scale) with the sign of c.
BigInt truncated(double c, double scale) {
    return BigInt(std::trunc(c * scale));
}

// ---- exact identities of phases

TEST(LWEHomEvaluator, NegateTurnsThePhaseAround) {
    for (const Scheme& s : schemes()) {
        const int owed = s.primes.size() > 1 ? 1 : 0;
        const Ciphertext ct = s.encrypt(1.5, s.primes.size() - 1, owed);
        const Ciphertext out = everyWay([&](const auto& in, auto& to) { s.evaluator.negate(in, to); }, ct);
        EXPECT_EQ(s.phase(out), -s.phase(ct));
        EXPECT_EQ(out.getRescaleCounter(), owed);
    }
}

TEST(LWEHomEvaluator, AddingANumberMovesThePhaseByItAtTheScaleThatIsOwed) {
    for (const Scheme& s : schemes())
        for (u64 level = 0; level < s.primes.size(); ++level)
            for (u64 owed = 0; owed <= level; ++owed)
                for (const double c : {0.0, -0.0, 2.75, -3.125, -1e-30}) {
                    const Ciphertext ct = s.encrypt(1.5, level, static_cast<int>(owed));
                    const BigInt step = truncated(c, s.scale(level - owed)) *
                                        test::productOf(test::slice(s.primes, level - owed + 1, level + 1));
                    const auto sum =
                        everyWay([&](const auto& in, auto& to) { s.evaluator.add(in, c, to); }, ct);
                    const auto difference =
                        everyWay([&](const auto& in, auto& to) { s.evaluator.sub(in, c, to); }, ct);
                    EXPECT_EQ(s.phase(sum), within(s, s.phase(ct) + step, level));
                    EXPECT_EQ(s.phase(difference), within(s, s.phase(ct) - step, level));
                    EXPECT_EQ(sum.getRescaleCounter(), static_cast<int>(owed));
                }
}

TEST(LWEHomEvaluator, SumsAndDifferencesAreThoseOfThePhases) {
    for (const Scheme& s : schemes())
        for (u64 level = 0; level < s.primes.size(); ++level) {
            const int owed = static_cast<int>(level) / 2;
            const Ciphertext a = s.encrypt(1.5, level, owed), b = s.encrypt(-0.25, level, owed);
            const auto sum =
                everyWay([&](const auto& x, const auto& y, auto& to) { s.evaluator.add(x, y, to); }, a, b);
            const auto difference =
                everyWay([&](const auto& x, const auto& y, auto& to) { s.evaluator.sub(x, y, to); }, a, b);
            EXPECT_EQ(s.phase(sum), within(s, s.phase(a) + s.phase(b), level));
            EXPECT_EQ(s.phase(difference), within(s, s.phase(a) - s.phase(b), level));
            EXPECT_EQ(sum.getRescaleCounter(), owed);
            EXPECT_NEAR(s.decrypt(sum), 1.25, (2 * s.fresh() + owed) / s.scale(level - owed));
        }
}

TEST(LWEHomEvaluator, OneCiphertextMayBeBothOperandsAndTheOutput) {
    Ciphertext ct = small().encrypt(1.5, 2);
    const BigInt phase = small().phase(ct);
    small().evaluator.add(ct, ct, ct);
    EXPECT_EQ(small().phase(ct), 2 * phase);
    small().evaluator.sub(ct, ct, ct);
    EXPECT_EQ(small().phase(ct), 0);
}

TEST(LWEHomEvaluator, AWholeNumberMultipliesThePhase) {
    constexpr long lowest = std::numeric_limits<long>::min(), highest = std::numeric_limits<long>::max();
    for (const Scheme& s : schemes()) {
        const u64 level = s.primes.size() - 1;
        const int owed = static_cast<int>(level);
        const Ciphertext ct = s.encrypt(0.5, level, owed);
        for (const long n : {0L, 1L, -1L, 2L, -2L, 7L, -1000003L, lowest, highest}) {
            const auto out =
                everyWay([&](const auto& in, auto& to) { s.evaluator.multInteger(in, n, to); }, ct);
            EXPECT_EQ(s.phase(out), within(s, s.phase(ct) * n, level)) << n;
            EXPECT_EQ(out.getRescaleCounter(), owed);
            EXPECT_EQ(out.getLevel(), level);
        }
    }
}

/// A negative number that is truncated to zero has the primes themselves as residues.
TEST(LWEHomEvaluator, ARealNumberMultipliesThePhaseByItsIntegerAtTheScaleOfTheLevel) {
    for (const Scheme& s : schemes())
        for (u64 level = 1; level < s.primes.size(); ++level)
            for (const double c : {0.0, 1.0, -0.375, 3.3, -1e-30}) {
                const Ciphertext ct = s.encrypt(0.5, level);
                const auto out = everyWay(
                    [&](const auto& in, auto& to) { s.evaluator.multWithoutRescale(in, c, to); }, ct);
                EXPECT_EQ(s.phase(out), within(s, s.phase(ct) * truncated(c, s.scale(level)), level));
                EXPECT_EQ(out.getRescaleCounter(), 1);
                for (u64 i = 0; i <= level; ++i) EXPECT_LT(out.getBx()[i], s.primes[i]);
            }
}

TEST(LWEHomEvaluator, RescaleDividesThePhaseByTheTopPrimeUpToRounding) {
    for (const Scheme& s : schemes())
        for (u64 level = 1; level < s.primes.size(); ++level) {
            Ciphertext ct = s.encrypt(0.5, level, 1);
            const BigInt before = s.phase(ct);
            s.evaluator.rescale(ct);
            EXPECT_EQ(ct.getLevel(), level - 1);
            EXPECT_EQ(ct.getRescaleCounter(), 0);
            EXPECT_EQ(ct.getBx().getData().size(), level);
            const BigInt p = s.primes[level];
            const BigInt error = abs(s.phase(ct) * p - before);
            EXPECT_LE(error * 2, p * static_cast<u64>(s.weight + 1));
        }
}

// ---- numbers

TEST(LWEHomEvaluator, ProductsDecryptWithinTheirBound) {
    test::Seeded random(7);
    SCOPED_TRACE(random.describe());
    for (const Scheme& s : schemes())
        for (u64 level = 1; level < s.primes.size(); ++level)
            for (int i = 0; i < 3; ++i) {
                const double x = random.real(-4, 4), c = random.real(-2, 2);
                const auto out = everyWay([&](const auto& in, auto& to) { s.evaluator.mult(in, c, to); },
                                          s.encrypt(x, level));
                EXPECT_EQ(out.getLevel(), level - 1);
                EXPECT_EQ(out.getRescaleCounter(), 0);
                EXPECT_NEAR(s.decrypt(out), c * x, s.afterProduct(s.fresh(), c, x) / s.scale(level - 1));
            }
}

TEST(LWEHomEvaluator, AProductOfWhatOwesKeepsTheCounter) {
    const Ciphertext ct = small().encrypt(1.5, 2, 1);
    Ciphertext out(smallLWEContext());
    small().evaluator.mult(ct, 0.5, out);
    EXPECT_EQ(out.getRescaleCounter(), 1);
    EXPECT_EQ(out.getLevel(), 1U);
}

TEST(LWEHomEvaluator, LevelDownKeepsTheNumberAtEveryTarget) {
    for (const Scheme& s : schemes())
        for (u64 level = 0; level < s.primes.size(); ++level)
            for (u64 target = 0; target < level; ++target) {
                const auto out =
                    everyWay([&](const auto& in, auto& to) { s.evaluator.levelDown(in, target, to); },
                             s.encrypt(-2.5, level));
                EXPECT_EQ(out.getLevel(), target);
                EXPECT_EQ(out.getRescaleCounter(), 0);
                EXPECT_NEAR(s.decrypt(out), -2.5, s.afterProduct(s.fresh(), 1, 2.5) / s.scale(target));
            }
}

TEST(LWEHomEvaluator, LevelDownToItsOwnLevelCopies) {
    for (const Scheme& s : schemes()) {
        const u64 level = s.primes.size() - 1;
        const Ciphertext ct = s.encrypt(0.5, level);
        const auto out =
            everyWay([&](const auto& in, auto& to) { s.evaluator.levelDown(in, level, to); }, ct);
        EXPECT_TRUE(sameWords(out, ct));
    }
}

TEST(LWEHomEvaluator, LevelDownOneKeepsTheNumber) {
    for (const Scheme& s : schemes())
        for (u64 level = 1; level < s.primes.size(); ++level) {
            const Ciphertext ct = s.encrypt(1.75, level);
            const auto out =
                everyWay([&](const auto& in, auto& to) { s.evaluator.levelDownOne(in, to); }, ct);
            Ciphertext same(s.context);
            s.evaluator.levelDown(ct, level - 1, same);
            EXPECT_TRUE(sameWords(out, same)) << "the exponent of one level is 0";
            EXPECT_NEAR(s.decrypt(out), 1.75, s.afterProduct(s.fresh(), 1, 1.75) / s.scale(level - 1));
        }
}

TEST(LWEHomEvaluator, OperandsAtDifferentLevelsMeetAtTheLowerOne) {
    for (const Scheme& s : schemes()) {
        if (s.primes.size() == 1) continue;
        const u64 top = s.primes.size() - 1;
        const Ciphertext high = s.encrypt(1.5, top), low = s.encrypt(0.25, top - 1);
        Ciphertext lowered(s.context), expected(s.context);
        s.evaluator.levelDown(high, top - 1, lowered);
        const Binary add = [&](const auto& x, const auto& y, auto& to) { s.evaluator.add(x, y, to); };
        const Binary sub = [&](const auto& x, const auto& y, auto& to) { s.evaluator.sub(x, y, to); };
        s.evaluator.add(lowered, low, expected);
        EXPECT_TRUE(sameWords(everyWay(add, high, low), expected));
        EXPECT_TRUE(sameWords(everyWay(add, low, high), expected));
        s.evaluator.sub(lowered, low, expected);
        EXPECT_TRUE(sameWords(everyWay(sub, high, low), expected));
        s.evaluator.sub(low, lowered, expected);
        const Ciphertext difference = everyWay(sub, low, high);
        EXPECT_TRUE(sameWords(difference, expected));
        EXPECT_NEAR(s.decrypt(difference), -1.25,
                    (s.fresh() + s.afterProduct(s.fresh(), 1, 1.5)) / s.scale(top - 1));
    }
}

TEST(LWEHomEvaluator, ManyThreadsMayUseOneOfEverything) {
    const Scheme& s = small();
    const Ciphertext a = s.encrypt(1.5, 2), b = s.encrypt(-0.5, 1);
    const auto work = [&](Ciphertext& out) {
        s.evaluator.mult(a, 0.75, out);
        s.evaluator.sub(out, b, out);
        s.evaluator.multInteger(out, -3, out);
        s.evaluator.add(out, 0.125, out);
        s.evaluator.negate(out, out);
        s.evaluator.levelDownOne(out, out);
        return s.decrypt(out);
    };
    Ciphertext expected(s.context);
    const double number = work(expected);
    const double before = 3 * (s.afterProduct(s.fresh(), 0.75, 1.5) + s.fresh()) + 1;
    EXPECT_NEAR(number, 4.75, s.afterProduct(before, 1, 4.75) / s.scale(0)); // 3 (1.5 * 0.75 + 0.5) - 0.125
    std::vector<Ciphertext> outs(8, Ciphertext(s.context));
    std::vector<double> numbers(outs.size()), fresh(outs.size());
#pragma omp parallel for num_threads(4)
    for (u64 i = 0; i < outs.size(); ++i) {
        numbers[i] = work(outs[i]);
        fresh[i] = s.decrypt(s.encrypt(static_cast<double>(i), 2));
    }
    for (u64 i = 0; i < outs.size(); ++i) {
        EXPECT_TRUE(sameWords(outs[i], expected));
        EXPECT_EQ(numbers[i], number);
        EXPECT_NEAR(fresh[i], static_cast<double>(i), s.fresh() / s.scale(2));
    }
}

// ---- refusals

TEST(LWEHomEvaluator, SumsRefuseInOrder) {
    const HomEvaluator& evaluator = small().evaluator;
    const Device second{DeviceType::CPU, 1};
    Ciphertext a = small().encrypt(1, 2, 1), b = small().encrypt(1, 1, 0), out(smallLWEContext());
    b.to(second);
    for (const Binary& operation :
         std::vector<Binary>{[&](const auto&x, const auto&y, auto&to) { evaluator.add(x, y, to); },
                             [&](const auto&x, const auto&y, auto&to) { evaluator.sub(x, y, to); }}) {
        Ciphertext y = b;
        EXPECT_REFUSED(operation(a, y, out), "Two operands have different RescaleCounter");
        y.setRescaleCounter(1);
        EXPECT_REFUSED(operation(a, y, out), "Two operands are in different devices");
        y.to(Device{});
        EXPECT_REFUSED(operation(a, y, out), owesRescale);
        EXPECT_REFUSED(operation(y, a, out), owesRescale);
        Ciphertext wide = small().encrypt(1, 2), narrow(makeContext(5, 3, 50, 40));
        const Ciphertext before = wide;
        EXPECT_REFUSED(operation(narrow, wide, out), differentDimensions);
        EXPECT_REFUSED(operation(narrow, wide, wide), differentDimensions);
        EXPECT_REFUSED(operation(wide, narrow, wide), differentDimensions);
        EXPECT_TRUE(sameWords(wide, before));
    }
}

/// The primes are those of the evaluator, whatever the operands say; the operands' words are read before
/// an output is written.
TEST(LWEHomEvaluator, AnOutputThatIsAnOperandOfAnotherContextIsReadBeforeItIsWritten) {
    const HomEvaluator& evaluator = small().evaluator;
    const Scheme other(makeContext(64, 2, 50, 40)); // the same primes, one fewer
    for (const auto& [a, b] : {std::pair(small().encrypt(1.5, 1), other.encrypt(0.25, 1)),
                               std::pair(other.encrypt(0.25, 1), small().encrypt(1.5, 1))}) {
        everyWay([&](const auto& x, const auto& y, auto& to) { evaluator.add(x, y, to); }, a, b);
        everyWay([&](const auto& x, const auto& y, auto& to) { evaluator.sub(x, y, to); }, a, b);
    }
}

TEST(LWEHomEvaluator, AddingANumberNeedsAScaleToAddItAt) {
    Ciphertext ct = small().encrypt(1, 2, 2);
    ct.setLevel(1);
    const Ciphertext before = ct;
    EXPECT_REFUSED(small().evaluator.add(ct, 1.0, ct), counterAboveLevel);
    EXPECT_REFUSED(small().evaluator.sub(ct, 1.0, ct), counterAboveLevel);
    EXPECT_TRUE(sameWords(ct, before));
}

TEST(LWEHomEvaluator, RescaleRefusesLevelZeroBeforeTheCounter) {
    Ciphertext ct = small().encrypt(1, 0), above = small().encrypt(1, 1);
    EXPECT_REFUSED(small().evaluator.rescale(ct), levelZero);
    EXPECT_REFUSED(small().evaluator.rescale(above), owesNothing);
}

TEST(LWEHomEvaluator, ProductsNeedALevelForEveryRescaleOwed) {
    const HomEvaluator& evaluator = small().evaluator;
    Ciphertext zero = small().encrypt(1, 0), full = small().encrypt(1, 2, 2);
    const Ciphertext zeroBefore = zero, fullBefore = full;
    EXPECT_REFUSED(evaluator.mult(zero, 0.5, zero), levelZero);
    EXPECT_REFUSED(evaluator.multWithoutRescale(zero, 0.5, zero), counterAboveLevel);
    EXPECT_REFUSED(evaluator.multWithoutRescale(full, 0.5, full), counterAboveLevel);
    EXPECT_REFUSED(evaluator.mult(full, 0.5, full), counterAboveLevel);
    EXPECT_TRUE(sameWords(zero, zeroBefore));
    EXPECT_TRUE(sameWords(full, fullBefore));
}

TEST(LWEHomEvaluator, LevelDownRefusesInOrder) {
    Ciphertext ct = small().encrypt(1, 1, 1), out(smallLWEContext());
    EXPECT_REFUSED(small().evaluator.levelDown(ct, 2, out),
                   "[level down] target level is greater than level of Ciphertext.");
    EXPECT_REFUSED(small().evaluator.levelDown(ct, 1, out), owesRescale);
    EXPECT_REFUSED(small().evaluator.levelDown(ct, 0, out), owesRescale);
    EXPECT_REFUSED(small().evaluator.levelDownOne(ct, out), owesRescale);
    ct.setLevel(0);
    EXPECT_REFUSED(small().evaluator.levelDownOne(ct, out), levelZero);
}

TEST(LWEHomEvaluator, WithASinglePrimeEverythingThatSpendsALevelIsRefused) {
    const Scheme s(makeContext(ParameterPreset::FGbD12L0));
    Ciphertext ct = s.encrypt(1.5, 0);
    EXPECT_EQ(ct.getLevel(), getEncryptionLevel(s.context));
    EXPECT_REFUSED(s.evaluator.rescale(ct), levelZero);
    EXPECT_REFUSED(s.evaluator.mult(ct, 0.5, ct), levelZero);
    EXPECT_REFUSED(s.evaluator.levelDownOne(ct, ct), levelZero);
    s.evaluator.multInteger(ct, -3, ct);
    EXPECT_NEAR(s.decrypt(ct), -4.5, 3 * s.fresh() / s.scale(0));
}

TEST(LWEHomEvaluator, RefusesADeviceThatTheContextDoesNotServe) {
    Ciphertext ct = small().encrypt(1, 2);
    ct.to(Device{DeviceType::CPU, 1});
    Ciphertext out(smallLWEContext());
    const std::string notServed = "The generated context does not support the operation with current "
                                  "operands; check the device.";
    EXPECT_REFUSED(small().evaluator.negate(ct, out), notServed);
    EXPECT_REFUSED(small().evaluator.add(ct, 1.0, out), notServed);
    EXPECT_REFUSED(small().evaluator.multInteger(ct, 3, out), notServed);
    EXPECT_REFUSED(small().evaluator.mult(ct, 0.5, out), notServed);
    EXPECT_REFUSED(small().evaluator.add(ct, ct, out), notServed);
}

/// A longer chain has no primes and scales here to work with; the same goes for a level set too high.
TEST(LWEHomEvaluator, RefusesALevelThatItsChainDoesNotHave) {
    const std::string foreign = "Operands are not of the ring of the generated context.";
    const HomEvaluator& evaluator = small().evaluator;
    const Scheme longer(makeContext(64, 4, 50, 40));
    Ciphertext ct = longer.encrypt(1, 3, 1), settled = longer.encrypt(1, 3);
    const Ciphertext before = ct;
    Ciphertext out(smallLWEContext());
    EXPECT_REFUSED(evaluator.negate(ct, out), foreign);
    EXPECT_REFUSED(evaluator.add(ct, 1.0, out), foreign);
    EXPECT_REFUSED(evaluator.sub(ct, 1.0, out), foreign);
    EXPECT_REFUSED(evaluator.add(ct, ct, out), foreign);
    EXPECT_REFUSED(evaluator.multInteger(ct, 3, out), foreign);
    EXPECT_REFUSED(evaluator.multWithoutRescale(ct, 0.5, out), foreign);
    EXPECT_REFUSED(evaluator.rescale(ct), foreign);
    EXPECT_REFUSED(evaluator.levelDown(settled, 1, out), foreign);
    EXPECT_REFUSED(evaluator.levelDownOne(settled, out), foreign);
    double x = 0;
    EXPECT_REFUSED(small().decryptor.decrypt(settled, longer.key, x), foreign);
    EXPECT_TRUE(sameWords(ct, before));
}

TEST(LWEHomEvaluator, RefusesNumbersOutOfRangeLastAndLeavesTheOutputAsItWas) {
    const Scheme scheme(smallLWEContext());
    const Ciphertext in = scheme.encrypt(0.5, 2), owing = scheme.encrypt(0.5, 2, 1);
    Ciphertext out = scheme.encrypt(0.25, 1);
    const Ciphertext before = out;
    const HomEvaluator& e = scheme.evaluator;
    const auto largestAt = [&](u64 level) {
        return test::largestEncodable(test::slice(getPrimeList(scheme.context), 0, level + 1),
                                      scheme.scales[level]);
    };
    auto wrong = test::neverEncodable();
    wrong.insert(wrong.end(), {test::nextAbove(largestAt(2)), -test::nextAbove(largestAt(2))});
    for (const double x : wrong) {
        SCOPED_TRACE(x);
        test::expectOutOfRange([&] { e.add(in, x, out); }, "number", x, 2, 0, largestAt(2));
        test::expectOutOfRange([&] { e.sub(in, x, out); }, "number", -x, 2, 0, largestAt(2));
        test::expectOutOfRange([&] { e.mult(in, x, out); }, "number", x, 2, 0, largestAt(2));
        test::expectOutOfRange([&] { e.multWithoutRescale(in, x, out); }, "number", x, 2, 0, largestAt(2));
        test::expectOutOfRange([&] { e.add(owing, x, out); }, "number", x, 2, 1, largestAt(1));
        EXPECT_REFUSED(e.mult(scheme.encrypt(0.5, 0), x, out), levelZero);
        EXPECT_REFUSED(e.multWithoutRescale(scheme.encrypt(0.5, 1, 1), x, out), counterAboveLevel);
        Ciphertext inPlace = in;
        test::expectOutOfRange([&] { e.mult(inPlace, x, inPlace); }, "number", x, 2, 0, largestAt(2));
        EXPECT_TRUE(sameWords(inPlace, in));
    }
    EXPECT_TRUE(sameWords(out, before));
    for (const double x : {largestAt(2), -largestAt(2), -0.0}) {
        EXPECT_NO_THROW(e.add(in, x, out));
        EXPECT_NO_THROW(e.mult(in, x, out));
    }
}

TEST(LWEHomEvaluator, RefusesOtherPrimesAndALevelSetByHandBeforeItWrites) {
    const std::string foreign = "Operands are not of the ring of the generated context.";
    const HomEvaluator& evaluator = small().evaluator;
    const Scheme other(makeContext(64, 3, 49, 41)), shorter(makeContext(64, 2, 50, 40));
    Ciphertext raised = shorter.encrypt(1, 1);
    raised.setLevel(2); // which the chain of the evaluator has
    const Ciphertext ours = small().encrypt(1, 2), before = small().encrypt(0.5, 1);
    Ciphertext out = before;
    for (const Ciphertext& in : {other.encrypt(1, 2), raised}) {
        EXPECT_REFUSED(evaluator.negate(in, out), foreign);
        EXPECT_REFUSED(evaluator.add(in, 1.0, out), foreign);
        EXPECT_REFUSED(evaluator.add(in, ours, out), foreign);
        EXPECT_REFUSED(evaluator.sub(ours, in, out), foreign);
        EXPECT_REFUSED(evaluator.multInteger(in, 1, out), foreign);
        EXPECT_REFUSED(evaluator.multInteger(in, -3, out), foreign);
        EXPECT_REFUSED(evaluator.mult(in, 0.5, out), foreign);
        EXPECT_REFUSED(evaluator.levelDown(in, 2, out), foreign);
        EXPECT_REFUSED(evaluator.levelDownOne(in, out), foreign);
        Ciphertext owing = in;
        owing.setRescaleCounter(1);
        EXPECT_REFUSED(evaluator.rescale(owing), foreign);
        EXPECT_EQ(owing.getLevel(), 2U);
    }
    const Scheme wider(makeContext(65, 3, 50, 40));
    EXPECT_REFUSED(evaluator.add(wider.encrypt(1, 2), ours, out), differentDimensions);
    EXPECT_TRUE(sameWords(out, before));
    evaluator.add(wider.encrypt(1, 2), wider.encrypt(2, 2), out); // of another dimension, both alike
    EXPECT_NEAR(wider.decrypt(out), 3, 2 * wider.fresh() / wider.scale(2));
}

TEST(LWEHomEvaluator, TakesAShorterChainOfTheSamePrimes) {
    const Scheme shorter(makeContext(64, 2, 50, 40));
    Ciphertext out(smallLWEContext());
    small().evaluator.multInteger(shorter.encrypt(1.5, 1), 2, out);
    EXPECT_NEAR(shorter.decrypt(out), 3, 2 * shorter.fresh() / shorter.scale(1));
}

/// Words under other primes are other numbers: neither side is accepted for the other.
TEST(LWEHomEvaluator, EncryptionAndDecryptionRefuseKeysOfOtherPrimes) {
    const Scheme other(makeContext(64, 3, 49, 41));
    const Ciphertext ours = small().encrypt(1, 2);
    Ciphertext out = ours;
    double x = 7;
    const auto text = [](const std::string& owner) {
        return "the secret key has other primes: dimension 64, 3 primes (CUSTOM), but the " + owner +
               "'s context is dimension 64, 3 primes (CUSTOM), with other primes from index 0 on; make the " +
               owner + " with the context the key was made with";
    };
    EXPECT_REFUSED(small().encryptor.encrypt(0.5, other.key, out), text("encryptor"));
    EXPECT_REFUSED(small().decryptor.decrypt(ours, other.key, x), text("decryptor"));
    EXPECT_REFUSED(small().decryptor.decrypt(other.encrypt(1, 2), other.key, x),
                   "Operands are not of the ring of the generated context.");
    EXPECT_TRUE(sameWords(out, ours));
    EXPECT_EQ(x, 7);
}

// Files of levels that were set by hand: the chain has three primes.
TEST(LWEHomEvaluator, WhatWasLoadedAboveTheChainDoesNoHarm) {
    const Scheme& s = small();
    for (const u64 level : {3, 4, 40}) {
        SCOPED_TRACE(level);
        Ciphertext high(s.context), x(s.context), out(s.context);
        high.setLevel(level);
        std::fill(high.getAx().getData().begin(), high.getAx().getData().end(), 1);
        std::fill(high.getBx().getData().begin(), high.getBx().getData().end(), 2);
        std::stringstream file;
        high.save(file);
        x.load(file);
        ASSERT_EQ(x.getLevel(), level);
        EXPECT_TRUE(sameWords(x, high));
        const Ciphertext good = s.encrypt(0.5, 1);
        double number = 0;
        const std::vector<std::function<void()>> calls{
            [&] { s.evaluator.negate(x, out); },
            [&] { s.evaluator.add(x, x, out); },
            [&] { s.evaluator.add(good, x, out); },
            [&] { s.evaluator.add(x, 0.5, out); },
            [&] { s.evaluator.multInteger(x, -3, out); },
            [&] { s.evaluator.mult(x, 0.5, out); },
            [&] { s.evaluator.levelDown(x, 1, out); },
            [&] { s.evaluator.levelDownOne(x, out); },
            [&] { s.decryptor.decrypt(x, s.key, number); },
        };
        for (const auto& call : calls) EXPECT_THROW(call(), RuntimeException);
        x.setRescaleCounter(1);
        EXPECT_REFUSED(s.evaluator.rescale(x), "Operands are not of the ring of the generated context.");
    }
}

} // namespace
} // namespace Torvo::LWE
