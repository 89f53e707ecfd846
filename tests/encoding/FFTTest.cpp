#include "encoding/FFT.hpp"

#include "support/Expect.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ForcedFeature.hpp"
#include "support/KernelForm.hpp"
#include "support/Sanitizer.hpp"
#include "support/Seeded.hpp"

#include <omp.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using Wide = std::complex<long double>;

constexpr Device cpu{DeviceType::CPU, 0}, otherCpu{DeviceType::CPU, 1}, gpu{DeviceType::GPU, 0},
    pinned{DeviceType::PinnedHost, 0};
constexpr double unit = 0x1p-53;

/// 5^j mod 4n, with nothing of the tables under test.
u64 powerOfFive(u64 j, u64 modulus) {
    u64 power = 1;
    for (u64 i = 0; i < j; ++i) power = power * 5 % modulus;
    return power;
}

/// Y_j^i for Y_j = exp(2 pi i * 5^j / (4n)), the point at which slot j is the value of the polynomial.
///
/// A message of n complex coefficients c_i stands for the real polynomial with Re(c_i) at Y^i and Im(c_i) at
/// Y^(i+n), in Y = X^(N/2n). Since 5^j is 1 modulo 4, Y_j^n = i, and the value at Y_j is the sum of c_i *
/// Y_j^i.
Wide pointPower(u64 n, u64 j, u64 i) {
    const u64 exponent = powerOfFive(j, 4 * n) * i % (4 * n);
    return std::polar(1.0L, std::numbers::pi_v<long double> * static_cast<long double>(exponent) /
                                static_cast<long double>(2 * n));
}

Wide slotValue(const Message& coefficients, u64 j) {
    Wide sum = 0;
    for (u64 i = 0; i < coefficients.getSize(); ++i)
        sum += Wide(coefficients[i]) * pointPower(coefficients.getSize(), j, i);
    return sum;
}

/// The matrix of the embedding is unitary up to sqrt(n).
Wide coefficientValue(const Message& slots, u64 i) {
    Wide sum = 0;
    for (u64 j = 0; j < slots.getSize(); ++j)
        sum += Wide(slots[j]) * std::conj(pointPower(slots.getSize(), j, i));
    return sum / static_cast<long double>(slots.getSize());
}

/// Error of a forward transform of n elements of absolute value at most `size`, to first order in u = 2^-53.
/// A root's angle k * pi / N < 2 pi is rounded twice and pi once, within 3u * 2 pi < 19u; sine and cosine add
/// less than 2u. A complex product adds sqrt(5) u, a sum u: together less than 25u of |u| + |v| per
/// butterfly. After s stages elements are at most 2^s * size, and errors obey e_s <= 2 e_(s-1) + 25u * 2^s *
/// size. So e_L <= 25u * L * 2^L * size. The backward transform has the same bound before its exact division
/// by n.
double forwardBound(u64 n, double size) {
    return 25 * unit * std::log2(static_cast<double>(n)) * static_cast<double>(n) * size;
}

double backwardBound(u64 n, double size) {
    return forwardBound(n, size) / static_cast<double>(n);
}

const double corner = std::sqrt(2.0); ///< largest absolute value in the square [-1, 1]^2

double distance(const Complex& a, const Wide& b) {
    return static_cast<double>(std::abs(Wide(a) - b));
}

TEST(FFT, ForwardIsTheNaiveEmbeddingForEveryNumberOfSlots) {
    const u64 degree = 512;
    const FFT fft(degree, {});
    test::Seeded random(401);
    for (u64 logSlots = 0; logSlots <= 8; ++logSlots) {
        const Message coefficients = random.message(logSlots);
        Message slots = coefficients;
        fft.forwardFFT(slots);
        for (u64 j = 0; j < slots.getSize(); ++j)
            ASSERT_LE(distance(slots[j], slotValue(coefficients, j)), forwardBound(slots.getSize(), corner))
                << random.describe() << " logSlots=" << logSlots << " j=" << j;
    }
}

TEST(FFT, BackwardIsTheInverseOfTheNaiveEmbeddingForEveryNumberOfSlots) {
    const u64 degree = 512;
    const FFT fft(degree, {});
    test::Seeded random(402);
    for (u64 logSlots = 0; logSlots <= 8; ++logSlots) {
        const Message slots = random.message(logSlots);
        Message coefficients = slots;
        fft.backwardFFT(coefficients);
        for (u64 i = 0; i < slots.getSize(); ++i)
            ASSERT_LE(distance(coefficients[i], coefficientValue(slots, i)),
                      backwardBound(slots.getSize(), corner))
                << random.describe() << " logSlots=" << logSlots << " i=" << i;
    }
}

