#include "arithmetic/chain/Messages.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// Whether two vectors have one length; an integer matches vectors of any length.
template <class A, class B>
void requireSameDimension(const A&, const B&) {}
void requireSameDimension(const LevelledVector& a, const LevelledVector& b) {
    require(a.getDimension() == b.getDimension(), message::operandsDifferInDimension);
}

/// Gives `out` the level and the common device of the operands. Refusals, in this order: devices, dimensions,
/// a level that the chain does not have, backend.
template <class A, class B, class Out>
void shapeLevelledAt(u64 level, const PrimeModuli& primes, FailureNames names, const A& a, const B& b,
                     Out& out) {
    const Device device = primes.requireCommonDevice(a, b);
    requireSameDimension(a, b);
    require(level < primes.size(), message::operandsOfOtherRing);
    out.setLevel(level);
    out.allocate(device);
    requireBackend(device, names);
}

/// The same for operands of one level; different levels are refused first.
template <class A, class B, class Out>
void shapeLevelled(const PrimeModuli& primes, FailureNames names, const A& a, const B& b, Out& out) {
    require(a.getLevel() == b.getLevel(), message::operandsDifferInLevel);
    shapeLevelledAt(a.getLevel(), primes, names, a, b, out);
}

/// As `shapeLevelled`; an output of another dimension, which cannot be an operand, is replaced.
template <class B>
void shapeVector(const PrimeModuli& primes, FailureNames names, const LevelledVector& a, const B& b,
                 LevelledVector& out) {
    shapeLevelled(primes, names, a, b, out);
    if (out.getDimension() != a.getDimension()) out = LevelledVector(a.getDimension(), a.getLevel());
}

/// out = a op b, word by word: op(modulus, x, y).
template <class WordOperation>
void combineWords(const PrimeModuli& primes, FailureNames names, const LevelledElement& a,
                  const LevelledElement& b, LevelledElement& out, WordOperation&& op) {
    shapeLevelled(primes, names, a, b, out);
    const u64 rows = std::min({a.getData().size(), b.getData().size(), out.getData().size()});
    for (u64 i = 0; i < rows; ++i) out[i] = op(primes[i], a[i], b[i]);
}

/// out = a op b, row by row: op(i, row of a, row of b, row of out).
template <class RowOperation>
void combineRows(const PrimeModuli& primes, FailureNames names, const LevelledVector& a,
                 const LevelledVector& b, LevelledVector& out, RowOperation&& op) {
    shapeVector(primes, names, a, b, out);
    forEachIndex<Nesting::Default>(a.getLevel() + 1,
                                   [&](u64 i) { op(i, a.getRow(i), b.getRow(i), out.getRow(i)); });
}

} // namespace

void PrimeModuli::add(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const {
    combineWords(*this, {"addCUDA", "add"}, a, b, out,
                 [](const Modulus& modulus, u64 x, u64 y) { return modulus.add(x, y); });
}

void PrimeModuli::sub(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const {
    combineWords(*this, {"subCUDA", "sub"}, a, b, out,
                 [](const Modulus& modulus, u64 x, u64 y) { return modulus.sub(x, y); });
}

void PrimeModuli::mult(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const {
    combineWords(*this, {"multCUDA", "mult"}, a, b, out,
                 [](const Modulus& modulus, u64 x, u64 y) { return modulus.mult(x, y); });
}

void PrimeModuli::negate(const LevelledElement& a, LevelledElement& out) const {
    combineWords(*this, {"negateCUDA", "negate"}, a, a, out,
                 [](const Modulus& modulus, u64 x, u64) { return modulus.negate(x); });
}

void PrimeModuli::add(const LevelledVector& a, const LevelledVector& b, LevelledVector& out) const {
    combineRows(*this, {"addCUDA", "add"}, a, b, out, [&](u64 i, const u64* x, const u64* y, u64* sum) {
        moduli_[i].addVector(sum, x, y, a.getDimension());
    });
}

void PrimeModuli::sub(const LevelledVector& a, const LevelledVector& b, LevelledVector& out) const {
    combineRows(*this, {"subCUDA", "sub"}, a, b, out,
                [&](u64 i, const u64* x, const u64* y, u64* difference) {
                    moduli_[i].subVector(difference, x, y, a.getDimension());
                });
}

void PrimeModuli::negate(const LevelledVector& a, LevelledVector& out) const {
    combineRows(*this, {"negateCUDA", "negate"}, a, a, out,
                [&](u64 i, const u64* x, const u64*, u64* negative) {
                    moduli_[i].negateVector(negative, x, a.getDimension());
                });
}

void PrimeModuli::constMult(const LevelledVector& a, const LevelledElement& e, LevelledVector& out) const {
    shapeVector(*this, {"constMultCUDA", "constMult"}, a, e, out);
    forEachIndex<Nesting::Default>(a.getLevel() + 1, [&](u64 i) {
        moduli_[i].constMult<1>(a.getRow(i), e[i], out.getRow(i), a.getDimension());
    });
}

void PrimeModuli::innerProduct(const LevelledVector& a, const LevelledVector& b, LevelledElement& out) const {
    const u64 level = std::min(a.getLevel(), b.getLevel());
    shapeLevelledAt(level, *this, {"innerProductCUDA", "innerProduct"}, a, b, out);
    forEachIndex<Nesting::Default>(level + 1, [&](u64 i) {
        moduli_[i].innerProduct(a.getRow(i), b.getRow(i), &out[i], a.getDimension());
    });
}

void PrimeModuli::conjugateInvert(const LevelledVector& v, LevelledVector& out, u64 k) const {
    shapeVector(*this, {"conjugateInvertCUDA", "conjugateInvert"}, v, v, out);
    const u64 n = v.getDimension();
    ScratchRows scratch(&out == &v ? n : 0);
    forEachIndex<Nesting::Guarded>(v.getLevel() + 1, [&](u64 i) {
        permuteRow(v.getRow(i), out.getRow(i), n, scratch.mine(),
                   [&](const u64* in, u64* target) { moduli_[i].conjugateInvert(in, target, n, k); });
    });
}

} // namespace Torvo
