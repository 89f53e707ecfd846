#include "arithmetic/elements/PolyGerm.hpp"

#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/RandomWords.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "arithmetic/kernels/UniformResidue.hpp"
#include "core/Blake3.hpp"

#include <utility>

namespace Torvo {

namespace {

/// Words of a germ's expansion from one position on, hashed a few at a time, because few are needed: of a
/// row's words the share (2^64 mod p) / 2^64 is replaced, for most primes none at all.
class SpareWords {
public:
    SpareWords(const utils::BLAKE3Output& expansion, u64 firstWord)
        : expansion_(expansion), nextWord_(firstWord) {}

    u64 operator()() {
        if (unread_ == 0) refill();
        return block_[block_.size() - unread_--];
    }

private:
    void refill() {
        expansion_.read(nextWord_ * sizeof(u64), block_.data(), sizeof block_);
        nextWord_ += block_.size();
        unread_ = block_.size();
    }

    const utils::BLAKE3Output& expansion_;
    u64 nextWord_;
    u64 unread_ = 0;
    std::array<u64, 8> block_;
};

// The expansion is one stream of words. The first half has `degree` words for every row. The second half has
// as many again: row i takes the replacements of its rejected words from its own section, which begins at
// word (numRows + i) * degree. Each row is hashed at its own position in the stream, so that rows run in
// parallel; of the second half only the needed words are hashed. A row that used up its section would
// continue into the next one.
void growRows(Polynomial& poly, u64 rowCount) {
    const auto& seed = poly.getGerm().value().getWords();
    const utils::BLAKE3Output expansion(seed.data(), sizeof seed);
    const u64 degree = poly.getDegree(), numRows = poly.getNumRows();
    DeviceSpecificArray<u64> rows(degree * rowCount);
    forEachIndex(rowCount, [&](u64 i) {
        u64* row = rows.getData() + i * degree;
        expansion.read(i * degree * sizeof(u64), row, degree * sizeof(u64));
        const UniformResidue residue(poly.getPrimes()[i]);
        SpareWords spare(expansion, (numRows + i) * degree);
        for (u64 k = 0; k < degree; ++k) row[k] = residue(row[k], spare);
    });
    poly.setData(std::move(rows));
}

} // namespace

PolyGerm::PolyGerm() {
    drawRandomWords(words_.data(), words_.size());
}

void populateUniformPoly(Polynomial& poly, bool fresh) {
    if (fresh) poly.setGerm(PolyGerm());
    growRows(poly, poly.getNumRows());
}

void populateLiveRows(Polynomial& poly) {
    growRows(poly, poly.rowEnd());
}

} // namespace Torvo
