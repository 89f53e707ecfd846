#include "arithmetic/conversion/FastBaseConv.hpp"

#include "arithmetic/chain/Backend.hpp"
#include "arithmetic/conversion/KeySwitch.hpp"
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

struct Conversion {
    u64 row;
    u64 digit;
};

/// The pairs of digit and target row of a mod-up at `level`: neither a digit's own rows nor holes.
std::vector<Conversion> modUpWork(const Ring& ring, u64 level) {
    std::vector<Conversion> work;
    work.reserve(ring.liveDigits(level) * ring.total());
    for (u64 g = 0; g < ring.liveDigits(level); ++g) {
        for (u64 t = 0; t < ring.total(); ++t) {
            const bool isHole = level < t && t < ring.numBase;
            if (!ring.isInDigit(t, g) && !isHole) work.push_back({t, g});
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

constexpr FailureNames upNames{"modUpGPUImpl", "modUp"};
constexpr FailureNames downNames{"modDownGPUImpl", "modDown"};

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
    requireBackend(a.getDevice(), upNames);
    return modUpCPUImpl(a);
}

std::vector<Ciphertext> FastBaseConv::switchKeys(const Polynomial& a, std::span<const MappedKey> keys,
                                                 bool isNTT) const {
    requireOfChain(ringOf(context_), a, false);
    requireBackend(a.getDevice(), upNames);
    return switchKeysCPUImpl(a, keys, isNTT);
}

void FastBaseConv::multiplyDigits(const Polynomial& a, const KeyRows& key, bool accumulate,
                                  Ciphertext& out) const {
    requireOfChain(ringOf(context_), a, false);
    for (u64 i = 0; i < 2; ++i) requireOfChain(ringOf(context_), out.getPoly(i), true);
    requireBackend(a.getDevice(), upNames);
    multiplyDigitsCPUImpl(a, key, accumulate, out);
}

Ciphertext FastBaseConv::modDown(const Ciphertext& in, bool isNTT) const {
    for (u64 i = 0; i < 2; ++i) requireOfChain(ringOf(context_), in.getPoly(i), true);
    requireBackend(in.getDevice(), downNames);
    return modDownCPUImpl(in, isNTT);
}

DiagonalSums FastBaseConv::sumDiagonals(const HoistedInput& input, std::span<const BabyStep> babies,
                                        std::span<const DiagonalSum> sums) const {
    const Ring ring = ringOf(context_);
    for (const Polynomial* element : {&input.first, &input.second, &input.digits})
        requireOfChain(ring, *element, false);
    for (const DiagonalSum& sum : sums)
        for (const Polynomial* element : sum.out) requireOfChain(ring, *element, true);
    requireBackend(input.digits.getDevice(), upNames);
    return {rowsOn(input.digits.getDevice()), input, babies, sums};
}

RowConversion FastBaseConv::rowsOn(const Device& device) const {
    return {ringOf(context_),
            {hatInvQ_.at(device), hatQ_.at(device), hatInvP_.at(device), hatP_.at(device), invP_.at(device)}};
}

/// In the polynomial of a digit, the digit's own rows end as a copy of the input. Until the last step they
/// hold the digit's lifted coefficients, so no scratch memory is needed.
PolynomialVector FastBaseConv::modUpCPUImpl(const Polynomial& a) const {
    const RowConversion convert = rowsOn(a.getDevice());
    const Ring& ring = convert.ring();
    const u64 level = a.getLevel();

    PolynomialVector out(context_, ring.liveDigits(level), true, true);
    out.setLevel(level);
    auto& digits = out.getPolys();
    const auto ownRow = [&](u64 i) { return digits[i / ring.groupSize()].getRow(i); };

    forEachIndex(level + 1, [&](u64 i) { convert.liftDigitRow(i, a.getRow(i), a.isNTT(), ownRow(i)); });
    const auto work = modUpWork(ring, level);
    forEachIndex(work.size(), [&](u64 w) {
        const auto [t, g] = work[w];
        convert.raiseDigit(g, t, level, ownRow(ring.digitBegin(g)), digits[g].getRow(t));
    });
    forEachIndex(level + 1, [&](u64 i) {
        std::copy_n(a.getRow(i), ring.degree, ownRow(i));
        if (!a.isNTT()) ring.moduli[i].getNTT().computeForward<1>(ownRow(i));
    });
    return out;
}

Ciphertext FastBaseConv::modDownCPUImpl(const Ciphertext& in, bool isNTT) const {
    const RowConversion convert = rowsOn(in.getDevice());
    const Ring& ring = convert.ring();
    const u64 live = in.getLevel() + 1;
    const u64 K = ring.numTemp;
    const u64 n = ring.degree;

    Ciphertext out = unsetCiphertextAt(in.getLevel());
    const std::array<const Polynomial*, 2> from{&in.getPoly(0), &in.getPoly(1)};
    const std::array<Polynomial*, 2> to{&out.getPoly(0), &out.getPoly(1)};
    DeviceSpecificArray<u64> temporary(2 * K * n);
    DeviceSpecificArray<u64> base(isNTT ? 0 : 2 * live * n);

    forEachIndex(2 * K, [&](u64 i) {
        u64* row = temporary.getData() + i * n;
        std::copy_n(from[i / K]->getRow(ring.numBase + i % K), n, row);
        convert.liftTemporaryRow(i % K, row);
    });
    forEachIndex(2 * live, [&](u64 i) {
        const u64 t = i % live;
        const u64* minuend = from[i / live]->getRow(t);
        if (!isNTT) {
            u64* coefficients = base.getData() + i * n;
            std::copy_n(minuend, n, coefficients);
            ring.moduli[t].getNTT().computeBackward<1>(coefficients);
            minuend = coefficients;
        }
        convert.divideRow(t, temporary.getData() + (i / live) * K * n, minuend, isNTT,
                          to[i / live]->getRow(t));
    });
    for (Polynomial* poly : to) poly->setNTT(isNTT);
    return out;
}

std::vector<Ciphertext> FastBaseConv::switchKeysCPUImpl(const Polynomial& a, std::span<const MappedKey> keys,
                                                        bool isNTT) const {
    std::vector<Ciphertext> outs;
    std::vector<KeySwitch::Out> elements;
    outs.reserve(keys.size()); // elements point into them
    elements.reserve(keys.size());
    for (u64 k = 0; k < keys.size(); ++k) {
        Ciphertext& out = outs.emplace_back(unsetCiphertextAt(a.getLevel()));
        elements.push_back({&out.getPoly(0), &out.getPoly(1)});
    }
    KeySwitch(rowsOn(a.getDevice()), a, keys, isNTT, elements).run();
    return outs;
}

void FastBaseConv::multiplyDigitsCPUImpl(const Polynomial& a, const KeyRows& key, bool accumulate,
                                         Ciphertext& out) const {
    const RowConversion convert = rowsOn(a.getDevice());
    Digits digits(convert, a);
    ThreadRows spare(digitsAtOnce, convert.ring().degree);
    const std::array<Polynomial*, 2> to{&out.getPoly(0), &out.getPoly(1)};
    const u64 live = a.getLevel() + 1;
    forEachIndex(live + convert.ring().numTemp, [&](u64 i) {
        const u64 t = i < live ? i : convert.ring().numBase + i - live;
        sumOfPrime(
            convert.ring().moduli[t], t, key, {0, convert.ring().degree}, accumulate, spare,
            [&](u64 g, u64* row) { return digits.row(g, t, row); }, to[0]->getRow(t), to[1]->getRow(t));
    });
}

Ciphertext FastBaseConv::unsetCiphertextAt(u64 level) const {
    Ciphertext out(PolynomialVector(context_, 2, false, true));
    out.setLevel(level);
    return out;
}

} // namespace Torvo
