#include "arithmetic/elements/LevelledElement.hpp"

#include "arithmetic/elements/LWEChain.hpp"
#include "arithmetic/elements/LevelRows.hpp"
#include "arithmetic/elements/Messages.hpp"
#include "arithmetic/elements/Relocation.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "core/Failure.hpp"

namespace Torvo {

LevelledElement::LevelledElement(u64 numPrimes, bool modUp)
    : numPrimes_(numPrimes), level_(numPrimes - 1), modUp_(modUp), data_(numPrimes) {
    data_.clear();
}

LevelledElement::LevelledElement(const Context& context, bool modUp)
    : LevelledElement(modUp ? ringOf(context).total() : ringOf(context).numBase, modUp) {}

LevelledElement::LevelledElement(long value, const Context& context, bool modUp, unsigned long level)
    : LevelledElement(context, modUp) {
    require(level < numPrimes_, message::operandsOfOtherRing);
    setLevel(level);
    setValue(value, ringOf(context).moduli);
}

LevelledElement::LevelledElement(const LWE::Context& context)
    : LevelledElement(LWE::chainOf(context).numPrimes, false) {}

LevelledElement::LevelledElement(long value, const LWE::Context& context, unsigned long level)
    : LevelledElement(context) {
    level_ = level;
    setValue(value, LWE::chainOf(context).moduli);
}

void LevelledElement::setValue(long value, std::span<const Modulus> moduli) {
    require(data_.size() <= moduli.size(), message::operandsOfOtherRing);
    for (u64 i = 0; i < data_.size(); ++i) data_[i] = moduli[i].residue(value);
}

void LevelledElement::setLevel(u64 level) {
    if (modUp_)
        data_.resize(numPrimes_);
    else
        changeLevel(level_, level, 1, data_);
    level_ = level;
}

void LevelledElement::to(const Device& device) {
    data_.to(device);
}

void LevelledElement::allocate(const Device& device) {
    allocateOn(device, data_);
}

} // namespace Torvo
