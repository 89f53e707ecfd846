#include "arithmetic/LevelledElement.hpp"

#include "arithmetic/PrimeModuli.hpp"
#include "arithmetic/Relocation.hpp"
#include "arithmetic/Ring.hpp"

#include <algorithm>

namespace Torvo {

LevelledElement::LevelledElement(const Context& context, bool modUp) : modUp_(modUp) {
    const Ring ring = ringOf(context);
    numPrimes_ = modUp ? ring.total() : ring.numBase;
    level_ = numPrimes_ - 1;
    data_ = DeviceSpecificArray<u64>(numPrimes_);
    std::fill(data_.begin(), data_.end(), 0);
}

LevelledElement::LevelledElement(long value, const Context& context, bool modUp, unsigned long level)
    : LevelledElement(context, modUp) {
    setLevel(level);
    const PrimeModuli& primes = ringOf(context).primes;
    for (u64 i = 0; i < data_.size(); ++i) data_[i] = primes[i].residue(value);
}

void LevelledElement::setLevel(u64 level) {
    level_ = level;
    data_.resize(modUp_ ? numPrimes_ : level + 1);
}

void LevelledElement::to(const Device& device) {
    data_.to(device);
}

void LevelledElement::allocate(const Device& device) {
    allocateOn(device, data_);
}

} // namespace Torvo
