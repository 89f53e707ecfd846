#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Context.hpp>

#include <algorithm>
#include <map>
#include <vector>

/// Arithmetic on rows by the definitions, to judge the row kernels and what stands on them.
namespace Torvo::test {

using Words = std::vector<u64>;

inline u64 addMod(u64 a, u64 b, u64 p) {
    return static_cast<u64>((u128{a} + b) % p);
}
inline u64 subMod(u64 a, u64 b, u64 p) {
    return static_cast<u64>((u128{a} + p - b % p) % p);
}
inline u64 mulMod(u64 a, u64 b, u64 p) {
    return static_cast<u64>(u128{a} * b % p);
}
inline u64 powMod(u64 base, u64 exponent, u64 p) {
    u64 power = 1;
    for (u64 square = base % p; exponent != 0; exponent >>= 1, square = mulMod(square, square, p))
        if (exponent & 1) power = mulMod(power, square, p);
    return power;
}

/// op(x, y) for the words of two rows.
template <class Operation>
Words wordwise(const Words& x, const Words& y, Operation&& op) {
    Words out(x.size());
    std::transform(x.begin(), x.end(), y.begin(), out.begin(), op);
    return out;
}

/// f(X^k) modulo X^N + 1, k odd.
inline Words automorphism(const Words& f, long k, u64 p) {
    const u64 twoN = 2 * f.size();
    Words image(f.size());
    for (u64 i = 0; i < f.size(); ++i) {
        const u64 e = i * static_cast<u64>(k) % twoN;
        image[e % f.size()] = e < f.size() ? f[i] : subMod(0, f[i], p);
    }
    return image;
}

/// f * X^k modulo X^N + 1.
inline Words timesMonomial(const Words& f, long k, u64 p) {
    const u64 twoN = 2 * f.size();
    Words product(f.size());
    for (u64 i = 0; i < f.size(); ++i) {
        const u64 e = (i + twoN + static_cast<u64>(k)) % twoN;
        product[e % f.size()] = e < f.size() ? f[i] : subMod(0, f[i], p);
    }
    return product;
}

/// The transform as it is defined: position rev(i) holds the value at psi^(2i+1), psi being the smallest
/// primitive 2N-th root of unity.
class NaiveTransform {
public:
    NaiveTransform(u64 degree, u64 p) : p_(p), psi_(smallestRoot(degree, p)), position_(degree) {
        for (u64 i = 0; i < degree; ++i)
            for (u64 bit = 1; bit < degree; bit <<= 1)
                if (i & bit) position_[i] |= degree / 2 / bit;
    }

    /// The value at psi^(2i+1) of the row's polynomial goes to position rev(i).
    Words forward(const Words& f) const {
        Words values(f.size());
        for (u64 i = 0; i < f.size(); ++i) {
            const u64 x = powMod(psi_, 2 * i + 1, p_);
            u64 value = 0;
            for (u64 j = f.size(); j-- > 0;) value = addMod(mulMod(value, x, p_), f[j], p_);
            values[position_[i]] = value;
        }
        return values;
    }

    Words backward(const Words& values) const {
        const u64 n = values.size(), inverseOfN = powMod(n, p_ - 2, p_);
        Words f(n);
        for (u64 j = 0; j < n; ++j) {
            u64 sum = 0;
            for (u64 i = 0; i < n; ++i) {
                const u64 exponent = 2 * n - (2 * i + 1) * j % (2 * n);
                sum = addMod(sum, mulMod(values[position_[i]], powMod(psi_, exponent, p_), p_), p_);
            }
            f[j] = mulMod(sum, inverseOfN, p_);
        }
        return f;
    }

    /// The square root of -1 to which X^(N/2) evaluates at the first position.
    u64 imaginaryUnit() const { return powMod(psi_, position_.size() / 2, p_); }

private:
    static u64 smallestRoot(u64 degree, u64 p) {
        u64 root = 0;
        for (u64 g = 2; powMod(root, degree, p) != p - 1; ++g) root = powMod(g, (p - 1) / (2 * degree), p);
        u64 smallest = root;
        for (u64 e = 1; e < 2 * degree; e += 2) smallest = std::min(smallest, powMod(root, e, p));
        return smallest;
    }

    u64 p_;
    u64 psi_;
    std::vector<u64> position_;
};

inline const NaiveTransform& naiveTransform(u64 degree, u64 p) {
    static std::map<std::pair<u64, u64>, NaiveTransform> made;
    return made.try_emplace({degree, p}, degree, p).first->second;
}

/// What stands in words that nothing may read or write.
inline constexpr u64 untouched = 0xdeadbeefdeadbeef;

inline Words rowOf(const Polynomial& poly, u64 i) {
    return {poly.getRow(i), poly.getRow(i) + poly.getDegree()};
}

/// A polynomial at `level`, every word untouched.
inline Polynomial untouchedPolynomial(const Context& context, bool modUp, bool isNTT, u64 level) {
    Polynomial poly(context, modUp, isNTT);
    std::fill(poly.getData().begin(), poly.getData().end(), untouched);
    poly.setLevel(level);
    return poly;
}

/// The same with live rows that are random and in range 1.
inline Polynomial randomPolynomial(const Context& context, bool modUp, bool isNTT, u64 level,
                                   Seeded& random) {
    Polynomial poly = untouchedPolynomial(context, modUp, isNTT, level);
    for (u64 i = 0; i < poly.rowEnd(); ++i) {
        if (!poly.isLiveRow(i)) continue;
        const Words row = random.row(poly.getDegree(), poly.getPrimes()[i]);
        std::copy(row.begin(), row.end(), poly.getRow(i));
    }
    return poly;
}

} // namespace Torvo::test
