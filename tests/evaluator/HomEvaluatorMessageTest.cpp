#include "evaluator/HomEvaluatorImpl.hpp"
#include "support/Expect.hpp"
#include "support/Scheme.hpp"
#include "support/Seeded.hpp"

#include <Torvo/HomEvaluator.hpp>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>

using namespace Torvo;
using namespace Torvo::test;

namespace {

using Complex = std::complex<double>;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

const HomEvaluator& evaluator() {
    return Scheme::of(ParameterPreset::FX).evaluator;
}

Message messageOf(std::initializer_list<Complex> slots) {
    return Message(std::vector<Complex>(slots));
}

std::vector<Complex> slotsOf(const Message& m) {
    return {m.begin(), m.end()};
}

/// A message on the GPU; without a backend only an empty one can be.
Message onGPU() {
    Message m;
    m.allocate(Device{DeviceType::GPU, 0});
    return m;
}

struct UnaryForm {
    const char* name;
    std::function<void(const Message&, Message&)> apply;
    std::function<Complex(Complex)> slot;
};

const Complex constant(0.75, -1.25);

std::vector<UnaryForm> unaryForms() {
    const HomEvaluator& e = evaluator();
    return {
        {"negate", [&](auto& in, auto& out) { e.negate(in, out); }, [](Complex z) { return -z; }},
        {"add", [&](auto& in, auto& out) { e.add(in, constant, out); },
         [](Complex z) { return Complex(z.real() + 0.75, z.imag() - 1.25); }},
        {"sub", [&](auto& in, auto& out) { e.sub(in, constant, out); },
         [](Complex z) { return Complex(z.real() - 0.75, z.imag() + 1.25); }},
        {"mult", [&](auto& in, auto& out) { e.mult(in, constant, out); },
         [](Complex z) {
             return Complex(z.real() * 0.75 - z.imag() * -1.25, z.real() * -1.25 + z.imag() * 0.75);
         }},
        {"square", [&](auto& in, auto& out) { e.square(in, out); },
         [](Complex z) {
             return Complex(z.real() * z.real() - z.imag() * z.imag(), 2 * (z.real() * z.imag()));
         }},
        {"multImagUnit", [&](auto& in, auto& out) { e.multImagUnit(in, out); },
         [](Complex z) { return Complex(-z.imag(), z.real()); }},
        {"conjugate", [&](auto& in, auto& out) { e.conjugate(in, out); },
         [](Complex z) { return Complex(z.real(), -z.imag()); }},
    };
}

struct BinaryForm {
    const char* name;
    std::function<void(const Message&, const Message&, Message&)> apply;
    std::function<Complex(Complex, Complex)> slot;
};

std::vector<BinaryForm> binaryForms() {
    const HomEvaluator& e = evaluator();
    return {
        {"add", [&](auto& a, auto& b, auto& out) { e.add(a, b, out); },
         [](Complex x, Complex y) { return Complex(x.real() + y.real(), x.imag() + y.imag()); }},
        {"sub", [&](auto& a, auto& b, auto& out) { e.sub(a, b, out); },
         [](Complex x, Complex y) { return Complex(x.real() - y.real(), x.imag() - y.imag()); }},
        {"mult", [&](auto& a, auto& b, auto& out) { e.mult(a, b, out); },
         [](Complex x, Complex y) {
             return Complex(x.real() * y.real() - x.imag() * y.imag(),
                            x.real() * y.imag() + x.imag() * y.real());
         }},
    };
}

} // namespace

TEST(HomEvaluatorMessage, UnaryFormsActOnEverySlotIntoAnyOutput) {
    Seeded random(11);
    SCOPED_TRACE(random.describe());
    const Message in = random.message(3);
    for (const UnaryForm& form : unaryForms()) {
        SCOPED_TRACE(form.name);
        std::vector<Complex> expected;
        for (const Complex& z : in) expected.push_back(form.slot(z));
        Message empty, larger(5), itself = in;
        for (Message* out : {&empty, &larger}) {
            form.apply(in, *out);
            EXPECT_EQ(slotsOf(*out), expected);
        }
        form.apply(itself, itself);
        EXPECT_EQ(slotsOf(itself), expected);
    }
}

