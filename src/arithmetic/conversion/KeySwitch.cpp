#include "arithmetic/conversion/KeySwitch.hpp"

#include "arithmetic/elements/Ring.hpp"

namespace Torvo {

Digits::Digits(const RowConversion& convert, const Polynomial& a)
    : convert_(convert), a_(a), lifted_((a.getLevel() + 1) * convert.ring().degree) {
    forEachIndex(a.getLevel() + 1,
                 [&](u64 i) { convert.liftDigitRow(i, a.getRow(i), a.isNTT(), liftedRow(i)); });
}

const u64* Digits::row(u64 g, u64 t, u64* spare) {
    const Ring& ring = convert_.ring();
    if (isOwnRow(g, t)) return a_.getRow(t);
    if (ring.isInDigit(t, g)) {
        std::copy_n(a_.getRow(t), ring.degree, spare);
        ring.moduli[t].getNTT().computeForward<1>(spare);
    } else {
        convert_.raiseDigit(g, t, a_.getLevel(), liftedRow(ring.digitBegin(g)), spare);
    }
    return spare;
}

void KeptDigits::keep(u64 t) {
    for (u64 g = 0; g < count_; ++g) digits_.row(g, t, rows_.mine(g));
}

const u64* KeptDigits::columns(u64 g, u64 t, const Automorphism* automorphism, Columns columns, u64* spare) {
    if (count_ == 0) return digits_.row(g, t, spare) + columns.begin;
    const u64* whole = digits_.isOwnRow(g, t) ? digits_.row(g, t, spare) : rows_.mine(g);
    if (automorphism == nullptr) return whole + columns.begin;
    automorphism->apply(whole, columns.begin, columns.count, spare);
    return spare;
}

namespace {

/// Digits that so many keys have kept: all, unless each is used once and as it is.
u64 keptDigits(std::span<const MappedKey> keys) {
    const MappedKey& first = keys.front();
    return keys.size() > 1 || first.automorphism != nullptr ? first.key.digits : 0;
}

/// Threads that would wait for the last temporary primes sum for the first ciphertext primes meanwhile.
u64 primesInAdvance(u64 live, u64 temporary) {
    return std::min(live, (teamSize() - temporary % teamSize()) % teamSize());
}

} // namespace

KeySwitch::KeySwitch(const RowConversion& convert, const Polynomial& a, std::span<const MappedKey> keys,
                     bool isNTT, std::span<const Out> outs)
    : convert_(convert), ring_(convert.ring()), keys_(keys), isNTT_(isNTT), outs_(outs),
      live_(a.getLevel() + 1), temporary_(ring_.numTemp), early_(primesInAdvance(live_, temporary_)),
      digits_(convert, a, keptDigits(keys)), spare_(digitsAtOnce + 2, ring_.degree),
      sums_(keys.size() * 2 * (temporary_ + early_) * ring_.degree) {}

void KeySwitch::run() {
    forEachIndex(temporary_ + early_, [&](u64 j) { sumInAdvance(j); });
    const u64 late = live_ - early_;
    forEachIndexInTurns(late + 2 * early_, [&](u64 w) {
        if (w < late) return sumAndDivide(early_ + w);
        const u64 element = (w - late) % 2, t = (w - late) / 2;
        for (u64 k = 0; k < keys_.size(); ++k) divide(k, t, element, sumRow(k, element, temporary_ + t));
    });
    for (const Out& out : outs_)
        for (Polynomial* element : out) element->setNTT(isNTT_);
}

void KeySwitch::sumForKey(u64 k, u64 t, u64* out0, u64* out1) {
    const Columns all{0, ring_.degree};
    const auto digitAt = [&](u64 g, u64* row) {
        return digits_.columns(g, t, keys_[k].automorphism, all, row);
    };
    sumOfPrime(ring_.moduli[t], t, keys_[k].key, all, false, spare_, digitAt, out0, out1);
}

void KeySwitch::sumInAdvance(u64 j) {
    const bool isTemporary = j < temporary_;
    const u64 t = isTemporary ? ring_.numBase + j : j - temporary_;
    digits_.keep(t);
    for (u64 k = 0; k < keys_.size(); ++k) {
        sumForKey(k, t, sumRow(k, 0, j), sumRow(k, 1, j));
        if (!isTemporary) continue;
        for (u64 element = 0; element < 2; ++element) convert_.liftTemporaryRow(j, sumRow(k, element, j));
    }
}

void KeySwitch::sumAndDivide(u64 t) {
    u64* const product[2] = {spare_.mine(digitsAtOnce), spare_.mine(digitsAtOnce + 1)};
    digits_.keep(t);
    for (u64 k = 0; k < keys_.size(); ++k) {
        sumForKey(k, t, product[0], product[1]);
        for (u64 element = 0; element < 2; ++element) divide(k, t, element, product[element]);
    }
}

void KeySwitch::divide(u64 k, u64 t, u64 element, u64* product) {
    u64* row = outs_[k][element]->getRow(t);
    if (!isNTT_) ring_.moduli[t].getNTT().computeBackward<1>(product);
    convert_.divideRow(t, sumRow(k, element, 0), product, isNTT_, row);
    addTo(row, keys_[k].addends, element, t);
}

void KeySwitch::addTo(u64* row, const Addends& addends, u64 element, u64 t) {
    if (addends.elements[element] == nullptr) return;
    const u64* addend = addends.elements[element]->getRow(t);
    if (addends.automorphism != nullptr) {
        u64* image = spare_.mine(0); // no digit is there any more
        addends.automorphism->apply(addend, image);
        addend = image;
    }
    ring_.moduli[t].addVector(row, row, addend, ring_.degree);
}

} // namespace Torvo
