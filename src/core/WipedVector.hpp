#pragma once

#include "core/Integers.hpp"
#include "core/SecureWipe.hpp"

#include <vector>

namespace Torvo::utils {

/// A fixed number of small secret values, all 0 at first. They are wiped on destruction and cannot be copied.
template <class T>
class WipedVector {
public:
    explicit WipedVector(u64 size) : values_(size) {}
    ~WipedVector() { wipe(values_.data(), values_.size() * sizeof(T)); }
    WipedVector(const WipedVector&) = delete;
    WipedVector& operator=(const WipedVector&) = delete;

    u64 size() const { return values_.size(); }
    T* data() { return values_.data(); }
    const T* data() const { return values_.data(); }
    T& operator[](u64 i) { return values_[i]; }
    const T& operator[](u64 i) const { return values_[i]; }

private:
    std::vector<T> values_;
};

} // namespace Torvo::utils
