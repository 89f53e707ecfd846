#include "bootstrap/BootConstants.hpp"

#include "context/RadixDecomposition.hpp"
#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <numbers>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

using Complex = std::complex<double>;
using Wide = std::complex<long double>;
using Slots = std::vector<Wide>;

constexpr Device cpu{}, otherCpu{DeviceType::CPU, 1};

/// A context of at least `logSlots` slots and just three levels above 0, which is all that constants need.
Context smallContext(u64 logSlots) {
    return makeContext(std::max<u64>(6, logSlots + 1), 4, 58, 55, 58, 2);
}

BootConstants makeConstants(const Context& context, u64 logSlots, double inverse = 1.0,
                            double forward = 1.0) {
    return BootConstants(logSlots, inverse, forward, context, std::make_shared<EnDecoder>(context));
}

Slots turned(const Slots& x, long left) {
    const auto n = static_cast<long>(x.size());
    Slots out(x.size());
    for (long i = 0; i < n; ++i) out[static_cast<u64>(i)] = x[static_cast<u64>(((i + left) % n + n) % n)];
    return out;
}

/// The effect of one stage on the slots: the sum over k of the rotation by (k - giant / 2) * gap of the sum
/// over j of P[k * baby + j] times the rotation by j * step. A stage after the first has no P for k = j = 0.
Slots applyStage(const Context& context, u64 logSlots, u64 stage, const std::vector<Plaintext>& P,
                 const Slots& x) {
    const EnDecoder encoder(context);
    const RadixDecomposition plan(logSlots);
    const auto baby = static_cast<long>(plan.babySteps[stage]),
               giant = static_cast<long>(plan.giantSteps[stage]);
    const auto step = static_cast<long>(plan.step[stage]);
    const long skipped = stage == 0 ? 0 : 1;
    Slots out(x.size());
    for (long k = 0; k < giant; ++k) {
        Slots sum(x.size());
        for (long j = k == 0 ? skipped : 0; j < baby; ++j) {
            const Message diagonal = encoder.decode(P[static_cast<u64>(k * baby + j - skipped)]);
            const Slots rotated = turned(x, j * step);
            for (u64 i = 0; i < x.size(); ++i) sum[i] += Wide(diagonal[i]) * rotated[i];
        }
        const Slots group = turned(sum, (k - giant / 2) * baby * step);
        for (u64 i = 0; i < x.size(); ++i) out[i] += group[i];
    }
    return out;
}

/// Slot j of the polynomial with coefficients Re u_k at k and Im u_k at k + n: its value at the 4n-th root of
/// unity to the power 5^j, where X^n is i. That is the sum of u_k * root^k; and x holds u_k at the bit
/// reversal of k.
Slots denseForward(const Slots& x, u64 logSlots) {
    const u64 n = x.size();
    Slots out(n);
    for (u64 j = 0, power = 1; j < n; ++j, power = power * 5 % (4 * n))
        for (u64 k = 0; k < n; ++k) {
            const long double angle =
                2 * std::numbers::pi_v<long double> * static_cast<long double>(power * k % (4 * n)) / (4 * n);
            out[j] += x[test::reversedSlot(k, logSlots)] * std::polar(1.0L, angle);
        }
    return out;
}

Slots denseInverse(const Slots& z, u64 logSlots) {
    const u64 n = z.size();
    Slots out(n);
    for (u64 j = 0, power = 1; j < n; ++j, power = power * 5 % (4 * n))
        for (u64 k = 0; k < n; ++k) {
            const long double angle =
                2 * std::numbers::pi_v<long double> * static_cast<long double>(power * k % (4 * n)) / (4 * n);
            out[test::reversedSlot(k, logSlots)] +=
                z[j] * std::polar(1.0L, -angle) / static_cast<long double>(n);
        }
    return out;
}

long double largestDistance(const Slots& a, const Slots& b, long double factor) {
    long double largest = 0;
    for (u64 i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - factor * b[i]));
    return largest;
}

