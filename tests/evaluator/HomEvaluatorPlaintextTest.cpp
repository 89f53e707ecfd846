#include "evaluator/HomEvaluatorImpl.hpp"

#include "support/CiphertextWords.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

constexpr const char* levelZero = "The level of the operand is zero";
constexpr const char* levelsDiffer = "Operands have different levels.";
constexpr const char* oneOwes = "The Operands should have rescale counter zero";

/// What an operation makes of one plaintext: its counterpart on messages, and a bound on the slot error.
struct Form {
    const char* name;
    std::function<void(const Plaintext&, Plaintext&)> apply;
    std::function<void(const Message&, Message&)> inTheClear;
    double bound;
    u64 levelsSpent = 0;
    int owed = 0;
};

class HomEvaluatorPlaintext : public testing::Test {
protected:
    static constexpr u64 level = 5;
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const HomEvaluator& evaluator = scheme.evaluator;
    const HomEvaluatorImpl& internals = *scheme.evaluator.getImpl();
    Seeded random{31};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
    Message message = random.message(scheme.logFullSlots());
    Message other = random.message(scheme.logFullSlots());

    /// Rounding of one encoding, and of the rescale that a product pays.
    double encoded() const { return scheme.errors.atLevel(scheme.errors.encoding(), level) + 1e-13; }
    double rounded() const { return scheme.errors.atLevel(scheme.errors.encoding(), level - 1); }

    std::vector<Form> forms() {
        const HomEvaluator& e = evaluator;
        const HomEvaluatorImpl& impl = internals;
        const Plaintext q = scheme.encoder.encode(other, level);
        const Complex c(0.3, -1.7);
        // Sizes of messages and constants here stay below 2; cut constants err by sqrt(2) over the scale.
        const double sum = 2 * encoded() + scheme.errors.atLevel(2, level);
        const double product = 2 * (2 * encoded() + scheme.errors.atLevel(2, level)) + rounded();
        const auto scaled = [&e](Complex by) {
            return [&e, by](const Message& m, Message& out) { e.mult(m, by, out); };
        };
        const auto withOther = [this](auto operation) {
            return [this, operation](const Message& m, Message& out) { operation(m, other, out); };
        };
        const auto plus = withOther([&e](auto& m, auto& n, auto& out) { e.add(m, n, out); });
        const auto minus = withOther([&e](auto& m, auto& n, auto& out) { e.sub(m, n, out); });
        const auto times = withOther([&e](auto& m, auto& n, auto& out) { e.mult(m, n, out); });
        return {
            {"negate", [&e](auto& p, auto& out) { e.negate(p, out); }, scaled(-1.0), encoded()},
            {"add a constant", [&e, c](auto& p, auto& out) { e.add(p, c, out); },
             [&e, c](auto& m, auto& out) { e.add(m, c, out); }, sum},
            {"add a real", [&e](auto& p, auto& out) { e.add(p, 0.7, out); },
             [&e](auto& m, auto& out) { e.add(m, 0.7, out); }, sum},
            {"sub a constant", [&e, c](auto& p, auto& out) { e.sub(p, c, out); },
             [&e, c](auto& m, auto& out) { e.sub(m, c, out); }, sum},
            {"add", [&e, q](auto& p, auto& out) { e.add(p, q, out); }, plus, sum},
            {"sub", [&e, q](auto& p, auto& out) { e.sub(p, q, out); }, minus, sum},
            {"mult by a constant", [&e, c](auto& p, auto& out) { e.mult(p, c, out); }, scaled(c), product, 1},
            {"mult by an integer", [&e](auto& p, auto& out) { e.mult(p, 2.0, out); }, scaled(2.0), product,
             1},
            {"mult", [&e, q](auto& p, auto& out) { e.mult(p, q, out); }, times, product, 1},
            {"square", [&e](auto& p, auto& out) { e.square(p, out); },
             [&e](auto& m, auto& out) { e.square(m, out); }, product, 1},
            {"multWithoutRescale by a constant",
             [&impl, c](auto& p, auto& out) { impl.multWithoutRescale(p, c, out); }, scaled(c), product, 0,
             1},
            {"multWithoutRescale", [&impl, q](auto& p, auto& out) { impl.multWithoutRescale(p, q, out); },
             times, product, 0, 1},
            {"multImagUnit", [&e](auto& p, auto& out) { e.multImagUnit(p, out); }, scaled(Complex(0, 1)),
             encoded()},
            {"multInteger 3", [&e](auto& p, auto& out) { e.multInteger(p, 3, out); }, scaled(3.0),
             3 * encoded()},
            {"multInteger -3", [&e](auto& p, auto& out) { e.multInteger(p, -3, out); }, scaled(-3.0),
             3 * encoded()},
            {"multInteger 1", [&e](auto& p, auto& out) { e.multInteger(p, 1, out); }, scaled(1.0), encoded()},
            {"multInteger -1", [&e](auto& p, auto& out) { e.multInteger(p, -1, out); }, scaled(-1.0),
             encoded()},
            {"multInteger 0", [&e](auto& p, auto& out) { e.multInteger(p, 0, out); }, scaled(0.0), 1e-300},
            {"relevel", [&e](auto& p, auto& out) { e.relevel(p, 2, out); }, scaled(1.0),
             encoded() + scheme.errors.atLevel(scheme.errors.encoding(), 2) + 1e-13, 3},
            {"leftRotate", [&e](auto& p, auto& out) { e.leftRotate(p, 3, out); },
             [&e](auto& m, auto& out) { e.leftRotate(m, 3, out); }, encoded()},
            {"rightRotate", [&e](auto& p, auto& out) { e.rightRotate(p, 3, out); },
             [&e](auto& m, auto& out) { e.rightRotate(m, 3, out); }, encoded()},
            {"conjugate", [&e](auto& p, auto& out) { e.conjugate(p, out); },
             [&e](auto& m, auto& out) { e.conjugate(m, out); }, encoded()},
        };
    }

