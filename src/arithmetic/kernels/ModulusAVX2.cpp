#include "arithmetic/kernels/ModulusAVX2.hpp"

#include "arithmetic/kernels/AVX2Lanes.hpp"
#include "arithmetic/kernels/ModulusRows.hpp"

namespace Torvo::AVX2 {

using rows::makeBarrettConstant, rows::makeShoupConstant;

void constAdd(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    rows::constAdd<AVX2Lanes>(in, c, out, n, p);
}

void addVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    rows::addVector<AVX2Lanes>(out, a, b, n, p);
}

void subVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    rows::subVector<AVX2Lanes>(out, a, b, n, p);
}

void negateVector(u64* out, const u64* in, u64 p, u64 n) {
    rows::negateVector<AVX2Lanes>(out, in, n, p);
}

void mulVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    rows::mulVector<AVX2Lanes>(out, a, b, n, makeBarrettConstant(p));
}

void tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z, const u64* w,
                  u64 p, u64 n) {
    rows::tensorVector<AVX2Lanes>(out0, out1, out2, x, y, z, w, n, makeBarrettConstant(p));
}

// These are specializations, because instances of a template would be weak symbols.

template <>
void constMult<1>(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    rows::constMult<1, AVX2Lanes>(in, makeShoupConstant(c, p), out, n, p);
}

template <>
void constMult<2>(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    rows::constMult<2, AVX2Lanes>(in, makeShoupConstant(c, p), out, n, p);
}

template <>
void constMult<4>(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    constMult<2>(in, c, out, n, p);
}

template <>
void subAndConstMult<1>(const u64* a, const u64* b, u64 c, u64* out, u64 n, u64 p) {
    rows::subAndConstMult<1, AVX2Lanes>(a, b, makeShoupConstant(c, p), out, n, p);
}

template <>
void subAndConstMult<2>(const u64* a, const u64* b, u64 c, u64* out, u64 n, u64 p) {
    rows::subAndConstMult<2, AVX2Lanes>(a, b, makeShoupConstant(c, p), out, n, p);
}

void normalizeModVector(u64* out, const u64* in, u64 q, u64 p, u64 n) {
    rows::normalizeVector<AVX2Lanes>(out, in, q, n, p);
}

template <>
void normalizeModAndConstMult<false>(const u64* in, u64 c, u64 q, u64 p, u64* out, u64 n, u64 delta) {
    rows::normalizeAndConstMult<false, AVX2Lanes>(in, makeShoupConstant(c, p), {q >> 1, delta}, out, n, p);
}

template <>
void normalizeModAndConstMult<true>(const u64* in, u64 c, u64 q, u64 p, u64* out, u64 n, u64 delta) {
    rows::normalizeAndConstMult<true, AVX2Lanes>(in, makeShoupConstant(c, p), {q >> 1, delta}, out, n, p);
}

template <>
void mulModInt<false>(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2, u64 p, u64 n) {
    rows::mulTwo<false, AVX2Lanes>(out1, out2, a, b1, b2, n, makeBarrettConstant(p));
}

template <>
void mulModInt<true>(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2, u64 p, u64 n) {
    rows::mulTwo<true, AVX2Lanes>(out1, out2, a, b1, b2, n, makeBarrettConstant(p));
}

void sumConstantProducts(const rows::ConstantTerm* terms, u64 count, u64 greatest, bool accumulate, u64 start,
                         u64* out, u64 n, rows::WideConstant wide) {
    rows::sumConstantProducts<AVX2Lanes>(terms, count, greatest, accumulate, start, out, n, wide);
}

void sumProducts(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2, u64 n,
                 rows::WideConstant wide) {
    rows::sumProducts<AVX2Lanes>(terms, count, accumulate, out1, out2, n, wide);
}

} // namespace Torvo::AVX2
