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

void requirePrimeSizes(u64 log_bpsize, u64 log_qpsize, u64 log_tpsize) {
    require(log_qpsize < 62 && log_tpsize <= 61 && log_bpsize <= 61, message::primeSizeTooBig);
    require(log_bpsize >= log_qpsize, message::basePrimeTooSmall);
    require(log_qpsize >= 36, message::quantizePrimeTooSmall);
}

void requireChain(const CustomSizes& sizes) {
    requirePrimeSizes(sizes.log_bpsize, sizes.log_qpsize, sizes.log_tpsize);
    // Without temporary primes the left side wraps around to log_bpsize - log_qpsize.
    require((sizes.numTP() - 1) * sizes.log_qpsize + sizes.log_bpsize <=
                sizes.chain_length * sizes.log_tpsize / sizes.gadget_rank,
            message::temporaryPrimesTooSmall);
}

std::vector<u64> findChain(const CustomSizes& sizes) {
    requireChain(sizes);
    const u64 gap = 2 * sizes.degree(), count = sizes.chain_length, numTP = sizes.numTP();
    std::vector<u64> chain;
    if (sizes.log_bpsize != sizes.log_qpsize) {
        chain = largestPrimes(sizes.log_bpsize, gap, 1);
        append(chain, largestPrimes(sizes.log_qpsize, gap, count - 1));
        // Temporary primes of the base prime's size must not repeat it: the largest is reserved for the base
        // prime.
        const auto temporary = largestPrimes(sizes.log_tpsize, gap, numTP + 1);
        chain.insert(chain.end(), temporary.begin() + 1, temporary.end());
    } else if (sizes.log_qpsize != sizes.log_tpsize) {
        chain = largestPrimes(sizes.log_qpsize, gap, count);
        append(chain, largestPrimes(sizes.log_tpsize, gap, numTP));
    } else {
        chain = largestPrimes(sizes.log_qpsize, gap, count + numTP);
        std::reverse(chain.begin(), chain.end());
    }
    return chain;
}

/// LWE needs no transform, so its primes need only be odd.
std::vector<u64> findChain(const LWE::CustomSizes& sizes) {
    requirePrimeSizes(sizes.log_bpsize, sizes.log_qpsize, 0);
    auto chain = largestPrimes(sizes.log_bpsize, 2, 1);
    append(chain, largestPrimes(sizes.log_qpsize, 2, sizes.chain_length - 1));
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

PrimeModuli::PrimeModuli(const CustomSizes& sizes, std::set<Device> devices)
    : PrimeModuli(findChain(sizes), sizes.degree(), Transforms::With, std::move(devices)) {}

PrimeModuli::PrimeModuli(const ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                         std::set<Device> devices)
    : PrimeModuli(presetChain(preset, numPrimes), degree, Transforms::With, std::move(devices)) {}

PrimeModuli::PrimeModuli(const LWE::CustomSizes& sizes, std::set<Device> devices)
    : PrimeModuli(findChain(sizes), sizes.dimension, Transforms::Without, std::move(devices)) {}

PrimeModuli::PrimeModuli(const LWE::ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                         std::set<Device> devices)
    : PrimeModuli(presetChain(preset, numPrimes), degree, Transforms::Without, std::move(devices)) {}

void PrimeModuli::toDevice() {
    throwUnsupported("toDevice");
}

Device PrimeModuli::requireServed(const Device& device, bool isCommon) const {
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
