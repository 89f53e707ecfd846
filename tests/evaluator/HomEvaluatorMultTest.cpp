#include "evaluator/HomEvaluatorImpl.hpp"

#include "context/ContextContent.hpp"
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
#include <sstream>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

constexpr EncodingType coefficient = EncodingType::Coefficient;
constexpr const char* notOnSlots = "The operands have to encode the message on its slots";
constexpr const char* levelsDiffer = "Operands have different levels.";
constexpr const char* levelZero = "The level of the operand is zero";
constexpr const char* oneOwes = "The Operands should have rescale counter zero";

class HomEvaluatorMult : public testing::Test {
protected:
    const Scheme& scheme = Scheme::of(ParameterPreset::FX);
    const HomEvaluator& evaluator = scheme.evaluator;
    const HomEvaluatorImpl& internals = *scheme.evaluator.getImpl();
    Seeded random{41};
    testing::ScopedTrace trace{__FILE__, __LINE__, random.describe()};
    Message m = random.message(scheme.logFullSlots());
    Message n = random.message(scheme.logFullSlots());

    double encryptionError(u64 level) const {
        return scheme.errors.atLevel(scheme.errors.encryption(), level);
    }

    /// What a product of two ciphertexts at `level`, of slots below sqrt(2), may be off by after its rescale.
    double productError(u64 level) const {
        const double operand = encryptionError(level), size = std::sqrt(2.0);
        const double switching =
            scheme.errors.atLevel(scheme.errors.atLevel(scheme.errors.keySwitch(), level), level);
        return 2 * size * operand + operand * operand + switching +
               scheme.errors.atLevel(scheme.errors.rescale(), level - 1) + 4 * ErrorModel::relative;
    }

    Message productInTheClear() const {
        Message product;
        evaluator.mult(m, n, product);
        return product;
    }

    Ciphertext shaped(u64 level, int counter, u64 numPoly = 2,
                      EncodingType encoding = EncodingType::Slot) const {
        Ciphertext x = scheme.encrypt(m, 12);
        x.setNumPoly(numPoly);
        x.setRescaleCounter(counter);
        x.setLevel(level);
        x.setEncodingType(encoding);
        return x;
    }

    template <class Apply>
    void refuses(Apply&& apply, const char* text) {
        Ciphertext out = shaped(3, 1, 4, coefficient);
        const Ciphertext before = out;
        EXPECT_REFUSED(apply(out), text);
        EXPECT_TRUE(sameWords(out, before)) << text;
    }
};

} // namespace

TEST_F(HomEvaluatorMult, ProductsAreSlotwiseAndSpendOneLevel) {
    for (const u64 level : {u64{1}, u64{4}, u64{5}, u64{12}})
        for (const u64 logSlots : {scheme.logFullSlots(), u64{2}}) {
            SCOPED_TRACE(testing::Message() << "level=" << level << " logSlots=" << logSlots);
            m = random.message(logSlots);
            n = random.message(logSlots);
            Ciphertext out(scheme.context);
            evaluator.mult(scheme.encrypt(m, level), scheme.encrypt(n, level), out);
            EXPECT_EQ(out.getNumPoly(), 2u);
            EXPECT_EQ(out.getLevel(), level - 1);
            EXPECT_EQ(out.getRescaleCounter(), 0);
            EXPECT_EQ(out.getLogSlots(), logSlots);
            EXPECT_LT(maxError(scheme.decrypt(out), productInTheClear()), productError(level));
        }
}

TEST_F(HomEvaluatorMult, OfTwoLevelsTheHigherComesDown) {
    const Ciphertext a = scheme.encrypt(m, 4), b = scheme.encrypt(n, 7);
    Ciphertext out(scheme.context), lowered(scheme.context), expected(scheme.context);
    evaluator.mult(a, b, out);
    EXPECT_EQ(out.getLevel(), 3u);
    EXPECT_EQ(out.getRescaleCounter(), 0);
    EXPECT_LT(maxError(scheme.decrypt(out), productInTheClear()),
              productError(4) + 2 * scheme.errors.atLevel(2 + scheme.errors.rescale(), 4));
    evaluator.levelDown(b, 4, lowered);
    evaluator.mult(a, lowered, expected);
    EXPECT_TRUE(sameWords(out, expected));
    // The operand that stayed comes first, so both orders are one product.
    evaluator.mult(b, a, out);
    EXPECT_TRUE(sameWords(out, expected));
}