void expectRoundTrips(u64 logDegree) {
    const FFT fft(1ul << logDegree, {});
    test::Seeded random(403);
    for (u64 logSlots = 0; logSlots < logDegree; ++logSlots) {
        const Message original = random.message(logSlots);
        Message message = original;
        fft.backwardFFT(message);
        fft.forwardFFT(message);
        // Coefficients are at most `corner`; the error of the backward transform grows at most n-fold.
        const u64 n = message.getSize();
        const double bound = 2 * forwardBound(n, corner);
        for (u64 j = 0; j < n; ++j)
            ASSERT_LE(std::abs(message[j] - original[j]), bound)
                << random.describe() << " n=" << n << " j=" << j;
    }
}

TEST(FFT, ForwardAfterBackwardGivesTheSlotsBack) {
    for (u64 logDegree = 1; logDegree <= 12; ++logDegree) expectRoundTrips(logDegree);
}

TEST(FFTRealPreset, ForwardAfterBackwardGivesTheSlotsBack) {
    expectRoundTrips(16);
    expectRoundTrips(17);
}

TEST(FFTRealPreset, ForwardIsTheNaiveEmbeddingInChosenSlots) {
    const FFT fft(1ul << 16, {});
    test::Seeded random(404);
    const Message coefficients = random.message(15);
    Message slots = coefficients;
    fft.forwardFFT(slots);
    for (const u64 j : {u64{0}, u64{1}, random.below(1 << 15), u64{(1 << 15) - 1}}) {
        Wide point = pointPower(1 << 15, j, 1), power = 1, sum = 0;
        for (const Complex& c : coefficients) {
            sum += Wide(c) * power;
            power *= point;
        }
        // Horner-free powers in extended precision lose a few 2^-63 per step: far below the bound.
        EXPECT_LE(distance(slots[j], sum), forwardBound(1 << 15, corner)) << random.describe() << " j=" << j;
    }
}

TEST(FFT, OneSlotIsItsOwnTransform) {
    const FFT fft(64, {});
    Message message(0, Complex(0.1, -7.3));
    fft.forwardFFT(message);
    EXPECT_EQ(message[0], Complex(0.1, -7.3));
    fft.backwardFFT(message);
    EXPECT_EQ(message[0], Complex(0.1, -7.3));
}

TEST(FFT, NoSlotsTransformToNone) {
    const FFT fft(64, {});
    Message message;
    fft.forwardFFT(message);
    fft.backwardFFT(message);
    EXPECT_TRUE(message.isEmpty());
}

/// A constant polynomial has its value in every slot, without any rounding.
TEST(FFT, ConstantsAreExact) {
    const FFT fft(64, {});
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
        Message message(logSlots, Complex(0));
        message[0] = {3.25, -0.5};
        fft.forwardFFT(message);
        for (const Complex& slot : message) EXPECT_EQ(slot, Complex(3.25, -0.5));
    }
}

/// The automorphism Y -> Y^5 sends c_i Y^i to c_i Y^(5i), which in the slots is the left rotation by one.
TEST(FFT, RotationOfTheSlotsIsTheAutomorphismByFive) {
    const u64 n = 32;
    const FFT fft(2 * n, {});
    test::Seeded random(405);
    const Message coefficients = random.message(5);
    std::vector<double> real(2 * n), mapped(2 * n);
    for (u64 i = 0; i < n; ++i) {
        real[i] = coefficients[i].real();
        real[i + n] = coefficients[i].imag();
    }
    for (u64 i = 0; i < 2 * n; ++i) { // modulo Y^2n + 1
        const u64 exponent = 5 * i % (4 * n);
        (exponent < 2 * n ? mapped[exponent] : mapped[exponent - 2 * n]) =
            exponent < 2 * n ? real[i] : -real[i];
    }
    Message slots = coefficients, rotated(5);
    for (u64 i = 0; i < n; ++i) rotated[i] = {mapped[i], mapped[i + n]};
    fft.forwardFFT(slots);
    fft.forwardFFT(rotated);
    for (u64 j = 0; j < n; ++j)
        EXPECT_LE(std::abs(rotated[j] - slots[(j + 1) % n]), 2 * forwardBound(n, corner))
            << random.describe();
}

