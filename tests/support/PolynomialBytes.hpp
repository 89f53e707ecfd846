#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "support/Bytes.hpp"

#include <Torvo/Context.hpp>

#include <string>

namespace Torvo::test {

/// A ring of degree 64 with two ciphertext primes and one temporary one: its files are short.
inline const Context& smallContext() {
    static const Context context = makeContext(6, 2, 50, 40, 60, 2);
    return context;
}

/// The words of live and dead rows alike: the number of the word, plus `first`.
inline void fillWithNumbers(Polynomial& poly, u64 first) {
    for (u64 i = 0; i < poly.getData().size(); ++i) poly.getData()[i] = first + i;
}

/// The header of a polynomial of `smallContext`, up to and with the flag for germ or data.
inline Bytes smallPolynomialHead(bool modUp, bool isNTT, u64 level, bool withoutGerm) {
    const auto primes = getPrimeList(smallContext());
    const u64 rows = modUp ? 3 : 2;
    Bytes bytes;
    bytes.u64s({64, 2, rows, level}).u8(modUp ? 1 : 0).u8(isNTT ? 1 : 0).u64s({rows});
    for (u64 i = 0; i < rows; ++i) bytes.u64s({primes[i]});
    bytes.u8(withoutGerm ? 1 : 0);
    return bytes;
}

/// A polynomial of `smallContext` filled with numbers, in full.
inline std::string smallPolynomial(bool modUp, bool isNTT, u64 level, u64 first) {
    Bytes bytes = smallPolynomialHead(modUp, isNTT, level, true);
    const u64 words = 64 * (modUp ? 3 : level + 1);
    bytes.u64s({words});
    for (u64 i = 0; i < words; ++i) bytes.u64s({first + i});
    return bytes.str();
}

} // namespace Torvo::test
