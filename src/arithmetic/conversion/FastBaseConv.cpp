#include "arithmetic/conversion/FastBaseConv.hpp"

#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/PrimeProduct.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/Failure.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

/// Product of the primes [begin, end) without prime i, modulo `modulus`.
u64 productWithout(const Ring& ring, u64 begin, u64 end, u64 i, const Modulus& modulus) {
    return modulus.mult(primeProduct(ring.moduli, begin, i, modulus),
                        primeProduct(ring.moduli, i + 1, end, modulus));
}

/// Q_g / p_i modulo `modulus`, g being the digit of i and Q_g the product of the primes of g.
u64 digitHat(const Ring& ring, u64 i, const Modulus& modulus) {
    const u64 g = i / ring.groupSize();
    return productWithout(ring, ring.digitBegin(g), ring.digitEnd(g), i, modulus);
}

/// P / p_(L+j) modulo `modulus`, P being the product of the temporary primes.
u64 temporaryHat(const Ring& ring, u64 j, const Modulus& modulus) {
    return productWithout(ring, ring.numBase, ring.total(), ring.numBase + j, modulus);
}

template <class Entry>
DeviceSpecificArray<u64> tableOf(u64 size, Entry&& entry) {
    DeviceSpecificArray<u64> table(size);
    for (u64 i = 0; i < size; ++i) table[i] = entry(i);
    return table;
}

template <class Entry>
DeviceSpecificArray2D<u64> tableOf(u64 rows, u64 columns, Entry&& entry) {
    DeviceSpecificArray2D<u64> table(rows, columns);
    for (u64 i = 0; i < rows; ++i)
        for (u64 t = 0; t < columns; ++t) table.row(i)[t] = entry(i, t);
    return table;
}

/// The lifted rows of one digit that are summed for another prime: `count` rows from `rows` on, of primes
/// `first`, `first + 1`, ...; `hats` holds the constant of row r at word r * hatStride.
struct DigitRows {
    const u64* rows;
    u64 count;
    u64 first;
    const u64* hats;
    u64 hatStride;
};

/// out = sum over r of norm(row r) * hat_r modulo the prime of `target`, where the rows were lifted.
void convertDigit(const Ring& ring, const DigitRows& digit, const Modulus& target, u64* out) {
    target.sumCentredProducts(digit.rows, &ring.moduli[digit.first], digit.hats, digit.hatStride, digit.count,
                              out);
}

/// Reduces words from range 2 to range 1.
void foldIntoRangeOne(const Modulus& modulus, u64* row, u64 n) {
    const u64 p = modulus.getPrime();
    for (u64 i = 0; i < n; ++i) row[i] = std::min(row[i], row[i] - p); // the difference wraps below p
}

struct Conversion {
    u64 row;
    u64 digit;
};

/// The pairs of digit and target row of a mod-up at `level`: neither a digit's own rows nor holes.
std::vector<Conversion> modUpWork(const Ring& ring, u64 level) {
    const u64 digits = level / ring.groupSize() + 1;
    std::vector<Conversion> work;
    work.reserve(digits * ring.total());
    for (u64 g = 0; g < digits; ++g) {
        for (u64 t = 0; t < ring.total(); ++t) {
            const bool isOwn = ring.digitBegin(g) <= t && t < ring.digitEnd(g);
            const bool isHole = level < t && t < ring.numBase;
            if (!isOwn && !isHole) work.push_back({t, g});
        }
    }
    return work;
}

} // namespace

FastBaseConv::FastBaseConv(const Context& context) : context_(context) {
    const Ring ring = ringOf(context);
    const u64 L = ring.numBase;
    const Device cpu{};
    hatInvQ_.set(
        cpu, tableOf(L, [&](u64 i) { return ring.moduli[i].inverse(digitHat(ring, i, ring.moduli[i])); }));
    hatQ_.set(cpu, tableOf(L, ring.total(), [&](u64 i, u64 t) { return digitHat(ring, i, ring.moduli[t]); }));
    hatInvP_.set(cpu, tableOf(ring.numTemp, [&](u64 j) {
                     const Modulus& modulus = ring.moduli[L + j];
                     return modulus.inverse(temporaryHat(ring, j, modulus));
                 }));
    hatP_.set(cpu,
              tableOf(ring.numTemp, L, [&](u64 j, u64 t) { return temporaryHat(ring, j, ring.moduli[t]); }));
    invP_.set(cpu, tableOf(L, [&](u64 t) {
                  const Modulus& modulus = ring.moduli[t];
                  return modulus.inverse(primeProduct(ring.moduli, L, ring.total(), modulus));
              }));
}

namespace {

/// A level that the chain does not have would read past the ends of the tables; rows of another ring would be
/// read past their ends.
void requireOfChain(const Ring& ring, const Polynomial& polynomial, bool isModUp) {
    require(polynomial.isModUp() == isModUp && polynomial.hasShapeOf(ring) &&
                polynomial.getLevel() < ring.numBase,
            message::operandsOfOtherRing);
}

} // namespace

PolynomialVector FastBaseConv::modUp(const Polynomial& a) const {
    requireOfChain(ringOf(context_), a, false);
    switch (a.getDevice().type) {
    case DeviceType::CPU:
        return modUpCPUImpl(a);
    case DeviceType::GPU:
        throwUnsupported("modUpGPUImpl");
    default:
        throwUnsupported("modUp");
    }
}

