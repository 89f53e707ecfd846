#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"

#include <algorithm>

namespace Torvo {

void LevelledElement::save(OutputArchive& archive) const {
    archive(numPrimes_, level_, detail::Flag(modUp_), data_);
}

void LevelledElement::load(InputArchive& archive) {
    archive(numPrimes_, level_, detail::Flag(modUp_));
    verify(0 < numPrimes_ && numPrimes_ <= limit::rows && level_ + 1 != 0);
    verify(!modUp_ || level_ < numPrimes_);
    const u64 words = modUp_ ? numPrimes_ : level_ + 1;
    data_.loadSized(archive, {words, std::max(words, numPrimes_)});
}

void LevelledVector::save(OutputArchive& archive) const {
    archive(dimension_, level_, data_);
}

void LevelledVector::load(InputArchive& archive) {
    archive(dimension_, level_);
    loadWords(archive);
}

void LevelledVector::loadSized(InputArchive& archive, u64 dimension) {
    archive(dimension_, level_);
    verify(dimension_ == dimension);
    loadWords(archive);
}

void LevelledVector::loadWords(InputArchive& archive) {
    verify(level_ + 1 != 0); // neither number has a bound, and no memory is taken by them
    data_.loadSized(archive, {countOf(dimension_, level_ + 1)});
}

} // namespace Torvo
