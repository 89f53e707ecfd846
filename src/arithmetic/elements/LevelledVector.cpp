#include "arithmetic/elements/LevelledVector.hpp"

#include "arithmetic/elements/LWEChain.hpp"
#include "arithmetic/elements/LevelRows.hpp"
#include "arithmetic/elements/Relocation.hpp"
#include "arithmetic/elements/WordCount.hpp"

namespace Torvo {

LevelledVector::LevelledVector(u64 dimension, u64 level)
    : dimension_(dimension), level_(level), data_(wordCount(dimension, level)) {}

LevelledVector::LevelledVector(const LWE::Context& context)
    : LevelledVector(LWE::chainOf(context).dimension, LWE::chainOf(context).numPrimes - 1) {}

void LevelledVector::setLevel(u64 level) {
    changeLevel(level_, level, dimension_, data_);
    level_ = level;
}

void LevelledVector::to(const Device& device) {
    data_.to(device);
}

void LevelledVector::allocate(const Device& device) {
    allocateOn(device, data_);
}

} // namespace Torvo
