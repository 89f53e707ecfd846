#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/PrimeModuliShape.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <array>

namespace Torvo {

namespace {

/// The row of the top prime, which a rescale divides away, as the other rows need it.
struct TopRow {
    const u64* words; ///< range 1 for `prime`
    u64 prime;
    u64 length;
};

/// row = (row - centred top row) / top prime, modulo the prime of `row`; inNTT says that `row` is
/// transformed, the top row never is. `inverse` is the inverse of the top prime modulo the row's prime;
/// `scratch` has the length of a row.
template <bool inNTT>
void divideByTop(const Modulus& modulus, u64* row, const TopRow& top, u64 inverse, u64* scratch) {
    modulus.normalizeModVector(scratch, top.words, top.prime, top.length);
    if constexpr (inNTT) modulus.getNTT().computeForward<1>(scratch);
    modulus.subAndConstMult<1>(row, scratch, inverse, row, top.length);
}

/// The inverse of `prime` modulo the prime of `modulus`.
u64 inverseOf(u64 prime, const Modulus& modulus) {
    return modulus.inverse(modulus.reduce(prime));
}

} // namespace

void PrimeModuli::normalizeMod(Polynomial& out, const Polynomial& in, u64 row, u64 newLevel) const {
    const bool isOwnRow = in.getDegree() == degree_ && row <= in.getLevel() && sharesPrimes(in, row);
    require(isOwnRow, message::operandsOfOtherRing);
    const auto bound = shapeResult(*this, {"normalizeModCUDA", "normalizeMod"},
                                   {Operand(newLevel, in.getDevice())}, {{out, false}});
    const u64* source = in.getRow(row);
    forEachRow(bound.live(), [&](u64 j) {
        if (out.getRow(j) == source) return; // a row normalised to its own prime: others read it meanwhile
        moduli_[j].normalizeModVector(out.getRow(j), source, getPrime(row), degree_);
    });
}

void PrimeModuli::rescale(Polynomial& p) const {
    rescale(std::array{&p});
}

// Row by row, each while it is in cache: normalizeMod, then forwardNTTWithSubAndConstMult in the NTT domain
// and subAndConstMult otherwise.
void PrimeModuli::rescale(std::span<Polynomial* const> polys) const {
    struct LowerRow {
        Polynomial* p;
        u64 j;
        u64 inverse; ///< of the top prime
    };
    std::vector<LowerRow> lower;
    for (Polynomial* p : polys) {
        const Device device = requireCommonDevice(*p);
        require(isOwn(*p), message::operandsOfOtherRing);
        requireBackend(device, p->isNTT() ? FailureNames{"execinttBatch", "backwardNTT"}
                                          : FailureNames{"normalizeModCUDA", "normalizeMod"});
        const u64* inverses = getInvPrimeData(device).getData() + p->getLevel() * size();
        for (u64 j = 0; j < p->getLevel(); ++j) lower.push_back({p, j, inverses[j]});
    }
    for (Polynomial* p : polys) p->setLevel(p->getLevel() - 1); // the top row stays in the capacity
    forEachIndex<Nesting::Default>(polys.size(), [&](u64 i) {
        Polynomial& p = *polys[i];
        const u64 top = p.getLevel() + 1;
        if (p.isNTT()) moduli_[top].getNTT().computeBackward<1>(p.getRow(top));
    });
    ScratchRows scratch(degree_);
    forEachIndex<Nesting::Default>(lower.size(), [&](u64 w) {
        const auto& [p, j, inverse] = lower[w];
        const u64 level = p->getLevel() + 1;
        const TopRow top{p->getRow(level), getPrime(level), degree_};
        const auto divide = p->isNTT() ? divideByTop<true> : divideByTop<false>;
        divide(moduli_[j], p->getRow(j), top, inverse, scratch.mine());
    });
}

void PrimeModuli::inverseRescale(Polynomial& p) const {
    const u64 level = p.getLevel() + 1;
    require(sharesPrimes(p, level), message::operandsOfOtherRing);
    constMult(p, getPrime(level), p);
    p.setLevel(level); // with zeros in the new row: a multiple of its prime
}

void PrimeModuli::rescale(LevelledElement& e) const {
    requireBackend(requireCommonDevice(e), {"rescaleCUDA", "rescale"});
    const u64 level = e.getLevel();
    require(level < size(), message::operandsOfOtherRing);
    const TopRow top{&e[level], getPrime(level), 1};
    for (u64 j = 0; j < level; ++j) {
        u64 scratch = 0;
        divideByTop<false>(moduli_[j], &e[j], top, inverseOf(top.prime, moduli_[j]), &scratch);
    }
    e.setLevel(level - 1);
}

void PrimeModuli::rescale(LevelledVector& v) const {
    requireBackend(requireCommonDevice(v), {"rescaleCUDA", "rescale"});
    const u64 level = v.getLevel();
    require(level < size(), message::operandsOfOtherRing);
    const TopRow top{v.getRow(level), getPrime(level), v.getDimension()};
    ScratchRows scratch(v.getDimension());
    forEachIndex<Nesting::Default>(level, [&](u64 j) {
        divideByTop<false>(moduli_[j], v.getRow(j), top, inverseOf(top.prime, moduli_[j]), scratch.mine());
    });
    v.setLevel(level - 1);
}

} // namespace Torvo