// Diagonals are numbers of modulus at most 1, encoded at a scale near 2^55 with roundings whose sum over 2n
// coefficients is below 2^11 / 2, merged in doubles with a relative error of a few 2^-53; a stage adds up at
// most 32 of them, and three stages of the forward transform of 2^10 slots of modulus up to sqrt(2) make
// values up to 2^10.5. So each stage is off by less than 32 * 2^-44 of its largest value, all together by
// less than 2^-26 forward and 2^-36 backward, where values stay below sqrt(2).
TEST(BootConstants, StagesMakeTheDenseTransformInBothDirections) {
    for (u64 logSlots = 1; logSlots <= 10; ++logSlots) {
        SCOPED_TRACE(logSlots);
        const Context context = smallContext(logSlots);
        const double c2s = 0.4, s2c = 1.7;
        const BootConstants constants = makeConstants(context, logSlots, c2s, s2c);
        const u64 stages = RadixDecomposition(logSlots).numStages;
        const double share = static_cast<double>(stages) / 3; // the cube root of the constant in each stage
        test::Seeded random(logSlots);
        for (int repeat = 0; repeat < (logSlots < 9 ? 3 : 1); ++repeat) {
            const Message message = random.message(logSlots);
            const Slots x(message.begin(), message.end());

            Slots forward = x;
            for (u64 s = stages; s-- > 0;)
                forward = applyStage(context, logSlots, s, constants.getV0(cpu)[s], forward);
            EXPECT_LT(largestDistance(forward, denseForward(x, logSlots), std::pow(s2c, share)), 0x1p-26L);

            Slots inverse = x;
            for (u64 s = 0; s < stages; ++s)
                inverse = applyStage(context, logSlots, s, constants.getInvV0(cpu)[s], inverse);
            // The fold of a message in fewer slots than the ring has is divided out.
            const double folded = c2s / std::exp2(getLogFullSlots(context) - logSlots);
            EXPECT_LT(largestDistance(inverse, denseInverse(x, logSlots), std::pow(folded, share)), 0x1p-36L);
        }
    }
}

// ---- the words of the plaintexts, from full matrices

using Matrix = std::vector<std::vector<Complex>>;

Matrix zeroMatrix(u64 n) {
    return Matrix(n, std::vector<Complex>(n));
}

/// Half the conjugate transpose of the radix-2 factor of stage `s`.
Matrix inverseFactor(u64 logSlots, u64 s) {
    const u64 n = u64{1} << logSlots, m = n >> s, h = m / 2;
    Matrix inverse = zeroMatrix(n);
    const auto set = [&](u64 row, u64 col, Complex x) { inverse[col][row] = 0.5 * std::conj(x); };
    for (u64 base = 0; base < n; base += m)
        for (u64 i = 0, e = 1; i < h; ++i, e = 5 * e % (4 * m)) {
            const Complex w =
                std::exp(Complex(0.0, static_cast<double>(e) * (2 * std::numbers::pi) / (4.0 * m)));
            set(base + i, base + i, 1.0);
            set(base + i + h, base + i, 1.0);
            set(base + i, base + i + h, w);
            set(base + i + h, base + i + h, -w);
        }
    return inverse;
}

Matrix productOf(const Matrix& a, const Matrix& b) {
    const u64 n = a.size();
    Matrix product = zeroMatrix(n);
    for (u64 i = 0; i < n; ++i)
        for (u64 k = 0; k < n; ++k)
            if (a[i][k] != 0.0)
                for (u64 j = 0; j < n; ++j)
                    if (b[k][j] != 0.0) product[i][j] += a[i][k] * b[k][j];
    return product;
}

Matrix conjugateTransposed(const Matrix& a, double factor) {
    Matrix out = zeroMatrix(a.size());
    for (u64 i = 0; i < a.size(); ++i)
        for (u64 j = 0; j < a.size(); ++j) out[j][i] = factor * std::conj(a[i][j]);
    return out;
}

/// Entry k of the list of a stage: the diagonal, times `factor`, rotated to the right by its giant step.
Message diagonalOf(const Matrix& matrix, const RadixDecomposition& plan, u64 stage, u64 k, double factor) {
    const auto n = static_cast<long>(matrix.size()), radix = static_cast<long>(plan.radix[stage]);
    const auto step = static_cast<long>(plan.step[stage]), baby = static_cast<long>(plan.babySteps[stage]);
    const bool isFirst = stage == 0;
    const long i = static_cast<long>(k) + (isFirst ? 0 : 1);
    const long first = !isFirst ? -radix : plan.giantSteps[0] == 1 ? 0 : -(radix / 2);
    const auto reduced = [n](long index) { return static_cast<u64>(((index % n) + n) % n); };
    Message out(static_cast<u64>(std::countr_zero(matrix.size())));
    for (long row = 0; row < n; ++row)
        out[reduced(row + (i / baby * baby + first) * step)] =
            matrix[static_cast<u64>(row)][reduced(row + (first + i) * step)] * factor;
    return out;
}

