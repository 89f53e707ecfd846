#include "support/NumbersOutOfRange.hpp"

#include "evaluator/HomEvaluatorImpl.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;
using Module = CiphertextBase<EncryptionType::MLWE>;

constexpr double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::nan("");

/// The same operations on either kind of ciphertext and on plaintexts, with constants and with messages.
template <class T>
class NumbersOutOfRange : public testing::Test {
protected:
    static constexpr bool isPlain = std::is_same_v<T, Plaintext>;
    static constexpr EncryptionType type =
        std::is_same_v<T, Module> ? EncryptionType::MLWE : EncryptionType::RLWE;

    /// An operation, and the counter for which it encodes the number given an operand that owes `counter`.
    struct Form {
        const char* name;
        std::function<void(const T&, Complex, T&)> apply;
        bool isProduct;
    };

    T fresh(u64 level, int counter = 0) {
        if constexpr (isPlain)
            return scheme.encoder.encode(message, level, counter);
        else
            return scheme.encrypt(message, level, counter);
    }

    std::vector<Form> withConstants() {
        const HomEvaluator& e = scheme.evaluator;
        return {
            {"add", [&e](const T& x, Complex c, T& out) { e.add(x, c, out); }, false},
            {"sub", [&e](const T& x, Complex c, T& out) { e.sub(x, c, out); }, false},
            {"mult", [&e](const T& x, Complex c, T& out) { e.mult(x, c, out); }, true},
            {"multWithoutRescale",
             [&impl = *e.getImpl()](const T& x, Complex c, T& out) { impl.multWithoutRescale(x, c, out); },
             true},
        };
    }

    /// With the message that has the number in its last slot.
    std::vector<Form> withMessages() {
        if constexpr (isPlain) return {};
        const HomEvaluator& e = scheme.evaluator;
        const auto messageOf = [this](Complex c) {
            Message m = message;
            m[m.getSize() - 1] = c;
            return m;
        };
        if constexpr (!isPlain)
            return {
                {"add", [&e, messageOf](const T& x, Complex c, T& out) { e.add(x, messageOf(c), out); },
                 false},
                {"sub", [&e, messageOf](const T& x, Complex c, T& out) { e.sub(x, messageOf(c), out); },
                 false},
                {"mult", [&e, messageOf](const T& x, Complex c, T& out) { e.mult(x, messageOf(c), out); },
                 true},
            };
    }

    double largestAt(u64 level, int counter) {
        const u64 settled = level - static_cast<u64>(counter);
        return largestEncodable(slice(getPrimeList(scheme.context), 0, settled + 1),
                                getDefaultScaleFactorList(scheme.context)[settled]);
    }

    const SchemeBase<type>& scheme =
        SchemeBase<type>::of(type == EncryptionType::RLWE ? ParameterPreset::FX : ParameterPreset::SD3D6R2);
    Seeded random{171};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
    Message message = random.message(scheme.logFullSlots(), 0.25);
};

using EveryType = testing::Types<Ciphertext, Module, Plaintext>;
TYPED_TEST_SUITE(NumbersOutOfRange, EveryType);

/// Both as a real constant and as either part of a complex one. A real number beyond 2^63 is an integer to
/// `mult` of ciphertexts, which has a bound of its own.
TYPED_TEST(NumbersOutOfRange, AreRefusedAsConstantsAndLeaveTheOutputAsItWas) {
    const TypeParam in = this->fresh(2);
    const double largest = this->largestAt(2, 0), above = nextAbove(largest);
    auto wrong = neverEncodable();
    wrong.insert(wrong.end(), {above, -above});
    TypeParam out = this->fresh(3);
    const TypeParam before = out;
    for (const auto& form : this->withConstants())
        for (const double x : wrong)
            for (const Complex c : {Complex(x, 0.3), Complex(0.3, x)}) {
                SCOPED_TRACE(testing::Message() << form.name << " of " << c);
                const bool negated = std::string(form.name) == "sub";
                expectOutOfRange([&] { form.apply(in, c, out); }, "number", negated ? -x : x, 2, 0, largest);
                EXPECT_TRUE(sameWords(out, before));
                TypeParam inPlace = in;
                expectOutOfRange([&] { form.apply(inPlace, c, inPlace); }, "number", negated ? -x : x, 2, 0,
                                 largest);
                EXPECT_TRUE(sameWords(inPlace, in));
            }
    for (const auto& form : this->withConstants())
        for (const double x : {notANumber, infinity, -infinity})
            expectOutOfRange([&] { form.apply(in, x, out); }, "number",
                             std::string(form.name) == "sub" ? -x : x, 2, 0, largest);
}

