#include "arithmetic/elements/Polynomial.hpp"

#include "arithmetic/elements/LevelRows.hpp"
#include "arithmetic/elements/Relocation.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/elements/WordCount.hpp"

#include <algorithm>
#include <utility>

namespace Torvo {

Polynomial::Polynomial(const Context& context, bool modUp, bool isNTT)
    : Polynomial(context, modUp, isNTT, ringOf(context).numBase - 1) {}

Polynomial::Polynomial(const Context& context, bool modUp, bool isNTT, u64 level)
    : level_(level), modUp_(modUp), isNTT_(isNTT) {
    const Ring ring = ringOf(context);
    degree_ = ring.degree;
    numBase_ = ring.numBase;
    numRows_ = modUp ? ring.total() : ring.numBase;
    primes_.reserve(numRows_);
    for (u64 i = 0; i < numRows_; ++i) primes_.push_back(ring.moduli[i].getPrime());
    data_ = DeviceSpecificArray<u64>(wordCount(degree_, modUp ? numRows_ - 1 : level));
}

void Polynomial::setLevel(u64 level) {
    if (modUp_)
        clearHolesUpTo(level);
    else if (level + 1 == 0)
        data_.resize(0); // one below level 0, where a rescale at level 0 leads
    else
        changeLevel(level_, level, degree_, data_);
    level_ = level; // only now: an allocation that fails leaves level and data in step
}

void Polynomial::clearHolesUpTo(u64 level) {
    if (!modUp_ || getDevice().type != DeviceType::CPU) return;
    for (u64 i = level_ + 1; i <= level && i < numBase_; ++i) std::fill_n(getRow(i), degree_, 0);
}

void Polynomial::setData(DeviceSpecificArray<u64>&& data) {
    if (&data != &data_) std::swap(data, data_);
}

bool Polynomial::hasPrimesOf(const Ring& ring) const {
    if (degree_ != ring.degree || numRows_ > ring.total()) return false;
    if (modUp_ && numRows_ != ring.total()) return false;
    for (u64 i = 0; i < numRows_; ++i)
        if (primes_[i] != ring.moduli[i].getPrime()) return false;
    return true;
}

bool Polynomial::hasShapeOf(const Ring& ring) const {
    return numBase_ == ring.numBase && hasPrimesOf(ring);
}

bool Polynomial::isLike(const Polynomial& other) const {
    return degree_ == other.degree_ && numBase_ == other.numBase_ && level_ == other.level_ &&
           modUp_ == other.modUp_ && isNTT_ == other.isNTT_ && primes_ == other.primes_;
}

void Polynomial::adopt(const Ring& ring) {
    if (numBase_ == ring.numBase) return;
    numBase_ = ring.numBase;
    germ_.reset();
    if (modUp_) {
        level_ = numBase_ - 1;
        return;
    }
    numRows_ = numBase_;
    primes_.clear();
    for (u64 i = 0; i < numRows_; ++i) primes_.push_back(ring.moduli[i].getPrime());
    data_.resize((level_ + 1) * degree_); // more there may be: rows above the level, of a germ once dropped
}

void Polynomial::to(const Device& device) {
    data_.to(device);
}

void Polynomial::allocate(const Device& device) {
    allocateOn(device, data_);
}

Polynomial Polynomial::sameShape() const {
    Polynomial other;
    other.degree_ = degree_;
    other.numBase_ = numBase_;
    other.numRows_ = numRows_;
    other.level_ = level_;
    other.modUp_ = modUp_;
    other.isNTT_ = isNTT_;
    other.primes_ = primes_;
    other.data_ = DeviceSpecificArray<u64>(data_.size(), data_.getDevice(), data_.getStream());
    return other;
}

} // namespace Torvo