TEST(HomEvaluatorMessage, BinaryFormsActOnEverySlotIntoAnyOutput) {
    Seeded random(12);
    SCOPED_TRACE(random.describe());
    const Message a = random.message(4), b = random.message(4);
    for (const BinaryForm& form : binaryForms()) {
        SCOPED_TRACE(form.name);
        std::vector<Complex> expected, ofItself;
        for (u64 i = 0; i < a.getSize(); ++i) {
            expected.push_back(form.slot(a[i], b[i]));
            ofItself.push_back(form.slot(a[i], a[i]));
        }
        Message fresh, first = a, second = b, both = a;
        form.apply(a, b, fresh);
        form.apply(first, b, first);
        form.apply(a, second, second);
        form.apply(both, both, both);
        EXPECT_EQ(slotsOf(fresh), expected);
        EXPECT_EQ(slotsOf(first), expected);
        EXPECT_EQ(slotsOf(second), expected);
        EXPECT_EQ(slotsOf(both), ofItself);
    }
}

TEST(HomEvaluatorMessage, ASingleSlotFillsAnEmptyOutput) {
    // An empty message and one of one slot have the same log slots.
    Message out;
    evaluator().negate(messageOf({{1.0, 2.0}}), out);
    ASSERT_EQ(out.getSize(), 1u);
    EXPECT_EQ(out[0], Complex(-1.0, -2.0));
}

TEST(HomEvaluatorMessage, BinaryFormsRefuseMessagesThatDoNotMatch) {
    for (const BinaryForm& form : binaryForms()) {
        SCOPED_TRACE(form.name);
        Message small(2, Complex(1.0)), elsewhere(3, Complex(1.0)), out;
        const Message a(3, Complex(1.0));
        small.to(Device{DeviceType::CPU, 1});
        elsewhere.to(Device{DeviceType::CPU, 1});
        EXPECT_REFUSED(form.apply(a, small, out), "Two operands have different logSlots");
        EXPECT_REFUSED(form.apply(a, elsewhere, out), "Two operands are in different devices");
        EXPECT_TRUE(out.isEmpty());

        // Sizes of one rounded logarithm are still two sizes.
        Message odd = a;
        odd.resize(11);
        EXPECT_REFUSED(form.apply(odd, a, out), "Two operands have different logSlots");
    }
}

TEST(HomEvaluatorMessage, AMessageOnTheGPUIsRefused) {
    const char* const text = "Message that is GPU-allocated is not supported.";
    const HomEvaluator& e = evaluator();
    const Message in = onGPU();
    Message out;
    for (const UnaryForm& form : unaryForms()) EXPECT_REFUSED(form.apply(in, out), text);
    for (const BinaryForm& form : binaryForms()) EXPECT_REFUSED(form.apply(in, in, out), text);
    EXPECT_REFUSED(e.leftRotate(in, 1, out), text);
    EXPECT_REFUSED(e.rightRotate(in, 1, out), text);
    EXPECT_REFUSED(e.leftRotateReduce(in, 1, 2, out), text);
    EXPECT_REFUSED(e.rightRotateReduce(in, 1, 2, out), text);
}

TEST(HomEvaluatorMessage, TheOutputFollowsTheInputToItsDevice) {
    Message in(2, Complex(1.0)), out(2, Complex(9.0));
    in.to(Device{DeviceType::CPU, 1});
    evaluator().negate(in, out);
    EXPECT_EQ(out.getDevice(), (Device{DeviceType::CPU, 1}));
    EXPECT_EQ(out[3], Complex(-1.0, 0.0));
}

TEST(HomEvaluatorMessage, NegationFlipsSignBitsOfZeroAndNaNToo) {
    const Message in = messageOf({{0.0, -0.0}, {notANumber, -notANumber}});
    Message out;
    evaluator().negate(in, out);
    EXPECT_TRUE(std::signbit(out[0].real()));
    EXPECT_FALSE(std::signbit(out[0].imag()));
    EXPECT_NE(std::signbit(out[1].real()), std::signbit(in[1].real()));
    EXPECT_NE(std::signbit(out[1].imag()), std::signbit(in[1].imag()));
    evaluator().conjugate(in, out);
    EXPECT_FALSE(std::signbit(out[0].real()));
    EXPECT_FALSE(std::signbit(out[0].imag()));
}

TEST(HomEvaluatorMessage, ProductsRecoverInfinitiesFromNaN) {
    // (inf + i*NaN) * (1 + i) is an infinity by the rules of the standard complex product.
    const Message in = messageOf({{infinity, notANumber}});
    Message out;
    evaluator().mult(in, Complex(1.0, 1.0), out);
    EXPECT_TRUE(std::isinf(out[0].real()) || std::isinf(out[0].imag()));
    evaluator().mult(in, in, out);
    EXPECT_TRUE(std::isinf(out[0].real()) || std::isinf(out[0].imag()));
    evaluator().multImagUnit(in, out);
    EXPECT_TRUE(std::isinf(out[0].real()) || std::isinf(out[0].imag()));
}

