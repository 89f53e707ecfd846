#pragma once

#include "core/Integers.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <utility>
#include <vector>

namespace Torvo {

/// A coefficient of a polynomial: one number for all slots, or one for each slot.
class Coefficient {
public:
    using Complex = std::complex<double>;

    Coefficient(Complex c = 0) : numbers_{c} {}
    /// One for each slot. If all are equal, one for all slots.
    explicit Coefficient(std::vector<Complex> numbers) : numbers_(std::move(numbers)) {
        if (std::ranges::adjacent_find(numbers_, std::not_equal_to<>()) == numbers_.end()) numbers_.resize(1);
    }

    bool isUniform() const { return numbers_.size() == 1; }
    bool isZero() const {
        return std::ranges::all_of(numbers_, [](const Complex& c) { return c == Complex(0); });
    }
    const std::vector<Complex>& numbers() const { return numbers_; }
    /// That of slot i.
    Complex of(u64 slot) const { return numbers_[isUniform() ? 0 : slot]; }

    Coefficient times(double factor) const {
        Coefficient product = *this;
        for (Complex& c : product.numbers_) c *= factor;
        return product;
    }
    /// Subtracts factor * other.
    void subtract(const Coefficient& other, double factor) {
        if (isUniform() && !other.isUniform()) numbers_.assign(other.numbers_.size(), numbers_.front());
        for (u64 i = 0; i < numbers_.size(); ++i) numbers_[i] -= factor * other.of(i);
    }

private:
    std::vector<Complex> numbers_;
};

} // namespace Torvo
