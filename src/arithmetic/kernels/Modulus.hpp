#pragma once

#include "arithmetic/kernels/ModulusRows.hpp"
#include "arithmetic/kernels/NTT.hpp"
#include "arithmetic/kernels/ScalarLanes.hpp"
#include "core/Integers.hpp"

#include <algorithm>
#include <array>
#include <memory>

namespace Torvo {

/// One prime of the chain, with the constants that make arithmetic modulo it fast, and the kernels that work
/// on one row of a polynomial. p is odd and below 2^61. A row is in range k when its words lie in [0, k*p);
/// inputs and outputs of kernels are in range 1 unless stated otherwise. Kernels check nothing.
/// Immutable apart from move assignment; all const members are thread-safe on different rows.
class Modulus {
public:
    /// @throws RuntimeException of the NTT constructor, when `withNTT`
    Modulus(unsigned long degree, unsigned long prime, bool withNTT);
    Modulus(Modulus&&) noexcept = default;
    Modulus& operator=(Modulus&&) noexcept = default;

    u64 getPrime() const { return p_; }
    u64 getTwoP() const { return twoP_; }
    u64 getLogP() const { return logP_; }
    u64 getBarrettRatio() const { return barrettRatio_; }
    u64 getBarrettHigh() const { return barrettHigh_; }
    u64 getBarrettLow() const { return barrettLow_; }
    u64 getWordRemainder() const { return wordRemainder_; }
    u64 getDegree() const { return degree_; }
    const NTT& getNTT() const { return *ntt_; }
    bool hasNTT() const { return ntt_ != nullptr; }

    // Words. All code above this class that computes with single words modulo a prime uses these members.

    /// x mod p, for any word.
    u64 reduce(u64 x) const { return rows::reduceWord<ScalarLanes>(x, barrettHigh_, p_); }
    /// x mod p, for any 128-bit value.
    u64 reduce(u128 x) const;
    /// These work on words in range 1.
    u64 add(u64 a, u64 b) const { return rows::addMod<ScalarLanes>(a, b, p_); }
    u64 sub(u64 a, u64 b) const { return rows::subMod<ScalarLanes>(a, b, p_); }
    u64 negate(u64 a) const { return a == 0 ? 0 : p_ - a; }
    u64 mult(u64 a, u64 b) const { return rows::barrettProduct<ScalarLanes>(a, b, barrett()); }
    u64 power(u64 base, u64 exponent) const;
    /// a^(p-2), the inverse by Fermat.
    u64 inverse(u64 a) const;
    /// The residue of a signed integer: r = |v| mod p, and p - r when v is negative. A negative multiple of p
    /// gives the word p, which is not reduced to 0.
    u64 residue(i128 v) const;
    /// The residue r of trunc(|value| * 2^logScale), or p - r when value < 0, which is the word p for r = 0.
    u64 makeInteger(double value, double logScale) const;

    // Rows of n words; the output may be an input unless said otherwise.

    /// out = in + c, for any word c.
    void constAdd(const u64* in, u64 c, u64* out, u64 n) const;
    void addVector(u64* out, const u64* a, const u64* b, u64 n) const;
    void subVector(u64* out, const u64* a, const u64* b, u64 n) const;
    void negateVector(u64* out, const u64* in, u64 n) const;
    void mulVector(u64* out, const u64* a, const u64* b, u64 n) const;
    /// out[i] = residue(x) for the signed word x = in[i], |x| <= greatest < 2^63.
    void residueVector(const u64* in, u64 greatest, u64* out, u64 n) const;
    /// out1 = a * b1, out2 = a * b2, over `degree` words.
    void mulVector(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2) const;
    /// acc1 += a * b1, acc2 += a * b2, over `degree` words.
    void mulAddVector(u64* acc1, u64* acc2, const u64* a, const u64* b1, const u64* b2) const;
    /// out1 = y*w, out2 = x*z, out0 = (x+y)*(z+w) - y*w - x*z, over `degree` words.
    void tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z,
                      const u64* w) const;
    /// *out = sum of a[i] * b[i]; 0 for n = 0.
    void innerProduct(const u64* a, const u64* b, u64* out, u64 n) const;
    /// Whether all `degree` words are 0.
    bool isZero(const u64* a) const;
    /// out = in * X^k modulo X^n + 1, |k| < n; rows distinct.
    void multMonomial(const u64* in, u64* out, u64 n, long k) const;
    /// out = X^k * in(X^-1), k < n; rows distinct.
    void conjugateInvert(const u64* in, u64* out, u64 n, u64 k) const;
    /// out = in * c for any words; out in range `k` = 1, 2.
    template <int k>
    void constMult(const u64* in, u64 c, u64* out, u64 n) const;
    /// out = (a - b) * c; out in range `k` = 1, 2.
    template <int k>
    void subAndConstMult(const u64* a, const u64* b, u64 c, u64* out, u64 n) const;
    /// Changes the modulus of a row from q (range 1) to p: a word stands for its representative in
    /// (-q/2, q/2).
    void normalizeModVector(u64* out, const u64* in, u64 q, u64 n) const;
    /// out = norm(in) * c (or out += norm(in) * c), over `degree` words; in in range 1 for q, out in range 2.
    template <bool accumulate>
    void normalizeModAndConstMult(const u64* in, u64 c, u64 q, u64* out) const;