    Plaintext used(u64 atLevel, int owed) {
        Plaintext p = scheme.encoder.encode(other, 8);
        p.setLevel(8);
        p.setRescaleCounter(owed);
        p.setLevel(atLevel);
        return p;
    }
};

} // namespace

TEST_F(HomEvaluatorPlaintext, FormsComputeWhatTheirNamesSay) {
    for (const u64 logSlots : {scheme.logFullSlots(), u64{2}}) {
        message = random.message(logSlots, 0.7);
        other = random.message(logSlots, 0.7);
        const Plaintext in = scheme.encoder.encode(message, level);
        for (const Form& form : forms()) {
            SCOPED_TRACE(testing::Message() << form.name << " logSlots=" << logSlots);
            Plaintext out(scheme.context);
            Message expected;
            form.apply(in, out);
            form.inTheClear(message, expected);
            EXPECT_EQ(out.getLevel(), level - form.levelsSpent);
            EXPECT_EQ(out.getRescaleCounter(), form.owed);
            EXPECT_EQ(out.getLogSlots(), logSlots);
            EXPECT_LT(maxError(scheme.encoder.decode(out), expected), form.bound);
        }
    }
}

TEST_F(HomEvaluatorPlaintext, FormsWriteTheSameWordsIntoAnyOutput) {
    const Plaintext in = scheme.encoder.encode(message, level);
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        Plaintext fresh(scheme.context), itself = in;
        form.apply(in, fresh);
        form.apply(itself, itself);
        EXPECT_TRUE(sameWords(itself, fresh));
        for (Plaintext& out : usedPlaintexts(scheme.context)) {
            form.apply(in, out);
            EXPECT_TRUE(sameWords(out, fresh));
        }
    }
}

