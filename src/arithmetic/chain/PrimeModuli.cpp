#include "arithmetic/chain/PrimeModuli.hpp"

#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeLists.hpp"
#include "arithmetic/kernels/NumberTheoryUtils.hpp"
#include "core/Failure.hpp"

#include <Torvo/CudaTools.hpp>

#include <algorithm>
#include <cassert>
#include <utility>

namespace Torvo {

namespace {

void append(std::vector<u64>& chain, const std::vector<u64>& primes) {
    chain.insert(chain.end(), primes.begin(), primes.end());
}

/// The `count` largest primes below 2^bits that are 1 modulo `gap`, the largest first.
std::vector<u64> largestPrimes(u64 bits, u64 gap, u64 count) {
    return utils::seekPrimes(u64{1} << bits, gap, count, true);
}

void requirePrimeSizes(u64 logBasePrime, u64 logQuantizePrime, u64 logTempPrime) {
    require(logQuantizePrime < 62 && logTempPrime <= 61 && logBasePrime <= 61, message::primeSizeTooBig);
    require(logBasePrime >= logQuantizePrime, message::basePrimeTooSmall);
    require(logQuantizePrime >= 36, message::quantizePrimeTooSmall);
}

/// The sizes of a custom ring's primes.
struct RingChain {
    u64 degree;
    u64 numBase;
    u64 logBasePrime;
    u64 logQuantizePrime;
    u64 logTempPrime;
    u64 gadgetRank;

    u64 numTemp() const { return numBase / gadgetRank; }
    void requireValid() const;
    std::vector<u64> primes() const;
};

void RingChain::requireValid() const {
    requirePrimeSizes(logBasePrime, logQuantizePrime, logTempPrime);
    // Without temporary primes the left side wraps around to logBasePrime - logQuantizePrime.
    require((numTemp() - 1) * logQuantizePrime + logBasePrime <= numBase * logTempPrime / gadgetRank,
            message::temporaryPrimesTooSmall);
}

std::vector<u64> RingChain::primes() const {
    const u64 gap = 2 * degree;
    std::vector<u64> chain;
    if (logBasePrime != logQuantizePrime) {
        chain = largestPrimes(logBasePrime, gap, 1);
        append(chain, largestPrimes(logQuantizePrime, gap, numBase - 1));
        // Temporary primes of the base prime's size must not repeat it: the largest is reserved for the base
        // prime.
        const auto temporary = largestPrimes(logTempPrime, gap, numTemp() + 1);
        chain.insert(chain.end(), temporary.begin() + 1, temporary.end());
    } else if (logQuantizePrime != logTempPrime) {
        chain = largestPrimes(logQuantizePrime, gap, numBase);
        append(chain, largestPrimes(logTempPrime, gap, numTemp()));
    } else {
        chain = largestPrimes(logQuantizePrime, gap, numBase + numTemp());
        std::reverse(chain.begin(), chain.end());
    }
    return chain;
}

std::vector<u64> findChain(const RingChain& ring) {
    ring.requireValid();
    return ring.primes();
}

/// LWE needs no transform, so its primes need only be odd.
std::vector<u64> findLWEChain(u64 count, u64 logBasePrime, u64 logQuantizePrime) {
    requirePrimeSizes(logBasePrime, logQuantizePrime, 0);
    auto chain = largestPrimes(logBasePrime, 2, 1);
    append(chain, largestPrimes(logQuantizePrime, 2, count - 1));
    return chain;
}

/// The chain of a preset of ring or LWE, which has `numPrimes` primes.
template <class Preset>
const std::vector<u64>& presetChain(Preset preset, [[maybe_unused]] u64 numPrimes) {
    require(preset != Preset::CUSTOM, message::customPresetHasNoPrimes);
    const auto& chain = getPrimeList(preset);
    assert(chain.size() == numPrimes);
    return chain;
}

} // namespace

PrimeModuli::PrimeModuli(const std::vector<u64>& chain, u64 degree, Transforms transforms,
                         std::set<Device> devices)
    : devices_(std::move(devices)), degree_(degree) {
    invPrimeData_.set(Device{}, DeviceSpecificArray<u64>());
    moduli_.reserve(chain.size());
    for (const u64 prime : chain) moduli_.emplace_back(degree, prime, transforms == Transforms::With);
    if (transforms == Transforms::Without) return;
    initICoefficients();
    if (CudaTools::isAvailable()) toDevice();
    initInvPrimeData();
}

PrimeModuli::PrimeModuli(unsigned long logDegree, unsigned long numBase, unsigned long logBasePrime,
                         unsigned long logQuantizePrime, unsigned long logTempPrime, unsigned long gadgetRank,
                         std::set<Device> devices)
    : PrimeModuli(
          findChain({u64{1} << logDegree, numBase, logBasePrime, logQuantizePrime, logTempPrime, gadgetRank}),
          u64{1} << logDegree, Transforms::With, std::move(devices)) {}

PrimeModuli::PrimeModuli(const ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                         std::set<Device> devices)
    : PrimeModuli(presetChain(preset, numPrimes), degree, Transforms::With, std::move(devices)) {}

PrimeModuli::PrimeModuli(unsigned long degree, unsigned long count, unsigned long logBasePrime,
                         unsigned long logQuantizePrime, std::set<Device> devices)
    : PrimeModuli(findLWEChain(count, logBasePrime, logQuantizePrime), degree, Transforms::Without,
                  std::move(devices)) {}

PrimeModuli::PrimeModuli(const LWE::ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                         std::set<Device> devices)
    : PrimeModuli(presetChain(preset, numPrimes), degree, Transforms::Without, std::move(devices)) {}

void PrimeModuli::toDevice() {
    throwUnsupported("toDevice");
}

Device PrimeModuli::checkDevice(const Device& device, bool isCommon) const {
    require(isCommon, message::operandsOnDifferentDevices);
    require(device == Device{} || devices_.contains(device), message::deviceNotServed);
    return device;
}

// In the transformed row of X^(N/2), a square root of -1, the first N/2 words are all I and the others p - I.
void PrimeModuli::initICoefficients() {
    iCoefficients_.resize(2 * moduli_.size());
    std::vector<u64> row(degree_);
    for (u64 i = 0; i < moduli_.size(); ++i) {
        std::fill(row.begin(), row.end(), 0);
        row[degree_ / 2] = 1;
        moduli_[i].getNTT().computeForward<1>(row.data());
        iCoefficients_[2 * i] = row[0];
        iCoefficients_[2 * i + 1] = moduli_[i].getPrime() - row[0];
    }
}

void PrimeModuli::initInvPrimeData() {
    const std::lock_guard lock(invPrimeData_.mutex());
    auto& inverses = invPrimeData_.entries().at(Device{});
    const u64 count = moduli_.size();
    inverses.resize(count * count);
    for (u64 i = 1; i < count; ++i)
        for (u64 j = 0; j < i; ++j)
            inverses[i * count + j] = moduli_[j].inverse(moduli_[j].reduce(getPrime(i)));
}

std::vector<unsigned long> PrimeModuli::getPrimes() const {
    std::vector<unsigned long> primes;
    for (const Modulus& modulus : moduli_) primes.push_back(modulus.getPrime());
    return primes;
}

} // namespace Torvo