    // Sums over many rows in one pass and with one reduction per word, over `degree` words, a multiple of 8.

    /// Adds floor(p / 2) to a row in range 1. Afterwards the centred value of a word w is w - floor(p / 2),
    /// so a sum over such rows needs no test per word.
    void liftCentred(u64* row) const;
    /// out = sum over r < count of norm(row r) * constants[r * stride], in range 1. Row r begins at
    /// liftedRows + r * degree and was lifted by sources[r]; constants are in range 1. `out` is none of the
    /// rows.
    void sumCentredProducts(const u64* liftedRows, const Modulus* sources, const u64* constants, u64 stride,
                            u64 count, u64* out) const;
    /// out1 = sum of a_j * x_j, out2 = sum of a_j * y_j over j < count, `termAt(j)` giving the three rows.
    /// The outputs are none of the rows. count > 0. With `accumulate` the sums are added to them.
    template <class TermAt>
    void sumProducts(u64 count, TermAt termAt, u64* out1, u64* out2, bool accumulate = false) const {
        sumProductsOf(degree_, count, termAt, out1, out2, accumulate);
    }
    /// The same over the first n words of the rows, a multiple of 8.
    template <class TermAt>
    void sumProductsOf(u64 n, u64 count, TermAt termAt, u64* out1, u64* out2, bool accumulate = false) const {
        std::array<rows::ProductTerm, rows::maxTerms> terms;
        for (u64 begin = 0; begin < count; begin += terms.size()) {
            const u64 few = std::min<u64>(count - begin, terms.size());
            for (u64 j = 0; j < few; ++j) terms[j] = termAt(begin + j);
            sumFewProducts(terms.data(), few, accumulate || begin != 0, out1, out2, n);
        }
    }

    /// out = sum of row_j * c_j over j < count, `termAt(j)` giving row, constant in range 1 and bound of the row's words,
    /// in range 1, over `length` words, a multiple of 16. The output is none of the rows. count > 0.
    template <class TermAt>
    void sumConstantProducts(u64 count, TermAt termAt, u64* out, u64 length) const {
        std::array<rows::ConstantTerm, rows::maxTerms> terms;
        for (u64 begin = 0; begin < count; begin += terms.size()) {
            const u64 few = std::min<u64>(count - begin, terms.size());
            for (u64 j = 0; j < few; ++j) terms[j] = termAt(begin + j);
            sumFewConstantProducts(terms.data(), few, begin != 0, out, length);
        }
    }

private:
    void sumFewConstantProducts(const rows::ConstantTerm* terms, u64 count, bool accumulate, u64* out,
                                u64 length) const;
    void sumFewProducts(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2,
                        u64 n) const;
    rows::WideConstant wide() const { return {p_, wordRemainder_, barrettHigh_, barrettLow_}; }
    rows::BarrettConstant barrett() const { return {p_, logP_ - 1, barrettRatio_}; }
    u64 reduceLazily(u128 x) const;

    u64 p_ = 0;
    u64 twoP_ = 0;
    u64 logP_ = 0;
    u64 barrettRatio_ = 0;
    u64 degree_ = 0;
    u64 barrettHigh_ = 0;
    u64 wordRemainder_ = 0;
    u64 barrettLow_ = 0;
    std::unique_ptr<NTT> ntt_;
};

/// The two-word Barrett quotient is too small by at most three, so the remainder is below 4p.
inline u64 Modulus::reduceLazily(u128 x) const {
    const auto low = static_cast<u64>(x);
    const auto high = static_cast<u64>(x >> 64);
    const u64 quotient = ScalarLanes::mulHigh(low, barrettHigh_) + ScalarLanes::mulHigh(high, barrettLow_);
    return low + wordRemainder_ * high - quotient * p_;
}

inline u64 Modulus::reduce(u128 x) const {
    return rows::reduceWide<ScalarLanes>(static_cast<u64>(x >> 64), static_cast<u64>(x), wide());
}

} // namespace Torvo
