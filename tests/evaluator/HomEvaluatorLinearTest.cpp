#include "evaluator/HomEvaluatorImpl.hpp"

#include "context/ContextContent.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"
#include "support/ToyEvaluators.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <limits>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

template <class T>
class LinearForms : public OnBothTypes<T> {
protected:
    using OnBothTypes<T>::type;
    using OnBothTypes<T>::scheme;

    const HomEvaluator& evaluator = scheme.evaluator;
    const HomEvaluatorImpl& internals = *scheme.evaluator.getImpl();
    const u64 freshLevel = scheme.encryptionLevel();
    Seeded random{21};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
    Message message = random.message(scheme.logFullSlots());
    Message other = random.message(scheme.logFullSlots());

    /// One operation on one ciphertext: what it computes and what it makes of level, counter and error.
    struct Form {
        const char* name;
        std::function<void(const T&, T&)> apply;
        std::function<void(const Message&, Message&)> inTheClear;
        u64 levelsSpent = 0;
        int owed = 0;
        /// Bound on what the operation multiplies an error by, and on what it adds, before and after a
        /// rescale.
        double gain = 1;
        double added = 0;
        bool leavesEncoding = false;
    };

    std::vector<Form> forms() {
        const ErrorModel& errors = scheme.errors;
        // A constant is cut to an integer over the scale, in both parts; a message is rounded on encoding.
        const double cut = std::sqrt(2.0) * errors.atLevel(1, freshLevel);
        const double encoded = errors.atLevel(errors.encoding(), freshLevel);
        const double rounded = errors.atLevel(errors.rescale(), freshLevel - 1);
        const double size = maxAbs(message), otherSize = maxAbs(other);
        const Complex c(0.3, -1.7), real(-0.6, 0.0);
        const Plaintext plain = scheme.encoder.encode(other, freshLevel),
                        low = scheme.encoder.encode(other, 1);
        const double lowEncoded = encoded + errors.atLevel(errors.encoding(), 1);
        const auto plus = [this](const Message& m, Message& out) { evaluator.add(m, other, out); };
        const auto minus = [this](const Message& m, Message& out) { evaluator.sub(m, other, out); };
        const auto times = [this](const Message& m, Message& out) { evaluator.mult(m, other, out); };
        const auto scaled = [this](Complex by) {
            return [this, by](const Message& m, Message& out) { evaluator.mult(m, by, out); };
        };
        const auto same = [](const Message& m, Message& out) { out = m; };
        return {
            {"negate", [this](const T& x, T& out) { evaluator.negate(x, out); }, scaled(-1.0)},
            {"add a real", [this, real](const T& x, T& out) { evaluator.add(x, real, out); },
             [this, real](const Message& m, Message& out) { evaluator.add(m, real, out); }, 0, 0, 1, cut},
            {"add a constant", [this, c](const T& x, T& out) { evaluator.add(x, c, out); },
             [this, c](const Message& m, Message& out) { evaluator.add(m, c, out); }, 0, 0, 1, cut},
            {"add a message", [this](const T& x, T& out) { evaluator.add(x, other, out); }, plus, 0, 0, 1,
             encoded},
            {"add a plaintext", [this, plain](const T& x, T& out) { evaluator.add(x, plain, out); }, plus, 0,
             0, 1, encoded},
            {"add a low plaintext", [this, low](const T& x, T& out) { evaluator.add(x, low, out); }, plus, 0,
             0, 1, lowEncoded},
            {"sub a constant", [this, c](const T& x, T& out) { evaluator.sub(x, c, out); },
             [this, c](const Message& m, Message& out) { evaluator.sub(m, c, out); }, 0, 0, 1, cut},
            {"sub a message", [this](const T& x, T& out) { evaluator.sub(x, other, out); }, minus, 0, 0, 1,
             encoded},
            {"sub a plaintext", [this, plain](const T& x, T& out) { evaluator.sub(x, plain, out); }, minus, 0,
             0, 1, encoded},
            {"sub a low plaintext", [this, low](const T& x, T& out) { evaluator.sub(x, low, out); }, minus, 0,
             0, 1, lowEncoded},
            {"mult by a real", [this, real](const T& x, T& out) { evaluator.mult(x, real, out); },
             scaled(real), 1, 0, 0.6, cut * size + rounded},
            {"mult by a constant", [this, c](const T& x, T& out) { evaluator.mult(x, c, out); }, scaled(c), 1,
             0, 1.8, cut * size + rounded},
            {"mult by an integer", [this](const T& x, T& out) { evaluator.mult(x, Complex(-5.0), out); },
             scaled(-5.0), 0, 0, 5},
            {"mult by an imaginary integer",
             [this](const T& x, T& out) { evaluator.mult(x, Complex(0, -3), out); }, scaled(Complex(0, -3)),
             0, 0, 3},
            {"mult by a Gaussian integer",
             [this](const T& x, T& out) { evaluator.mult(x, Complex(-2, 1), out); }, scaled(Complex(-2, 1)),
             0, 0, 3},
            {"mult by one", [this](const T& x, T& out) { evaluator.mult(x, Complex(1.0), out); }, same},
            {"mult by zero", [this](const T& x, T& out) { evaluator.mult(x, Complex(0.0), out); },
             scaled(0.0)},
            {"mult by a message", [this](const T& x, T& out) { evaluator.mult(x, other, out); }, times, 1, 0,
             otherSize + encoded, encoded * size + rounded},
            {"mult by a plaintext", [this, plain](const T& x, T& out) { evaluator.mult(x, plain, out); },
             times, 1, 0, otherSize + encoded, encoded * size + rounded},
            {"mult by a low plaintext", [this, low](const T& x, T& out) { evaluator.mult(x, low, out); },
             times, 1, 0, otherSize + lowEncoded, lowEncoded * size + rounded},
            {"multWithoutRescale by a real",
             [this, real](const T& x, T& out) { evaluator.multWithoutRescale(x, real, out); }, scaled(real),
             0, 1, 0.6, cut * size + rounded, true},
            {"multWithoutRescale by a constant",
             [this, c](const T& x, T& out) { evaluator.multWithoutRescale(x, c, out); }, scaled(c), 0, 1, 1.8,
             cut * size + rounded, true},
            {"multWithoutRescale by a plaintext",
             [this, plain](const T& x, T& out) { evaluator.multWithoutRescale(x, plain, out); }, times, 0, 1,
             otherSize + encoded, encoded * size + rounded, true},
            {"multImagUnit", [this](const T& x, T& out) { evaluator.multImagUnit(x, out); },
             scaled(Complex(0, 1))},
            {"multInteger 7", [this](const T& x, T& out) { evaluator.multInteger(x, 7, out); }, scaled(7.0),
             0, 0, 7},
            {"multInteger -7", [this](const T& x, T& out) { evaluator.multInteger(x, -7, out); },
             scaled(-7.0), 0, 0, 7},
            {"multInteger 1", [this](const T& x, T& out) { evaluator.multInteger(x, 1, out); }, same},
            {"multInteger -1", [this](const T& x, T& out) { evaluator.multInteger(x, -1, out); },
             scaled(-1.0)},
            {"multInteger 0", [this](const T& x, T& out) { evaluator.multInteger(x, 0, out); }, scaled(0.0)},
            {"levelDown", [this](const T& x, T& out) { evaluator.levelDown(x, 1, out); }, same,
             freshLevel - 1, 0, 1, cut * size + errors.atLevel(errors.rescale(), 1)},
            {"levelDown by one", [this](const T& x, T& out) { evaluator.levelDown(x, freshLevel - 1, out); },
             same, 1, 0, 1, cut * size + rounded},
            {"levelDown by none", [this](const T& x, T& out) { evaluator.levelDown(x, freshLevel, out); },
             same},
            {"levelDownOne", [this](const T& x, T& out) { evaluator.levelDownOne(x, out); }, same, 1, 0, 1,
             cut * size + rounded},
        };
    }