TEST_F(HomEvaluatorMult, AnyOutputTakesTheSameWords) {
    using Apply = std::function<void(const Ciphertext&, const Ciphertext&, Ciphertext&)>;
    const std::vector<Apply> forms{
        [&](auto& a, auto& b, auto& out) { evaluator.tensor(a, b, out); },
        [&](auto& a, auto& b, auto& out) { evaluator.mult(a, b, out); },
        [&](auto& a, auto& b, auto& out) { evaluator.multWithoutRescale(a, b, out); }};
    for (u64 which = 0; which < forms.size(); ++which)
        for (const u64 levelOfB : {u64{5}, u64{8}}) {
            if (which != 1 && levelOfB != 5) continue; // only mult matches levels
            SCOPED_TRACE(testing::Message() << "form " << which << " level of b " << levelOfB);
            const Ciphertext a = scheme.encrypt(m, 5), b = scheme.encrypt(n, levelOfB);
            Ciphertext fresh(scheme.context), first = a, second = b, both = a, ofItself(scheme.context);
            forms[which](a, b, fresh);
            forms[which](first, b, first);
            forms[which](a, second, second);
            forms[which](both, both, both);
            forms[which](a, Ciphertext(a), ofItself);
            EXPECT_TRUE(sameWords(first, fresh));
            EXPECT_TRUE(sameWords(second, fresh));
            EXPECT_TRUE(sameWords(both, ofItself));
            for (Ciphertext out : usedOutputs(scheme.context)) {
                forms[which](a, b, out);
                EXPECT_TRUE(sameWords(out, fresh));
                EXPECT_EQ(out.getEncodingType(), EncodingType::Slot);
            }
        }
}

TEST_F(HomEvaluatorMult, ASquareIsTheProductWithItself) {
    const Ciphertext a = scheme.encrypt(m, 6);
    Ciphertext product(scheme.context), square(scheme.context), itself = a;
    evaluator.mult(a, a, product);
    evaluator.square(a, square);
    evaluator.square(itself, itself);
    EXPECT_TRUE(sameWords(square, product));
    EXPECT_TRUE(sameWords(itself, product));
    for (Ciphertext out : usedOutputs(scheme.context)) {
        evaluator.square(a, out);
        EXPECT_TRUE(sameWords(out, product));
    }
}

TEST_F(HomEvaluatorMult, TensorAddsUpWhatBothOwe) {
    const Ciphertext a = shaped(5, 1), b = shaped(5, 2);
    Ciphertext out(scheme.context);
    evaluator.tensor(a, b, out);
    EXPECT_EQ(out.getNumPoly(), 3u);
    EXPECT_EQ(out.getRescaleCounter(), 4);
    EXPECT_EQ(out.getLevel(), 5u);
    evaluator.tensor(shaped(4, 1), shaped(4, 2), out);
    EXPECT_EQ(out.getRescaleCounter(), 4);
    EXPECT_REFUSED(evaluator.tensor(shaped(3, 1), shaped(3, 2), out),
                   "Rescale counter should be less than or equal to the level");
}

TEST_F(HomEvaluatorMult, TensorElementsAreTheConvolution) {
    // Against the definition: out[k] = sum of a[i] * b[j] over i + j = k, with plain products.
    const auto& primes = scheme.context->primes;
    for (const auto& [lengthA, lengthB] : {std::pair{2ul, 2ul}, {3ul, 2ul}, {2ul, 4ul}, {3ul, 3ul}}) {
        SCOPED_TRACE(testing::Message() << lengthA << " by " << lengthB);
        Ciphertext a = scheme.encrypt(m, 3), b = scheme.encrypt(n, 3);
        a.setNumPoly(lengthA);
        b.setNumPoly(lengthB);
        for (u64 i = 2; i < lengthA; ++i) a.getPoly(i) = scheme.encrypt(random.message(5), 3).getPoly(1);
        for (u64 i = 2; i < lengthB; ++i) b.getPoly(i) = scheme.encrypt(random.message(5), 3).getPoly(1);
        Ciphertext out(scheme.context), first = a, second = b;
        evaluator.tensor(a, b, out);
        ASSERT_EQ(out.getNumPoly(), lengthA + lengthB - 1);
        for (u64 k = 0; k < out.getNumPoly(); ++k) {
            Polynomial sum = a.getPoly(0);
            primes.sub(sum, sum, sum);
            for (u64 i = 0; i < lengthA; ++i)
                if (k >= i && k - i < lengthB) {
                    Polynomial term(scheme.context, false, true);
                    primes.hadamardMult(a.getPoly(i), b.getPoly(k - i), term);
                    primes.add(sum, term, sum);
                }
            EXPECT_TRUE(sameWords(out.getPoly(k), sum)) << "element " << k;
        }
        evaluator.tensor(first, b, first);
        evaluator.tensor(a, second, second);
        EXPECT_TRUE(sameWords(first, out));
        EXPECT_TRUE(sameWords(second, out));
        for (Ciphertext other : usedOutputs(scheme.context)) {
            evaluator.tensor(a, b, other);
            EXPECT_TRUE(sameWords(other, out));
            EXPECT_EQ(other.getEncodingType(), EncodingType::Slot);
        }
    }
}

