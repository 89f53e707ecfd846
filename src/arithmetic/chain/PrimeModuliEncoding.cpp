#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <Torvo/Message.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <complex>
#include <cstdlib>

namespace Torvo {

namespace {

constexpr FailureNames embeddingNames{"embeddingToN", "embeddingToN"};

/// Rounds half away from zero. A value beyond 128 bits gives the nearest 128-bit integer.
i128 roundToInteger(double value) {
    const double shifted = value > 0.0 ? value + 0.5 : value - 0.5;
    constexpr double limit = 0x1p127;
    if (std::fabs(shifted) < limit) return static_cast<i128>(shifted);
    constexpr i128 most = static_cast<i128>(~u128{0} >> 1);
    return shifted > 0.0 ? most : -most - 1;
}

/// Rounds the n numbers valueAt(0), ..., valueAt(n - 1) to words. Returns a bound on their magnitudes, or a word
/// above 2^63 if one of them has no signed word.
template <class ValueAt>
u64 roundToWords(u64 n, double scale, u64* words, ValueAt&& valueAt) {
    constexpr u64 tooGreat = u64{1} << 63;
    std::atomic<u64> magnitudes = 0;
    forEachShare(n, [&](u64 begin, u64 end) {
        u64 bits = 0;
        for (u64 j = begin; j < end; ++j) {
            const double value = scale * valueAt(j);
            const double shifted = value + std::copysign(0.5, value);
            const bool fits = std::fabs(shifted) < 0x1p63;
            const long integer = fits ? static_cast<long>(shifted) : 0;
            words[j] = static_cast<u64>(integer);
            bits |= fits ? static_cast<u64>(std::labs(integer)) : tooGreat;
        }
        magnitudes |= bits;
    });
    return magnitudes;
}

/// roundToN of the n values valueAt(0), ..., valueAt(n - 1), which are on `device`.
template <class ValueAt>
RoundedNumbers roundValues(const PrimeModuli& primes, const Device& device, u64 n, double scale,
                           Polynomial& out, ValueAt&& valueAt) {
    shapeResult(primes, embeddingNames, {Operand(out.getLevel(), device)}, {{out, false}});
    require(n != 0 && primes.getDegree() % n == 0, message::embeddingDoesNotDivide);
    RoundedNumbers numbers;
    numbers.words.resize(n);
    numbers.greatest = roundToWords(n, scale, numbers.words.getData(), valueAt);
    if (numbers.greatest >> 63 == 0) return numbers;
    numbers.words.resize(0);
    numbers.wide.resize(n);
    forEachIndex(n, [&](u64 j) { numbers.wide[j] = roundToInteger(scale * valueAt(j)); });
    return numbers;
}

/// Moves the first n words of a row to stride `gap`, zeros between them.
void widen(u64* row, u64 n, u64 gap) {
    if (gap == 1) return;
    for (u64 j = n; j-- > 0;) { // from the last: no word is overwritten before it has moved
        const u64 word = row[j];
        std::fill_n(row + j * gap, gap, 0);
        row[j * gap] = word;
    }
}

/// Converts `n` signed integers to residues.
void residues(const Modulus& modulus, const int* integers, u64* row, u64 n) {
    for (u64 j = 0; j < n; ++j) row[j] = modulus.residue(integers[j]);
}

} // namespace

RoundedNumbers PrimeModuli::roundToN(const double* values, u64 n, double scale, Polynomial& out) const {
    out.setNTT(false);
    require(out.getDevice().type != DeviceType::GPU, message::embeddingNotOnGPU);
    return roundValues(*this, out.getDevice(), n, scale, out, [&](u64 j) { return values[j]; });
}

RoundedNumbers PrimeModuli::roundToN(const Message& message, double scale, Polynomial& out) const {
    const u64 slots = message.getSize();
    const std::complex<double>* slot = message.begin();
    return roundValues(*this, message.getDevice(), 2 * slots, scale, out,
                       [&](u64 j) { return j < slots ? slot[j].real() : slot[j - slots].imag(); });
}

void PrimeModuli::reduceToRow(const RoundedNumbers& numbers, u64 i, u64* row) const {
    const u64 n = numbers.size();
    moduli_[i].residueVector(numbers.words.getData(), numbers.greatest, row, numbers.words.size());
    for (u64 j = 0; j < numbers.wide.size(); ++j) row[j] = moduli_[i].residue(numbers.wide[j]);
    widen(row, n, degree_ / n);
}

void PrimeModuli::spreadToRow(const RoundedNumbers& numbers, u64 i, u64* row) const {
    reduceToRow(numbers, i, row);
    moduli_[i].getNTT().computeForward<1>(row);
}

void PrimeModuli::spreadToN(const RoundedNumbers& numbers, const DeviceSpecificArray<u64>& factors,
                            bool inNTT, Polynomial& out) const {
    forEachIndexInTurns(out.getLevel() + 1, [&](u64 i) {
        const Modulus& modulus = moduli_[i];
        u64* row = out.getRow(i);
        reduceToRow(numbers, i, row);
        if (factors.size() != 0) modulus.constMult<1>(row, factors[i], row, degree_);
        if (inNTT) modulus.getNTT().computeForward<1>(row);
    });
    out.setNTT(inNTT);
}

void PrimeModuli::embeddingToN(const double* values, u64 n, double scale, Polynomial& out) const {
    spreadToN(roundToN(values, n, scale, out), {}, false, out);
}

void PrimeModuli::embeddingToN(const Message& message, double scale, Polynomial& out) const {
    spreadToN(roundToN(message, scale, out), {}, false, out);
}

void PrimeModuli::coefficientsToPolyVector(const DeviceSpecificArray<int>& ints,
                                           PolynomialVector& polys) const {
    require(ints.size() == degree_ * polys.getSize(), message::coefficientsMissPolyVector);
    const int* coefficients = ints.getData();
    for (Polynomial& poly : polys.getPolys()) {
        requireBackend(requireCommonDevice(ints, poly),
                       {"coefficientsToPolyVector", "coefficientsToPolyVector"});
        require(isOwn(poly), message::operandsOfOtherRing);
        const RowBound bound{poly.getLevel(), poly.getNumBase(), poly.rowEnd()};
        forEachRow(bound.live(), [&](u64 i) {
            residues(moduli_[i], coefficients, poly.getRow(i), degree_);
            moduli_[i].getNTT().computeForward<1>(poly.getRow(i));
        });
        poly.setNTT(true);
        coefficients += degree_;
    }
}

void PrimeModuli::coefficientsToLevelledVector(const DeviceSpecificArray<int>& ints,
                                               LevelledVector& vector) const {
    require(ints.size() == vector.getDimension(), message::coefficientsMissLevelledVector);
    requireBackend(requireCommonDevice(ints, vector),
                   {"coefficientsToLevelledVector", "coefficientsToLevelledVector"});
    require(vector.getLevel() < size(), message::operandsOfOtherRing);
    forEachIndex<Nesting::Default>(vector.getLevel() + 1, [&](u64 i) {
        residues(moduli_[i], ints.getData(), vector.getRow(i), vector.getDimension());
    });
}

} // namespace Torvo
