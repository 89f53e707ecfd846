#include "evaluator/HomEvaluatorImpl.hpp"

#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Stamps.hpp"
#include "support/ToyEvaluators.hpp"
#include "support/UsedOutputs.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

#include <complex>
#include <functional>

/// Which of log slots, owed rescales and encoding type an operation puts on its output. Operations differ in
/// that, and callers rely on it, so each has a row in a table here.
namespace Torvo {
namespace {

using namespace test;
using enum LeavesEncoding;
using Complex = std::complex<double>;

constexpr u64 logSlots = 3;
constexpr EncodingType bothEncodings[] = {EncodingType::Slot, EncodingType::Coefficient};

/// An operation on an operand that owes `owed` rescales: what the output owes afterwards, and how it is
/// encoded. The log slots are always the operand's.
template <class T>
struct Row {
    const char* name;
    int owed, left;
    LeavesEncoding encoding;
    std::function<void(const T&, T&)> apply;
};

/// The same with two operands, the second of which owes `owedBySecond`.
template <class T>
struct BinaryRow {
    const char* name;
    int owed, owedBySecond, left;
    LeavesEncoding encoding;
    std::function<void(const T&, const T&, T&)> apply;
};

template <EncryptionType E>
void expectStamp(const Row<CiphertextBase<E>>& row, const CiphertextBase<E>& in) {
    const auto left = [&](EncodingType output) {
        return SeenStamp{logSlots, row.left, encodingLeft(row.encoding, in.getEncodingType(), output)};
    };
    for (const auto& used : usedOutputs<E>(in.getContext()))
        for (const EncodingType encoding : bothEncodings) {
            // An output in the other mod-up state is made anew, and so on slots, before anything is put on
            // it.
            const SeenStamp expected = left(used.isModUp() ? EncodingType::Slot : encoding);
            auto out = stampedOtherwise(used, expected, encoding);
            row.apply(in, out);
            EXPECT_EQ(stampOf(out), expected) << row.name << ", over one on " << stampOf(used);
        }
    auto itself = in;
    row.apply(itself, itself);
    EXPECT_EQ(stampOf(itself), left(in.getEncodingType())) << row.name << ", in place";
}

template <EncryptionType E>
void expectStamp(const BinaryRow<CiphertextBase<E>>& row, const CiphertextBase<E>& a,
                 const CiphertextBase<E>& b) {
    using Operand = CiphertextBase<E>;
    // Into another output and over the first operand.
    expectStamp<E>({row.name, row.owed, row.left, row.encoding,
                    [&](const Operand& in, Operand& out) { row.apply(in, b, out); }},
                   a);
    Operand second = b;
    row.apply(a, second, second);
    const SeenStamp left{logSlots, row.left,
                         encodingLeft(row.encoding, a.getEncodingType(), b.getEncodingType())};
    EXPECT_EQ(stampOf(second), left) << row.name << ", over the second operand";
}

template <class T>
class Stamps : public OnBothTypes<T> {
protected:
    using OnBothTypes<T>::type;
    using OnBothTypes<T>::scheme;

    const u64 level = scheme.encryptionLevel();
    const Message message = Seeded(51).message(logSlots), other = Seeded(52).message(logSlots);

    T operand(int owed, EncodingType encoding = EncodingType::Slot) const {
        T x = scheme.encrypt(message, level, owed);
        x.setEncodingType(encoding);
        return x;
    }
    Plaintext plaintext(u64 atLevel, int owed) const { return scheme.encoder.encode(other, atLevel, owed); }

    std::vector<Row<T>> sums() const {
        const HomEvaluator& e = scheme.evaluator;
        const Message& m = other;
        const Plaintext same = plaintext(level, 2), lower = plaintext(level - 1, 2);
        return {
            {"negate", 2, 2, OfOperand, [&](auto& x, auto& out) { e.negate(x, out); }},
            {"add a real", 2, 2, OfOperand, [&](auto& x, auto& out) { e.add(x, 0.5, out); }},
            {"add a constant", 2, 2, OfOperand, [&](auto& x, auto& out) { e.add(x, Complex(0.5, 2), out); }},
            {"sub a constant", 2, 2, OfOperand, [&](auto& x, auto& out) { e.sub(x, Complex(0.5, 2), out); }},
            {"add a message", 2, 2, OfOperand, [&](auto& x, auto& out) { e.add(x, m, out); }},
            {"sub a message", 2, 2, OfOperand, [&](auto& x, auto& out) { e.sub(x, m, out); }},
            {"add a plaintext", 2, 2, OfOperand, [&e, same](auto& x, auto& out) { e.add(x, same, out); }},
            {"sub a plaintext", 2, 2, OfOperand, [&e, same](auto& x, auto& out) { e.sub(x, same, out); }},
            {"add a low one", 2, 2, OfOperand, [&e, lower](auto& x, auto& out) { e.add(x, lower, out); }},
            {"sub a low one", 2, 2, OfOperand, [&e, lower](auto& x, auto& out) { e.sub(x, lower, out); }},
        };
    }

