#include "arithmetic/kernels/Modulus.hpp"

#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/ModulusVectors.hpp"
#include "arithmetic/kernels/RowKernels.hpp"

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

constinit const RowKernels scalarKernels = makeRowKernels<ScalarLanes>();

/// Kernels in the form that runs now, for a prime.
const RowKernels& currentKernels(u64 prime) {
    const bool isFloat = prime <= greatestFloatPrime;
    switch (currentForm()) {
    case KernelForm::Scalar:
        return scalarKernels;
    case KernelForm::AVX2:
        return AVX2::kernels;
    case KernelForm::FMA:
        return isFloat ? FMA::floatKernels : AVX2::kernels;
    case KernelForm::AVX512:
        return isFloat ? AVX512::floatKernels : AVX512::kernels;
    case KernelForm::IFMA:
        break;
    }
    return isFloat ? IFMA::floatKernels : IFMA::kernels;
}

/// Kernels for a whole row of n words.
const RowKernels& currentKernels(u64 prime, u64 n) {
    const RowKernels& kernels = currentKernels(prime);
    const bool isTooWide = kernels.width > AVX2::kernels.width && n % (2 * kernels.width) != 0;
    return isTooWide ? AVX2::kernels : kernels;
}

/// Runs a kernel over a row of n words, the first few in scalar form where n is no multiple of the width.
/// `run(kernels, begin, count)` works on `count` words from `begin` on.
template <class Run>
void forRow(u64 prime, u64 n, Run run) {
    const RowKernels& kernels = currentKernels(prime);
    const u64 head = n % kernels.width;
    if (head != 0) run(scalarKernels, 0, head);
    if (head < n) run(kernels, head, n - head);
}

} // namespace

void Modulus::constAdd(const u64* in, u64 c, u64* out, u64 n) const {
    const u64 r = reduce(c);
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.constAdd(in + i, r, out + i, count, p_);
    });
}

void Modulus::addVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.addVector(out + i, a + i, b + i, count, p_);
    });
}

void Modulus::subVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.subVector(out + i, a + i, b + i, count, p_);
    });
}

void Modulus::negateVector(u64* out, const u64* in, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.negateVector(out + i, in + i, count, p_);
    });
}

void Modulus::mulVector(u64* out, const u64* a, const u64* b, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.mulVector(out + i, a + i, b + i, count, barrett());
    });
}

void Modulus::residueVector(const u64* in, u64 greatest, u64* out, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.residueVector[greatest < p_](in + i, out + i, count, barrettHigh_, p_);
    });
}

void Modulus::mulVector(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2) const {
    currentKernels(p_, degree_).mulTwo[false](out1, out2, a, b1, b2, degree_, barrett());
}

void Modulus::mulAddVector(u64* acc1, u64* acc2, const u64* a, const u64* b1, const u64* b2) const {
    currentKernels(p_, degree_).mulTwo[true](acc1, acc2, a, b1, b2, degree_, barrett());
}

void Modulus::tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z,
                           const u64* w) const {
    currentKernels(p_, degree_).tensorVector(out0, out1, out2, x, y, z, w, degree_, barrett());
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
    const auto constant = rows::makeShoupConstant(reduce(c), p_);
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.constMult[k - 1](in + i, constant, out + i, count, p_);
    });
}

template <int k>
void Modulus::subAndConstMult(const u64* a, const u64* b, u64 c, u64* out, u64 n) const {
    const auto constant = rows::makeShoupConstant(reduce(c), p_);
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.subAndConstMult[k - 1](a + i, b + i, constant, out + i, count, p_);
    });
}

void Modulus::normalizeModVector(u64* out, const u64* in, u64 q, u64 n) const {
    forRow(p_, n, [&](const RowKernels& kernels, u64 i, u64 count) {
        kernels.normalizeVector(out + i, in + i, q, count, p_);
    });
}

template <bool accumulate>
void Modulus::normalizeModAndConstMult(const u64* in, u64 c, u64 q, u64* out) const {
    currentKernels(p_, degree_)
        .normalizeAndConstMult[accumulate](in, rows::makeShoupConstant(reduce(c), p_),
                                           {q >> 1, p_ - reduce(q)}, out, degree_, p_);
}

void Modulus::liftCentred(u64* row) const {
    constAdd(row, p_ >> 1, row, degree_);
}

void Modulus::sumCentredProducts(const u64* liftedRows, const Modulus* sources, const u64* constants,
                                 u64 stride, u64 count, u64* out) const {
    const auto sum = currentKernels(p_, degree_).sumConstantProducts;
    u64 lifts = 0;
    for (u64 r = 0; r < count; ++r)
        lifts = add(lifts, mult(reduce(sources[r].getPrime() >> 1), constants[r * stride]));
    std::array<rows::ConstantTerm, rows::maxTerms> terms;
    for (u64 begin = 0; begin < count; begin += terms.size()) {
        const u64 few = std::min<u64>(count - begin, terms.size());
        for (u64 j = 0; j < few; ++j)
            terms[j] = {liftedRows + (begin + j) * degree_, constants[(begin + j) * stride],
                        sources[begin + j].getPrime()};
        sum(terms.data(), few, begin != 0, negate(lifts), out, degree_, wide());
    }
}

void Modulus::sumFewConstantProducts(const rows::ConstantTerm* terms, u64 count, bool accumulate, u64* out,
                                     u64 length) const {
    currentKernels(p_, length).sumConstantProducts(terms, count, accumulate, 0, out, length, wide());
}

void Modulus::sumFewProducts(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2,
                             u64 n) const {
    currentKernels(p_, n).sumProducts(terms, count, accumulate, out1, out2, n, wide());
}

template void Modulus::constMult<1>(const u64*, u64, u64*, u64) const;
template void Modulus::constMult<2>(const u64*, u64, u64*, u64) const;
template void Modulus::subAndConstMult<1>(const u64*, const u64*, u64, u64*, u64) const;
template void Modulus::subAndConstMult<2>(const u64*, const u64*, u64, u64*, u64) const;
template void Modulus::normalizeModAndConstMult<false>(const u64*, u64, u64, u64*) const;
template void Modulus::normalizeModAndConstMult<true>(const u64*, u64, u64, u64*) const;

} // namespace Torvo
