#include "arithmetic/kernels/NumberTheoryUtils.hpp"

#include "core/Integers.hpp"

#include <algorithm>
#include <array>

namespace Torvo::utils {

namespace {

/// Jim Sinclair's seven bases: Miller-Rabin with them is correct for every 64-bit number.
constexpr std::array<u64, 7> SINCLAIR_BASE{2, 325, 9375, 28178, 450775, 9780504, 1795265022};

u64 multiply(u64 a, u64 b, u64 modulus) {
    return static_cast<u64>(u128{a} * b % modulus);
}

u64 power(u64 base, u64 exponent, u64 modulus) {
    u64 result = 1;
    for (u64 square = base; exponent != 0; exponent >>= 1) {
        if ((exponent & 1) != 0) result = multiply(result, square, modulus);
        square = multiply(square, square, modulus);
    }
    return result;
}

/// One round of Miller-Rabin for odd n with n - 1 = d * 2^s.
bool passesMillerRabin(u64 n, u64 base, u64 d, u64 s) {
    u64 x = power(base, d, n);
    if (x == 1 || x == n - 1) return true;
    for (u64 i = 1; i < s; ++i) {
        x = multiply(x, x, n);
        if (x == n - 1) return true;
    }
    return false;
}

void divideOut(std::set<unsigned long>& factors, u64& rest, u64 divisor) {
    if (rest % divisor != 0) return;
    factors.insert(divisor);
    while (rest % divisor == 0) rest /= divisor;
}

} // namespace

bool isPrime(unsigned long n) {
    if (n == 2 || n == 3 || n == 5 || n == 7) return true;
    if (n % 2 == 0 || n % 3 == 0 || n % 5 == 0 || n % 7 == 0) return false;
    if (n < 121) return n >= 2;
    const u64 s = static_cast<u64>(__builtin_ctzl(n - 1));
    const u64 d = (n - 1) >> s;
    return std::all_of(SINCLAIR_BASE.begin(), SINCLAIR_BASE.end(),
                       [=](u64 base) { return passesMillerRabin(n, base, d, s); });
}

void findPrimeFactors(std::set<unsigned long>& factors, unsigned long n) {
    factors.clear();
    if (n == 0) return;
    divideOut(factors, n, 2);
    for (u64 divisor = 3; u128{divisor} * divisor <= n; divisor += 2) divideOut(factors, n, divisor);
    if (n > 2) factors.insert(n);
}

unsigned long findPrimitiveRoot(unsigned long p) {
    std::set<unsigned long> factors;
    findPrimeFactors(factors, p - 1);
    for (u64 g = 2; g < p; ++g) {
        const bool generates = std::none_of(factors.begin(), factors.end(),
                                            [=](u64 f) { return power(g, (p - 1) / f, p) == 1; });
        if (generates) return g;
    }
    return 0;
}

std::vector<unsigned long> seekPrimes(unsigned long center, unsigned long gap, unsigned long number,
                                      bool onlySmaller) {
    std::vector<unsigned long> primes;
    primes.reserve(number);
    const auto take = [&](u64 candidate) {
        if (primes.size() < number && isPrime(candidate)) primes.push_back(candidate);
    };
    if (!onlySmaller) take(center + 1);
    for (u64 i = gap; primes.size() < number; i += gap) {
        if (!onlySmaller) take(center + 1 + i);
        take(center + 1 - i);
    }
    return primes;
}

} // namespace Torvo::utils
