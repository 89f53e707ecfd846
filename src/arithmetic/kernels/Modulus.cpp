#include "arithmetic/kernels/Modulus.hpp"

#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/ModulusAVX2.hpp"

#include <algorithm>
#include <cmath>

namespace Torvo {

Modulus::Modulus(unsigned long degree, unsigned long prime, bool withNTT)
    : p_(prime), twoP_(2 * prime), logP_(63 - static_cast<u64>(__builtin_clzl(prime))),
      barrettRatio_(rows::makeBarrettConstant(prime).ratio), degree_(degree),
      barrettHigh_(static_cast<u64>((u128{1} << 64) / prime)),
      wordRemainder_(static_cast<u64>((u128{1} << 64) % prime)),
      barrettLow_(rows::makeShoupConstant(wordRemainder_, prime).companion),
      ntt_(withNTT ? std::make_unique<NTT>(degree, prime) : nullptr) {}

u64 Modulus::power(u64 base, u64 exponent) const {
    u64 result = reduce(u64{1});
    for (u64 square = base; exponent != 0; exponent >>= 1) {
        if ((exponent & 1) != 0) result = mult(result, square);
        square = mult(square, square);
    }
    return result;
}

u64 Modulus::inverse(u64 a) const {
    return power(a, p_ - 2);
}

u64 Modulus::residue(i128 v) const {
    const u128 magnitude = v < 0 ? -static_cast<u128>(v) : static_cast<u128>(v);
    const u64 r = reduce(magnitude);
    return v < 0 ? p_ - r : r;
}

u64 Modulus::makeInteger(double value, double logScale) const {
    const double scaled = std::fabs(value) * std::pow(2.0, logScale);
    const u64 r = reduce(static_cast<u128>(scaled));
    return 0.0 > value ? p_ - r : r;
}

namespace {

/// Runs a kernel over a row of n words: all of them in scalar form, or the first n mod 4 in scalar form and
/// the rest on vectors. `scalar(count)` works on the first words, `vector(begin, count)` on those from
/// `begin` on.
template <class Scalar, class Vector>
void forRow(u64 n, Scalar scalar, Vector vector) {
    const u64 head = runsAVX2() ? n % 4 : n;
    scalar(head);
    if (head < n) vector(head, n - head);
}

} // namespace

void Modulus::constAdd(const u64* in, u64 c, u64* out, u64 n) const {
    const u64 r = reduce(c);
    forRow(
        n, [&](u64 count) { rows::constAdd<ScalarLanes>(in, r, out, count, p_); },
        [&](u64 begin, u64 count) { AVX2::constAdd(in + begin, r, out + begin, count, p_); });
}

void Modulus::addVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(
        n, [&](u64 count) { rows::addVector<ScalarLanes>(out, a, b, count, p_); },
        [&](u64 begin, u64 count) { AVX2::addVector(out + begin, a + begin, b + begin, p_, count); });
}

void Modulus::subVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(
        n, [&](u64 count) { rows::subVector<ScalarLanes>(out, a, b, count, p_); },
        [&](u64 begin, u64 count) { AVX2::subVector(out + begin, a + begin, b + begin, p_, count); });
}

void Modulus::negateVector(u64* out, const u64* in, u64 n) const {
    forRow(
        n, [&](u64 count) { rows::negateVector<ScalarLanes>(out, in, count, p_); },
        [&](u64 begin, u64 count) { AVX2::negateVector(out + begin, in + begin, p_, count); });
}

void Modulus::mulVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(
        n, [&](u64 count) { rows::mulVector<ScalarLanes>(out, a, b, count, barrett()); },
        [&](u64 begin, u64 count) { AVX2::mulVector(out + begin, a + begin, b + begin, p_, count); });
}

void Modulus::mulVector(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2) const {
    if (runsAVX2()) return AVX2::mulModInt<false>(out1, out2, a, b1, b2, p_, degree_);
    rows::mulTwo<false, ScalarLanes>(out1, out2, a, b1, b2, degree_, barrett());
}

void Modulus::mulAddVector(u64* acc1, u64* acc2, const u64* a, const u64* b1, const u64* b2) const {
    if (runsAVX2()) return AVX2::mulModInt<true>(acc1, acc2, a, b1, b2, p_, degree_);
    rows::mulTwo<true, ScalarLanes>(acc1, acc2, a, b1, b2, degree_, barrett());
}

void Modulus::tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z,
                           const u64* w) const {
    if (runsAVX2()) return AVX2::tensorVector(out0, out1, out2, x, y, z, w, p_, degree_);
    rows::tensorVector<ScalarLanes>(out0, out1, out2, x, y, z, w, degree_, barrett());
}

void Modulus::innerProduct(const u64* a, const u64* b, u64* out, u64 n) const {
    u128 sum = 0;
    for (u64 i = 0; i < n; ++i) sum += reduceLazily(u128{a[i]} * b[i]);
    *out = reduce(sum);
}