TEST_F(HomEvaluatorPlaintext, BinaryFormsMayWriteOverEitherOperand) {
    const HomEvaluator& e = evaluator;
    const Plaintext p = scheme.encoder.encode(message, level), q = scheme.encoder.encode(other, level);
    using Apply = std::function<void(const Plaintext&, const Plaintext&, Plaintext&)>;
    for (const Apply& apply : {Apply([&](auto&a, auto&b, auto&out) { e.add(a, b, out); }),
                               Apply([&](auto&a, auto&b, auto&out) { e.sub(a, b, out); }),
                               Apply([&](auto&a, auto&b, auto&out) { e.mult(a, b, out); })}) {
        Plaintext fresh(scheme.context), ofItself(scheme.context), first = p, second = q, both = p;
        apply(p, q, fresh);
        apply(p, Plaintext(p), ofItself);
        apply(first, q, first);
        apply(p, second, second);
        apply(both, both, both);
        EXPECT_TRUE(sameWords(first, fresh));
        EXPECT_TRUE(sameWords(second, fresh));
        EXPECT_TRUE(sameWords(both, ofItself));
    }
}

TEST_F(HomEvaluatorPlaintext, RotationsTurnModuloTheSlotsInUse) {
    const Message sparse = random.message(2);
    const Plaintext p = scheme.encoder.encode(sparse, level);
    Plaintext out(scheme.context), once(scheme.context);
    evaluator.leftRotate(p, 4, out);
    EXPECT_TRUE(sameWords(out, p));
    evaluator.rightRotate(p, 8, out);
    EXPECT_TRUE(sameWords(out, p));
    evaluator.leftRotate(p, 1, once);
    evaluator.leftRotate(p, 5, out);
    EXPECT_TRUE(sameWords(out, once));
    // Below the public layer the whole ring turns.
    internals.leftRotate(p, 32, out);
    EXPECT_TRUE(sameWords(out, p));
    internals.leftRotate(p, 33, out);
    EXPECT_TRUE(sameWords(out, once));
    internals.rightRotate(p, 31, out);
    EXPECT_TRUE(sameWords(out, once));
}

TEST_F(HomEvaluatorPlaintext, RescaleAndInverseRescaleUndoEachOther) {
    const Plaintext before = scheme.encoder.encode(message, 3, 1);
    Plaintext p = before;
    evaluator.inverseRescale(p);
    EXPECT_EQ(p.getLevel(), 4u);
    EXPECT_EQ(p.getRescaleCounter(), 2);
    evaluator.rescale(p);
    EXPECT_TRUE(sameWords(p, before));
    evaluator.rescale(p);
    EXPECT_EQ(p.getRescaleCounter(), 0);
    EXPECT_LT(maxError(scheme.encoder.decode(p), message),
              2 * scheme.errors.atLevel(scheme.errors.encoding(), 2) + 1e-13);
}

TEST_F(HomEvaluatorPlaintext, AConstantIsScaledByTheOwedPrimes) {
    const Plaintext p = scheme.encoder.encode(message, 6, 2);
    Plaintext out(scheme.context);
    Message expected;
    evaluator.sub(p, Complex(0.0, 1.5), out);
    evaluator.sub(message, Complex(0.0, 1.5), expected);
    EXPECT_EQ(out.getRescaleCounter(), 2);
    EXPECT_LT(maxError(scheme.encoder.decode(out), expected),
              scheme.errors.atLevel(3 * scheme.errors.encoding() + 2, 4) + 1e-13);
}

TEST_F(HomEvaluatorPlaintext, RelevelKeepsTheCounterAndMayGoUp) {
    const Plaintext p = scheme.encoder.encode(message, 3, 1);
    Plaintext out(scheme.context);
    evaluator.relevel(p, scheme.topLevel(), out);
    EXPECT_EQ(out.getLevel(), scheme.topLevel());
    EXPECT_EQ(out.getRescaleCounter(), 1);
    EXPECT_LT(maxError(scheme.encoder.decode(out), message),
              3 * scheme.errors.atLevel(scheme.errors.encoding(), 2) + 1e-13);
    EXPECT_REFUSED(evaluator.relevel(p, scheme.topLevel() + 1, out), "[relevel] target_level too big");
}

