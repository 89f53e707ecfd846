#pragma once

#include "arithmetic/kernels/ModulusRows.hpp"
#include "core/Integers.hpp"

/// The row kernels of Modulus on vectors of four words. `n` is a multiple of 4; a constant `c` is already in
/// [0, p); each kernel derives the other constants it needs from p. Ranges, aliasing and the words returned
/// are those of the members of Modulus.
///
/// The templates say that they are hidden: g++ does not apply -fvisibility to their specializations.
namespace Torvo::AVX2 {

void constAdd(const u64* in, u64 c, u64* out, u64 n, u64 p);
void addVector(u64* out, const u64* a, const u64* b, u64 p, u64 n);
void subVector(u64* out, const u64* a, const u64* b, u64 p, u64 n);
void negateVector(u64* out, const u64* in, u64 p, u64 n);
void mulVector(u64* out, const u64* a, const u64* b, u64 p, u64 n);
void tensorVector(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z, const u64* w,
                  u64 p, u64 n);
/// `out` is in range k = 1, 2 or 4; the words for 4 are those for 2.
template <int k>
[[gnu::visibility("hidden")]] void constMult(const u64* in, u64 c, u64* out, u64 n, u64 p);
/// k = 1, 2.
template <int k>
[[gnu::visibility("hidden")]] void subAndConstMult(const u64* a, const u64* b, u64 c, u64* out, u64 n, u64 p);
void normalizeModVector(u64* out, const u64* in, u64 q, u64 p, u64 n);
/// `delta` is p - (q mod p).
template <bool accumulate>
[[gnu::visibility("hidden")]] void normalizeModAndConstMult(const u64* in, u64 c, u64 q, u64 p, u64* out,
                                                            u64 n, u64 delta);
/// out1 = a * b1, out2 = a * b2; with `accumulate` += instead of =.
template <bool accumulate>
[[gnu::visibility("hidden")]] void mulModInt(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2,
                                             u64 p, u64 n);
/// As `rows::sumConstantProducts` and `rows::sumProducts`; n is a multiple of 8.
void sumConstantProducts(const rows::ConstantTerm* terms, u64 count, u64 greatest, bool accumulate, u64 start,
                         u64* out, u64 n, rows::WideConstant wide);
void sumProducts(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2, u64 n,
                 rows::WideConstant wide);

} // namespace Torvo::AVX2