    double encryptionError() const { return scheme.errors.atLevel(scheme.errors.encryption(), freshLevel); }

    static T withEncoding(T x, EncodingType encoding) {
        x.setEncodingType(encoding);
        return x;
    }
};

TYPED_TEST_SUITE(LinearForms, BothTypes);

} // namespace

TYPED_TEST(LinearForms, ComputeWhatTheirNamesSay) {
    for (const u64 logSlots : {this->scheme.logFullSlots(), u64{2}, u64{0}}) {
        this->message = this->random.message(logSlots);
        this->other = this->random.message(logSlots);
        const TypeParam in = this->scheme.encrypt(this->message, this->freshLevel);
        for (const auto& form : this->forms()) {
            SCOPED_TRACE(testing::Message() << form.name << " logSlots=" << logSlots);
            TypeParam out(this->scheme.context);
            Message expected;
            form.apply(in, out);
            form.inTheClear(this->message, expected);
            EXPECT_EQ(out.getLevel(), this->freshLevel - form.levelsSpent);
            EXPECT_EQ(out.getRescaleCounter(), form.owed);
            EXPECT_EQ(out.getLogSlots(), logSlots);
            EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
            EXPECT_EQ(out.getNumPoly(), in.getNumPoly());
            const double bound = form.gain * this->encryptionError() + form.added +
                                 ErrorModel::relative * (maxAbs(expected) + maxAbs(this->message));
            EXPECT_LT(maxError(this->scheme.decrypt(out), expected), bound);
        }
    }
}

