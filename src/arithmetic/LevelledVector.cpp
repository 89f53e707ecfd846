#include "arithmetic/LevelledVector.hpp"

#include "arithmetic/LWEChain.hpp"
#include "arithmetic/Relocation.hpp"

namespace Torvo {

LevelledVector::LevelledVector(u64 dimension, u64 level)
    : dimension_(dimension), level_(level), data_((level + 1) * dimension) {}

LevelledVector::LevelledVector(const LWE::Context& context)
    : LevelledVector(LWE::chainOf(context).dimension, LWE::chainOf(context).numPrimes - 1) {}

void LevelledVector::setLevel(u64 level) {
    level_ = level;
    data_.resize((level + 1) * dimension_);
}

void LevelledVector::to(const Device& device) {
    data_.to(device);
}

void LevelledVector::allocate(const Device& device) {
    allocateOn(device, data_);
}

} // namespace Torvo
