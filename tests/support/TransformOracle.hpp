#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

#include <vector>

/// The transforms stage by stage, directly by their rule, on 128-bit integers and from the table of powers:
/// the words that every form must give, in every range.
namespace Torvo::test {

/// w*y - floor(y * floor(w * 2^64 / p) / 2^64) * p.
inline u64 lazyProductByRule(u64 w, u64 y, u64 p) {
    const u128 companion = (u128{w} << 64) / p;
    const u128 quotient = (u128{y} * companion) >> 64;
    return static_cast<u64>(u128{w} * y - quotient * p);
}

inline u64 belowByRule(u64 x, u64 bound) {
    return x >= bound ? x - bound : x;
}

inline u64 toRangeByRule(u64 x, u64 p, int k) {
    if (k <= 2) x = belowByRule(x, 2 * p);
    return k == 1 ? belowByRule(x, p) : x;
}

inline std::vector<u64> forwardByRule(const DeviceSpecificArray<u64>& powers, std::vector<u64> a, u64 p,
                                      int k) {
    const u64 n = a.size();
    for (u64 t = n / 2; t > 0; t /= 2) {
        for (u64 i = 0; i < n; ++i) {
            if ((i & t) != 0) continue; // i is an upper partner, i + t its lower
            const u64 u = belowByRule(a[i], 2 * p);
            const u64 v = lazyProductByRule(powers[(n + i) / (2 * t)], a[i + t], p);
            a[i] = u + v;
            a[i + t] = u + 2 * p - v;
        }
    }
    for (u64& x : a) x = toRangeByRule(x, p, k);
    return a;
}

inline std::vector<u64> backwardByRule(const DeviceSpecificArray<u64>& inversePowers, std::vector<u64> a,
                                       u64 p, int k) {
    const u64 n = a.size();
    for (u64 t = 1; t < n / 2; t *= 2) {
        for (u64 i = 0; i < n; ++i) {
            if ((i & t) != 0) continue;
            const u64 d = a[i] + 2 * p - a[i + t];
            a[i] = belowByRule(a[i] + a[i + t], 2 * p);
            a[i + t] = lazyProductByRule(inversePowers[n - n / t + 1 + i / (2 * t)], d, p);
        }
    }
    u64 degreeInverse = 1; // 1/2 is (p + 1) / 2
    for (u64 m = n; m > 1; m /= 2) degreeInverse = static_cast<u64>(u128{degreeInverse} * ((p + 1) / 2) % p);
    const u64 root = static_cast<u64>(u128{degreeInverse} * inversePowers[n - 1] % p);
    for (u64 j = 0; j < n / 2; ++j) {
        const u64 e = belowByRule(a[j] + a[j + n / 2], 2 * p);
        const u64 d = a[j] + 2 * p - a[j + n / 2];
        a[j] = lazyProductByRule(degreeInverse, e, p);
        a[j + n / 2] = lazyProductByRule(root, d, p);
    }
    if (k == 1)
        for (u64& x : a) x = belowByRule(x, p);
    return a;
}

} // namespace Torvo::test
