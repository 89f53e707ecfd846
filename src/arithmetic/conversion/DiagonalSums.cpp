#include "arithmetic/conversion/DiagonalSums.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/RowLoop.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// For each giant step of each result its number among those that have an automorphism.
std::vector<std::vector<u64>> placesOf(std::span<const DiagonalSum> sums) {
    std::vector<std::vector<u64>> places;
    places.reserve(sums.size());
    u64 next = 0;
    for (const DiagonalSum& sum : sums) {
        auto& ofSum = places.emplace_back();
        ofSum.reserve(sum.giants.size());
        for (const GiantStep& giant : sum.giants)
            ofSum.push_back(giant.automorphism == nullptr ? next : next++);
    }
    return places;
}

u64 countSwitched(std::span<const DiagonalSum> sums) {
    u64 count = 0;
    for (const DiagonalSum& sum : sums)
        for (const GiantStep& giant : sum.giants) count += giant.automorphism == nullptr ? 0 : 1;
    return count;
}

} // namespace

u64 DiagonalSums::digitCount(std::span<const BabyStep> babies) {
    u64 digits = 0;
    for (const BabyStep& baby : babies)
        if (baby.automorphism != nullptr) digits = std::max(digits, baby.key.digits);
    return digits;
}

DiagonalSums::DiagonalSums(const RowConversion& convert, const HoistedInput& input,
                           std::span<const BabyStep> babies, std::span<const DiagonalSum> sums)
    : convert_(convert), ring_(convert_.ring()), input_(input), babies_(babies), sums_(sums),
      live_(input.digits.getLevel() + 1), babyRows_(2 * babies.size(), ring_.degree),
      spare_(digitsAtOnce + 1, ring_.degree), places_(placesOf(sums)),
      switched_(countSwitched(sums) * (live_ + ring_.numTemp) * ring_.degree) {
    const u64 digits = digitCount(babies);
    if (digits != 0) digits_.emplace(convert_, input.digits, digits);
}

void DiagonalSums::run() {
    forEachIndexInTurns(live_ + ring_.numTemp, [&](u64 row) {
        makeBabies(row);
        sumRow(row);
    });
    for (const DiagonalSum& sum : sums_)
        for (Polynomial* element : sum.out) element->setNTT(true);
}

void DiagonalSums::makeBabies(u64 row) {
    const u64 t = primeOf(row);
    const bool isLive = row < live_;
    if (digits_) digits_->keep(t);
    if (isLive)
        ring_.moduli[t].constMult<1>(input_.first.getRow(t), input_.tempProduct[t], spare_.mine(digitsAtOnce),
                                     ring_.degree);
    for (u64 baby = 0; baby < babies_.size(); ++baby) makeBaby(baby, t, isLive);
}

/// P times the input is a multiple of the temporary primes: there its rows are zeros, which nothing reads.
void DiagonalSums::makeBaby(u64 baby, u64 t, bool isLive) {
    const Modulus& modulus = ring_.moduli[t];
    const auto& [automorphism, key] = babies_[baby];
    u64 *const first = babyRow(baby, 0), *const second = babyRow(baby, 1);
    const u64* scaledFirst = spare_.mine(digitsAtOnce);
    if (automorphism == nullptr) {
        if (!isLive) return;
        std::copy_n(scaledFirst, ring_.degree, first);
        modulus.constMult<1>(input_.second.getRow(t), input_.tempProduct[t], second, ring_.degree);
        return;
    }
    const auto image = [&](u64 g, u64* spare) { return digits_->row(g, t, automorphism, spare); };
    sumOfPrime(modulus, t, key, false, spare_, image, first, second);
    if (!isLive) return;
    u64* moved = spare_.mine(0); // no digit is there any more
    automorphism->apply(scaledFirst, moved);
    modulus.addVector(first, first, moved, ring_.degree);
}

void DiagonalSums::sumGiant(const GiantStep& giant, u64 row, u64* out0, u64* out1) {
    std::span<const DiagonalTerm> terms(giant.terms);
    if (row >= live_ && babies_[terms.front().baby].automorphism == nullptr)
        terms = terms.subspan(1); // zeros
    if (terms.empty()) {
        std::fill_n(out0, ring_.degree, 0);
        std::fill_n(out1, ring_.degree, 0);
        return;
    }
    const auto product = [&](u64 j) {
        const auto& [baby, diagonal] = terms[j];
        return rows::ProductTerm{diagonal + row * ring_.degree, babyRow(baby, 0), babyRow(baby, 1)};
    };
    ring_.moduli[primeOf(row)].sumProducts(terms.size(), product, out0, out1);
}

void DiagonalSums::sumRow(u64 row) {
    const u64 t = primeOf(row);
    const Modulus& modulus = ring_.moduli[t];
    u64 *const sum = spare_.mine(0), *const other = spare_.mine(1);
    for (u64 s = 0; s < sums_.size(); ++s) {
        u64 *const out0 = sums_[s].out[0]->getRow(t), *const out1 = sums_[s].out[1]->getRow(t);
        std::fill_n(out0, ring_.degree, 0);
        std::fill_n(out1, ring_.degree, 0);
        for (u64 g = 0; g < sums_[s].giants.size(); ++g) {
            const GiantStep& giant = sums_[s].giants[g];
            if (giant.automorphism == nullptr) {
                sumGiant(giant, row, sum, other);
                modulus.addVector(out0, out0, sum, ring_.degree);
                modulus.addVector(out1, out1, other, ring_.degree);
            } else {
                sumGiant(giant, row, sum, switchedRow(s, g, row));
                giant.automorphism->apply(sum, other);
                modulus.addVector(out0, out0, other, ring_.degree);
            }
        }
    }
}

void DiagonalSums::quotient(u64 sum, u64 giant, Polynomial& out) {
    const Automorphism& automorphism = *sums_[sum].giants[giant].automorphism;
    forEachIndex(ring_.numTemp,
                 [&](u64 j) { convert_.liftTemporaryRow(j, switchedRow(sum, giant, live_ + j)); });
    forEachIndex(live_, [&](u64 t) {
        u64* divided = spare_.mine(0);
        convert_.divideRow(t, switchedRow(sum, giant, live_), switchedRow(sum, giant, t), true, divided);
        automorphism.apply(divided, out.getRow(t));
    });
    out.setNTT(true);
}

} // namespace Torvo
