#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"

#include <algorithm>

namespace Torvo {

namespace {

constexpr FailureNames constAddNames{"constAddBatchCUDA", "constAdd"};
constexpr FailureNames constMultNames{"constMultBatchCUDA", "constMult"};
constexpr FailureNames constMultTwoNames{"constMultTwoBatchCUDA", "constMultTwo"};

/// One constant for a whole row.
struct RowConstant {
    u64 value;

    void add(const Modulus& modulus, const u64* in, u64* out, u64 n) const {
        modulus.constAdd(in, value, out, n);
    }
    void mult(const Modulus& modulus, const u64* in, u64* out, u64 n) const {
        modulus.constMult<1>(in, value, out, n);
    }
};

/// A complex constant in the NTT domain: one value for the first half of a row and one for the second.
struct HalvesConstant {
    u64 first, second;

    void add(const Modulus& modulus, const u64* in, u64* out, u64 n) const {
        modulus.constAdd(in, first, out, n / 2);
        modulus.constAdd(in + n / 2, second, out + n / 2, n / 2);
    }
    void mult(const Modulus& modulus, const u64* in, u64* out, u64 n) const {
        modulus.constMult<1>(in, first, out, n / 2);
        modulus.constMult<1>(in + n / 2, second, out + n / 2, n / 2);
    }
};

/// Both products in one loop; `constantOf(i)` belongs to prime i. A row of b that `out1` overwrites is copied
/// first.
template <class ConstantOf>
void multiplyTwo(const PrimeModuli& primes, const std::vector<u64>& rows, const Polynomial& a,
                 const Polynomial& b, Polynomial& out1, Polynomial& out2, ConstantOf&& constantOf) {
    const u64 n = primes.getDegree();
    ScratchRows scratch(&out1 == &b ? n : 0);
    forEachRow(rows, [&](u64 i) {
        const u64* second = &out1 == &b ? scratch.hold(b.getRow(i)) : b.getRow(i);
        const auto constant = constantOf(i);
        constant.mult(primes[i], a.getRow(i), out1.getRow(i), n);
        constant.mult(primes[i], second, out2.getRow(i), n);
    });
}

} // namespace

DeviceSpecificArray<u64> PrimeModuli::computeConstantCoefficients(const LevelledElement& real) const {
    return real.getData();
}

DeviceSpecificArray<u64> PrimeModuli::computeConstantCoefficients(const LevelledElement& real,
                                                                  const LevelledElement& imag) const {
    requireBackend(requireCommonDevice(real, imag),
                   {"computeConstantCoefficients", "computeConstantCoefficients"});
    const u64 rows = std::min(real.getData().size(), imag.getData().size());
    DeviceSpecificArray<u64> pairs(2 * rows);
    for (u64 i = 0; i < rows; ++i) {
        const Modulus& modulus = moduli_[i];
        const u64 re = modulus.reduce(real[i]);
        const u64 im = modulus.mult(modulus.reduce(imag[i]), iCoefficients_[2 * i]);
        pairs[2 * i] = modulus.add(re, im);
        pairs[2 * i + 1] = modulus.sub(re, im);
    }
    return pairs;
}

void PrimeModuli::constAdd(const Polynomial& a, const LevelledElement& e, Polynomial& out) const {
    const auto bound = shapeResult(*this, constAddNames, {a, e}, {{out, true}});
    forEachRow(bound.live(),
               [&](u64 i) { RowConstant{e[i]}.add(moduli_[i], a.getRow(i), out.getRow(i), degree_); });
}

void PrimeModuli::constAdd(const Polynomial& a, const LevelledElement& re, const LevelledElement& im,
                           Polynomial& out) const {
    const auto bound = shapeResult(*this, constAddNames, {a, re, im}, {{out, true}});
    const auto pairs = computeConstantCoefficients(re, im);
    forEachRow(bound.live(), [&](u64 i) {
        HalvesConstant{pairs[2 * i], pairs[2 * i + 1]}.add(moduli_[i], a.getRow(i), out.getRow(i), degree_);
    });
}

void PrimeModuli::constMult(const Polynomial& a, u64 c, Polynomial& out) const {
    const auto bound = shapeResult(*this, constMultNames, {a}, {{out, a.isNTT()}});
    forEachRow(bound.live(),
               [&](u64 i) { RowConstant{c}.mult(moduli_[i], a.getRow(i), out.getRow(i), degree_); });
}

void PrimeModuli::constMult(const Polynomial& a, const LevelledElement& e, Polynomial& out) const {
    const auto bound = shapeResult(*this, constMultNames, {a, e}, {{out, a.isNTT()}});
    forEachRow<Nesting::Guarded>(bound.live(), [&](u64 i) {
        RowConstant{e[i]}.mult(moduli_[i], a.getRow(i), out.getRow(i), degree_);
    });
}

template <class Validator>
void PrimeModuli::constMult(const Polynomial& a, const u64* constants, Polynomial& out,
                            Validator validator) const {
    const auto bound = shapeResult(*this, constMultNames, {a}, {{out, a.isNTT()}});
    forEachRow<Nesting::Guarded>(bound.where(validator), [&](u64 i) {
        RowConstant{constants[i]}.mult(moduli_[i], a.getRow(i), out.getRow(i), degree_);
    });
}

void PrimeModuli::constMult(const Polynomial& a, const LevelledElement& re, const LevelledElement& im,
                            Polynomial& out) const {
    const auto bound = shapeResult(*this, constMultNames, {a, re, im}, {{out, true}});
    const auto pairs = computeConstantCoefficients(re, im);
    forEachRow<Nesting::Guarded>(bound.live(), [&](u64 i) {
        HalvesConstant{pairs[2 * i], pairs[2 * i + 1]}.mult(moduli_[i], a.getRow(i), out.getRow(i), degree_);
    });
}

void PrimeModuli::sumConstantMultiples(const std::vector<ConstantMultiple>& terms, Polynomial& out) const {
    const bool isComplex = std::ranges::any_of(terms, [](const ConstantMultiple& term) { return term.imag; });
    const auto bound = shapeResult(*this, constMultNames, {terms.front().a, terms.front().real},
                                   {{out, isComplex || terms.front().a.isNTT()}});
    // For each term the constants of the halves of its rows, alternating; one for a whole row if all are real.
    std::vector<DeviceSpecificArray<u64>> constants;
    constants.reserve(terms.size());
    for (const ConstantMultiple& term : terms) {
        if (term.imag != nullptr)
            constants.push_back(computeConstantCoefficients(term.real, *term.imag));
        else
            constants.push_back(computeConstantCoefficients(term.real));
    }
    const u64 parts = isComplex ? 2 : 1, length = degree_ / parts;
    forEachRow(bound.live(), [&](u64 i) {
        const Modulus& modulus = moduli_[i];
        for (u64 part = 0; part < parts; ++part)
            modulus.sumConstantProducts(
                terms.size(),
                [&](u64 j) {
                    const u64 c = constants[j][terms[j].imag != nullptr ? 2 * i + part : i];
                    return rows::ConstantTerm{terms[j].a.getRow(i) + part * length, modulus.reduce(c),
                                              modulus.getPrime()};
                },
                out.getRow(i) + part * length, length);
    });
}

void PrimeModuli::constMultTwo(const Polynomial& a, const Polynomial& b, u64 c, Polynomial& out1,
                               Polynomial& out2) const {
    const auto bound = shapeResult(*this, constMultTwoNames, {a, b}, {{out1, a.isNTT()}, {out2, b.isNTT()}});
    multiplyTwo(*this, bound.live(), a, b, out1, out2, [&](u64) { return RowConstant{c}; });
}

void PrimeModuli::constMultTwo(const Polynomial& a, const Polynomial& b, const LevelledElement& e,
                               Polynomial& out1, Polynomial& out2) const {
    const auto bound =
        shapeResult(*this, constMultTwoNames, {a, b, e}, {{out1, a.isNTT()}, {out2, b.isNTT()}});
    multiplyTwo(*this, bound.live(), a, b, out1, out2, [&](u64 i) { return RowConstant{e[i]}; });
}

void PrimeModuli::constMultTwo(const Polynomial& a, const Polynomial& b, const LevelledElement& re,
                               const LevelledElement& im, Polynomial& out1, Polynomial& out2) const {
    const auto bound = shapeResult(*this, constMultTwoNames, {a, b, re, im}, {{out1, true}, {out2, true}});
    const auto pairs = computeConstantCoefficients(re, im);
    multiplyTwo(*this, bound.live(), a, b, out1, out2, [&](u64 i) {
        return HalvesConstant{pairs[2 * i], pairs[2 * i + 1]};
    });
}

void PrimeModuli::subAndConstMult(const Polynomial& a, const Polynomial& b, const u64* c,
                                  Polynomial& out) const {
    const auto bound =
        shapeResult(*this, {"subAndConstMultCUDA", "subAndConstMult"}, {a, b}, {{out, a.isNTT()}});
    forEachRow(bound.live(), [&](u64 i) {
        moduli_[i].subAndConstMult<1>(a.getRow(i), b.getRow(i), c[i], out.getRow(i), degree_);
    });
}

template void PrimeModuli::constMult(const Polynomial&, const u64*, Polynomial&, AlwaysValidator) const;
template void PrimeModuli::constMult(const Polynomial&, const u64*, Polynomial&,
                                     OutputModulusBoundValidator) const;
template void PrimeModuli::constMult(const Polynomial&, const u64*, Polynomial&,
                                     ModUpOutputModulusBoundEvalValidator) const;
template void PrimeModuli::constMult(const Polynomial&, const u64*, Polynomial&,
                                     ModUpOutputModulusBoundValidator) const;

} // namespace Torvo