// Three levels above 0 and a top scale of 58 bits: a constant that is off by its last bit shows.
TEST(BootConstants, AreEncodedFromTheseMatricesToTheWord) {
    for (const u64 logSlots : {1, 2, 3, 4, 5, 6, 8}) {
        SCOPED_TRACE(logSlots);
        const Context context = smallContext(logSlots);
        const EnDecoder encoder(context);
        const BootConstants constants = makeConstants(context, logSlots, 0.4, 1.7);
        const RadixDecomposition plan(logSlots);
        const double x = std::cbrt(0.4 / std::pow(2.0, getLogFullSlots(context) - logSlots)),
                     y = std::cbrt(1.7);
        for (u64 s = 0, offset = 0; s < plan.numStages; offset += plan.logRadix[s], ++s) {
            Matrix merged = inverseFactor(logSlots, offset);
            for (u64 k = 1; k < plan.logRadix[s]; ++k)
                merged = productOf(inverseFactor(logSlots, offset + k), merged);
            const Matrix forward = conjugateTransposed(merged, static_cast<double>(plan.radix[s]));
            for (u64 k = 0; k < constants.getV0(cpu)[s].size(); ++k) {
                ASSERT_TRUE(test::sameWords(constants.getInvV0(cpu)[s][k],
                                            encoder.encode(diagonalOf(merged, plan, s, k, x), 3 - s, 0)));
                ASSERT_TRUE(test::sameWords(constants.getV0(cpu)[s][k],
                                            encoder.encode(diagonalOf(forward, plan, s, k, y), s + 1, 0)));
            }
        }
    }
}

// What constants are built by: only one period of a diagonal is embedded.
TEST(BootConstantsOfRealPreset, RelyOnPeriodicMessagesHavingTheWordsOfTheirPeriods) {
    const Context context = makeContext(ParameterPreset::FGb);
    const EnDecoder encoder(context);
    test::Seeded random(7);
    for (u64 logPeriod = 0; logPeriod <= 15; ++logPeriod) {
        const Message period = random.message(logPeriod);
        Message periodic(15);
        for (u64 i = 0; i < periodic.getSize(); ++i) periodic[i] = period[i % period.getSize()];
        EXPECT_TRUE(test::sameWords(encoder.encodeWithoutNTT(periodic, 1, 0).getMx(),
                                    encoder.encodeWithoutNTT(period, 1, 0).getMx()))
            << "log2 of the period " << logPeriod << ' ' << random.describe();
    }
}

TEST(BootConstants, HoldAPlaintextForEachDiagonalAtTheLevelOfItsUse) {
    for (u64 logSlots = 1; logSlots <= 9; ++logSlots) {
        SCOPED_TRACE(logSlots);
        const Context context = smallContext(logSlots);
        const BootConstants constants = makeConstants(context, logSlots);
        const RadixDecomposition plan(logSlots);
        const auto &forward = constants.getV0(cpu), &inverse = constants.getInvV0(cpu);
        ASSERT_EQ(forward.size(), plan.numStages);
        ASSERT_EQ(inverse.size(), plan.numStages);
        for (u64 s = 0; s < plan.numStages; ++s) {
            const u64 count = s == 0 ? plan.radix[0] : 2 * plan.radix[s] - 1;
            EXPECT_EQ(forward[s].size(), count);
            EXPECT_EQ(inverse[s].size(), count);
            for (u64 i = 0; i < count; ++i) {
                EXPECT_EQ(forward[s][i].getLevel(), s + 1);
                EXPECT_EQ(inverse[s][i].getLevel(), 3 - s);
                EXPECT_EQ(inverse[s][i].getRescaleCounter(), 0);
                EXPECT_EQ(inverse[s][i].getLogSlots(), logSlots);
                EXPECT_TRUE(forward[s][i].getMx().isNTT());
            }
        }
    }
}

