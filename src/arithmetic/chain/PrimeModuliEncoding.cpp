#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <Torvo/Message.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

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

/// Writes `integers` at stride `degree / n` into every row of `out` up to its level, zeros between them.
void spread(const PrimeModuli& primes, const std::vector<u64>& rows,
            const DeviceSpecificArray<i128>& integers, Polynomial& out) {
    const u64 gap = primes.getDegree() / integers.size();
    forEachRow(rows, [&](u64 i) {
        u64* row = out.getRow(i);
        if (gap > 1) std::fill_n(row, primes.getDegree(), 0);
        for (u64 j = 0; j < integers.size(); ++j) row[j * gap] = primes[i].residue(integers[j]);
    });
}

/// embeddingToN of the n values valueAt(0), ..., valueAt(n - 1), which are on `device`.
template <class ValueAt>
void embed(const PrimeModuli& primes, const Device& device, u64 n, double scale, Polynomial& out,
           ValueAt&& valueAt) {
    const auto bound = shapeResult(primes, embeddingNames, {Operand(out.getLevel(), device)}, {{out, false}});
    require(n != 0 && primes.getDegree() % n == 0, message::embeddingDoesNotDivide);
    DeviceSpecificArray<i128> integers(n);
    forEachIndex<Nesting::Default>(n, [&](u64 j) { integers[j] = roundToInteger(scale * valueAt(j)); });
    spread(primes, bound.live(), integers, out);
}

/// Converts `n` signed integers to residues.
void residues(const Modulus& modulus, const int* integers, u64* row, u64 n) {
    for (u64 j = 0; j < n; ++j) row[j] = modulus.residue(integers[j]);
}

} // namespace

void PrimeModuli::embeddingToN(const double* values, u64 n, double scale, Polynomial& out) const {
    out.setNTT(false);
    require(out.getDevice().type != DeviceType::GPU, message::embeddingNotOnGPU);
    embed(*this, out.getDevice(), n, scale, out, [&](u64 j) { return values[j]; });
}

void PrimeModuli::embeddingToN(const Message& message, double scale, Polynomial& out) const {
    const u64 slots = message.getSize();
    embed(*this, message.getDevice(), 2 * slots, scale, out,
          [&](u64 j) { return j < slots ? message[j].real() : message[j - slots].imag(); });
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