TYPED_TEST(LinearForms, WriteTheSameWordsIntoAnyOutput) {
    const TypeParam in = this->scheme.encrypt(this->message, this->freshLevel);
    for (const auto& form : this->forms()) {
        SCOPED_TRACE(form.name);
        TypeParam fresh(this->scheme.context), itself = in;
        form.apply(in, fresh);
        form.apply(itself, itself);
        EXPECT_TRUE(sameWords(itself, fresh));
        EXPECT_EQ(itself.getEncodingType(), EncodingType::Slot);
        for (TypeParam out : usedOutputs<TestFixture::type>(this->scheme.context)) {
            const EncodingType before = out.getEncodingType();
            form.apply(in, out);
            EXPECT_TRUE(sameWords(out, fresh));
            EXPECT_EQ(out.getEncodingType(), form.leavesEncoding ? before : EncodingType::Slot);
        }
    }
}

TYPED_TEST(LinearForms, SumsOfCiphertextsTakeOperandsOfAnyLevelIntoAnyOutput) {
    const auto& s = this->scheme;
    const auto& e = this->evaluator;
    for (const auto& [la, lb] :
         {std::pair{this->freshLevel, this->freshLevel}, {this->freshLevel, u64{1}}, {u64{1}, u64{3}}}) {
        SCOPED_TRACE(testing::Message() << "levels " << la << ", " << lb);
        const u64 low = std::min(la, lb);
        const TypeParam a = s.encrypt(this->message, la), b = s.encrypt(this->other, lb);
        // Both encryptions, the cut constant and the rescale of the one that comes down.
        const double bound = 2 * s.errors.atLevel(s.errors.encryption() + s.errors.rescale() + 2, low) +
                             8 * ErrorModel::relative;
        for (const bool adding : {true, false}) {
            const auto apply = [&](const TypeParam& x, const TypeParam& y, TypeParam& out) {
                adding ? e.add(x, y, out) : e.sub(x, y, out);
            };
            TypeParam fresh(s.context), first = a, second = b;
            Message expected;
            adding ? e.add(this->message, this->other, expected)
                   : e.sub(this->message, this->other, expected);
            apply(a, b, fresh);
            EXPECT_EQ(fresh.getLevel(), low);
            EXPECT_EQ(fresh.getRescaleCounter(), 0);
            EXPECT_LT(maxError(s.decrypt(fresh), expected), bound);
            apply(first, b, first);
            apply(a, second, second);
            EXPECT_TRUE(sameWords(first, fresh));
            EXPECT_TRUE(sameWords(second, fresh));
            for (TypeParam out : usedOutputs<TestFixture::type>(this->scheme.context)) {
                apply(a, b, out);
                EXPECT_TRUE(sameWords(out, fresh));
                EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
            }
        }
    }
}

TYPED_TEST(LinearForms, AnOperandPlusOrMinusItself) {
    const TypeParam a = this->scheme.encrypt(this->message, 2);
    TypeParam twice = a, doubled(this->scheme.context), nothing = a;
    this->evaluator.add(twice, twice, twice);
    this->evaluator.multInteger(a, 2, doubled);
    EXPECT_TRUE(sameWords(twice, doubled));
    this->evaluator.sub(nothing, nothing, nothing);
    for (u64 i = 0; i < nothing.getNumPoly(); ++i)
        EXPECT_TRUE(this->scheme.context->primes.isZero(nothing.getPoly(i)));
}

TYPED_TEST(LinearForms, TheTailOfTheLongerOperandIsKeptOrNegated) {
    const auto& e = this->evaluator;
    const TypeParam shorter = this->scheme.encrypt(this->message, 2);
    TypeParam longer = this->scheme.encrypt(this->other, 2);
    const u64 n = shorter.getNumPoly();
    longer.setNumPoly(n + 1); // its last element is a copy of its first
    const Polynomial tail = longer.getPoly(n);
    Polynomial negated(this->scheme.context, false, true);
    this->scheme.context->primes.negate(tail, negated);

    TypeParam out(this->scheme.context), aliased = longer, grown = shorter;
    e.add(shorter, longer, out);
    ASSERT_EQ(out.getNumPoly(), n + 1);
    EXPECT_TRUE(sameWords(out.getPoly(n), tail));
    e.add(shorter, aliased, aliased);
    EXPECT_TRUE(sameWords(aliased, out));
    e.add(grown, longer, grown);
    EXPECT_TRUE(sameWords(grown, out));

    TypeParam sum(this->scheme.context), difference(this->scheme.context); // which have no tail yet
    e.add(longer, shorter, sum);
    EXPECT_TRUE(sameWords(sum.getPoly(n), tail));
    e.sub(longer, shorter, difference);
    EXPECT_TRUE(sameWords(difference.getPoly(n), tail));
    e.sub(shorter, longer, out);
    EXPECT_TRUE(sameWords(out.getPoly(n), negated));
    aliased = longer;
    grown = shorter;
    e.sub(shorter, aliased, aliased);
    EXPECT_TRUE(sameWords(aliased, out));
    e.sub(grown, longer, grown);
    EXPECT_TRUE(sameWords(grown, out));
}