TEST(FFT, RotationGroupHoldsThePowersOfFive) {
    for (const u64 degree : {2, 64, 1024}) {
        const FFT fft(degree, {});
        EXPECT_EQ(fft.getDegree(), degree);
        for (u64 r = 0; r < degree / 2; ++r)
            ASSERT_EQ(fft.getGaloisElement(r, cpu), powerOfFive(r, 2 * degree)) << degree << " " << r;
    }
}

TEST(FFT, RootsAreEachComputedFromTheirOwnAngleAndTheFirstComesAgain) {
    const u64 degree = 1024;
    const FFT fft(degree, {});
    const auto& roots = fft.getRoots(cpu);
    ASSERT_EQ(roots.size(), 2 * degree + 1);
    for (u64 k = 0; k < 2 * degree; ++k) {
        const double angle = static_cast<double>(k) * std::numbers::pi / static_cast<double>(degree);
        ASSERT_EQ(roots[k], Complex(std::cos(angle), std::sin(angle))) << k;
    }
    EXPECT_EQ(roots[2 * degree], Complex(1, 0));
}

/// Both parts of {inf, nan} * t are NaN by the plain formula; the product is infinite nevertheless.
TEST(FFT, InfiniteSlotsStayInfiniteBesideANan) {
    const FFT fft(64, {});
    const double infinity = std::numeric_limits<double>::infinity();
    Message message(1, Complex(1, 1));
    message[1] = {infinity, std::numeric_limits<double>::quiet_NaN()};
    fft.forwardFFT(message);
    for (const Complex& slot : message) EXPECT_TRUE(std::isinf(slot.real()) || std::isinf(slot.imag()));
}

TEST(FFT, SizesThatAreNoPowerOfTwoTouchWholeBlocksOnly) {
    const FFT fft(64, {});
    Message message(2, Complex(6, 0));
    message.resize(3);
    fft.forwardFFT(message);
    EXPECT_EQ(message[2], Complex(6, 0));
    fft.backwardFFT(message);
    EXPECT_EQ(message[2], Complex(2, 0));
}

TEST(FFT, GpuEntryPointsAreNamedInTheRefusal) {
    const FFT fft(64, {});
    Message message;
    message.allocate(gpu);
    EXPECT_REFUSED(fft.forwardFFT(message),
                   "Cannot support the function 'forwardFFTCUDA' in the current build configuration");
    EXPECT_REFUSED(fft.backwardFFT(message),
                   "Cannot support the function 'backwardFFTCUDA' in the current build configuration");
}

TEST(FFT, OtherKindsOfDeviceAreRefusedUnderTheOwnName) {
    const FFT fft(64, {});
    Message message(3);
    message.allocate(pinned);
    EXPECT_REFUSED(fft.forwardFFT(message),
                   "Cannot support the function 'forwardFFT' in the current build configuration");
    EXPECT_REFUSED(fft.backwardFFT(message),
                   "Cannot support the function 'backwardFFT' in the current build configuration");
}