TEST(BootConstants, HaveTwoPlaintextsInOneStageForTwoSlots) {
    const BootConstants constants = makeConstants(smallContext(1), 1);
    ASSERT_EQ(constants.getV0(cpu).size(), 1U);
    EXPECT_EQ(constants.getV0(cpu)[0].size(), 2U);
    EXPECT_EQ(constants.getInvV0(cpu)[0].size(), 2U);
}

TEST(BootConstantsOfRealPreset, Have32And63And63Plaintexts) {
    const BootConstants constants = makeConstants(smallContext(15), 15);
    for (const auto* stages : {&constants.getInvV0(cpu), &constants.getV0(cpu)}) {
        ASSERT_EQ(stages->size(), 3U);
        EXPECT_EQ((*stages)[0].size(), 32U);
        EXPECT_EQ((*stages)[1].size(), 63U);
        EXPECT_EQ((*stages)[2].size(), 63U);
    }
}

/// Ends the process with status 0 if constants without enough memory are refused by an exception.
[[noreturn]] void runOutOfMemory() {
    const Context context = smallContext(15);
    const auto encoder = std::make_shared<EnDecoder>(context);
    const BootConstants small(1, 1.0, 1.0, context, encoder); // wakes the team
    u64 pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    // Of few slots, so that the matrices are small; but the plaintexts take 8 bytes * 2^16 coefficients *
    // (8 * 6 + 15 * 6 + 7 * 6 rows), 90 MiB.
    const rlim_t bytes = pages * static_cast<u64>(sysconf(_SC_PAGESIZE)) + (u64{32} << 20);
    const rlimit limit{bytes, bytes};
    if (setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(2);
    try {
        const BootConstants large(8, 1.0, 1.0, context, encoder);
    } catch (const std::bad_alloc&) {
        std::_Exit(0);
    }
    std::_Exit(1);
}

TEST(BootConstantsOfRealPreset, TellWhenMemoryRunsOut) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(runOutOfMemory(), testing::ExitedWithCode(0), "");
}

