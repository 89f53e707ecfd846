#pragma once

#include "core/Integers.hpp"

#include <vector>

/// Modular arithmetic by the remainder of 128-bit integers: slow, plain, and without code of the library, for
/// comparison with it.
namespace Torvo::test {

inline u64 wideAdd(u64 a, u64 b, u64 p) {
    return static_cast<u64>((u128{a} + b) % p);
}

inline u64 wideSub(u64 a, u64 b, u64 p) {
    return static_cast<u64>((u128{a % p} + p - b % p) % p);
}

inline u64 wideMul(u64 a, u64 b, u64 p) {
    return static_cast<u64>(u128{a} * b % p);
}

inline u64 widePower(u64 base, u64 exponent, u64 p) {
    u64 result = 1 % p;
    for (base %= p; exponent != 0; exponent >>= 1) {
        if (exponent & 1) result = wideMul(result, base, p);
        base = wideMul(base, base, p);
    }
    return result;
}

/// a * b modulo X^n + 1 and p, term by term.
inline std::vector<u64> negacyclicProduct(const std::vector<u64>& a, const std::vector<u64>& b, u64 p) {
    const u64 n = a.size();
    std::vector<u64> product(n);
    for (u64 i = 0; i < n; ++i) {
        for (u64 j = 0; j < n; ++j) {
            const u64 term = wideMul(a[i], b[j], p);
            u64& out = product[(i + j) % n];
            out = i + j < n ? wideAdd(out, term, p) : wideSub(out, term, p);
        }
    }
    return product;
}

inline u64 reversedBits(u64 i, int bits) {
    u64 reversed = 0;
    for (; bits > 0; --bits, i >>= 1) reversed = reversed << 1 | (i & 1);
    return reversed;
}

} // namespace Torvo::test