TYPED_TEST(LinearForms, NegationAndSumsOfCiphertextsTakeCoefficientEncodings) {
    const std::vector<double> numbers{0.5, -0.25, 3.0, 1.0};
    const TypeParam x = this->scheme.encryptCoefficients(numbers, 2);
    TypeParam out(this->scheme.context);
    std::vector<double> got;
    const double bound = 2 * this->scheme.errors.atLevel(this->scheme.errors.encryption(), 2);
    this->evaluator.add(x, x, out);
    EXPECT_EQ(out.getEncodingType(), EncodingType::Coefficient);
    this->scheme.decryptor.decrypt(out, this->scheme.secretKey, got);
    for (u64 i = 0; i < numbers.size(); ++i) EXPECT_NEAR(got[i], 2 * numbers[i], bound);
    this->evaluator.negate(x, out);
    EXPECT_EQ(out.getEncodingType(), EncodingType::Coefficient);
    this->scheme.decryptor.decrypt(out, this->scheme.secretKey, got);
    for (u64 i = 0; i < numbers.size(); ++i) EXPECT_NEAR(got[i], -numbers[i], bound);

    EXPECT_REFUSED(this->evaluator.sub(x, x, out), "The operands have to encode the message on its slots");
    const TypeParam lower = this->scheme.encryptCoefficients(numbers, 1);
    EXPECT_REFUSED(this->evaluator.add(x, lower, out), "The operand have to encode the message on its slots");
}

TYPED_TEST(LinearForms, RescaleDividesByTheTopPrimeAndPaysOne) {
    TypeParam x = this->scheme.encrypt(this->message, 3, 2);
    const double bound =
        this->scheme.errors.atLevel(this->scheme.errors.encryption() + 3 * this->scheme.errors.rescale(), 1) +
        4 * ErrorModel::relative;
    this->evaluator.rescale(x);
    EXPECT_EQ(x.getLevel(), 2u);
    EXPECT_EQ(x.getRescaleCounter(), 1);
    EXPECT_TRUE(x.isNTT());
    this->evaluator.rescale(x);
    EXPECT_EQ(x.getLevel(), 1u);
    EXPECT_EQ(x.getRescaleCounter(), 0);
    EXPECT_LT(maxError(this->scheme.decrypt(x), this->message), bound);
}

TYPED_TEST(LinearForms, AConstantIsScaledByTheOwedPrimes) {
    TypeParam x = this->scheme.encrypt(this->message, 3, 2), out(this->scheme.context);
    const Complex c(0.25, -2.0);
    this->evaluator.add(x, c, out);
    EXPECT_EQ(out.getRescaleCounter(), 2);
    Message expected;
    this->evaluator.add(this->message, c, expected);
    const double bound = this->scheme.errors.atLevel(
                             this->scheme.errors.encryption() + 2 + 3 * this->scheme.errors.rescale(), 1) +
                         4 * ErrorModel::relative;
    EXPECT_LT(maxError(this->scheme.decrypt(out), expected), bound);
    this->evaluator.rescale(out);
    this->evaluator.rescale(out);
    EXPECT_LT(maxError(this->scheme.decrypt(out), expected), bound);
}

TYPED_TEST(LinearForms, AConstantFactorIsEncodedAtTheLevelWhateverIsOwed) {
    const u64 level = 3;
    const double c = -0.375;
    const TypeParam x = this->scheme.encrypt(this->message, level, 1);
    TypeParam out(this->scheme.context);
    this->evaluator.multWithoutRescale(x, Complex(c, 0.0), out);
    EXPECT_EQ(out.getLevel(), level);
    EXPECT_EQ(out.getRescaleCounter(), 2);
    const LevelledElement factor = ConstantEnDecoder(this->scheme.context).encodeConst(c, level, 0);
    Polynomial expected(this->scheme.context, false, true);
    for (u64 i = 0; i < x.getNumPoly(); ++i) {
        this->scheme.context->primes.constMult(x.getPoly(i), factor, expected);
        EXPECT_TRUE(sameWords(out.getPoly(i), expected));
    }
}