bool Modulus::isZero(const u64* a) const {
    return std::all_of(a, a + degree_, [](u64 word) { return word == 0; });
}

void Modulus::multMonomial(const u64* in, u64* out, u64 n, long k) const {
    const auto negateWord = [this](u64 word) { return negate(word); };
    if (k >= 0) {
        const u64* wrapped = in + n - static_cast<u64>(k);
        std::copy(in, wrapped, out + k);
        std::transform(wrapped, in + n, out, negateWord);
    } else {
        const u64* kept = in - k;
        std::copy(kept, in + n, out);
        std::transform(in, kept, out + n + k, negateWord);
    }
}

void Modulus::conjugateInvert(const u64* in, u64* out, u64 n, u64 k) const {
    std::reverse_copy(in, in + k + 1, out);
    for (u64 j = 0; j < n - k - 1; ++j) out[k + 1 + j] = negate(in[n - 1 - j]);
}

template <int k>
void Modulus::constMult(const u64* in, u64 c, u64* out, u64 n) const {
    const u64 r = reduce(c);
    forRow(
        n,
        [&](u64 count) {
            rows::constMult<k, ScalarLanes>(in, rows::makeShoupConstant(r, p_), out, count, p_);
        },
        [&](u64 begin, u64 count) { AVX2::constMult<k>(in + begin, r, out + begin, count, p_); });
}

template <int k>
void Modulus::subAndConstMult(const u64* a, const u64* b, u64 c, u64* out, u64 n) const {
    const u64 r = reduce(c);
    forRow(
        n,
        [&](u64 count) {
            rows::subAndConstMult<k, ScalarLanes>(a, b, rows::makeShoupConstant(r, p_), out, count, p_);
        },
        [&](u64 begin, u64 count) {
            AVX2::subAndConstMult<k>(a + begin, b + begin, r, out + begin, count, p_);
        });
}

void Modulus::normalizeModVector(u64* out, const u64* in, u64 q, u64 n) const {
    forRow(
        n, [&](u64 count) { rows::normalizeVector<ScalarLanes>(out, in, q, count, p_); },
        [&](u64 begin, u64 count) { AVX2::normalizeModVector(out + begin, in + begin, q, p_, count); });
}

template <bool accumulate>
void Modulus::normalizeModAndConstMult(const u64* in, u64 c, u64 q, u64* out) const {
    const u64 r = reduce(c);
    const u64 delta = p_ - reduce(q);
    if (runsAVX2()) return AVX2::normalizeModAndConstMult<accumulate>(in, r, q, p_, out, degree_, delta);
    rows::normalizeAndConstMult<accumulate, ScalarLanes>(in, rows::makeShoupConstant(r, p_), {q >> 1, delta},
                                                         out, degree_, p_);
}

void Modulus::liftCentred(u64* row) const {
    constAdd(row, p_ >> 1, row, degree_);
}

void Modulus::sumCentredProducts(const u64* liftedRows, const Modulus* sources, const u64* constants,
                                 u64 stride, u64 count, u64* out) const {
    const auto sum = runsAVX2() ? AVX2::sumConstantProducts : rows::sumConstantProducts<ScalarLanes>;
    u64 lifts = 0, greatest = p_;
    for (u64 r = 0; r < count; ++r) {
        const u64 q = sources[r].getPrime();
        lifts = add(lifts, mult(reduce(q >> 1), constants[r * stride]));
        greatest = std::max(greatest, q);
    }
    std::array<rows::ConstantTerm, rows::maxTerms> terms;
    for (u64 begin = 0; begin < count; begin += terms.size()) {
        const u64 few = std::min<u64>(count - begin, terms.size());
        for (u64 j = 0; j < few; ++j)
            terms[j] = {liftedRows + (begin + j) * degree_, constants[(begin + j) * stride]};
        sum(terms.data(), few, greatest, begin != 0, negate(lifts), out, degree_, wide());
    }
}

void Modulus::sumFewProducts(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1,
                             u64* out2) const {
    const auto sum = runsAVX2() ? AVX2::sumProducts : rows::sumProducts<ScalarLanes>;
    sum(terms, count, accumulate, out1, out2, degree_, wide());
}

template void Modulus::constMult<1>(const u64*, u64, u64*, u64) const;
template void Modulus::constMult<2>(const u64*, u64, u64*, u64) const;
template void Modulus::subAndConstMult<1>(const u64*, const u64*, u64, u64*, u64) const;
template void Modulus::subAndConstMult<2>(const u64*, const u64*, u64, u64*, u64) const;
template void Modulus::normalizeModAndConstMult<false>(const u64*, u64, u64, u64*) const;
template void Modulus::normalizeModAndConstMult<true>(const u64*, u64, u64, u64*) const;

} // namespace Torvo