TEST(HomEvaluatorMessage, TheImaginaryUnitIsAFactorLikeAnyOther) {
    // (1 + 0i) * (0 + 1i) has the real part 1 * 0 - 0 * 1, which is a positive zero.
    const Message in = messageOf({{1.0, 0.0}});
    Message out;
    evaluator().multImagUnit(in, out);
    EXPECT_EQ(out[0], Complex(0.0, 1.0));
    EXPECT_FALSE(std::signbit(out[0].real()));
}

TEST(HomEvaluatorMessage, RotationsShiftCyclicallyModuloTheSlots) {
    Seeded random(13);
    SCOPED_TRACE(random.describe());
    const Message in = random.message(3);
    const u64 n = in.getSize();
    for (const u64 index : {0ul, 1ul, 3ul, 7ul, 8ul, 13ul, 1000003ul}) {
        SCOPED_TRACE(index);
        Message left(1), right, itself = in;
        evaluator().leftRotate(in, index, left);
        evaluator().rightRotate(in, index, right);
        evaluator().leftRotate(itself, index, itself);
        for (u64 i = 0; i < n; ++i) {
            EXPECT_EQ(left[i], in[(i + index) % n]);
            EXPECT_EQ(itself[i], in[(i + index) % n]);
            EXPECT_EQ(right[(i + index) % n], in[i]);
        }
    }
}

/// As many as the logarithm of the size says. For a size that is no power of two this is not the index modulo
/// the size.
TEST(HomEvaluatorMessage, RotationsTakeTheLowBitsOfTheIndex) {
    Seeded random(16);
    SCOPED_TRACE(random.describe());
    for (const u64 n : {1ul, 2ul, 3ul, 8ul, 11ul, 12ul}) {
        Message in = random.message(4), left, right;
        in.resize(n);
        for (const u64 index : {1ul, 2ul, 9ul, 13ul, (1ul << 63) + 1, ~0ul}) {
            SCOPED_TRACE(testing::Message() << n << " slots, index " << index);
            const u64 turn = index & (std::bit_floor(n) - 1);
            evaluator().leftRotate(in, index, left);
            evaluator().rightRotate(in, index, right);
            ASSERT_EQ(left.getSize(), n);
            for (u64 i = 0; i < n; ++i) {
                EXPECT_EQ(left[i], in[(i + turn) % n]);
                EXPECT_EQ(right[(i + turn) % n], in[i]);
            }
        }
    }
}

TEST(HomEvaluatorMessage, AnEmptyMessageRotatesToAnEmptyOne) {
    const Message in;
    Message out(2);
    evaluator().rightRotate(in, 3, out);
    EXPECT_TRUE(out.isEmpty());
}

TEST(HomEvaluatorMessage, ReduceFormsSumTheRotations) {
    Seeded random(14);
    SCOPED_TRACE(random.describe());
    const Message in = random.message(3);
    const u64 n = in.getSize();
    for (const u64 gap : {0ul, 1ul, 3ul})
        for (const u64 count : {1ul, 2ul, 5ul, 8ul, 11ul}) {
            SCOPED_TRACE(testing::Message() << "gap=" << gap << " count=" << count);
            Message left, right = in;
            evaluator().leftRotateReduce(in, gap, count, left);
            evaluator().rightRotateReduce(right, gap, count, right);
            for (u64 i = 0; i < n; ++i) {
                Complex leftSum = 0, rightSum = 0;
                for (u64 k = 0; k < count; ++k) {
                    leftSum += in[(i + k * gap) % n];
                    rightSum += in[(i + n * k * gap - k * gap) % n];
                }
                // `count` terms below sqrt(2), each sum rounded to 2^-53 of at most 16.
                EXPECT_LT(std::abs(left[i] - leftSum), 11 * 16 * 0x1p-52);
                EXPECT_LT(std::abs(right[i] - rightSum), 11 * 16 * 0x1p-52);
            }
        }
}

TEST(HomEvaluatorMessage, AReduceOfNothingGivesTheMessage) {
    Seeded random(15);
    const Message in = random.message(2);
    Message out;
    evaluator().leftRotateReduce(in, 1, 0, out);
    EXPECT_EQ(slotsOf(out), slotsOf(in));
    evaluator().rightRotateReduce(in, 1, 0, out);
    EXPECT_EQ(slotsOf(out), slotsOf(in));
}

