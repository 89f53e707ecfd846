#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/kernels/Automorphism.hpp"
#include "core/Failure.hpp"

#include <algorithm>

namespace Torvo {

namespace {

constexpr FailureNames forwardNames{"execNttBatch", "forwardNTT"};
constexpr FailureNames backwardNames{"execinttBatch", "backwardNTT"};

template <int range>
void forwardRow(const Modulus& modulus, const u64* in, u64* out, u64 n) {
    if (in != out) std::copy_n(in, n, out);
    modulus.getNTT().computeForward<range>(out);
}

template <int range>
void backwardRow(const Modulus& modulus, const u64* in, u64* out, u64 n) {
    if (in != out) std::copy_n(in, n, out);
    modulus.getNTT().computeBackward<range>(out);
}

} // namespace

template <class Validator, int range>
void PrimeModuli::forwardNTT(const Polynomial& a, Polynomial& out, Validator validator) const {
    const auto bound = shapeResult(*this, forwardNames, {a}, {{out, true}});
    forEachRow(bound.where(validator),
               [&](u64 i) { forwardRow<range>(moduli_[i], a.getRow(i), out.getRow(i), degree_); });
}

void PrimeModuli::forwardNTT(const Polynomial& a, Polynomial& out) const {
    forwardNTT(a, out, ModUpOutputModulusBoundEvalValidator(a.getLevel(), a.getNumBase()));
}

template <class Validator, int range>
void PrimeModuli::backwardNTT(const Polynomial& a, Polynomial& out, Validator validator) const {
    const auto bound = shapeResult(*this, backwardNames, {a}, {{out, false}});
    for (const u64 i : bound.where(validator))
        backwardRow<range>(moduli_[i], a.getRow(i), out.getRow(i), degree_);
}

void PrimeModuli::backwardNTT(const Polynomial& a, Polynomial& out) const {
    const auto bound = shapeResult(*this, backwardNames, {a}, {{out, false}});
    forEachRow<Nesting::Guarded>(
        bound.live(), [&](u64 i) { backwardRow<1>(moduli_[i], a.getRow(i), out.getRow(i), degree_); });
}

template <class Validator, int range>
void PrimeModuli::forwardNTTWithSubAndConstMult(const Polynomial& a, const Polynomial& b, const u64* c,
                                                Polynomial& out, Validator validator) const {
    const auto bound = shapeResult(
        *this, {"execNttBatchWithSubAndConstMult", "forwardNTTWithSubAndConstMult"}, {a, b}, {{out, true}});
    ScratchRows scratch(&out == &b ? degree_ : 0);
    forEachRow(bound.where(validator), [&](u64 i) {
        u64* transformed = &out == &b ? scratch.mine() : out.getRow(i);
        forwardRow<1>(moduli_[i], a.getRow(i), transformed, degree_);
        moduli_[i].subAndConstMult<range>(b.getRow(i), transformed, c[i], out.getRow(i), degree_);
    });
}

template <class Validator, int range>
void PrimeModuli::backwardNTTWithConstMult(const Polynomial& a, const u64*, Polynomial& out,
                                           Validator) const {
    constexpr FailureNames names{"execinttBatch", "backwardNTTWithConstMult"};
    shapeResult(*this, names, {a}, {{out, false}});
    throwUnsupported(names.plain);
}

void PrimeModuli::multMonomial(const Polynomial& a, Polynomial& out, long k) const {
    const auto bound = shapeResult(*this, {"multMonomialCUDA", "multMonomial"}, {a}, {{out, false}});
    ScratchRows scratch(&out == &a ? degree_ : 0);
    forEachRow<Nesting::Guarded>(bound.live(), [&](u64 i) {
        permuteRow(a.getRow(i), out.getRow(i), degree_, scratch.mine(),
                   [&](const u64* in, u64* target) { moduli_[i].multMonomial(in, target, degree_, k); });
    });
}

template <bool accumulate>
void PrimeModuli::frobeniusMapInNTT(const Polynomial& a, long k, Polynomial& out, Scratch scratch) const {
    frobeniusMapInNTT<accumulate>(a, Automorphism(degree_, k), out, scratch);
}

template <bool accumulate>
void PrimeModuli::frobeniusMapInNTT(const Polynomial& a, const Automorphism& automorphism, Polynomial& out,
                                    Scratch scratch) const {
    const auto bound = shapeResult(*this, {"frobeniusMapInNTTCUDA", "frobeniusMapInNTT"},
                                   {a, accumulate ? out : a}, {{out, true}});
    const bool inPlace = &a == &out;
    ScratchRows images(accumulate || inPlace ? degree_ : 0, scratch);
    forEachRow(bound.live(), [&](u64 i) {
        u64* row = out.getRow(i);
        u64* image = accumulate || inPlace ? images.mine() : row;
        automorphism.apply(a.getRow(i), image);
        if constexpr (accumulate)
            moduli_[i].addVector(row, row, image, degree_);
        else if (inPlace)
            std::copy_n(image, degree_, row);
    });
}

template void PrimeModuli::frobeniusMapInNTT<false>(const Polynomial&, long, Polynomial&, Scratch) const;
template void PrimeModuli::frobeniusMapInNTT<true>(const Polynomial&, long, Polynomial&, Scratch) const;
template void PrimeModuli::frobeniusMapInNTT<false>(const Polynomial&, const Automorphism&, Polynomial&,
                                                    Scratch) const;

#define TORVO_INSTANTIATE(Validator)                                                                         \
    template void PrimeModuli::forwardNTT<Validator>(const Polynomial&, Polynomial&, Validator) const;       \
    template void PrimeModuli::backwardNTT<Validator>(const Polynomial&, Polynomial&, Validator) const;      \
    template void PrimeModuli::forwardNTTWithSubAndConstMult<Validator>(                                     \
        const Polynomial&, const Polynomial&, const u64*, Polynomial&, Validator) const;                     \
    template void PrimeModuli::backwardNTTWithConstMult<Validator>(const Polynomial&, const u64*,            \
                                                                   Polynomial&, Validator) const;
TORVO_INSTANTIATE(AlwaysValidator)
TORVO_INSTANTIATE(OutputModulusBoundValidator)
TORVO_INSTANTIATE(ModUpOutputModulusBoundEvalValidator)
TORVO_INSTANTIATE(ModUpOutputModulusBoundValidator)
#undef TORVO_INSTANTIATE

} // namespace Torvo