TYPED_TEST(NumbersOutOfRange, TheLargestOnesAreTaken) {
    TypeParam out = this->fresh(1);
    for (const auto& form : this->withConstants()) {
        SCOPED_TRACE(form.name);
        // Products take the last level of all to be above 0.
        for (const u64 level : {form.isProduct ? u64{1} : u64{0}, u64{3}}) {
            const double largest = this->largestAt(level, 0);
            for (const Complex c : {Complex(largest, 0.3), Complex(0.3, -largest)})
                EXPECT_NO_THROW(form.apply(this->fresh(level), c, out)) << c;
            for (const double x : {DBL_MIN, -DBL_MIN, -0.0, 0x1p-1074})
                EXPECT_NO_THROW(form.apply(this->fresh(level), Complex(x, 0.3), out)) << x;
        }
    }
}

/// Sums encode for the level that the operand comes down to; products owe nothing yet when they encode.
TYPED_TEST(NumbersOutOfRange, AreHeldAgainstTheLevelThatTheOperandComesDownTo) {
    const TypeParam in = this->fresh(3, 2);
    TypeParam out = this->fresh(1);
    for (const auto& form : this->withConstants()) {
        if (form.isProduct) continue;
        SCOPED_TRACE(form.name);
        const double largest = this->largestAt(3, 2), x = nextAbove(largest);
        EXPECT_LT(x, this->largestAt(3, 0));
        EXPECT_NO_THROW(form.apply(in, largest, out));
        expectOutOfRange([&] { form.apply(in, x, out); }, "number", std::string(form.name) == "sub" ? -x : x,
                         3, 2, largest);
    }
}

TYPED_TEST(NumbersOutOfRange, AreRefusedAsSlotsAndLeaveTheOutputAsItWas) {
    const TypeParam in = this->fresh(2);
    TypeParam out = this->fresh(3);
    const TypeParam before = out;
    const double largest = this->largestAt(2, 0);
    for (const auto& form : this->withMessages())
        for (const double x : neverEncodable())
            for (const Complex c : {Complex(x, 0.3), Complex(0.3, x)}) {
                SCOPED_TRACE(testing::Message() << form.name << " of " << c);
                const RangeRefusal told = rangeRefusalOf([&] { form.apply(in, c, out); });
                EXPECT_EQ(told.what, std::isfinite(x) ? "coefficient" : "number") << told.text;
                EXPECT_EQ(told.largest, largest) << told.text;
                EXPECT_FALSE(std::abs(told.value) <= largest) << told.text;
                EXPECT_TRUE(sameWords(out, before));
                TypeParam inPlace = in;
                EXPECT_EQ(rangeRefusalOf([&] { form.apply(inPlace, c, inPlace); }).text, told.text);
                EXPECT_TRUE(sameWords(inPlace, in));
            }
}

// ---- after all other rules

class NumbersLastOfAll : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const HomEvaluator& evaluator = scheme.evaluator;
    Message message = Message(scheme.logFullSlots(), 0.25);
    Ciphertext out{scheme.context};
    const Complex constant{0.3, notANumber};
    const Message wrong = Message(scheme.logFullSlots(), constant);
};

TEST_F(NumbersLastOfAll, OfConstants) {
    Ciphertext onCoefficients = scheme.encrypt(message, 0, 0);
    onCoefficients.setEncodingType(EncodingType::Coefficient);
    const char* notOnSlots = "The operand have to encode the message on its slots";
    EXPECT_REFUSED(evaluator.add(onCoefficients, constant, out), notOnSlots);
    EXPECT_REFUSED(evaluator.mult(onCoefficients, constant, out), notOnSlots);
    EXPECT_REFUSED(evaluator.multWithoutRescale(onCoefficients, constant, out), notOnSlots);
    EXPECT_REFUSED(evaluator.mult(scheme.encrypt(message, 1, 1), constant, out),
                   "The Operand should have rescale counter zero");
    EXPECT_REFUSED(evaluator.mult(scheme.encrypt(message, 1, 1), Complex(1e300), out),
                   "The Operand should have rescale counter zero");
    EXPECT_REFUSED(evaluator.mult(scheme.encrypt(message, 0), constant, out),
                   "The level of the operand is zero");
    EXPECT_REFUSED(evaluator.multWithoutRescale(scheme.encrypt(message, 0), constant, out),
                   "The level of the operand is zero");
}

TEST_F(NumbersLastOfAll, OfACounterThatThereIsNoLevelFor) {
    const Ciphertext in = scheme.encrypt(message, 2, 2);
    Ciphertext kept = scheme.encrypt(message, 3);
    const Ciphertext before = kept;
    for (const Complex c : {constant, Complex(0.3, 0.0)})
        EXPECT_REFUSED(evaluator.multWithoutRescale(in, c, kept),
                       "Rescale counter should be less than or equal to the level");
    EXPECT_TRUE(sameWords(kept, before));
}

