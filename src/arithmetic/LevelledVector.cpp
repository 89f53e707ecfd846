#include "arithmetic/LevelledVector.hpp"

#include "arithmetic/LWEChain.hpp"
#include "arithmetic/Relocation.hpp"

#include <limits>
#include <new>

namespace Torvo {

namespace {

/// The words of `level + 1` rows. A dimension may be any number, so what no memory holds must not wrap around
/// to a few words.
u64 wordCount(u64 dimension, u64 level) {
    const u128 count = (static_cast<u128>(level) + 1) * dimension;
    if (count > std::numeric_limits<u64>::max()) throw std::bad_array_new_length();
    return static_cast<u64>(count);
}

} // namespace

LevelledVector::LevelledVector(u64 dimension, u64 level)
    : dimension_(dimension), level_(level), data_(wordCount(dimension, level)) {}

LevelledVector::LevelledVector(const LWE::Context& context)
    : LevelledVector(LWE::chainOf(context).dimension, LWE::chainOf(context).numPrimes - 1) {}

void LevelledVector::setLevel(u64 level) {
    data_.resize(wordCount(dimension_, level));
    level_ = level;
}

void LevelledVector::to(const Device& device) {
    data_.to(device);
}

void LevelledVector::allocate(const Device& device) {
    allocateOn(device, data_);
}

} // namespace Torvo
