#pragma once

#include "core/Integers.hpp"

namespace Torvo {

/// Turns uniform words into residues that are exactly uniform modulo `bound`. The lowest 2^64 mod bound words
/// are rejected; the others make a whole number of periods.
class UniformResidue {
public:
    /// 0 < bound
    explicit UniformResidue(u64 bound)
        : bound_(bound), rejected_((0 - bound) % bound), reciprocal_(~u64{0} / bound) {}

    /// `word` modulo the bound, after replacing it by words of `next` as long as it is rejected.
    template <class Next>
    u64 operator()(u64 word, Next&& next) const {
        while (word < rejected_) [[unlikely]] word = next();
        return reduce(word);
    }

private:
    /// r = floor((2^64 - 1) / m) >= 2^64 / m - 1, so x*r / 2^64 > x / m - 1: its floor is the quotient of x
    /// by m or one less, and one conditional subtraction is enough.
    u64 reduce(u64 x) const {
        const u64 quotient = static_cast<u64>((static_cast<u128>(x) * reciprocal_) >> 64);
        const u64 r = x - quotient * bound_;
        return r >= bound_ ? r - bound_ : r;
    }

    u64 bound_, rejected_, reciprocal_;
};

} // namespace Torvo