TEST_F(HomEvaluatorMult, RelinearizeTakesPowersDownOneByOne) {
    const Ciphertext x = scheme.encrypt(m, 8), y = scheme.encrypt(n, 8);
    Message xy, xyx;
    evaluator.mult(m, n, xy);
    evaluator.mult(xy, m, xyx);
    Ciphertext three(scheme.context), four(scheme.context), out(scheme.context);
    evaluator.tensor(x, y, three);
    evaluator.tensor(three, x, four);
    ASSERT_EQ(four.getNumPoly(), 4u);
    EXPECT_EQ(four.getRescaleCounter(), 2);

    evaluator.relinearize(four, out);
    EXPECT_EQ(out.getNumPoly(), 3u);
    EXPECT_EQ(out.getRescaleCounter(), 2);
    EXPECT_TRUE(sameWords(out.getPoly(0), four.getPoly(0)));
    evaluator.relinearize(out, out);
    EXPECT_EQ(out.getNumPoly(), 2u);
    evaluator.rescale(out);
    evaluator.rescale(out);
    // The chain lets a factor of level 8 meet one of level 7, whose scales differ; here both are of level 8.
    evaluator.mult(xyx, std::exp2(scheme.errors.logScale(8) - scheme.errors.logScale(7)), xyx);
    // Three factors below sqrt(2), each off by an encryption error; the rest as for two.
    EXPECT_LT(maxError(scheme.decrypt(out), xyx), 6 * encryptionError(8) + 3 * productError(6));

    for (const Ciphertext& in : {three, four}) {
        Ciphertext fresh(scheme.context), itself = in;
        evaluator.relinearize(in, fresh);
        evaluator.relinearize(itself, itself);
        EXPECT_TRUE(sameWords(itself, fresh));
        for (Ciphertext other : usedOutputs(scheme.context)) {
            evaluator.relinearize(in, other);
            EXPECT_TRUE(sameWords(other, fresh));
            EXPECT_EQ(other.getEncodingType(), EncodingType::Slot);
        }
    }
}

TEST_F(HomEvaluatorMult, UnswitchedProductsDecryptToo) {
    Ciphertext out(scheme.context);
    evaluator.tensor(scheme.encrypt(m, 5), scheme.encrypt(n, 5), out);
    evaluator.rescale(out);
    EXPECT_EQ(out.getNumPoly(), 3u);
    // Three elements round in the rescale, the third times the square of the secret.
    EXPECT_LT(maxError(scheme.decrypt(out), productInTheClear()),
              productError(5) + scheme.errors.atLevel(scheme.errors.rescale(), 4) * 17);
}

TEST_F(HomEvaluatorMult, TensorRefusesInOrder) {
    Ciphertext a = shaped(3, 0), b = shaped(2, 0, 2, coefficient);
    b.setLogSlots(1);
    refuses([&](auto& out) { evaluator.tensor(a, b, out); }, notOnSlots);
    refuses([&](auto& out) { evaluator.tensor(b, a, out); }, notOnSlots);
    b.setEncodingType(EncodingType::Slot);
    refuses([&](auto& out) { evaluator.tensor(a, b, out); }, levelsDiffer);
    a.setLevel(2);
    refuses([&](auto& out) { evaluator.tensor(a, b, out); }, "Two operands have different logSlots");
}

TEST_F(HomEvaluatorMult, RelinearizeRefusesInOrder) {
    const KeyPack noKeys(scheme.context);
    const HomEvaluator keyless(scheme.context, noKeys);
    refuses([&](auto& out) { keyless.relinearize(shaped(3, 0, 2, coefficient), out); },
            "The operand have to encode the message on its slots");
    refuses([&](auto& out) { keyless.relinearize(shaped(3, 0), out); },
            "[relinearize] the length of the input ciphertext should be >= 3.");
    // Where the operand is comes before the key.
    Ciphertext elsewhere = shaped(3, 0, 3);
    elsewhere.to(Device{DeviceType::CPU, 1});
    refuses([&](auto& out) { keyless.relinearize(elsewhere, out); },
            "The generated context does not support the operation with current operands; check the device.");
    refuses([&](auto& out) { keyless.relinearize(shaped(3, 0, 3), out); },
            "Failed to load the multiplication key");
}

