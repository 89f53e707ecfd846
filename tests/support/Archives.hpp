#pragma once

#include "support/RingFamily.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LinearTransform.hpp>
#include <Torvo/Message.hpp>

#include <complex>
#include <map>
#include <string>
#include <vector>

/// The content of the files of tests/archives, for the program that wrote them and the test that reads them.
namespace Torvo::test::archives {

/// Of degree 64, two primes and one temporary one.
inline Context ring() {
    return makeContext(6, 2, 50, 40, 60, 2);
}

/// The ring of one prime that sparse secrets live in.
inline Context partner() {
    return makeContext(6, 1, 50, 42, 51, 1);
}

/// Rings of degree 64 and 128 with the same ciphertext primes.
inline Context narrow() {
    return newFamilyRing(6, 2);
}
inline Context wide() {
    return newFamilyRing(7, 2);
}

/// Vectors of 16 modulo primes of 50 and 40 bits.
inline LWE::Context plain() {
    return LWE::makeContext(16, 2, 50, 40);
}

inline double number(unsigned long i) {
    return static_cast<double>(i * 37 % 64) / 64 - 0.5;
}

/// 2^logSlots slots in the square [-0.5, 0.5]^2.
inline Message message(unsigned long logSlots) {
    Message slots(logSlots);
    for (unsigned long i = 0; i < slots.getSize(); ++i) slots[i] = {number(i), number(3 * i + 11)};
    return slots;
}

inline std::vector<double> coefficients(unsigned long count) {
    std::vector<double> numbers;
    for (unsigned long i = 0; i < count; ++i) numbers.push_back(number(5 * i + 2));
    return numbers;
}

/// On [-2, 6], complex, with a zero inside and one at the end.
inline ChebyshevSeries series() {
    std::vector<std::complex<double>> numbers{0.25, {-1.5, 0.125}, 0.0};
    for (unsigned long k = 3; k < 16; ++k) numbers.emplace_back(number(k), number(7 * k + 5));
    numbers.emplace_back(0);
    return ChebyshevSeries(numbers, -2, 6);
}

/// A secret of -1, 0 and 1, for a key that nothing drew.
inline std::vector<int> givenSecret(unsigned long count) {
    std::vector<int> secret;
    for (unsigned long i = 0; i < count; ++i) secret.push_back(static_cast<int>(i * i % 7 % 3) - 1);
    return secret;
}

/// The first four diagonals of a matrix of 32 rows.
inline std::map<unsigned long, std::vector<std::complex<double>>> diagonals() {
    std::map<unsigned long, std::vector<std::complex<double>>> all;
    for (unsigned long d = 0; d < 4; ++d)
        for (unsigned long i = 0; i < 32; ++i) all[d].emplace_back(number(7 * i + d), number(i + 5 * d));
    return all;
}

constexpr unsigned long rotation = 5;
constexpr double plainNumber = 0.640625;

/// On eight slots: a full diagonal, and parts of two others.
inline LinearTransform linearTransform() {
    std::map<unsigned long, std::vector<std::complex<double>>> all;
    for (const unsigned long d : {0UL, 3UL, 7UL})
        for (unsigned long i = 0; i < 8; ++i)
            all[d].push_back(d == 0 || i >= d ? std::complex<double>(number(i + d) + 2, number(5 * i)) : 0.0);
    return LinearTransform::fromDiagonals(8, all);
}

} // namespace Torvo::test::archives