    std::vector<Row<T>> products() const {
        const HomEvaluator& e = scheme.evaluator;
        const Message& m = other;
        const Plaintext same = plaintext(level, 0), lower = plaintext(level - 1, 0);
        const Complex c(0.5, -0.25);
        const auto mult = [&](const char* name, Complex by) {
            return Row<T>{name, 0, 0, OfOperand, [&e, by](auto& x, auto& out) { e.mult(x, by, out); }};
        };
        const auto integer = [&](const char* name, long by) {
            return Row<T>{name, 2, 2, OfOperand, [&e, by](auto& x, auto& out) { e.multInteger(x, by, out); }};
        };
        return {
            mult("mult by a real", 0.5),
            mult("mult by a constant", c),
            mult("mult by 3", 3.0),
            mult("mult by -3", -3.0),
            mult("mult by 1", 1.0),
            mult("mult by -1", -1.0),
            mult("mult by 0", 0.0),
            mult("mult by a Gaussian integer", Complex(-2, 3)),
            mult("mult by an imaginary integer", Complex(0, -1)),
            {"mult by a message", 0, 0, OfOperand, [&](auto& x, auto& out) { e.mult(x, m, out); }},
            {"mult by a plaintext", 0, 0, OfOperand,
             [&e, same](auto& x, auto& out) { e.mult(x, same, out); }},
            {"mult by a low one", 0, 0, OfOperand,
             [&e, lower](auto& x, auto& out) { e.mult(x, lower, out); }},
            {"multWithoutRescale by a real", 1, 2, OfOutput,
             [&](auto& x, auto& out) { e.multWithoutRescale(x, 0.5, out); }},
            {"multWithoutRescale by a constant", 2, 3, OfOutput,
             [&e, c](auto& x, auto& out) { e.multWithoutRescale(x, c, out); }},
            {"multWithoutRescale by a plaintext", 0, 1, OfOutput,
             [&e, same](auto& x, auto& out) { e.multWithoutRescale(x, same, out); }},
            {"multImagUnit", 2, 2, OfOperand, [&](auto& x, auto& out) { e.multImagUnit(x, out); }},
            integer("multInteger 7", 7),
            integer("multInteger -7", -7),
            integer("multInteger 1", 1),
            integer("multInteger -1", -1),
            integer("multInteger 0", 0),
        };
    }