Ciphertext FastBaseConv::modDown(const Ciphertext& in, bool isNTT) const {
    for (u64 i = 0; i < 2; ++i) requireOfChain(ringOf(context_), in.getPoly(i), true);
    switch (in.getDevice().type) {
    case DeviceType::CPU:
        return modDownCPUImpl(in, isNTT);
    case DeviceType::GPU:
        throwUnsupported("modDownGPUImpl");
    default:
        throwUnsupported("modDown");
    }
}

/// In the polynomial of a digit, the digit's own rows end as a copy of the input. Until the last step they
/// hold the digit's scaled coefficients, so no scratch memory is needed.
PolynomialVector FastBaseConv::modUpCPUImpl(const Polynomial& a) const {
    const Ring ring = ringOf(context_);
    const u64 level = a.getLevel();
    const u64 groupSize = ring.groupSize();
    const auto& hatInvQ = hatInvQ_.at(a.getDevice());
    const auto& hatQ = hatQ_.at(a.getDevice());

    PolynomialVector out(context_, level / groupSize + 1, true, true);
    out.setLevel(level);
    auto& digits = out.getPolys();
    const auto ownRow = [&](u64 i) { return digits[i / groupSize].getRow(i); };

    forEachIndex(level + 1, [&](u64 i) {
        const Modulus& modulus = ring.moduli[i];
        u64* row = ownRow(i);
        if (groupSize == 1)
            std::copy_n(a.getRow(i), ring.degree, row);
        else
            modulus.constMult<1>(a.getRow(i), hatInvQ[i], row, ring.degree);
        if (a.isNTT()) modulus.getNTT().computeBackward<1>(row);
        if (groupSize > 1) modulus.liftCentred(row);
    });

    const auto work = modUpWork(ring, level);
    forEachIndex(work.size(), [&](u64 w) {
        const auto [t, g] = work[w];
        const Modulus& target = ring.moduli[t];
        const u64 first = ring.digitBegin(g);
        u64* row = digits[g].getRow(t);
        if (groupSize == 1) {
            target.normalizeModVector(row, ownRow(first), ring.moduli[first].getPrime(), ring.degree);
        } else {
            const u64 last = std::min(ring.digitEnd(g), level + 1);
            convertDigit(ring, {ownRow(first), last - first, first, hatQ.row(first) + t, hatQ.columns()},
                         target, row);
        }
        target.getNTT().computeForward<1>(row);
    });

    forEachIndex(level + 1, [&](u64 i) {
        std::copy_n(a.getRow(i), ring.degree, ownRow(i));
        if (!a.isNTT()) ring.moduli[i].getNTT().computeForward<1>(ownRow(i));
    });
    return out;
}

Ciphertext FastBaseConv::modDownCPUImpl(const Ciphertext& in, bool isNTT) const {
    const Ring ring = ringOf(context_);
    const u64 live = in.getLevel() + 1;
    const u64 K = ring.numTemp;
    const u64 n = ring.degree;
    const Device device = in.getDevice();
    const auto& hatInvP = hatInvP_.at(device);
    const auto& hatP = hatP_.at(device);
    const auto& invP = invP_.at(device);

    Ciphertext out(PolynomialVector(context_, 2, false, true));
    out.setLevel(in.getLevel());
    const std::array<const Polynomial*, 2> from{&in.getPoly(0), &in.getPoly(1)};
    const std::array<Polynomial*, 2> to{&out.getPoly(0), &out.getPoly(1)};
    DeviceSpecificArray<u64> temporary(2 * K * n);
    DeviceSpecificArray<u64> base(isNTT ? 0 : 2 * live * n);

    forEachIndex(2 * K, [&](u64 i) {
        const u64 j = i % K;
        const Modulus& modulus = ring.moduli[ring.numBase + j];
        u64* row = temporary.getData() + i * n;
        std::copy_n(from[i / K]->getRow(ring.numBase + j), n, row);
        modulus.getNTT().computeBackward<1>(row);
        if (K == 1) return;
        modulus.constMult<1>(row, hatInvP[j], row, n);
        modulus.liftCentred(row);
    });

    forEachIndex(2 * live, [&](u64 i) {
        const u64 t = i % live;
        const Modulus& target = ring.moduli[t];
        const u64* temporaryRows = temporary.getData() + (i / live) * K * n;
        u64* row = to[i / live]->getRow(t);
        if (K == 1)
            target.normalizeModVector(row, temporaryRows, ring.moduli[ring.numBase].getPrime(), n);
        else
            convertDigit(ring, {temporaryRows, K, ring.numBase, hatP.row(0) + t, hatP.columns()}, target,
                         row);

        const u64* minuend = from[i / live]->getRow(t);
        if (isNTT) {
            target.getNTT().computeForward<1>(row);
        } else {
            foldIntoRangeOne(target, row, n);
            u64* coefficients = base.getData() + i * n;
            std::copy_n(minuend, n, coefficients);
            target.getNTT().computeBackward<1>(coefficients);
            minuend = coefficients;
        }
        target.subAndConstMult<1>(minuend, row, invP[t], row, n);
    });
    for (Polynomial* poly : to) poly->setNTT(isNTT);
    return out;
}

} // namespace Torvo