TEST_F(HomEvaluatorMult, MultWithoutRescaleRefusesInOrder) {
    const HomEvaluator& e = evaluator;
    refuses([&](auto& out) { e.multWithoutRescale(shaped(3, 1), shaped(0, 1, 3, coefficient), out); },
            "Size > 2 is not supported yet");
    refuses([&](auto& out) { e.multWithoutRescale(shaped(0, 1, 3, coefficient), shaped(3, 1), out); },
            "Size > 2 is not supported yet");
    refuses([&](auto& out) { e.multWithoutRescale(shaped(3, 1), shaped(0, 1, 2, coefficient), out); },
            notOnSlots);
    refuses([&](auto& out) { e.multWithoutRescale(shaped(0, 1, 2, coefficient), shaped(3, 1), out); },
            notOnSlots);
    refuses([&](auto& out) { e.multWithoutRescale(shaped(3, 1), shaped(0, 1), out); }, levelsDiffer);
    refuses([&](auto& out) { e.multWithoutRescale(shaped(0, 1), shaped(0, 1), out); }, levelZero);
    refuses([&](auto& out) { e.multWithoutRescale(shaped(3, 0), shaped(3, 1), out); }, oneOwes);
    refuses([&](auto& out) { e.multWithoutRescale(shaped(3, 1), shaped(3, 0), out); }, oneOwes);
    // It spends no level, and yet wants one for the rescale to come.
    refuses([&](auto& out) { e.multWithoutRescale(shaped(0, 0), shaped(0, 0), out); }, levelZero);
}

TEST_F(HomEvaluatorMult, MultRefusesInOrder) {
    const HomEvaluator& e = evaluator;
    refuses([&](auto& out) { e.mult(shaped(3, 1), shaped(0, 1, 3, coefficient), out); }, notOnSlots);
    refuses([&](auto& out) { e.mult(shaped(0, 1, 3, coefficient), shaped(3, 1), out); }, notOnSlots);
    refuses([&](auto& out) { e.mult(shaped(3, 1), shaped(0, 1, 3), out); }, levelZero);
    refuses([&](auto& out) { e.mult(shaped(0, 1, 3), shaped(3, 1), out); }, levelZero);
    refuses([&](auto& out) { e.mult(shaped(3, 0, 3), shaped(3, 1), out); }, oneOwes);
    refuses([&](auto& out) { e.mult(shaped(3, 1, 3), shaped(3, 0), out); }, oneOwes);
    refuses([&](auto& out) { e.mult(shaped(3, 0), shaped(3, 0, 3), out); }, "Size > 2 is not supported yet");
    refuses([&](auto& out) { e.mult(shaped(4, 0), shaped(3, 0, 3), out); }, "Size > 2 is not supported yet");
    refuses([&](auto& out) { e.square(shaped(0, 1, 3, coefficient), out); }, "Size > 2 is not supported yet");
    refuses([&](auto& out) { e.square(shaped(0, 1, 2, coefficient), out); }, notOnSlots);
    refuses([&](auto& out) { e.square(shaped(0, 1), out); }, levelZero);
    refuses([&](auto& out) { e.square(shaped(1, 1), out); }, oneOwes);
}

TEST_F(HomEvaluatorMult, AProductThatLacksItsKeyLeavesTheOutputAlone) {
    const HomEvaluator keyless(scheme.context, KeyPack(scheme.context));
    refuses([&](auto& out) { keyless.mult(shaped(3, 0), shaped(3, 0), out); },
            "Failed to load the multiplication key");
}

