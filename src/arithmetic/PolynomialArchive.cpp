#include "arithmetic/PolynomialArchive.hpp"

#include "arithmetic/PolyGerm.hpp"
#include "arithmetic/PrimeModuli.hpp"
#include "arithmetic/Ring.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"

#include <cereal/types/array.hpp>

#include <algorithm>
#include <bit>

namespace Torvo {

namespace {

bool isPossiblePrime(u64 p) {
    return p >= 3 && p % 2 == 1 && p < limit::prime;
}

template <class LoadOne>
void loadEach(InputArchive& archive, std::vector<Polynomial>& polys, u64 maxCount, LoadOne&& loadOne) {
    u64 count = 0;
    archive(count);
    verify(count <= maxCount);
    polys.resize(count);
    for (auto& poly : polys) loadOne(poly);
}

} // namespace

template <class Archive, class Self>
void Polynomial::headerFields(Archive& archive, Self& self) {
    archive(self.degree_, self.numBase_, self.numRows_, self.level_, detail::Flag(self.modUp_),
            detail::Flag(self.isNTT_));
}

void Polynomial::save(OutputArchive& archive) const {
    headerFields(archive, *this);
    archive(static_cast<u64>(primes_.size()));
    archive(cereal::binary_data(primes_.data(), primes_.size() * sizeof(u64)));
    const bool withoutGerm = !germ_.has_value();
    archive(detail::Flag(withoutGerm));
    if (withoutGerm)
        archive(data_);
    else
        archive(germ_->getWords());
}

void Polynomial::load(InputArchive& archive) {
    loadHeader(archive);
    verify(std::all_of(primes_.begin(), primes_.end(), isPossiblePrime));
    loadContent(archive);
}

void Polynomial::load(InputArchive& archive, const Ring& ring) {
    loadHeader(archive);
    verify(hasShapeOf(ring));
    loadContent(archive);
}

bool Polynomial::hasShapeOf(const Ring& ring) const {
    if (degree_ != ring.degree || numBase_ != ring.numBase) return false;
    if (numRows_ != (modUp_ ? ring.total() : ring.numBase)) return false;
    for (u64 i = 0; i < numRows_; ++i)
        if (primes_[i] != ring.primes.getPrime(i)) return false;
    return true;
}

// Every number is looked at before memory is taken by it.
void Polynomial::loadHeader(InputArchive& archive) {
    headerFields(archive, *this);
    verify(std::has_single_bit(degree_) && degree_ <= limit::degree);
    verify(numBase_ <= limit::rows && numRows_ <= limit::rows && level_ < numBase_);
    verify(modUp_ ? numBase_ <= numRows_ : numBase_ == numRows_);
    u64 primeCount = 0;
    archive(primeCount);
    verify(primeCount == numRows_);
    primes_.resize(primeCount);
    archive(cereal::binary_data(primes_.data(), primeCount * sizeof(u64)));
}

void Polynomial::loadContent(InputArchive& archive) {
    bool withoutGerm = false;
    archive(detail::Flag(withoutGerm));
    germ_.reset();
    if (withoutGerm) {
        archive(data_);
        // Regrown polynomials stay at full height whatever their level.
        verify(isProduct(data_.size(), degree_, rowEnd()) || isProduct(data_.size(), degree_, numRows_));
    } else {
        std::array<u64, 128> words{};
        archive(words);
        germ_.emplace(words);
        populateUniformPoly(*this, false);
    }
}

void savePolynomials(OutputArchive& archive, const std::vector<Polynomial>& polys) {
    archive(static_cast<u64>(polys.size()));
    for (const auto& poly : polys) archive(poly);
}

void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, u64 maxCount) {
    loadEach(archive, polys, maxCount, [&](Polynomial& poly) { poly.load(archive); });
}

void loadPolynomials(InputArchive& archive, std::vector<Polynomial>& polys, u64 maxCount, const Ring& ring) {
    loadEach(archive, polys, maxCount, [&](Polynomial& poly) { poly.load(archive, ring); });
}

} // namespace Torvo
