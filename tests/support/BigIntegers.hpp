#pragma once

#include "core/Integers.hpp"

#include <boost/multiprecision/cpp_int.hpp>

#include <vector>

/// Exact integers, with which arithmetic in RNS form is compared.
namespace Torvo::test {

using BigInt = boost::multiprecision::cpp_int;

/// The residue in [0, m) of any integer.
inline BigInt residueOf(const BigInt& x, const BigInt& m) {
    const BigInt r = x % m; // takes the sign of x
    return r < 0 ? BigInt(r + m) : r;
}

inline u64 wordResidueOf(const BigInt& x, u64 p) {
    return static_cast<u64>(residueOf(x, p));
}

/// The representative in (-m/2, m/2] of any integer.
inline BigInt centredResidueOf(const BigInt& x, const BigInt& m) {
    const BigInt r = residueOf(x, m);
    return 2 * r > m ? BigInt(r - m) : r;
}

inline BigInt productOf(const std::vector<u64>& factors) {
    BigInt product = 1;
    for (const u64 factor : factors) product *= factor;
    return product;
}

/// By Euclid's extended algorithm; `a` and `m` are coprime.
inline BigInt inverseOf(const BigInt& a, const BigInt& m) {
    BigInt r0 = m, r1 = residueOf(a, m), t0 = 0, t1 = 1;
    while (r1 != 0) {
        const BigInt quotient = r0 / r1;
        const BigInt r2 = r0 - quotient * r1, t2 = t0 - quotient * t1;
        r0 = r1, r1 = r2, t0 = t1, t1 = t2;
    }
    return residueOf(t0, m);
}

/// The integer of least absolute value with these residues.
inline BigInt chineseRemainder(const std::vector<u64>& residues, const std::vector<u64>& primes) {
    const BigInt modulus = productOf(primes);
    BigInt sum = 0;
    for (std::size_t i = 0; i < primes.size(); ++i) {
        const BigInt hat = modulus / primes[i];
        sum += hat * residueOf(inverseOf(hat, primes[i]) * residues[i], primes[i]);
    }
    return centredResidueOf(sum, modulus);
}

/// The primes with indices in [begin, end).
inline std::vector<u64> slice(const std::vector<u64>& primes, u64 begin, u64 end) {
    return {primes.begin() + static_cast<std::ptrdiff_t>(begin),
            primes.begin() + static_cast<std::ptrdiff_t>(end)};
}

} // namespace Torvo::test