TEST_F(HomEvaluatorMult, InnerProductSumsPlaintextTimesCiphertext) {
    std::vector<Plaintext> plains;
    std::vector<Ciphertext> ciphers;
    Message expected(scheme.logFullSlots(), Complex(0.0));
    for (int j = 0; j < 3; ++j) {
        const Message a = random.message(scheme.logFullSlots()), b = random.message(scheme.logFullSlots());
        plains.push_back(scheme.encoder.encode(a, 6));
        ciphers.push_back(scheme.encrypt(b, 6));
        Message product;
        evaluator.mult(a, b, product);
        evaluator.add(expected, product, expected);
    }
    Ciphertext out(scheme.context);
    internals.innerProduct(plains.data(), plains.data() + 3, ciphers.data(), out);
    EXPECT_EQ(out.getRescaleCounter(), 1);
    EXPECT_EQ(out.getLevel(), 6u);
    for (Ciphertext other : usedOutputs(scheme.context)) {
        internals.innerProduct(plains.data(), plains.data() + 3, ciphers.data(), other);
        EXPECT_TRUE(sameWords(other, out));
        EXPECT_EQ(other.getEncodingType(), EncodingType::Slot);
    }
    for (u64 j = 0; j < 3; ++j) {
        std::vector<Ciphertext> overwritten = ciphers;
        internals.innerProduct(plains.data(), plains.data() + 3, overwritten.data(), overwritten[j]);
        EXPECT_TRUE(sameWords(overwritten[j], out)) << j;
    }
    evaluator.rescale(out);
    EXPECT_LT(maxError(scheme.decrypt(out), expected), 3 * productError(6));
}

TEST_F(HomEvaluatorMult, InnerProductRefusesInOrder) {
    const Plaintext plain = scheme.encoder.encode(m, 3);
    const std::vector<Plaintext> plains{plain, plain};
    std::vector<Ciphertext> ciphers{shaped(3, 0), shaped(2, 0, 3, coefficient)};
    const auto apply = [&](Ciphertext& out) {
        internals.innerProduct(plains.data(), plains.data() + plains.size(), ciphers.data(), out);
    };
    EXPECT_REFUSED(internals.innerProduct(plains.data(), plains.data(), ciphers.data(), ciphers[0]),
                   "Operand is empty so device is not defined");
    refuses(apply, "Size should be 2");
    ciphers[1].setNumPoly(2);
    refuses(apply, "The operand have to encode the message on its slots");
    ciphers[1].setEncodingType(EncodingType::Slot);
    Ciphertext out(scheme.context);
    EXPECT_REFUSED(apply(out), levelsDiffer);
}

/// The product of four, of five elements, three calls away from two.
TEST_F(HomEvaluatorMult, RelinearizingTakesOffOnePowerACall) {
    constexpr u64 level = 12;
    Ciphertext x(scheme.context), y(scheme.context);
    evaluator.tensor(scheme.encrypt(m, level), scheme.encrypt(n, level), x);
    evaluator.tensor(scheme.encrypt(m, level), scheme.encrypt(n, level), y);
    evaluator.tensor(x, y, x);
    ASSERT_EQ(x.getNumPoly(), 5u);
    ASSERT_EQ(x.getRescaleCounter(), 3);
    Message expected = productInTheClear();
    evaluator.square(expected, expected);
    // Dividing four scales of the top by three primes does not land on the scale of the level reached, as
    // products do that are rescaled one by one.
    const auto scales = getDefaultScaleFactorList(scheme.context);
    double drift = 4 * scales[level] - scales[level - 3];
    for (u64 i = level - 2; i <= level; ++i)
        drift -= std::log2(static_cast<double>(getPrimeList(scheme.context)[i]));
    evaluator.mult(expected, Complex(std::exp2(drift)), expected);
    // Four slots below sqrt(2), each off by the error of its encryption; decoding divides three times, and
    // rounds each time. A key switch adds its error to the undivided product, times s^3 at most: with slots
    // of s below the degree, that is below 2^-60 once divided by three primes of more than 36 bits.
    const double size = std::sqrt(2.0) + encryptionError(level);
    const double rounding = 3 * scheme.errors.atLevel(scheme.errors.encoding(), level - 3);
    const double bound =
        4 * encryptionError(level) * size * size * size + rounding + 64 * ErrorModel::relative;
    Message before = scheme.decrypt(x);
    EXPECT_LT(maxError(before, expected), bound);
    for (u64 elements = 4; elements >= 2; --elements) {
        evaluator.relinearize(x, x);
        EXPECT_EQ(x.getNumPoly(), elements);
        EXPECT_EQ(x.getRescaleCounter(), 3);
        EXPECT_EQ(x.getLevel(), level);
        const Message now = scheme.decrypt(x);
        EXPECT_LT(maxError(now, before), 2 * rounding + 16 * ErrorModel::relative) << elements;
        EXPECT_LT(maxError(now, expected), bound);
        before = now;
    }
    EXPECT_REFUSED(evaluator.relinearize(x, x),
                   "[relinearize] the length of the input ciphertext should be >= 3.");
}
