#pragma once

#include "arithmetic/kernels/ModulusRows.hpp"
#include "core/Integers.hpp"

namespace Torvo {

/// The row kernels in one form: the functions of ModulusRows.hpp on its lanes. n is a multiple of `width`, and
/// of twice `width` in `sumConstantProducts`.
struct RowKernels {
    using Constant = void (*)(const u64* in, rows::ShoupConstant c, u64* out, u64 n, u64 p);
    using Difference = void (*)(const u64* a, const u64* b, rows::ShoupConstant c, u64* out, u64 n, u64 p);
    using Centring = void (*)(const u64* in, rows::ShoupConstant c, rows::CentringConstant centring, u64* out,
                              u64 n, u64 p);
    using Two = void (*)(u64* out1, u64* out2, const u64* a, const u64* b1, const u64* b2, u64 n,
                         rows::BarrettConstant c);

    u64 width;
    void (*constAdd)(const u64* in, u64 c, u64* out, u64 n, u64 p);
    void (*addVector)(u64* out, const u64* a, const u64* b, u64 n, u64 p);
    void (*subVector)(u64* out, const u64* a, const u64* b, u64 n, u64 p);
    void (*negateVector)(u64* out, const u64* in, u64 n, u64 p);
    void (*mulVector)(u64* out, const u64* a, const u64* b, u64 n, rows::BarrettConstant c);
    Two mulTwo[2]; // by `accumulate`
    void (*tensorVector)(u64* out0, u64* out1, u64* out2, const u64* x, const u64* y, const u64* z,
                         const u64* w, u64 n, rows::BarrettConstant c);
    void (*residueVector[2])(const u64* in, u64* out, u64 n, u64 high, u64 p); // by `isSmall`
    Constant constMult[2];                                                     // by range - 1
    Difference subAndConstMult[2];                                             // by range - 1
    void (*normalizeVector)(u64* out, const u64* in, u64 q, u64 n, u64 p);
    Centring normalizeAndConstMult[2]; // by `accumulate`
    void (*sumConstantProducts)(const rows::ConstantTerm* terms, u64 count, bool accumulate, u64 start,
                                u64* out, u64 n, rows::WideConstant wide);
    void (*sumProducts)(const rows::ProductTerm* terms, u64 count, bool accumulate, u64* out1, u64* out2,
                        u64 n, rows::WideConstant wide);
};

/// Sums of products on lanes L.
template <class L>
struct SumsOn {
    static constexpr auto constantProducts = rows::sumConstantProducts<L>;
    static constexpr auto products = rows::sumProducts<L>;
};

/// The kernels on lanes L. Products by constants are computed on lanes `Constant` where they are reduced to range
/// 1, those of two rows, which always are, on lanes `Product`, sums of them by the functions of `Sums`.
template <class L, class Constant = L, class Product = L, class Sums = SumsOn<Constant>>
[[gnu::always_inline]] constexpr RowKernels makeRowKernels() {
    return {.width = L::width,
            .constAdd = rows::constAdd<L>,
            .addVector = rows::addVector<L>,
            .subVector = rows::subVector<L>,
            .negateVector = rows::negateVector<L>,
            .mulVector = rows::mulVector<Product>,
            .mulTwo = {rows::mulTwo<false, Product>, rows::mulTwo<true, Product>},
            .tensorVector = rows::tensorVector<Product>,
            .residueVector = {rows::residueVector<false, L>, rows::residueVector<true, L>},
            .constMult = {rows::constMult<1, Constant>, rows::constMult<2, L>},
            .subAndConstMult = {rows::subAndConstMult<1, Constant>, rows::subAndConstMult<2, L>},
            .normalizeVector = rows::normalizeVector<L>,
            .normalizeAndConstMult = {rows::normalizeAndConstMult<false, L>,
                                      rows::normalizeAndConstMult<true, L>},
            .sumConstantProducts = Sums::constantProducts,
            .sumProducts = Sums::products};
}

} // namespace Torvo
