#include "arithmetic/conversion/FastBaseConv.hpp"

#include "arithmetic/chain/Backend.hpp"
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

/// Rows of raised digits that are kept until they are multiplied. Fewer would have the products read and reduced
/// more often, more would not stay in the cache.
constexpr u64 digitsAtOnce = 8;
static_assert(digitsAtOnce <= rows::maxTerms);

/// Spare rows of each thread of the loops to come.
class ThreadRows {
public:
    ThreadRows(u64 rows, u64 length) : length_(length), rows_(rows), words_(rows * length * teamSize()) {}
    /// Row i of the calling thread.
    u64* mine(u64 i) { return words_.getData() + (threadInTeam() * rows_ + i) * length_; }

private:
    u64 length_;
    u64 rows_;
    DeviceSpecificArray<u64> words_;
};

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

Ciphertext FastBaseConv::switchKey(const Polynomial& a, const KeyRows& key, bool isNTT) const {
    requireOfChain(ringOf(context_), a, false);
    requireBackend(a.getDevice(), upNames);
    return switchKeyCPUImpl(a, key, isNTT);
}

Ciphertext FastBaseConv::switchKey(const std::vector<Polynomial>& digits, const Automorphism& automorphism,
                                   const KeyRows& key, bool isNTT) const {
    const Polynomial& first = digits.front();
    for (const Polynomial& digit : digits) requireOfChain(ringOf(context_), digit, true);
    requireBackend(first.getDevice(), downNames);
    return multiplyAndDivide(rowsOn(first.getDevice()), first.getLevel(), key, isNTT,
                             [&](u64 g, u64 t, u64* row) {
                                 automorphism.apply(digits[g].getRow(t), row);
                                 return row;
                             });
}

Ciphertext FastBaseConv::modDown(const Ciphertext& in, bool isNTT) const {
    for (u64 i = 0; i < 2; ++i) requireOfChain(ringOf(context_), in.getPoly(i), true);
    requireBackend(in.getDevice(), downNames);
    return modDownCPUImpl(in, isNTT);
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

/// Prime by prime, so that neither a digit nor a product is ever whole in memory: for each prime the digits are
/// raised and multiplied with the key's rows, a few at a time, and what comes out is divided by P while it is in
/// cache. The temporary primes come first, because every other row needs them.
template <class DigitRow>
Ciphertext FastBaseConv::multiplyAndDivide(const RowConversion& convert, u64 level, const KeyRows& key,
                                           bool isNTT, DigitRow digitRow) const {
    const Ring& ring = convert.ring();
    const u64 K = ring.numTemp;
    const u64 n = ring.degree;
    const u64 few = std::min(key.digits, digitsAtOnce);
    ThreadRows spare(few + 2, n);
    const auto sumOfPrime = [&](u64 t, u64* out0, u64* out1) {
        for (u64 g = 0; g < key.digits; g += few) {
            const auto term = [&](u64 j) {
                return rows::ProductTerm{digitRow(g + j, t, spare.mine(j)), key.bx[g + j].getRow(t),
                                         key.ax[g + j].getRow(t)};
            };
            ring.moduli[t].sumProducts(std::min(few, key.digits - g), term, out0, out1, g != 0);
        }
    };

    // Threads that would wait for the last temporary primes sum for the first ciphertext primes meanwhile.
    const u64 early = std::min(level + 1, (teamSize() - K % teamSize()) % teamSize());
    DeviceSpecificArray<u64> sums(2 * (K + early) * n);
    const auto sum = [&](u64 element, u64 j) { return sums.getData() + (element * (K + early) + j) * n; };
    forEachIndex(K + early, [&](u64 j) {
        const bool isTemporary = j < K;
        sumOfPrime(isTemporary ? ring.numBase + j : j - K, sum(0, j), sum(1, j));
        for (u64 element = 0; isTemporary && element < 2; ++element)
            convert.liftTemporaryRow(j, sum(element, j));
    });

    Ciphertext out = unsetCiphertextAt(level);
    const std::array<Polynomial*, 2> to{&out.getPoly(0), &out.getPoly(1)};
    const auto divide = [&](u64 t, u64 element, u64* product) {
        if (!isNTT) ring.moduli[t].getNTT().computeBackward<1>(product);
        convert.divideRow(t, sum(element, 0), product, isNTT, to[element]->getRow(t));
    };
    const u64 late = level + 1 - early;
    forEachIndexInTurns(late + 2 * early, [&](u64 w) {
        if (w >= late) {
            const u64 element = (w - late) % 2, t = (w - late) / 2;
            return divide(t, element, sum(element, K + t));
        }
        u64* const product[2] = {spare.mine(few), spare.mine(few + 1)};
        sumOfPrime(early + w, product[0], product[1]);
        for (u64 element = 0; element < 2; ++element) divide(early + w, element, product[element]);
    });
    for (Polynomial* poly : to) poly->setNTT(isNTT);
    return out;
}

Ciphertext FastBaseConv::switchKeyCPUImpl(const Polynomial& a, const KeyRows& key, bool isNTT) const {
    const RowConversion convert = rowsOn(a.getDevice());
    const Ring& ring = convert.ring();
    const u64 level = a.getLevel();
    DeviceSpecificArray<u64> lifted((level + 1) * ring.degree);
    const auto liftedRow = [&](u64 i) { return lifted.getData() + i * ring.degree; };
    forEachIndex(level + 1, [&](u64 i) { convert.liftDigitRow(i, a.getRow(i), a.isNTT(), liftedRow(i)); });
    return multiplyAndDivide(convert, level, key, isNTT, [&](u64 g, u64 t, u64* row) -> const u64* {
        if (!ring.isInDigit(t, g)) {
            convert.raiseDigit(g, t, level, liftedRow(ring.digitBegin(g)), row);
            return row;
        }
        if (a.isNTT()) return a.getRow(t);
        std::copy_n(a.getRow(t), ring.degree, row);
        ring.moduli[t].getNTT().computeForward<1>(row);
        return row;
    });
}

Ciphertext FastBaseConv::unsetCiphertextAt(u64 level) const {
    Ciphertext out(PolynomialVector(context_, 2, false, true));
    out.setLevel(level);
    return out;
}

} // namespace Torvo
