#include "arithmetic/conversion/RNSDecomposeData.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/PrimeProduct.hpp"

#include <utility>

namespace Torvo {

namespace {

/// Product of the ciphertext primes outside the digit of prime i, modulo that prime.
u64 productOutsideDigit(const Ring& ring, u64 i) {
    const Modulus& modulus = ring.moduli[i];
    const u64 digit = i / ring.groupSize();
    const u64 below = primeProduct(ring.moduli, 0, ring.digitBegin(digit), modulus);
    const u64 above = primeProduct(ring.moduli, ring.digitEnd(digit), ring.numBase, modulus);
    return modulus.mult(below, above);
}

/// One word `entry(i)` per ciphertext prime i.
template <class Entry>
void fillTable(MultipleDevice<DeviceSpecificArray<u64>>& table, u64 numBase, Entry&& entry) {
    DeviceSpecificArray<u64> words(numBase);
    for (u64 i = 0; i < numBase; ++i) words[i] = entry(i);
    table.set(Device{}, std::move(words));
}

} // namespace

RNSDecomposeData::RNSDecomposeData(const Context& context) {
    const Ring ring = ringOf(context);
    fillTable(pMod_, ring.numBase,
              [&](u64 i) { return primeProduct(ring.moduli, ring.numBase, ring.total(), ring.moduli[i]); });
    fillTable(hatQMod_, ring.numBase, [&](u64 i) { return productOutsideDigit(ring, i); });
    const u64* hatQ = getHatQMod(Device{});
    fillTable(hatQInvMod_, ring.numBase, [&](u64 i) { return ring.moduli[i].inverse(hatQ[i]); });
}

} // namespace Torvo
