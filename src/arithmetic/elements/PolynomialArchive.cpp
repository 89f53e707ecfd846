#include "arithmetic/elements/PolynomialArchive.hpp"

#include "arithmetic/elements/PolyGerm.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"

#include <cereal/types/array.hpp>

#include <algorithm>
#include <bit>

namespace Torvo {

namespace {

u64 loadCount(InputArchive& archive) {
    u64 count = 0;
    archive(count);
    return count;
}

/// Loads the `count` polynomials that follow into `polys`, one by one, so that a count costs no memory by
/// itself; the storage of existing polynomials is reused.
template <class LoadOne>
void loadEach(std::vector<Polynomial>& polys, u64 count, LoadOne&& loadOne) {
    if (polys.size() > count) polys.resize(count);
    for (u64 i = 0; i < count; ++i) loadOne(i < polys.size() ? polys[i] : polys.emplace_back());
}

} // namespace

template <class Archive, class Self>
void Polynomial::headerFields(Archive& archive, Self& self) {
    archive(self.degree_, self.numBase_, self.numRows_, self.level_, detail::Flag(self.modUp_),
            detail::Flag(self.isNTT_));
}

void Polynomial::saveHeader(OutputArchive& archive, bool withoutGerm) const {
    headerFields(archive, *this);
    archive(static_cast<u64>(primes_.size()));
    archive(cereal::binary_data(primes_.data(), primes_.size() * sizeof(u64)));
    archive(detail::Flag(withoutGerm));
}

void Polynomial::save(OutputArchive& archive) const {
    saveHeader(archive, true);
    archive(data_);
}

void Polynomial::saveByGerm(OutputArchive& archive) const {
    if (!germ_) return save(archive);
    saveHeader(archive, false);
    archive(germ_->getWords());
}

void Polynomial::load(InputArchive& archive) {
    load(archive, [](const Polynomial& poly) { return poly.hasPossiblePrimes(); });
}

void Polynomial::load(InputArchive& archive, const Ring& ring) {
    load(archive, [&](const Polynomial& poly) { return poly.hasPrimesOf(ring); });
    if (!modUp_) adopt(ring);
}

void Polynomial::load(InputArchive& archive, const HeaderCheck& isExpected) {
    verify(!loadHeader(archive, isExpected));
    loadData(archive);
}

void Polynomial::loadByGerm(InputArchive& archive, const HeaderCheck& isExpected) {
    if (!loadHeader(archive, isExpected)) return loadData(archive);
    std::array<u64, 128> words{};
    archive(words);
    germ_.emplace(words);
    data_ = {};
}

void Polynomial::regrow() {
    if (germ_) populateUniformPoly(*this, false);
}

bool Polynomial::hasPossiblePrimes() const {
    return std::ranges::all_of(primes_, [](u64 p) { return p >= 3 && p % 2 == 1 && p < limit::prime; });
}

// Every number is checked before memory is allocated by it.
bool Polynomial::loadHeader(InputArchive& archive, const HeaderCheck& isExpected) {
    headerFields(archive, *this);
    verify(std::has_single_bit(degree_) && degree_ <= limit::degree);
    verify(0 < numBase_ && numBase_ <= limit::rows && numRows_ <= limit::rows);
    verify(modUp_ ? numBase_ <= numRows_ && level_ < numRows_ : numBase_ == numRows_ && level_ + 1 != 0);
    verify(loadCount(archive) == numRows_);
    primes_.resize(numRows_);
    archive(cereal::binary_data(primes_.data(), numRows_ * sizeof(u64)));
    verify(isExpected(*this));
    bool withoutGerm = false;
    archive(detail::Flag(withoutGerm));
    germ_.reset();
    return !withoutGerm;
}

// A polynomial that was once generated from a germ stays at full height, whatever its level.
void Polynomial::loadData(InputArchive& archive) {
    data_.loadSized(archive, {countOf(degree_, rowEnd()), countOf(degree_, std::max(rowEnd(), numRows_))});
}

void savePolynomials(OutputArchive& archive, const std::vector<Polynomial>& polys) {
    archive(static_cast<u64>(polys.size()));
    for (const auto& poly : polys) archive(poly);
}

void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, const Ring& ring) {
    loadEach(polys, loadCount(archive), [&](Polynomial& poly) { poly.load(archive, ring); });
}

void saveKeyPolynomials(OutputArchive& archive, const std::vector<Polynomial>& ax,
                        const std::vector<Polynomial>& bx) {
    archive(static_cast<u64>(ax.size()));
    for (const auto& poly : ax) poly.saveByGerm(archive);
    savePolynomials(archive, bx);
}

void loadKeyPolynomials(InputArchive& archive, std::vector<Polynomial>& ax, std::vector<Polynomial>& bx,
                        std::optional<u64> expectedCount, const Polynomial::HeaderCheck& isExpected) {
    const u64 count = loadCount(archive);
    verify(count <= limit::rows && count == expectedCount.value_or(count));
    loadEach(ax, count, [&](Polynomial& poly) { poly.loadByGerm(archive, isExpected); });
    verify(loadCount(archive) == count);
    u64 done = 0;
    loadEach(bx, count, [&](Polynomial& poly) {
        Polynomial& partner = ax[done++];
        poly.load(archive, [&](const Polynomial& header) { return header.isLike(partner); });
        partner.regrow();
    });
}

} // namespace Torvo