/// Sums of rotations in long double, of any number of terms: the rotations come again after one turn.
std::vector<std::complex<long double>> sumOfRotations(const Message& in, u64 gap, u64 count) {
    const u64 n = in.getSize();
    std::vector<std::complex<long double>> sum(n);
    for (u64 i = 0; i < n; ++i)
        for (u64 k = 0; k < std::min(n, count); ++k) {
            // Rotation k is that of every k + n * j below count.
            const u64 times = (count - k - 1) / n + 1;
            const Complex slot = in[static_cast<u64>((static_cast<u128>(k) * (gap % n) + i) % n)];
            sum[i] += static_cast<long double>(times) * std::complex<long double>(slot);
        }
    return sum;
}

/// A slot goes through two additions for each bit of the count, each rounding a sum of at most `count` terms
/// below sqrt(2), in both parts.
double reduceBound(u64 count) {
    return 2 * 65 * std::sqrt(2.0) * 0x1p-53 * 1.5 * static_cast<double>(count);
}

TEST(HomEvaluatorMessage, ReducesSumAnyNumberOfRotationsOfAnySizeByAnyGap) {
    Seeded random(16);
    SCOPED_TRACE(random.describe());
    for (const u64 size : {1, 2, 32, 3, 65, 100}) {
        Message in = random.message(7);
        in.resize(size);
        for (const u64 gap : {u64{0}, u64{1}, u64{3}, size, (u64{1} << 63) + 5, ~u64{0}})
            for (const u64 count :
                 {u64{2}, u64{3}, u64{5}, u64{6}, u64{11}, u64{1000}, u64{4097}, u64{1} << 40,
                  (u64{1} << 63) - 1, u64{1} << 63, (u64{1} << 63) + 1, ~u64{0}}) {
                SCOPED_TRACE(testing::Message() << "size=" << size << " gap=" << gap << " count=" << count);
                const auto left = sumOfRotations(in, gap, count),
                           right = sumOfRotations(in, size - gap % size, count);
                Message out, inPlace = in;
                evaluator().leftRotateReduce(in, gap, count, out);
                evaluator().rightRotateReduce(inPlace, gap, count, inPlace);
                ASSERT_EQ(out.getSize(), size);
                for (u64 i = 0; i < size; ++i) {
                    const auto distance = [](Complex got, std::complex<long double> expected) {
                        return std::abs(std::complex<long double>(got) - expected);
                    };
                    EXPECT_LE(distance(out[i], left[i]), reduceBound(count));
                    EXPECT_LE(distance(inPlace[i], right[i]), reduceBound(count));
                }
            }
    }
}

TEST(HomEvaluatorMessage, ReducesOfInfinitiesStayInfinite) {
    Message in(2, Complex(1.0)), out;
    in[1] = Complex(infinity, 0.0);
    for (const u64 count : {4, 5, 7, 1000, 1023}) {
        evaluator().leftRotateReduce(in, 1, count, out);
        for (const Complex slot : out) EXPECT_EQ(slot, Complex(infinity, 0.0)) << count;
    }
}

TEST(HomEvaluatorMessage, ReducesOfAnEmptyMessageAreEmpty) {
    Message out(2, Complex(1.0));
    evaluator().leftRotateReduce(Message(), 3, ~u64{0}, out);
    EXPECT_TRUE(out.isEmpty());
    out = Message(2, Complex(1.0));
    evaluator().rightRotateReduce(Message(), 3, 5, out);
    EXPECT_TRUE(out.isEmpty());
}

TEST(HomEvaluatorMessage, TheFreeRotationTakesSignedShifts) {
    const Message in = messageOf({1.0, 2.0, 3.0, 4.0});
    using Slots = std::vector<Complex>;
    EXPECT_EQ(slotsOf(rightRotate(in, 0)), slotsOf(in));
    EXPECT_EQ(slotsOf(rightRotate(in, 1)), (Slots{4.0, 1.0, 2.0, 3.0}));
    EXPECT_EQ(slotsOf(rightRotate(in, -1)), (Slots{2.0, 3.0, 4.0, 1.0}));
    EXPECT_EQ(slotsOf(rightRotate(in, 6)), (Slots{3.0, 4.0, 1.0, 2.0}));
    EXPECT_EQ(slotsOf(rightRotate(in, std::numeric_limits<long>::min())), slotsOf(in));
    EXPECT_TRUE(rightRotate(Message(), 3).isEmpty());
}