TYPED_TEST(LinearForms, IntegersSpendNoLevelEvenAtLevelZero) {
    const TypeParam x = this->scheme.encrypt(this->message, 0);
    TypeParam out(this->scheme.context), tripled(this->scheme.context);
    this->evaluator.mult(x, Complex(3.0, 0.0), out);
    EXPECT_EQ(out.getLevel(), 0u);
    EXPECT_EQ(out.getRescaleCounter(), 0);
    this->evaluator.multInteger(x, 3, tripled);
    EXPECT_TRUE(sameWords(out, tripled));
    EXPECT_REFUSED(this->evaluator.mult(x, Complex(0.5, 0.0), out), "The level of the operand is zero");
}

TYPED_TEST(LinearForms, ConstantsWithinAHundredMillionthOfIntegersCountAsSuch) {
    const TypeParam x = this->scheme.encrypt(this->message, 2);
    TypeParam near(this->scheme.context), exact(this->scheme.context), part(this->scheme.context),
        far(this->scheme.context);
    this->evaluator.mult(x, Complex(2.0 + 5e-9, -1.0), near);
    EXPECT_EQ(near.getLevel(), 2u);
    this->evaluator.multInteger(x, 2, exact);
    this->evaluator.multImagUnit(x, part);
    this->evaluator.sub(exact, part, exact);
    EXPECT_TRUE(sameWords(near, exact));
    this->evaluator.mult(x, Complex(1e-8, -1e-8), near); // the bound itself still counts
    EXPECT_EQ(near.getLevel(), 2u);
    this->evaluator.mult(x, Complex(2.0 + 1.01e-8, -1.0), far);
    EXPECT_EQ(far.getLevel(), 1u);
    this->evaluator.mult(x, Complex(2.0, -1.0 + 1.01e-8), far);
    EXPECT_EQ(far.getLevel(), 1u);
    // A half is no integer, whichever way it rounds.
    this->evaluator.mult(x, Complex(-0.5, 0.0), far);
    EXPECT_EQ(far.getLevel(), 1u);
}

TYPED_TEST(LinearForms, IntegersOfTheWholeWordAreMultipliedExactly) {
    const TypeParam x = this->scheme.encrypt(this->message, 1);
    TypeParam out(this->scheme.context), expected(this->scheme.context);
    this->evaluator.mult(x, Complex(0x1.8p62), out);
    this->evaluator.multInteger(x, 3l << 30, expected);
    this->evaluator.multInteger(expected, 1l << 31, expected);
    EXPECT_TRUE(sameWords(out, expected));
    this->evaluator.multInteger(x, std::numeric_limits<long>::min(), out);
    this->evaluator.multInteger(x, -(1l << 31), expected);
    this->evaluator.multInteger(expected, 1l << 32, expected);
    EXPECT_TRUE(sameWords(out, expected));
}

TYPED_TEST(LinearForms, LevelDownToTheSameLevelIsACopy) {
    for (const u64 level : {this->freshLevel, u64{0}}) {
        const TypeParam x = this->scheme.encrypt(this->message, level);
        TypeParam out(this->scheme.context);
        this->evaluator.levelDown(x, level, out);
        EXPECT_TRUE(sameWords(out, x));
    }
    // At the very top there is no scale beyond, and none is asked for.
    const TypeParam top(this->scheme.context);
    TypeParam out(this->scheme.context);
    this->evaluator.levelDown(top, this->scheme.topLevel(), out);
    EXPECT_EQ(out.getLevel(), this->scheme.topLevel());
}

TYPED_TEST(LinearForms, LevelDownMultipliesOnceAndRescalesOnce) {
    // What the formula says, with the plain operations.
    const auto& scales = this->scheme.context->scale_factors;
    const u64 target = 1;
    const TypeParam x = this->scheme.encrypt(this->message, this->freshLevel);
    TypeParam out(this->scheme.context), expected = x;
    this->evaluator.levelDown(x, target, out);
    expected.setLevel(target + 1);
    const double exponent = scales.log_scale[target + 1] - scales.log_scale[this->freshLevel] +
                            static_cast<double>(scales.level_correction[target + 1]);
    this->evaluator.multWithoutRescale(expected, Complex(std::pow(2.0, exponent), 0.0), expected);
    this->evaluator.rescale(expected);
    EXPECT_TRUE(sameWords(out, expected));
}

