#include "arithmetic/chain/PrimeModuliSparse.hpp"

#include "arithmetic/chain/PrimeModuliShape.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// The forward transform of the first n words of `a`, by the first n twiddles of a larger one. Words in range 1.
void transformFew(const Modulus& modulus, u64* a, u64 n) {
    const auto& twiddles = modulus.getNTT().getPowerTable();
    for (u64 groups = 1, distance = n / 2; groups < n; groups *= 2, distance /= 2) {
        for (u64 g = 0; g < groups; ++g) {
            u64 *low = a + 2 * g * distance, *high = low + distance;
            for (u64 j = 0; j < distance; ++j) {
                const u64 u = low[j], v = modulus.mult(high[j], twiddles[groups + g]);
                low[j] = modulus.add(u, v);
                high[j] = modulus.sub(u, v);
            }
        }
    }
}

void transformSparseRow(const Modulus& modulus, u64* row, u64 few, u64 gap) {
    for (u64 k = 0; k < few; ++k) row[k] = modulus.reduce(row[k * gap]); // an embedded word may be p
    transformFew(modulus, row, few);
    for (u64 k = few; k-- > 0;) std::fill_n(row + k * gap, gap, u64{row[k]});
}

} // namespace

void forwardNTTOfSparse(const PrimeModuli& primes, Polynomial& a, u64 gap) {
    const auto bound = shapeResult(primes, {"execNttBatch", "forwardNTT"}, {a}, {{a, true}});
    forEachRow<Nesting::Guarded>(bound.live(), [&](u64 i) {
        transformSparseRow(primes[i], a.getRow(i), primes.getDegree() / gap, gap);
    });
}

} // namespace Torvo