TEST_F(NumbersLastOfAll, OfMessages) {
    const Ciphertext in = scheme.encrypt(message, 2);
    const Message fewer(2, constant);
    EXPECT_REFUSED(evaluator.add(in, fewer, out), "Two operands have different logSlots");
    EXPECT_REFUSED(evaluator.sub(in, fewer, out), "Two operands have different logSlots");
    EXPECT_REFUSED(evaluator.mult(in, fewer, out), "Two operands have different logSlots");
    Ciphertext modUp(scheme.context, true);
    modUp.setLevel(2);
    EXPECT_REFUSED(evaluator.add(modUp, wrong, out), "Operands have different mod-up states.");
    EXPECT_REFUSED(evaluator.mult(modUp, wrong, out), "Operands have different mod-up states.");
    EXPECT_REFUSED(evaluator.mult(scheme.encrypt(message, 0), wrong, out),
                   "The level of the operand is zero");
    EXPECT_REFUSED(evaluator.mult(scheme.encrypt(message, 2, 1), wrong, out),
                   "The Operand should have rescale counter zero");
}

// ---- the integer shortcut

template <class T>
class IntegersOutOfRange : public NumbersOutOfRange<T> {};
using BothTypes = testing::Types<Ciphertext, Module>;
TYPED_TEST_SUITE(IntegersOutOfRange, BothTypes);

TYPED_TEST(IntegersOutOfRange, AreRefusedFrom63BitsOn) {
    const TypeParam in = this->fresh(2);
    TypeParam out = this->fresh(3);
    const TypeParam before = out;
    const auto& evaluator = this->scheme.evaluator;
    const std::pair<double, const char*> wrong[] = {{0x1p63, "9223372036854775808"},
                                                    {-0x1p63, "-9223372036854775808"},
                                                    {0x1p64, "18446744073709551616"},
                                                    {1e300, "1e+300"},
                                                    {-DBL_MAX, "-1.7976931348623157e+308"}};
    for (const auto& [x, text] : wrong)
        for (const Complex c : {Complex(x, 0.0), Complex(3.0, x), Complex(x, -1.0)}) {
            const std::string refusal =
                std::string("[mult] Cannot multiply by the integer ") + text +
                ": the magnitude should be at most 9223372036854774784. Give a smaller number.";
            EXPECT_REFUSED(evaluator.mult(in, c, out), refusal);
            EXPECT_TRUE(sameWords(out, before));
            TypeParam inPlace = in;
            EXPECT_REFUSED(evaluator.mult(inPlace, c, inPlace), refusal);
            EXPECT_TRUE(sameWords(inPlace, in));
        }
}

TYPED_TEST(IntegersOutOfRange, TheLargestIsMultipliedExactly) {
    const TypeParam in = this->fresh(0);
    TypeParam out(this->scheme.context), expected(this->scheme.context);
    const double largest = std::nextafter(0x1p63, 0.0);
    this->scheme.evaluator.mult(in, Complex(largest), out);
    this->scheme.evaluator.multInteger(in, static_cast<long>(largest), expected);
    EXPECT_TRUE(sameWords(out, expected));
    this->scheme.evaluator.mult(in, Complex(-largest), out);
    this->scheme.evaluator.negate(expected, expected);
    EXPECT_TRUE(sameWords(out, expected));
}

// ---- plaintexts that another level cannot hold

TEST(NumbersOutOfRange, APlaintextOfAHighLevelMayNotFitALowOne) {
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const Message large(scheme.logFullSlots(), 0x1p20);
    const Plaintext high = scheme.encoder.encode(large, 3);
    const Ciphertext low = scheme.encrypt(Message(scheme.logFullSlots(), 0.5), 0);
    Ciphertext out = low;
    Plaintext plain(scheme.context);
    const Plaintext before = plain;
    for (const std::function<void()>& call :
         {std::function<void()>([&] { scheme.evaluator.add(low, high, out); }),
          std::function<void()>([&] { scheme.evaluator.sub(low, high, out); }),
          std::function<void()>([&] { scheme.evaluator.relevel(high, 0, plain); })})
        EXPECT_EQ(rangeRefusalOf(call).what, "coefficient") << rangeRefusalOf(call).text;
    EXPECT_TRUE(sameWords(out, low));
    EXPECT_TRUE(sameWords(plain, before));
    scheme.evaluator.relevel(high, 1, plain);
    EXPECT_LT(maxError(scheme.encoder.decode(plain), large), 1e-3);
}

/// Of messages nothing is encoded.
TEST(NumbersOutOfRange, MessagesGoOnComputing) {
    const HomEvaluator& evaluator = Scheme::of(ParameterPreset::FX).evaluator;
    Message out;
    evaluator.mult(Message(2, 2.0), Complex(1e300), out);
    EXPECT_EQ(out[3].real(), 2e300);
    evaluator.add(Message(2, 2.0), Complex(infinity), out);
    EXPECT_EQ(out[3].real(), infinity);
}

} // namespace
