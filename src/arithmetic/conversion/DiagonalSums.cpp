#include "arithmetic/conversion/DiagonalSums.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/RowLoop.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// Columns that are worked on at once: those of some thirty baby steps, both elements, are half a mebibyte.
constexpr u64 columnsAtOnce = 1024;

u64 columnsOf(const Ring& ring) {
    return std::min(ring.degree, columnsAtOnce);
}

u64 digitCount(std::span<const BabyStep> babies) {
    u64 digits = 0;
    for (const BabyStep& baby : babies)
        if (baby.automorphism != nullptr) digits = std::max(digits, baby.key.digits);
    return digits;
}

u64 countMoved(std::span<const DiagonalSum> sums) {
    u64 count = 0;
    for (const DiagonalSum& sum : sums)
        for (const GiantStep& giant : sum.giants) count += giant.automorphism == nullptr ? 0 : 1;
    return count;
}

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

} // namespace

DiagonalSums::DiagonalSums(const RowConversion& convert, const HoistedInput& input,
                           std::span<const BabyStep> babies, std::span<const DiagonalSum> sums)
    : convert_(convert), ring_(convert_.ring()), input_(input), babies_(babies), sums_(sums),
      live_(input.digits.getLevel() + 1), scaled_(2, ring_.degree),
      babyColumns_(2 * babies.size(), columnsOf(ring_)), spare_(digitsAtOnce, columnsOf(ring_)),
      places_(placesOf(sums)), firstRows_(countMoved(sums), ring_.degree),
      secondRows_(countMoved(sums) * (live_ + ring_.numTemp) * ring_.degree) {
    const u64 digits = digitCount(babies);
    if (digits != 0) digits_.emplace(convert_, input.digits, digits);
}

void DiagonalSums::run() {
    forEachIndexInTurns(live_ + ring_.numTemp, [&](u64 row) { sumRow(row); });
    for (const DiagonalSum& sum : sums_)
        for (Polynomial* element : sum.out) element->setNTT(true);
}

void DiagonalSums::sumRow(u64 row) {
    const u64 t = primeOf(row);
    if (digits_) digits_->keep(t);
    if (row < live_) scaleInput(t);
    Columns columns{0, columnsOf(ring_)};
    for (; columns.begin < ring_.degree; columns.begin += columns.count) {
        for (u64 baby = 0; baby < babies_.size(); ++baby) makeBaby(baby, row, columns);
        for (u64 s = 0; s < sums_.size(); ++s) {
            const auto& [giants, out] = sums_[s];
            for (u64 g = 0; g < giants.size(); ++g) {
                const bool isMoved = giants[g].automorphism != nullptr;
                const u64 place = places_[s][g];
                u64* first = isMoved ? firstRow(place) : out[0]->getRow(t);
                u64* second = isMoved ? secondRow(place, row) : out[1]->getRow(t);
                sumGiant(giants[g], row, columns, first + columns.begin, second + columns.begin);
            }
        }
    }
    addImages(t);
}

void DiagonalSums::scaleInput(u64 t) {
    const u64 P = input_.tempProduct[t];
    ring_.moduli[t].constMult<1>(input_.first.getRow(t), P, scaled_.mine(0), ring_.degree);
    ring_.moduli[t].constMult<1>(input_.second.getRow(t), P, scaled_.mine(1), ring_.degree);
}

void DiagonalSums::makeBaby(u64 baby, u64 row, Columns columns) {
    const Automorphism* const automorphism = babies_[baby].automorphism;
    if (automorphism == nullptr) return; // the input is there
    const u64 t = primeOf(row);
    u64 *const first = babyColumns_.mine(2 * baby), *const second = babyColumns_.mine(2 * baby + 1);
    const auto image = [&](u64 g, u64* spare) {
        return digits_->columns(g, t, automorphism, columns, spare);
    };
    sumOfPrime(ring_.moduli[t], t, babies_[baby].key, columns, false, spare_, image, first, second);
    if (row >= live_) return;    // P times the first element is a multiple of these primes
    u64* moved = spare_.mine(0); // no digit is there any more
    automorphism->apply(scaledRow(0), columns.begin, columns.count, moved);
    ring_.moduli[t].addVector(first, first, moved, columns.count);
}

void DiagonalSums::sumGiant(const GiantStep& giant, u64 row, Columns columns, u64* out0, u64* out1) {
    std::span<const DiagonalTerm> terms(giant.terms);
    // Modulo the temporary primes P times the input is zero.
    if (row >= live_ && babies_[terms.front().baby].automorphism == nullptr) terms = terms.subspan(1);
    if (terms.empty()) {
        std::fill_n(out0, columns.count, 0);
        std::fill_n(out1, columns.count, 0);
        return;
    }
    const auto product = [&](u64 j) {
        const auto& [baby, diagonal] = terms[j];
        return rows::ProductTerm{diagonal + row * ring_.degree + columns.begin, babyColumns(baby, 0, columns),
                                 babyColumns(baby, 1, columns)};
    };
    ring_.moduli[primeOf(row)].sumProductsOf(columns.count, terms.size(), product, out0, out1);
}

/// What was summed without an automorphism is there already.
void DiagonalSums::addImages(u64 t) {
    u64* image = scaled_.mine(0); // used no more
    for (u64 s = 0; s < sums_.size(); ++s) {
        const auto& [giants, out] = sums_[s];
        if (giants.front().automorphism != nullptr)
            for (Polynomial* element : out) std::fill_n(element->getRow(t), ring_.degree, 0);
        for (u64 g = 0; g < giants.size(); ++g) {
            if (giants[g].automorphism == nullptr) continue;
            giants[g].automorphism->apply(firstRow(places_[s][g]), image);
            ring_.moduli[t].addVector(out[0]->getRow(t), out[0]->getRow(t), image, ring_.degree);
        }
    }
}

void DiagonalSums::quotient(u64 sum, u64 giant, Polynomial& out) {
    const Automorphism& automorphism = *sums_[sum].giants[giant].automorphism;
    const u64 place = places_[sum][giant];
    forEachIndex(ring_.numTemp, [&](u64 j) { convert_.liftTemporaryRow(j, secondRow(place, live_ + j)); });
    forEachIndex(live_, [&](u64 t) {
        u64* divided = scaled_.mine(0);
        convert_.divideRow(t, secondRow(place, live_), secondRow(place, t), true, divided);
        automorphism.apply(divided, out.getRow(t));
    });
    out.setNTT(true);
}

} // namespace Torvo