TYPED_TEST(LinearForms, APlaintextOfAnotherLevelCountsAsItsMessage) {
    const TypeParam x = this->scheme.encrypt(this->message, 1);
    const Plaintext plain = this->scheme.encoder.encode(this->other, 2);
    TypeParam out(this->scheme.context), expected(this->scheme.context);
    const double bound =
        2 * this->scheme.errors.atLevel(this->scheme.errors.encoding(), 1) + 4 * ErrorModel::relative;
    this->evaluator.add(x, plain, out);
    this->evaluator.add(x, this->other, expected);
    EXPECT_LT(maxError(this->scheme.decrypt(out), this->scheme.decrypt(expected)), bound);
    const Message decoded = this->scheme.encoder.decode(plain);
    this->evaluator.add(x, decoded, expected);
    EXPECT_TRUE(sameWords(out, expected));
    this->evaluator.sub(x, plain, out);
    this->evaluator.sub(x, decoded, expected);
    EXPECT_TRUE(sameWords(out, expected));
    this->evaluator.mult(x, plain, out);
    this->evaluator.mult(x, decoded, expected);
    EXPECT_TRUE(sameWords(out, expected));
    // What both owe counts in the new encoding too.
    const TypeParam owing = this->scheme.encrypt(this->message, 2, 1);
    const Plaintext owingPlain = this->scheme.encoder.encode(this->other, 3, 1);
    const Message owingDecoded = this->scheme.encoder.decode(owingPlain);
    this->evaluator.add(owing, owingPlain, out);
    this->evaluator.add(owing, owingDecoded, expected);
    EXPECT_TRUE(sameWords(out, expected));
    this->evaluator.sub(owing, owingPlain, out);
    this->evaluator.sub(owing, owingDecoded, expected);
    EXPECT_TRUE(sameWords(out, expected));
}

TYPED_TEST(LinearForms, SparseLevelsAndOwedRescalesSurviveAFile) {
    // Elements encrypted under the secret key may be saved as seeds; results must not be.
    TypeParam x(this->scheme.context), out(this->scheme.context), loaded(this->scheme.context);
    this->scheme.encryptor.encrypt(this->message, this->scheme.secretKey, x, 2, 0);
    for (const auto& apply : std::vector<std::function<void(TypeParam&)>>{
             [&](TypeParam& y) { this->evaluator.negate(y, y); },
             [&](TypeParam& y) { this->evaluator.add(y, y, y); },
             [&](TypeParam& y) { this->evaluator.multInteger(y, 3, y); },
             [&](TypeParam& y) { this->evaluator.levelDown(y, 1, y); },
             [&](TypeParam& y) { this->evaluator.mult(y, this->other, y); },
             [&](TypeParam& y) { this->evaluator.add(y, Complex(1.5), y); }}) {
        out = x;
        apply(out);
        std::stringstream file;
        out.save(file);
        loaded.load(file);
        EXPECT_TRUE(sameWords(loaded, out));
    }
}

// ---- refusals: each guard with all later ones broken too

namespace {

constexpr const char* notOnSlots = "The operand have to encode the message on its slots";
constexpr const char* levelZero = "The level of the operand is zero";
constexpr const char* owes = "The Operand should have rescale counter zero";
constexpr const char* oneOwes = "The Operands should have rescale counter zero";
constexpr const char* levelsDiffer = "Operands have different levels.";
constexpr const char* slotsDiffer = "Two operands have different logSlots";
constexpr const char* countersDiffer = "Two operands have different RescaleCounter";
constexpr const char* devicesDiffer = "Two operands are in different devices";
constexpr const char* encodingsDiffer = "Two operands are encoding messages in different way";

} // namespace

template <class T>
class LinearRefusals : public LinearForms<T> {
protected:
    T encrypted(u64 level, int counter, EncodingType encoding = EncodingType::Slot) {
        T x(this->scheme.context);
        x.setLevel(level > static_cast<u64>(counter) ? level : static_cast<u64>(counter));
        x.setRescaleCounter(counter);
        x.setLevel(level);
        x.setEncodingType(encoding);
        return x;
    }

    Plaintext encoded(u64 level, int counter) {
        Plaintext p = this->scheme.encoder.encode(this->message, 3);
        p.setRescaleCounter(counter);
        p.setLevel(level);
        return p;
    }

    /// Expects a refusal that leaves the output alone.
    template <class Apply>
    void refuses(Apply&& apply, const char* text) {
        T out = this->scheme.encrypt(this->message, 1);
        const T before = out;
        EXPECT_REFUSED(apply(out), text);
        EXPECT_TRUE(sameWords(out, before)) << text;
        EXPECT_EQ(out.getEncodingType(), before.getEncodingType()) << text;
    }

    static constexpr EncodingType coefficient = EncodingType::Coefficient;
    const Complex half{0.5, 0.0};
};

TYPED_TEST_SUITE(LinearRefusals, BothTypes);

