#include "arithmetic/conversion/RowConversion.hpp"

#include "arithmetic/kernels/Modulus.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// Reduces words from range 2 to range 1.
void foldIntoRangeOne(const Modulus& modulus, u64* row, u64 n) {
    const u64 p = modulus.getPrime();
    for (u64 i = 0; i < n; ++i) row[i] = std::min(row[i], row[i] - p); // the difference wraps below p
}

} // namespace

void RowConversion::liftDigitRow(u64 i, const u64* in, bool isNTT, u64* lifted) const {
    const Modulus& modulus = ring_.moduli[i];
    const bool isAlone = ring_.groupSize() == 1;
    if (!isAlone)
        modulus.constMult<1>(in, tables_.hatInvQ[i], lifted, ring_.degree);
    else if (in != lifted)
        std::copy_n(in, ring_.degree, lifted);
    if (isNTT) modulus.getNTT().computeBackward<1>(lifted);
    if (!isAlone) modulus.liftCentred(lifted);
}

void RowConversion::raiseDigit(u64 g, u64 t, u64 level, const u64* liftedRows, u64* row) const {
    const Modulus& target = ring_.moduli[t];
    const u64 first = ring_.digitBegin(g);
    if (ring_.groupSize() == 1) {
        target.normalizeModVector(row, liftedRows, ring_.moduli[first].getPrime(), ring_.degree);
    } else {
        const u64 last = std::min(ring_.digitEnd(g), level + 1);
        target.sumCentredProducts(liftedRows, &ring_.moduli[first], tables_.hatQ.row(first) + t,
                                  tables_.hatQ.columns(), last - first, row);
    }
    target.getNTT().computeForward<1>(row);
}

void RowConversion::liftTemporaryRow(u64 j, u64* row) const {
    const Modulus& modulus = ring_.moduli[ring_.numBase + j];
    modulus.getNTT().computeBackward<1>(row);
    if (ring_.numTemp == 1) return;
    modulus.constMult<1>(row, tables_.hatInvP[j], row, ring_.degree);
    modulus.liftCentred(row);
}

void RowConversion::divideRow(u64 t, const u64* liftedRows, const u64* minuend, bool isNTT, u64* row) const {
    const Modulus& target = ring_.moduli[t];
    const Modulus* temporary = &ring_.moduli[ring_.numBase];
    if (ring_.numTemp == 1)
        target.normalizeModVector(row, liftedRows, temporary->getPrime(), ring_.degree);
    else
        target.sumCentredProducts(liftedRows, temporary, tables_.hatP.row(0) + t, tables_.hatP.columns(),
                                  ring_.numTemp, row);
    if (isNTT)
        target.getNTT().computeForward<1>(row);
    else
        foldIntoRangeOne(target, row, ring_.degree);
    target.subAndConstMult<1>(minuend, row, tables_.invP[t], row, ring_.degree);
}

} // namespace Torvo
