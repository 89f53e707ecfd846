#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <atomic>
#include <utility>

namespace Torvo {

void PrimeModuli::add(const Polynomial& a, const Polynomial& b, Polynomial& out) const {
    require(a.isModUp() == b.isModUp(), message::operandsDifferInModUp);
    const u64 level = std::min(a.getLevel(), b.getLevel());
    if (a.isModUp())
        add(a, b, out, ModUpOutputModulusBoundEvalValidator(level, a.getNumBase()));
    else
        add(a, b, out, OutputModulusBoundValidator(0, level + 1));
}

template <class Validator>
void PrimeModuli::add(const Polynomial& a, const Polynomial& b, Polynomial& out, Validator validator) const {
    const auto bound = shapeResult(*this, {"addCUDA", "add"}, {a, b}, {{out, a.isNTT()}});
    forEachRow<Nesting::Guarded>(bound.where(validator), [&](u64 i) {
        moduli_[i].addVector(out.getRow(i), a.getRow(i), b.getRow(i), degree_);
    });
}

void PrimeModuli::sub(const Polynomial& a, const Polynomial& b, Polynomial& out) const {
    const auto bound = shapeResult(*this, {"subCUDA", "sub"}, {a, b}, {{out, a.isNTT()}});
    forEachRow(bound.live(),
               [&](u64 i) { moduli_[i].subVector(out.getRow(i), a.getRow(i), b.getRow(i), degree_); });
}

void PrimeModuli::negate(const Polynomial& a, Polynomial& out) const {
    const auto bound = shapeResult(*this, {"negateCUDA", "negate"}, {a}, {{out, a.isNTT()}});
    forEachRow(bound.live(), [&](u64 i) { moduli_[i].negateVector(out.getRow(i), a.getRow(i), degree_); });
}

void PrimeModuli::hadamardMult(const Polynomial& a, const Polynomial& b, Polynomial& out) const {
    const auto bound = shapeResult(*this, {"mulVectorCUDA", "hadamardMult"}, {a, b}, {{out, true}});
    forEachRow(bound.live(),
               [&](u64 i) { moduli_[i].mulVector(out.getRow(i), a.getRow(i), b.getRow(i), degree_); });
}

template <class Validator>
void PrimeModuli::hadamardMultAdd(const Polynomial& a, const Polynomial& b, const Polynomial& c,
                                  Polynomial& out, Validator validator) const {
    const auto bound = shapeResult(*this, {"mulVectorCUDA", "hadamardMult"}, {a, b, c}, {{out, true}});
    ScratchRows products(&out == &c ? degree_ : 0, Scratch::Wiped);
    forEachRow(bound.where(validator), [&](u64 i) {
        u64* product = &out == &c ? products.mine() : out.getRow(i);
        moduli_[i].mulVector(product, a.getRow(i), b.getRow(i), degree_);
        moduli_[i].addVector(out.getRow(i), product, c.getRow(i), degree_);
    });
}

void PrimeModuli::forwardNTTLessProduct(const Polynomial& a, const Polynomial& b, Polynomial& out) const {
    const auto bound = shapeResult(*this, {"mulVectorCUDA", "hadamardMult"}, {a, b, out}, {{out, true}});
    ScratchRows products(degree_, Scratch::Wiped);
    forEachRow(bound.live(), [&](u64 i) {
        u64* row = out.getRow(i);
        moduli_[i].mulVector(products.mine(), a.getRow(i), b.getRow(i), degree_);
        moduli_[i].getNTT().computeForward<1>(row);
        moduli_[i].subVector(row, row, products.mine(), degree_);
    });
}

template <class Validator>
void PrimeModuli::addConstMult(const Polynomial& a, const u64* constants, Polynomial& out,
                               Validator validator) const {
    const auto bound =
        shapeResult(*this, {"constMultBatchCUDA", "constMult"}, {a, out}, {{out, out.isNTT()}});
    ScratchRows products(degree_, Scratch::Wiped);
    forEachRow(bound.where(validator), [&](u64 i) {
        u64* row = out.getRow(i);
        moduli_[i].constMult<1>(a.getRow(i), constants[i], products.mine(), degree_);
        moduli_[i].addVector(row, row, products.mine(), degree_);
    });
}

void PrimeModuli::hadamardMultTwo(const Polynomial& a, const Polynomial& b1, const Polynomial& b2,
                                  Polynomial& out1, Polynomial& out2) const {
    const auto bound =
        shapeResult(*this, {"mulVectorCUDA", "hadamardMultTwo"}, {a, b1, b2}, {{out1, true}, {out2, true}});
    forEachRow(bound.live(), [&](u64 i) {
        moduli_[i].mulVector(out1.getRow(i), out2.getRow(i), a.getRow(i), b1.getRow(i), b2.getRow(i));
    });
}

void PrimeModuli::tensor(const Polynomial& x, const Polynomial& y, const Polynomial& z, const Polynomial& w,
                         Polynomial& out0, Polynomial& out1, Polynomial& out2) const {
    const auto bound = shapeResult(*this, {"tensorCUDA", "tensor"}, {x, y, z, w},
                                   {{out0, true}, {out1, true}, {out2, true}});
    forEachRow(bound.live(), [&](u64 i) {
        moduli_[i].tensorVector(out0.getRow(i), out1.getRow(i), out2.getRow(i), x.getRow(i), y.getRow(i),
                                z.getRow(i), w.getRow(i));
    });
}

bool PrimeModuli::isZero(const Polynomial& p) const {
    requireBackend(requireCommonDevice(p), {"isZeroCUDA", "isZero"});
    require(isOwn(p), message::operandsOfOtherRing);
    const RowBound bound{p.getLevel(), p.getNumBase(), p.rowEnd()};
    std::atomic<u64> nonZeroRows = 0;
    forEachRow(bound.live(), [&](u64 i) {
        if (nonZeroRows == 0 && !moduli_[i].isZero(p.getRow(i))) ++nonZeroRows;
    });
    return nonZeroRows == 0;
}

void PrimeModuli::innerProduct(const std::vector<ProductPair>& pairs, Polynomial& out1,
                               Polynomial& out2) const {
    require(!pairs.empty(), message::noOperand);
    const Polynomial& first = *pairs.front().a;
    bool sameLevel = true, sameModUp = true, sameDevice = true, own = true, overwritten = false;
    for (const auto& [a, x, y] : pairs) {
        sameLevel = sameLevel && a->getLevel() == first.getLevel();
        for (const Polynomial* operand : {a, x, y}) {
            sameLevel = sameLevel && operand->getLevel() >= first.getLevel();
            sameModUp = sameModUp && operand->isModUp() == first.isModUp();
            sameDevice = sameDevice && operand->getDevice() == first.getDevice();
            own = own && isOwn(*operand) && operand->getNumBase() == first.getNumBase();
            overwritten = overwritten || operand == &out1 || operand == &out2;
        }
    }
    require(sameLevel, message::operandsDifferInLevel);
    require(sameModUp, message::operandsDifferInModUp);
    requireServed(first.getDevice(), sameDevice);
    require(own, message::operandsOfOtherRing);
    if (overwritten) {
        // The sums are written while operands are still read, so they must not share memory with an operand.
        Polynomial sum1 = out1.sameShape(), sum2 = out2.sameShape();
        for (Polynomial* sum : {&sum1, &sum2}) sum->clear(); // the holes go to the caller too
        innerProduct(pairs, sum1, sum2);
        out1 = std::move(sum1);
        out2 = std::move(sum2);
        return;
    }
    const auto bound =
        shapeResult(*this, {"innerProductCUDA", "innerProduct"}, {first}, {{out1, true}, {out2, true}});
    forEachRow<Nesting::Guarded>(bound.live(), [&](u64 i) {
        const auto rowsOfPair = [&](u64 j) {
            return rows::ProductTerm{pairs[j].a->getRow(i), pairs[j].x->getRow(i), pairs[j].y->getRow(i)};
        };
        moduli_[i].sumProducts(pairs.size(), rowsOfPair, out1.getRow(i), out2.getRow(i));
    });
}

template void PrimeModuli::addConstMult(const Polynomial&, const u64*, Polynomial&,
                                        OutputModulusBoundValidator) const;
template void PrimeModuli::addConstMult(const Polynomial&, const u64*, Polynomial&,
                                        ModUpOutputModulusBoundEvalValidator) const;
template void PrimeModuli::hadamardMultAdd(const Polynomial&, const Polynomial&, const Polynomial&,
                                           Polynomial&, OutputModulusBoundValidator) const;
template void PrimeModuli::hadamardMultAdd(const Polynomial&, const Polynomial&, const Polynomial&,
                                           Polynomial&, ModUpOutputModulusBoundEvalValidator) const;
template void PrimeModuli::add(const Polynomial&, const Polynomial&, Polynomial&, AlwaysValidator) const;
template void PrimeModuli::add(const Polynomial&, const Polynomial&, Polynomial&,
                               OutputModulusBoundValidator) const;
template void PrimeModuli::add(const Polynomial&, const Polynomial&, Polynomial&,
                               ModUpOutputModulusBoundEvalValidator) const;
template void PrimeModuli::add(const Polynomial&, const Polynomial&, Polynomial&,
                               ModUpOutputModulusBoundValidator) const;

} // namespace Torvo