TEST_F(HomEvaluatorPlaintext, SumsRefuseOperandsThatDoNotMatch) {
    Plaintext a = used(5, 0), b = used(4, 1), out(scheme.context);
    b.setLogSlots(1);
    b.to(Device{DeviceType::CPU, 1});
    const auto both = [&](const char* text) {
        EXPECT_REFUSED(evaluator.add(a, b, out), text);
        EXPECT_REFUSED(evaluator.sub(a, b, out), text);
    };
    both(levelsDiffer);
    b.setLevel(5);
    both("Two operands have different logSlots");
    b.setLogSlots(a.getLogSlots());
    both("Two operands have different RescaleCounter");
    b.setRescaleCounter(0);
    both("Two operands are in different devices");
}

TEST_F(HomEvaluatorPlaintext, ProductsRefuseOperandsThatDoNotMatch) {
    Plaintext a = used(0, 1), b = used(5, 0), out(scheme.context);
    b.setLogSlots(1);
    b.to(Device{DeviceType::CPU, 1});
    const auto both = [&](const char* text) {
        EXPECT_REFUSED(evaluator.mult(a, b, out), text);
        EXPECT_REFUSED(evaluator.mult(b, a, out), text);
        EXPECT_REFUSED(internals.multWithoutRescale(a, b, out), text);
        EXPECT_REFUSED(internals.multWithoutRescale(b, a, out), text);
    };
    both(levelZero);
    a.setLevel(4);
    both(levelsDiffer);
    a.setLevel(5);
    both(oneOwes);
    a.setRescaleCounter(0);
    both("Two operands have different logSlots");
    b.setLogSlots(a.getLogSlots());
    both("Two operands are in different devices");

    Plaintext low = used(0, 1);
    EXPECT_REFUSED(evaluator.square(low, out), levelZero);
    low.setLevel(2);
    EXPECT_REFUSED(evaluator.square(low, out), oneOwes);
}

TEST_F(HomEvaluatorPlaintext, ProductsWithAConstantRefuseLevelZeroAndOwedRescales) {
    Plaintext a = used(0, 1), out(scheme.context);
    EXPECT_REFUSED(evaluator.mult(a, Complex(0.5), out), levelZero);
    EXPECT_REFUSED(evaluator.mult(a, Complex(2.0), out), levelZero);
    EXPECT_REFUSED(internals.multWithoutRescale(a, Complex(0.5), out), levelZero);
    a.setLevel(1);
    EXPECT_REFUSED(evaluator.mult(a, Complex(0.5), out), "The Operand should have rescale counter zero");
    // Owing already is no hindrance to owing more, as far as the level goes.
    EXPECT_REFUSED(internals.multWithoutRescale(a, Complex(0.5), out),
                   "Rescale counter should be less than or equal to the level");
    a.setLevel(2);
    internals.multWithoutRescale(a, Complex(0.5), out);
    EXPECT_EQ(out.getRescaleCounter(), 2);
}

TEST_F(HomEvaluatorPlaintext, RescaleRefusesLevelZeroThenNothingOwed) {
    Plaintext a = used(0, 0);
    EXPECT_REFUSED(evaluator.rescale(a), levelZero);
    Plaintext b = used(1, 0);
    EXPECT_REFUSED(evaluator.rescale(b), "[rescale] Rescale Counter of the Plaintext is zero or less");
}

TEST_F(HomEvaluatorPlaintext, InverseRescaleStopsAtTheTop) {
    Plaintext p(scheme.context);
    EXPECT_REFUSED(evaluator.inverseRescale(p),
                   "[inverseRescale] Cannot inverseRescale when the level is greater than or equal to the "
                   "maximum level");
    p.setLevel(scheme.topLevel() - 1);
    evaluator.inverseRescale(p);
    EXPECT_EQ(p.getLevel(), scheme.topLevel());
}
