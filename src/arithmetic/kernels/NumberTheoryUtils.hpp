#pragma once

#include <set>
#include <vector>

/// Number theory on words, for the construction of contexts; nothing here is on a hot path.
namespace Torvo::utils {

/// Deterministic Miller-Rabin. The fixed bases are not reduced first, so the three primes 193, 407521 and
/// 299210837, which divide a base, are answered with false; no prime of a chain is that small.
bool isPrime(unsigned long n);

/// Replaces `factors` by the prime factors of `n`.
void findPrimeFactors(std::set<unsigned long>& factors, unsigned long n);

/// The smallest primitive root modulo the prime `p`; 0 when there is none.
unsigned long findPrimitiveRoot(unsigned long p);

/// `number` primes nearest to `center + 1` among `center + 1 + k * gap`: upward first at each distance, or
/// downward only.
/// @throws std::length_error "vector::reserve" for a number above 2^60 - 1
std::vector<unsigned long> seekPrimes(unsigned long center, unsigned long gap, unsigned long number,
                                      bool onlySmaller);

} // namespace Torvo::utils