TEST(FFT, ADeviceWithoutTablesIsOutOfRange) {
    const FFT fft(64, {otherCpu, gpu}); // no backend copies the tables there
    Message message(3, Complex(1, 0));
    message.to(otherCpu);
    EXPECT_THROW_TEXT(fft.forwardFFT(message), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(fft.backwardFFT(message), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(fft.getGaloisElement(0, gpu), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(fft.getRoots(otherCpu), std::out_of_range, "map::at");
}

using Transform = void (FFT::*)(Message&) const;
constexpr Transform transforms[] = {&FFT::forwardFFT, &FFT::backwardFFT};

Message transformedIn(KernelForm form, const FFT& fft, Transform transform, Message message) {
    const test::ForcedFeature forced(form);
    (fft.*transform)(message);
    return message;
}

/// NaN and signed zeros too.
bool haveSameBits(const Message& a, const Message& b) {
    return a.getSize() == b.getSize() &&
           std::memcmp(a.begin(), b.begin(), a.getSize() * sizeof(Complex)) == 0;
}

class FFTForms : public testing::TestWithParam<KernelForm> {
protected:
    void SetUp() override { SKIP_UNLESS_PROCESSOR_RUNS(GetParam()); }

    void expectScalarBits(const FFT& fft, const Message& message) const {
        for (const Transform transform : transforms)
            EXPECT_TRUE(haveSameBits(transformedIn(GetParam(), fft, transform, message),
                                     transformedIn(test::scalarForm, fft, transform, message)))
                << (transform == &FFT::forwardFFT ? "forward " : "backward ") << message.getSize();
    }

    test::Seeded random_{407};
};

using FFTFormsRealPreset = FFTForms;

INSTANTIATE_TEST_SUITE_P(EveryVectorForm, FFTForms, testing::ValuesIn(test::vectorForms), test::formName);
INSTANTIATE_TEST_SUITE_P(EveryVectorForm, FFTFormsRealPreset, testing::ValuesIn(test::vectorForms),
                         test::formName);

TEST_P(FFTForms, GiveTheBitsOfTheScalarForm) {
    SCOPED_TRACE(random_.describe());
    for (const u64 logDegree : {7, 13, 15}) {
        const FFT fft(u64{1} << logDegree, {});
        for (u64 logSlots = 0; logSlots < logDegree; ++logSlots)
            for (const double radius : {1.0, 1e-300, 1e200})
                expectScalarBits(fft, random_.message(logSlots, radius));
    }
}

TEST_P(FFTFormsRealPreset, GiveTheBitsOfTheScalarForm) {
    SCOPED_TRACE(random_.describe());
    for (const u64 logDegree : {16, 17}) {
        const FFT fft(u64{1} << logDegree, {});
        expectScalarBits(fft, random_.message(logDegree - 1));
        expectScalarBits(fft, random_.message(logDegree - 2));
    }
}

TEST_P(FFTForms, GiveTheBitsOfTheScalarFormForZerosAndTheSmallestNumbers) {
    const FFT fft(1024, {});
    const double least = std::numeric_limits<double>::denorm_min();
    for (const Complex value : {Complex(0.0, 0.0), Complex(-0.0, -0.0), Complex(-0.0, 0.0),
                                Complex(least, -least), Complex(1e-310, 3.0)}) {
        Message message(9, value);
        expectScalarBits(fft, message);
        message[77] = {-0.0, 1.0};
        expectScalarBits(fft, message);
    }
}

/// What overflows on the way, or is infinite or NaN from the start, wherever it lies.
TEST_P(FFTForms, GiveTheBitsOfTheScalarFormForWhatIsNotFinite) {
    SCOPED_TRACE(random_.describe());
    const FFT fft(1024, {});
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double value :
         {infinity, -infinity, std::nan(""), -std::nan(""), 1.7e308, -1.7e308, 0x1p900, 0x1p901}) {
        for (const u64 slot : {0, 1, 255, 511}) {
            Message message = random_.message(9);
            message[slot].imag(value);
            expectScalarBits(fft, message);
            expectScalarBits(fft, Message(9, Complex(value, 1.0)));
        }
    }
}

TEST_P(FFTForms, GiveTheSameBitsFromAnyTeam) {
    SCOPED_TRACE(random_.describe());
    const FFT fft(1u << 15, {});
    const Message message = random_.message(14);
    const int before = omp_get_max_threads();
    for (const Transform transform : transforms) {
        omp_set_num_threads(1);
        const Message expected = transformedIn(GetParam(), fft, transform, message);
        for (const int threads : {2, 3, 7}) {
            omp_set_num_threads(threads);
            EXPECT_TRUE(haveSameBits(transformedIn(GetParam(), fft, transform, message), expected))
                << threads;
        }
    }
    omp_set_num_threads(before);
}

TEST_P(FFTForms, LeaveTheMessageAloneWhereThereIsNoRoom) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SCOPED_TRACE(random_.describe());
    const FFT fft(1024, {});
    const test::ForcedFeature forced(GetParam());
    const Message original = random_.message(9);
    for (const Transform transform : transforms) {
        Message message = original;
        bool hasFailed = false;
        {
            const test::FailingAllocation failing(0, test::FailingAllocation::Thread::Calling);
            EXPECT_THROW((fft.*transform)(message), std::bad_alloc);
            hasFailed = failing.hasFailed();
        }
        EXPECT_TRUE(hasFailed);
        EXPECT_TRUE(haveSameBits(message, original));
    }
}

TEST(FFT, ThreadsTransformDifferentMessagesAtOnce) {
    const FFT fft(1024, {});
    test::Seeded random(406);
    std::vector<Message> expected, messages;
    for (int t = 0; t < 8; ++t) {
        messages.push_back(random.message(9));
        expected.push_back(messages.back());
        fft.backwardFFT(expected.back());
    }
    std::vector<std::thread> threads;
    for (Message& message : messages) threads.emplace_back([&fft, &message] { fft.backwardFFT(message); });
    for (auto& thread : threads) thread.join();
    for (std::size_t t = 0; t < messages.size(); ++t)
        EXPECT_TRUE(std::equal(messages[t].begin(), messages[t].end(), expected[t].begin()))
            << random.describe();
}

} // namespace
} // namespace Torvo
