#include "arithmetic/LevelledElement.hpp"
#include "arithmetic/LevelledVector.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Limits.hpp"

namespace Torvo {

void LevelledElement::save(OutputArchive& archive) const {
    archive(numPrimes_, level_, detail::Flag(modUp_), data_);
}

void LevelledElement::load(InputArchive& archive) {
    archive(numPrimes_, level_, detail::Flag(modUp_));
    verify(numPrimes_ <= limit::rows && level_ < numPrimes_);
    archive(data_);
    verify(data_.size() == numPrimes_ || (!modUp_ && data_.size() == level_ + 1));
}

void LevelledVector::save(OutputArchive& archive) const {
    archive(dimension_, level_, data_);
}

void LevelledVector::load(InputArchive& archive) {
    archive(dimension_, level_);
    verify(level_ < limit::rows); // a dimension has no bound, and no memory is taken by it
    archive(data_);
    verify(isProduct(data_.size(), dimension_, level_ + 1));
}

} // namespace Torvo
