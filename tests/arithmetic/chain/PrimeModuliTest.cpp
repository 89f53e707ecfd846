#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeLists.hpp"
#include "support/Expect.hpp"
#include "support/NaiveRing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Torvo::test {
namespace {

constexpr auto tooBig = "[PrimeModuli] Prime size is too big. It should be < 62";
constexpr auto baseTooSmall = "[PrimeModuli] Base prime should be greater than quantize primes";
constexpr auto quantizeTooSmall = "[PrimeModuli] Quantize primes should be greater than or equal to 36 bit";
constexpr auto temporaryTooSmall =
    "[PrimeModuli] log_tpsize should be greater than log_qpsize + (log_bpsize - log_qpsize)/numTP";
constexpr auto noCustomPreset = "Custom parameter preset cannot be constructed in this way";

std::vector<u64> chainOf(const PrimeModuli& primes) {
    std::vector<u64> chain;
    for (u64 i = 0; i < primes.size(); ++i) chain.push_back(primes.getPrime(i));
    return chain;
}

std::vector<u64> part(const std::vector<u64>& chain, u64 begin, u64 end) {
    return {chain.begin() + static_cast<std::ptrdiff_t>(begin),
            chain.begin() + static_cast<std::ptrdiff_t>(end)};
}

/// Miller's test with the first twelve primes as bases, which decides every 64-bit word.
bool isPrimeByMiller(u64 n) {
    for (const u64 base : {2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37}) {
        if (n % base == 0) return n == base;
        u64 odd = n - 1, x = 0;
        while (odd % 2 == 0) odd /= 2;
        bool passes = false;
        for (x = powMod(base, odd, n); odd < n && !passes; odd *= 2, x = mulMod(x, x, n))
            passes = x == n - 1 || (x == 1 && odd % 2 == 1);
        if (!passes) return false;
    }
    return true;
}

/// The `count` largest primes below 2^bits that are 1 modulo `gap`, by trying all.
std::vector<u64> largestPrimes(u64 bits, u64 gap, u64 count) {
    std::vector<u64> primes;
    for (u64 candidate = (u64{1} << bits) + 1 - gap; primes.size() < count; candidate -= gap)
        if (isPrimeByMiller(candidate)) primes.push_back(candidate);
    return primes;
}

TEST(CustomPrimeModuli, OfOneSizeHaveTheLargestPrimeLast) {
    const PrimeModuli primes(CustomSizes{15, 10, 50, 50, 50, 2}, {});
    auto expected = largestPrimes(50, u64{2} << 15, 15);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(chainOf(primes), expected);
    EXPECT_EQ(primes.getDegree(), u64{1} << 15);
}

TEST(CustomPrimeModuli, WithLargerTemporaryPrimesDescendInBothParts) {
    const PrimeModuli primes(CustomSizes{10, 10, 50, 50, 55, 2}, {});
    const auto chain = chainOf(primes);
    ASSERT_EQ(chain.size(), 15u);
    EXPECT_EQ(part(chain, 0, 10), largestPrimes(50, 2048, 10));
    EXPECT_EQ(part(chain, 10, 15), largestPrimes(55, 2048, 5));
}

TEST(CustomPrimeModuli, WithALargerBasePrimeSkipTheLargestTemporaryPrime) {
    for (const u64 logTemporary : {60, 59}) {
        const PrimeModuli primes(CustomSizes{10, 6, 60, 45, logTemporary, 3}, {});
        const auto chain = chainOf(primes);
        ASSERT_EQ(chain.size(), 8u);
        EXPECT_EQ(part(chain, 0, 1), largestPrimes(60, 2048, 1));
        EXPECT_EQ(part(chain, 1, 6), largestPrimes(45, 2048, 5));
        EXPECT_EQ(part(chain, 6, 8), part(largestPrimes(logTemporary, 2048, 3), 1, 3));
    }
}

TEST(CustomPrimeModuli, HaveNoTemporaryPrimeWhenTheGadgetRankExceedsTheChain) {
    const PrimeModuli primes(CustomSizes{6, 2, 50, 40, 55, 3}, {});
    EXPECT_EQ(chainOf(primes),
              (std::vector<u64>{largestPrimes(50, 128, 1)[0], largestPrimes(40, 128, 1)[0]}));
}

TEST(CustomPrimeModuli, TellTheFirstRuleThatTheSizesBreak) {
    const auto make = [](u64 logBase, u64 logQuantize, u64 logTemporary) {
        PrimeModuli(CustomSizes{6, 4, logBase, logQuantize, logTemporary, 2}, {});
    };
    EXPECT_REFUSED(make(61, 62, 10), tooBig);
    EXPECT_REFUSED(make(20, 30, 62), tooBig);
    EXPECT_REFUSED(make(62, 30, 10), tooBig);
    EXPECT_REFUSED(make(34, 35, 10), baseTooSmall);
    EXPECT_REFUSED(make(49, 50, 60), baseTooSmall);
    EXPECT_REFUSED(make(50, 35, 10), quantizeTooSmall);
    EXPECT_REFUSED(make(50, 40, 44), temporaryTooSmall); // 40 + 50 > 2 * 44
    EXPECT_NO_THROW(make(50, 40, 45));
    EXPECT_NO_THROW(make(61, 61, 61));
    EXPECT_NO_THROW(make(36, 36, 36));
}

TEST(CustomPrimeModuli, NeedADegreeThatTheTransformTakes) {
    EXPECT_REFUSED(PrimeModuli(CustomSizes{5, 2, 50, 50, 50, 1}, {}), "[NTT] degree should be >= 64.");
}

TEST(PresetPrimeModuli, AreTheListOfThePreset) {
    const auto& list = getPrimeList(ParameterPreset::FX);
    const Device gpu{DeviceType::GPU, 3};
    const PrimeModuli primes(ParameterPreset::FX, list.size(), 64, {gpu});
    EXPECT_EQ(chainOf(primes), list);
    EXPECT_EQ(primes.getDegree(), 64u);
    EXPECT_EQ(primes.getDevices(), std::set<Device>{gpu});
    for (const Modulus& modulus : primes.getModuli()) EXPECT_TRUE(modulus.hasNTT());
}

TEST(PresetPrimeModuli, RefuseTheCustomPresetBeforeAnyTableIsMade) {
    EXPECT_REFUSED(PrimeModuli(ParameterPreset::CUSTOM, 10, 3, {}), noCustomPreset);
    EXPECT_REFUSED(PrimeModuli(LWE::ParameterPreset::CUSTOM, 10, 3, {}), noCustomPreset);
}

TEST(PresetPrimeModuli, FailAsTheTransformDoesWhenThePrimesDoNotFitTheDegree) {
    EXPECT_REFUSED(
        PrimeModuli(ParameterPreset::FX, getPrimeList(ParameterPreset::FX).size(), u64{1} << 20, {}),
        "Not an NTT-friendly prime given.");
}

TEST(LWEPrimeModuli, OfAPresetAreItsListWithoutTransformsAndTables) {
    const auto& list = getPrimeList(LWE::ParameterPreset::SS7);
    const PrimeModuli primes(LWE::ParameterPreset::SS7, list.size(), 600, {});
    EXPECT_EQ(chainOf(primes), list);
    EXPECT_EQ(primes.getDegree(), 600u);
    for (const Modulus& modulus : primes.getModuli()) EXPECT_FALSE(modulus.hasNTT());
    EXPECT_EQ(primes.getICoefficients().size(), 0u);
    EXPECT_EQ(primes.getInvPrimeData(Device{}).size(), 0u);
}

TEST(LWEPrimeModuli, OfCustomSizesAreTheLargestOddPrimes) {
    const PrimeModuli primes(LWE::CustomSizes{100, 4, 50, 40}, {});
    auto expected = largestPrimes(50, 2, 1);
    for (const u64 prime : largestPrimes(40, 2, 3)) expected.push_back(prime);
    EXPECT_EQ(chainOf(primes), expected);
    EXPECT_EQ(primes.getDegree(), 100u);
}

TEST(LWEPrimeModuli, TellTheFirstRuleThatTheSizesBreak) {
    EXPECT_REFUSED(PrimeModuli(LWE::CustomSizes{100, 4, 61, 62}, {}), tooBig);
    EXPECT_REFUSED(PrimeModuli(LWE::CustomSizes{100, 4, 62, 30}, {}), tooBig);
    EXPECT_REFUSED(PrimeModuli(LWE::CustomSizes{100, 4, 34, 35}, {}), baseTooSmall);
    EXPECT_REFUSED(PrimeModuli(LWE::CustomSizes{100, 4, 50, 35}, {}), quantizeTooSmall);
}

TEST(PrimeModuliTables, HoldTheValueOfTheImaginaryUnitAtBothHalves) {
    const PrimeModuli primes(CustomSizes{6, 3, 61, 50, 61, 1}, {});
    const auto& coefficients = primes.getICoefficients();
    ASSERT_EQ(coefficients.size(), 2 * primes.size());
    for (u64 i = 0; i < primes.size(); ++i) {
        const u64 p = primes.getPrime(i), unit = coefficients[2 * i];
        EXPECT_EQ(mulMod(unit, unit, p), p - 1);
        EXPECT_EQ(unit, naiveTransform(64, p).imaginaryUnit());
        EXPECT_EQ(coefficients[2 * i + 1], p - unit);
        Words row(64);
        row[32] = 1;
        const Words values = naiveTransform(64, p).forward(row);
        EXPECT_EQ(part(values, 0, 32), Words(32, unit));
        EXPECT_EQ(part(values, 32, 64), Words(32, p - unit));
    }
}

TEST(PrimeModuliTables, HoldTheInverseOfEachPrimeModuloTheLowerOnes) {
    const PrimeModuli primes(CustomSizes{6, 6, 61, 45, 61, 2}, {});
    const auto& inverses = primes.getInvPrimeData(Device{});
    const u64 count = primes.size();
    ASSERT_EQ(inverses.size(), count * count);
    for (u64 i = 1; i < count; ++i) {
        for (u64 j = 0; j < i; ++j) {
            const u64 p = primes.getPrime(j);
            EXPECT_EQ(mulMod(inverses[i * count + j], primes.getPrime(i) % p, p), 1u) << i << ", " << j;
        }
    }
}

TEST(PrimeModuliDevices, AreCheckedAtUse) {
    const Device gpu{DeviceType::GPU, 0};
    PrimeModuli primes(CustomSizes{6, 2, 50, 50, 50, 1}, {gpu});
    struct OnDevice {
        Device device;
        Device getDevice() const { return device; }
    };
    const OnDevice host{}, onGPU{gpu}, other{{DeviceType::GPU, 1}};
    EXPECT_EQ(primes.requireCommonDevice(host, host), Device{});
    EXPECT_EQ(primes.requireCommonDevice(onGPU), gpu);
    EXPECT_REFUSED(primes.requireCommonDevice(other, other, onGPU), "Operands are in different devices.");
    EXPECT_REFUSED(primes.requireCommonDevice(other, other),
                   "The generated context does not support the operation with current operands; check the "
                   "device.");
    EXPECT_THROW_TEXT(primes.getInvPrimeData(gpu), std::out_of_range, "map::at");
    EXPECT_REFUSED(primes.toDevice(),
                   "Cannot support the function 'toDevice' in the current build configuration");
}

} // namespace
} // namespace Torvo::test