TYPED_TEST(LinearRefusals, ProductsWithAConstant) {
    const auto& e = this->evaluator;
    auto x = this->encrypted(0, 1, this->coefficient);
    this->refuses([&](auto& out) { e.mult(x, this->half, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.multWithoutRescale(x, this->half, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.multImagUnit(x, out); }, notOnSlots);
    for (const long n : {0l, 1l, -1l, 5l, -5l})
        this->refuses([&](auto& out) { e.multInteger(x, n, out); }, notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    this->refuses([&](auto& out) { e.mult(x, this->half, out); }, owes);
    this->refuses([&](auto& out) { e.mult(x, Complex(2.0), out); }, owes);
    this->refuses([&](auto& out) { e.multWithoutRescale(x, this->half, out); }, levelZero);
    x.setRescaleCounter(0);
    this->refuses([&](auto& out) { e.mult(x, this->half, out); }, levelZero);
}

TYPED_TEST(LinearRefusals, SumsWithAConstant) {
    const auto& e = this->evaluator;
    auto x = this->encrypted(0, 1, this->coefficient);
    this->refuses([&](auto& out) { e.add(x, this->half, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.sub(x, this->half, out); }, notOnSlots);
    // A counter above the level, left there by setLevel, names no scale.
    x.setEncodingType(EncodingType::Slot);
    this->refuses([&](auto& out) { e.add(x, this->half, out); },
                  "Rescale counter should be less than or equal to the level");
}

TYPED_TEST(LinearRefusals, SumsWithAMessage) {
    const auto& e = this->evaluator;
    auto x = this->encrypted(2, 0, this->coefficient);
    Message small(1, Complex(1.0));
    small.to(Device{DeviceType::CPU, 1});
    this->refuses([&](auto& out) { e.add(x, small, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.sub(x, small, out); }, notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    this->refuses([&](auto& out) { e.add(x, small, out); }, slotsDiffer);
    this->refuses([&](auto& out) { e.sub(x, small, out); }, slotsDiffer);
    x.setLogSlots(1);
    this->refuses([&](auto& out) { e.add(x, small, out); }, devicesDiffer);
    this->refuses([&](auto& out) { e.sub(x, small, out); }, devicesDiffer);
    x.setLogSlots(0);
    const Message empty;
    this->refuses([&](auto& out) { e.add(x, empty, out); }, "[encode] Cannot encode a message of size 0");
}

TYPED_TEST(LinearRefusals, SumsWithAPlaintext) {
    const auto& e = this->evaluator;
    const auto both = [&](const TypeParam& x, const Plaintext& p, const char* text) {
        this->refuses([&](auto& out) { e.add(x, p, out); }, text);
        this->refuses([&](auto& out) { e.sub(x, p, out); }, text);
    };
    auto x = this->encrypted(2, 0, this->coefficient);
    Plaintext p = this->encoded(2, 1);
    p.setLogSlots(1);
    p.to(Device{DeviceType::CPU, 1});
    both(x, p, notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    both(x, p, slotsDiffer);
    p.setLogSlots(x.getLogSlots());
    both(x, p, countersDiffer);
    p.setRescaleCounter(0);
    both(x, p, devicesDiffer);
}

TYPED_TEST(LinearRefusals, SumsOfCiphertexts) {
    const auto& e = this->evaluator;
    const auto& impl = this->internals;
    const auto all = [&](const TypeParam& a, const TypeParam& b, const char* text) {
        this->refuses([&](auto& out) { e.add(a, b, out); }, text);
        this->refuses([&](auto& out) { impl.addWithoutCheck(a, b, out); }, text);
        this->refuses([&](auto& out) { impl.subWithoutCheck(a, b, out); }, text);
    };
    const auto a = this->encrypted(2, 0);
    auto b = this->encrypted(2, 1, this->coefficient);
    b.setLogSlots(1);
    b.to(Device{DeviceType::CPU, 1});
    this->refuses([&](auto& out) { e.sub(a, b, out); },
                  "The operands have to encode the message on its slots");
    this->refuses([&](auto& out) { e.sub(b, a, out); },
                  "The operands have to encode the message on its slots");
    all(a, b, slotsDiffer);
    b.setLogSlots(a.getLogSlots());
    all(a, b, countersDiffer);
    b.setRescaleCounter(0);
    all(a, b, devicesDiffer);
    b.to(Device{});
    all(a, b, encodingsDiffer);
}

TYPED_TEST(LinearRefusals, SumsOfCiphertextsOfTwoLevels) {
    const auto& e = this->evaluator;
    TypeParam modUp(this->scheme.context, true);
    modUp.setLevel(3);
    modUp.setEncodingType(this->coefficient);
    const auto low = this->encrypted(2, 1, this->coefficient);
    this->refuses([&](auto& out) { e.add(modUp, low, out); },
                  "Cannot add different level modUp-ed ciphertexts");
    this->refuses([&](auto& out) { e.add(low, modUp, out); },
                  "Cannot add different level modUp-ed ciphertexts");
    modUp.setEncodingType(EncodingType::Slot);
    const auto lowOnSlots = this->encrypted(2, 1);
    this->refuses([&](auto& out) { e.sub(modUp, lowOnSlots, out); },
                  "Cannot sub different level modUp-ed ciphertexts");
    this->refuses([&](auto& out) { e.sub(lowOnSlots, modUp, out); },
                  "Cannot sub different level modUp-ed ciphertexts");
    // The higher operand owes a rescale, so it cannot come down.
    this->refuses([&](auto& out) { e.add(this->encrypted(3, 1), this->encrypted(1, 1), out); }, owes);
    this->refuses([&](auto& out) { e.sub(this->encrypted(1, 1), this->encrypted(3, 1), out); }, owes);
    // Of one level, but of two mod-up states.
    modUp.setLevel(2);
    this->refuses([&](auto& out) { e.add(modUp, this->encrypted(2, 0), out); },
                  "Operands have different mod-up states.");
}

TYPED_TEST(LinearRefusals, ProductsWithAMessage) {
    const auto& e = this->evaluator;
    Message small(1, Complex(1.0));
    auto x = this->encrypted(0, 1, this->coefficient);
    this->refuses([&](auto& out) { e.mult(x, small, out); }, notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    this->refuses([&](auto& out) { e.mult(x, small, out); }, levelZero);
    auto higher = this->encrypted(2, 1);
    this->refuses([&](auto& out) { e.mult(higher, small, out); }, owes);
    higher.setRescaleCounter(0);
    this->refuses([&](auto& out) { e.mult(higher, small, out); }, slotsDiffer);
}

TYPED_TEST(LinearRefusals, ProductsWithAPlaintext) {
    const auto& e = this->evaluator;
    Plaintext p = this->encoded(1, 1);
    p.setLogSlots(1);
    p.to(Device{DeviceType::CPU, 1});
    auto x = this->encrypted(0, 1, this->coefficient);
    this->refuses([&](auto& out) { e.mult(x, p, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.multWithoutRescale(x, p, out); }, notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    this->refuses([&](auto& out) { e.mult(x, p, out); }, levelZero);
    this->refuses([&](auto& out) { e.multWithoutRescale(x, p, out); }, levelsDiffer);
    p.setLevel(0);
    this->refuses([&](auto& out) { e.multWithoutRescale(x, p, out); }, levelZero);
    const auto high = this->encrypted(2, 0);
    this->refuses([&](auto& out) { e.mult(high, p, out); }, levelZero);
    p.setLevel(2);
    this->refuses([&](auto& out) { e.mult(high, p, out); }, oneOwes);
    this->refuses([&](auto& out) { e.multWithoutRescale(high, p, out); }, oneOwes);
    p.setRescaleCounter(0);
    this->refuses([&](auto& out) { e.mult(this->encrypted(2, 1), p, out); }, oneOwes);
    this->refuses([&](auto& out) { e.mult(high, p, out); }, slotsDiffer);
    p.setLogSlots(high.getLogSlots());
    this->refuses([&](auto& out) { e.mult(high, p, out); }, devicesDiffer);
}

TYPED_TEST(LinearRefusals, Rescale) {
    const auto& e = this->evaluator;
    auto x = this->encrypted(0, 0, this->coefficient);
    EXPECT_REFUSED(e.rescale(x), notOnSlots);
    x.setEncodingType(EncodingType::Slot);
    EXPECT_REFUSED(e.rescale(x), levelZero);
    auto y = this->encrypted(1, 0);
    EXPECT_REFUSED(e.rescale(y), "[rescale] Rescale Counter of the Ciphertext is zero or less");
}

TYPED_TEST(LinearRefusals, LevelChanges) {
    const auto& e = this->evaluator;
    const auto x = this->encrypted(2, 1, this->coefficient);
    this->refuses([&](auto& out) { e.levelDown(x, 3, out); },
                  "[level down] target level is greater than level of Ciphertext.");
    this->refuses([&](auto& out) { e.levelDown(x, 2, out); }, notOnSlots);
    this->refuses([&](auto& out) { e.levelDown(this->encrypted(2, 1), 2, out); }, owes);
    this->refuses([&](auto& out) { e.levelDownOne(this->encrypted(0, 1, this->coefficient), out); },
                  notOnSlots);
    this->refuses([&](auto& out) { e.levelDownOne(this->encrypted(0, 1), out); }, levelZero);
    this->refuses([&](auto& out) { e.levelDownOne(this->encrypted(1, 1), out); }, owes);
}