    std::vector<Row<T>> levels() const {
        const HomEvaluator& e = scheme.evaluator;
        const auto down = [&](const char* name, u64 target) {
            return Row<T>{name, 0, 0, OfOperand,
                          [&e, target](auto& x, auto& out) { e.levelDown(x, target, out); }};
        };
        const auto inPlace = [&](auto operation) {
            return [operation](const T& x, T& out) {
                out = x;
                operation(out);
            };
        };
        std::vector<Row<T>> rows{
            down("levelDown to 0", 0),
            down("levelDown by one", level - 1),
            down("levelDown by none", level),
            {"levelDownOne", 0, 0, OfOperand, [&](auto& x, auto& out) { e.levelDownOne(x, out); }},
            {"rescale", 2, 1, OfOperand, inPlace([&](T& out) { e.rescale(out); })},
        };
        if constexpr (type == EncryptionType::RLWE)
            rows.push_back(
                {"inverseRescale", 2, 3, OfOperand, inPlace([&](T& out) { e.inverseRescale(out); })});
        return rows;
    }
};

TYPED_TEST_SUITE(Stamps, BothTypes);

TYPED_TEST(Stamps, OfSumsWithWhatIsNotEncryptedAreTheOperands) {
    for (const auto& row : this->sums()) expectStamp(row, this->operand(row.owed));
}

TYPED_TEST(Stamps, OfProductsWithWhatIsNotEncrypted) {
    for (const auto& row : this->products()) expectStamp(row, this->operand(row.owed));
}

TYPED_TEST(Stamps, OfOtherLevels) {
    for (const auto& row : this->levels()) expectStamp(row, this->operand(row.owed));
}

TYPED_TEST(Stamps, OfANegatedOperandOnCoefficientsStayOnThem) {
    const auto& e = this->scheme.evaluator;
    expectStamp<TestFixture::type>({"negate", 2, 2, OfOperand, [&](auto& x, auto& out) { e.negate(x, out); }},
                                   this->operand(2, EncodingType::Coefficient));
}

TYPED_TEST(Stamps, OfSumsOfCiphertextsAreTheFirstOperands) {
    using T = TypeParam;
    const HomEvaluator& e = this->scheme.evaluator;
    const HomEvaluatorImpl& inner = *e.getImpl();
    const std::vector<BinaryRow<T>> rows{
        {"add", 2, 2, 2, OfOperand, [&](auto& a, auto& b, auto& out) { e.add(a, b, out); }},
        {"sub", 2, 2, 2, OfOperand, [&](auto& a, auto& b, auto& out) { e.sub(a, b, out); }},
        {"addWithoutCheck", 2, 2, 2, OfOperand,
         [&](auto& a, auto& b, auto& out) { inner.addWithoutCheck(a, b, out); }},
        {"subWithoutCheck", 2, 2, 2, OfOperand,
         [&](auto& a, auto& b, auto& out) { inner.subWithoutCheck(a, b, out); }},
    };
    for (const auto& row : rows) {
        expectStamp(row, this->operand(2), this->operand(2));
        T longer = this->operand(2);
        longer.setNumPoly(longer.getNumPoly() + 1);
        expectStamp(row, this->operand(2), longer);
        expectStamp(row, longer, this->operand(2));
    }
    // Of other levels, and so owing nothing.
    T lower = this->operand(0);
    lower.setLevel(1);
    for (const BinaryRow<T>& row : {rows[0], rows[1]}) {
        const BinaryRow<T> owingNothing{row.name, 0, 0, 0, OfOperand, row.apply};
        expectStamp(owingNothing, this->operand(0), lower);
        expectStamp(owingNothing, lower, this->operand(0));
    }
    for (const BinaryRow<T>& row : {rows[0], rows[2], rows[3]})
        expectStamp(row, this->operand(2, EncodingType::Coefficient),
                    this->operand(2, EncodingType::Coefficient));
}

// ---- products of ciphertexts

class StampsOfProducts : public Stamps<Ciphertext> {};

TEST_F(StampsOfProducts, AreOnSlotsWhateverTheOutputWas) {
    const HomEvaluator& e = scheme.evaluator;
    const std::vector<BinaryRow<Ciphertext>> rows{
        {"tensor", 1, 2, 4, OnSlots, [&](auto& a, auto& b, auto& out) { e.tensor(a, b, out); }},
        {"multWithoutRescale", 0, 0, 1, OnSlots,
         [&](auto& a, auto& b, auto& out) { e.multWithoutRescale(a, b, out); }},
        {"mult", 0, 0, 0, OnSlots, [&](auto& a, auto& b, auto& out) { e.mult(a, b, out); }},
    };
    for (const auto& row : rows) expectStamp(row, operand(row.owed), operand(row.owedBySecond));
    Ciphertext longer = operand(2), lower = operand(0);
    longer.setNumPoly(3);
    lower.setLevel(2);
    expectStamp(rows[0], operand(1), longer);
    expectStamp(rows[2], operand(0), lower);
    expectStamp(rows[2], lower, operand(0));
    expectStamp<type>({"square", 0, 0, OnSlots, [&](auto& x, auto& out) { e.square(x, out); }}, operand(0));
    for (const u64 elements : {3, 4}) {
        Ciphertext x = operand(2);
        x.setNumPoly(elements);
        expectStamp<type>({"relinearize", 2, 2, OnSlots, [&](auto& y, auto& out) { e.relinearize(y, out); }},
                          x);
    }
}

TEST_F(StampsOfProducts, OfAnInnerProductAreTheFirstCiphertextsWithOneRescaleOwed) {
    const HomEvaluatorImpl& inner = *scheme.evaluator.getImpl();
    const std::vector<Plaintext> factors{plaintext(level, 0), plaintext(level, 0)};
    const auto innerProduct = [&](const Ciphertext& x, Ciphertext& out) {
        Ciphertext second = x;
        second.setLogSlots(logSlots + 2);
        const std::vector<Ciphertext> cts{x, second};
        inner.innerProduct(factors.data(), factors.data() + 2, cts.data(), out);
    };
    expectStamp<type>({"innerProduct", 2, 1, OfOperand, innerProduct}, operand(2));
}

// ---- rotations

class StampsOfRotations : public Stamps<Ciphertext> {
protected:
    static constexpr u64 counts[] = {0, 1, 2, 5, 6};

