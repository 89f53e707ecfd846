#pragma once

#include "arithmetic/kernels/ModulusRows.hpp"
#include "arithmetic/kernels/ModulusVectors.hpp"
#include "core/Integers.hpp"

/// The row kernels of Modulus on vectors of four words, and the same by name, with the constants that they
/// need derived from p at each call. `n` is a multiple of 4; a constant `c` is already in [0, p). Ranges,
/// aliasing and the words returned are those of the members of Modulus.
namespace Torvo::AVX2 {

inline void constAdd(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    kernels.constAdd(in, c, out, n, p);
}

inline void addVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    kernels.addVector(out, a, b, n, p);
}

inline void subVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    kernels.subVector(out, a, b, n, p);
}

inline void negateVector(u64* out, const u64* in, u64 p, u64 n) {
    kernels.negateVector(out, in, n, p);
}

inline void mulVector(u64* out, const u64* a, const u64* b, u64 p, u64 n) {
    kernels.mulVector(out, a, b, n, rows::makeBarrettConstant(p));
}

inline void tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z,
                         const u64* w, u64 p, u64 n) {
    kernels.tensorVector(out0, out1, out2, x, y, z, w, n, rows::makeBarrettConstant(p));
}

/// `out` is in range k = 1, 2 or 4; the words for 4 are those for 2.
template <int k>
void constMult(const u64* in, u64 c, u64* out, u64 n, u64 p) {
    kernels.constMult[k > 1](in, rows::makeShoupConstant(c, p), out, n, p);
}

/// k = 1, 2.
template <int k>
void subAndConstMult(const u64* a, const u64* b, u64 c, u64* out, u64 n, u64 p) {
    kernels.subAndConstMult[k > 1](a, b, rows::makeShoupConstant(c, p), out, n, p);
}

inline void normalizeModVector(u64* out, const u64* in, u64 q, u64 p, u64 n) {
    kernels.normalizeVector(out, in, q, n, p);
}

/// `delta` is p - (q mod p).
template <bool accumulate>
void normalizeModAndConstMult(const u64* in, u64 c, u64 q, u64 p, u64* out, u64 n, u64 delta) {
    kernels.normalizeAndConstMult[accumulate](in, rows::makeShoupConstant(c, p), {q >> 1, delta}, out, n, p);
}

/// out1 = a * b1, out2 = a * b2; with `accumulate` += instead of =.
template <bool accumulate>
void mulModInt(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2, u64 p, u64 n) {
    kernels.mulTwo[accumulate](out1, out2, a, b1, b2, n, rows::makeBarrettConstant(p));
}

} // namespace Torvo::AVX2