TEST(BootConstants, LieOnTheCPUAtFirst) {
    const BootConstants constants = makeConstants(smallContext(2), 2);
    EXPECT_TRUE(constants.isIn(cpu));
    EXPECT_FALSE(constants.isIn(otherCpu));
    EXPECT_THROW_TEXT(constants.getV0(otherCpu), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(constants.getInvV0(otherCpu), std::out_of_range, "map::at");
}

TEST(BootConstants, AreCopiedToADeviceOnce) {
    BootConstants constants = makeConstants(smallContext(2), 2);
    const auto* original = constants.getV0(cpu).data();
    constants.load(cpu);
    EXPECT_EQ(constants.getV0(cpu).data(), original);

    constants.load(otherCpu);
    EXPECT_TRUE(constants.isIn(otherCpu));
    EXPECT_EQ(constants.getV0(otherCpu)[0][0].getDevice(), otherCpu);
    EXPECT_EQ(constants.getInvV0(otherCpu)[0][0].getDevice(), otherCpu);
    EXPECT_EQ(constants.getV0(cpu)[0][0].getDevice(), cpu);
    const auto *forward = constants.getV0(otherCpu).data(), *inverse = constants.getInvV0(otherCpu).data();
    constants.load(otherCpu);
    EXPECT_EQ(constants.getV0(otherCpu).data(), forward);
    EXPECT_EQ(constants.getInvV0(otherCpu).data(), inverse);
}

TEST(BootConstants, AreCopiedOnceForThreadsThatAskAtOnce) {
    BootConstants constants = makeConstants(smallContext(4), 4);
    std::vector<const void*> seen(8);
    std::vector<std::thread> threads;
    for (const void*& place : seen)
        threads.emplace_back([&] {
            constants.load(otherCpu);
            place = constants.getV0(otherCpu).data();
        });
    for (std::thread& thread : threads) thread.join();
    for (const void* place : seen) EXPECT_EQ(place, constants.getV0(otherCpu).data());
}

TEST(BootConstants, BuildFactorsThatAreUnitaryButForATwo) {
    const u64 n = 16;
    const std::vector<SparseComplexMatrix> factors = BootConstants::buildFactors(n, 4);
    ASSERT_EQ(factors.size(), 4U);
    for (const auto& factor : factors) {
        SparseComplexMatrix transposed = factor;
        transposed.conjugateTranspose();
        const SparseComplexMatrix product = factor * transposed;
        for (u64 i = 0; i < n; ++i)
            for (u64 j = 0; j < n; ++j)
                EXPECT_LT(std::abs(product.coeff(i, j) - (i == j ? 2.0 : 0.0)), 0x1p-50);
    }
}

TEST(BootConstants, BuildLaterFactorsFromBlocksThatAreTheFactorsOfFewerPoints) {
    const auto factors = BootConstants::buildFactors(16, 4), few = BootConstants::buildFactors(4, 2);
    for (u64 k = 0; k < 2; ++k)
        for (u64 i = 0; i < 16; ++i)
            for (u64 j = 0; j < 16; ++j)
                EXPECT_EQ(factors[2 + k].coeff(i, j), i / 4 == j / 4 ? few[k].coeff(i % 4, j % 4) : 0.0);
}

TEST(BootConstants, BuildAButterflyBlockFromPowersOfFive) {
    SparseComplexMatrix matrix(8, 8, 2, 2);
    BootConstants::buildPartialMatrix(4, 2, 4, matrix);
    for (u64 i = 0; i < 2; ++i) {
        const double angle = 2 * std::numbers::pi * (i == 0 ? 1 : 5) / 16;
        EXPECT_EQ(matrix.coeff(4 + i, 2 + i), Complex(1.0));
        EXPECT_EQ(matrix.coeff(6 + i, 2 + i), Complex(1.0));
        EXPECT_LT(std::abs(matrix.coeff(4 + i, 4 + i) - std::polar(1.0, angle)), 0x1p-51);
        EXPECT_EQ(matrix.coeff(6 + i, 4 + i), -matrix.coeff(4 + i, 4 + i));
    }
    EXPECT_EQ(matrix.coeff(0, 0), Complex(0.0));
}

/// Element (i, j) is 10 i + j, but for the second diagonal, which is not stored.
SparseComplexMatrix numberedMatrix() {
    SparseComplexMatrix matrix(4, 4, 4, 4);
    for (u64 i = 0; i < 4; ++i)
        for (u64 j = 0; j < 4; ++j)
            if (j != (i + 2) % 4) matrix.coeffRef(i, j) = static_cast<double>(10 * i + j);
    return matrix;
}

std::vector<Complex> diagonalOf(long diag, BootConstants::Corner corner) {
    const Message message = BootConstants::extractDiagonal(numberedMatrix(), diag, corner);
    return {message.begin(), message.end()};
}

TEST(BootConstants, ExtractDiagonalsAroundTheCorner) {
    const auto diagonal = [](long diag) { return diagonalOf(diag, BootConstants::Corner::Wraps); };
    EXPECT_EQ(diagonal(0), (std::vector<Complex>{0, 11, 22, 33}));
    EXPECT_EQ(diagonal(1), (std::vector<Complex>{1, 12, 23, 30}));
    EXPECT_EQ(diagonal(-1), (std::vector<Complex>{3, 10, 21, 32}));
    EXPECT_EQ(diagonal(-7), diagonal(1)); // lifted twice
    EXPECT_EQ(diagonal(2), (std::vector<Complex>{0, 0, 0, 0}));
}

TEST(BootConstants, ExtractDiagonalsOfABlockUpToItsCorner) {
    const auto diagonal = [](long diag) { return diagonalOf(diag, BootConstants::Corner::Ends); };
    EXPECT_EQ(diagonal(0), (std::vector<Complex>{0, 11, 22, 33}));
    EXPECT_EQ(diagonal(1), (std::vector<Complex>{1, 12, 23, 0}));
    EXPECT_EQ(diagonal(-1), (std::vector<Complex>{0, 10, 21, 32}));
    EXPECT_EQ(diagonal(4), (std::vector<Complex>{0, 0, 0, 0}));
    EXPECT_EQ(diagonal(-4), (std::vector<Complex>{0, 0, 0, 0}));
}

} // namespace
} // namespace Torvo