    std::vector<Row<Ciphertext>> rotations() const {
        const HomEvaluator& e = bundledEvaluator();
        std::vector<Row<Ciphertext>> rows{
            {"leftRotate", 2, 2, OnSlots, [&](auto& x, auto& out) { e.leftRotate(x, 2, out); }},
            {"leftRotate by none", 2, 2, OnSlots, [&](auto& x, auto& out) { e.leftRotate(x, 0, out); }},
            {"leftRotate composed", 2, 2, OnSlots, [&](auto& x, auto& out) { e.leftRotate(x, 3, out); }},
            {"rightRotate", 2, 2, OnSlots, [&](auto& x, auto& out) { e.rightRotate(x, 2, out); }},
            {"rightRotate by none", 2, 2, OnSlots, [&](auto& x, auto& out) { e.rightRotate(x, 0, out); }},
            {"conjugate", 2, 2, OnSlots, [&](auto& x, auto& out) { e.conjugate(x, out); }},
            {"killImag", 2, 2, OnSlots, [&](auto& x, auto& out) { e.killImag(x, out); }},
        };
        for (const u64 count : counts) {
            rows.push_back({"leftRotateReduce", 2, 2, OnSlots,
                            [&e, count](auto& x, auto& out) { e.leftRotateReduce(x, 1, count, out); }});
            rows.push_back({"rightRotateReduce", 2, 2, OnSlots,
                            [&e, count](auto& x, auto& out) { e.rightRotateReduce(x, 1, count, out); }});
        }
        return rows;
    }
};

TEST_F(StampsOfRotations, AreTheOperandsOnSlots) {
    for (const auto& row : rotations()) expectStamp(row, operand(row.owed));
}

TEST_F(StampsOfRotations, OfAConjugateAreOnSlotsEvenWhereTheOperandIsNot) {
    const HomEvaluator& e = bundledEvaluator();
    expectStamp<type>({"conjugate", 2, 2, OnSlots, [&](auto& x, auto& out) { e.conjugate(x, out); }},
                      operand(2, EncodingType::Coefficient));
}

TEST_F(StampsOfRotations, OfASumOfRotationsAreTheFirstCiphertexts) {
    const HomEvaluator& e = bundledEvaluator();
    for (const auto& indices : {std::vector<u64>{0, 0}, {0, 1}, {1, 0}, {1, 2}})
        for (const EncodingType encoding : bothEncodings) {
            const auto rotSum = [&](const Ciphertext& x, Ciphertext& out) { e.rotSum({x, x}, indices, out); };
            expectStamp<type>({"rotSum", 2, 2, OfOperand, rotSum}, operand(2, encoding));
        }
}

TEST_F(StampsOfRotations, OverAnElementOfASumsOperandsAreTheFirstCiphertexts) {
    for (const auto& indices : {std::vector<u64>{0, 0}, {2, 1}})
        for (const u64 over : {0, 1}) {
            std::vector<Ciphertext> cts{operand(2), operand(2)};
            bundledEvaluator().rotSum(cts, indices, cts[over]);
            EXPECT_EQ(stampOf(cts[over]), (SeenStamp{logSlots, 2}));
        }
}

TEST_F(StampsOfRotations, OfManyAtOnceAreTheOperands) {
    const HomEvaluatorImpl& inner = *bundledEvaluator().getImpl();
    const Ciphertext in = operand(2);
    const SeenStamp left{logSlots, 2};
    for (const EncodingType encoding : bothEncodings) {
        std::vector<Ciphertext> outs;
        for (const Ciphertext& used : usedOutputs(scheme.context))
            outs.push_back(stampedOtherwise(used, left, encoding));
        inner.leftRotate(in, {1, 0, 2, 4}, outs);
        ASSERT_EQ(outs.size(), 4U);
        for (const Ciphertext& out : outs) EXPECT_EQ(stampOf(out), left);
    }
    std::vector<Ciphertext> itself{in, stampedOtherwise(in, left, EncodingType::Coefficient)};
    inner.leftRotate(itself[0], {1, 2}, itself);
    for (const Ciphertext& out : itself) EXPECT_EQ(stampOf(out), left);
}

// ---- plaintexts

class StampsOfPlaintexts : public Stamps<Ciphertext> {
protected:
    std::vector<Row<Plaintext>> rows() const {
        const HomEvaluator& e = scheme.evaluator;
        const HomEvaluatorImpl& inner = *e.getImpl();
        const auto row = [](const char* name, int owed, int left, auto apply) {
            return Row<Plaintext>{name, owed, left, OnSlots, apply};
        };
        const Plaintext q = plaintext(level, 2), f = plaintext(level, 0);
        std::vector<Row<Plaintext>> all{
            row("negate", 2, 2, [&](auto& p, auto& out) { e.negate(p, out); }),
            row("add a constant", 2, 2, [&](auto& p, auto& out) { e.add(p, 0.5, out); }),
            row("sub a constant", 2, 2, [&](auto& p, auto& out) { e.sub(p, Complex(0, 2), out); }),
            row("add", 2, 2, [&e, q](auto& p, auto& out) { e.add(p, q, out); }),
            row("sub", 2, 2, [&e, q](auto& p, auto& out) { e.sub(q, p, out); }),
            row("mult by a constant", 0, 0, [&](auto& p, auto& out) { e.mult(p, 0.5, out); }),
            row("multWithoutRescale by a constant", 2, 3,
                [&](auto& p, auto& out) { inner.multWithoutRescale(p, 0.5, out); }),
            row("mult", 0, 0, [&e, f](auto& p, auto& out) { e.mult(f, p, out); }),
            row("multWithoutRescale", 0, 1,
                [&inner, f](auto& p, auto& out) { inner.multWithoutRescale(p, f, out); }),
            row("square", 0, 0, [&](auto& p, auto& out) { e.square(p, out); }),
            row("multImagUnit", 2, 2, [&](auto& p, auto& out) { e.multImagUnit(p, out); }),
            row("relevel", 2, 2, [&](auto& p, auto& out) { e.relevel(p, 4, out); }),
            row("leftRotate", 2, 2, [&](auto& p, auto& out) { e.leftRotate(p, 3, out); }),
            row("leftRotate by none", 2, 2, [&](auto& p, auto& out) { e.leftRotate(p, 0, out); }),
            row("rightRotate", 2, 2, [&](auto& p, auto& out) { e.rightRotate(p, 3, out); }),
            row("conjugate", 2, 2, [&](auto& p, auto& out) { e.conjugate(p, out); }),
            row("rescale", 2, 1,
                [&](auto& p, auto& out) {
                    out = p;
                    e.rescale(out);
                }),
            row("inverseRescale", 2, 3,
                [&](auto& p, auto& out) {
                    out = p;
                    e.inverseRescale(out);
                }),
        };
        for (const long n : {7, -7, 1, -1, 0})
            all.push_back(
                row("multInteger", 2, 2, [&e, n](auto& p, auto& out) { e.multInteger(p, n, out); }));
        return all;
    }
};

TEST_F(StampsOfPlaintexts, AreTheOperands) {
    for (const auto& row : rows()) {
        const SeenStamp left{logSlots, row.left};
        const Plaintext in = plaintext(level, row.owed);
        for (const Plaintext& used : usedPlaintexts(scheme.context)) {
            Plaintext out = stampedOtherwise(used, left);
            row.apply(in, out);
            EXPECT_EQ(stampOf(out), left) << row.name;
        }
        Plaintext itself = in;
        row.apply(itself, itself);
        EXPECT_EQ(stampOf(itself), left) << row.name << ", in place";
    }
}

// ---- what is refused late

TEST_F(StampsOfProducts, AreRefusedWhereTheLevelDoesNotBearTheCounter) {
    const HomEvaluator& e = scheme.evaluator;
    const char* const text = "Rescale counter should be less than or equal to the level";
    Ciphertext in = operand(2), three = operand(2), out(scheme.context);
    in.setLevel(1);
    three.setLevel(1);
    three.setNumPoly(3);
    EXPECT_REFUSED(e.negate(in, out), text);
    EXPECT_REFUSED(e.add(in, 0.5, out), text);
    EXPECT_REFUSED(e.add(in, in, out), text);
    EXPECT_REFUSED(e.multImagUnit(in, out), text);
    EXPECT_REFUSED(e.multInteger(in, 3, out), text);
    EXPECT_REFUSED(e.multWithoutRescale(in, 0.5, out), text);
    EXPECT_REFUSED(e.tensor(in, in, out), text);
    EXPECT_REFUSED(e.relinearize(three, out), text);
    Plaintext p = plaintext(level, 2), q(scheme.context);
    p.setLevel(1);
    EXPECT_REFUSED(e.negate(p, q), text);
    EXPECT_REFUSED(e.add(p, p, q), text);
    EXPECT_REFUSED(e.conjugate(p, q), text);
}

} // namespace
} // namespace Torvo
