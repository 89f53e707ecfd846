#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"

namespace Torvo {

namespace rows {

/// Words of a cache line, which an automorphism keeps together.
inline constexpr u64 lineWords = 8;

/// The order of the words of a line.
struct LineOrder {
    u64 from[lineWords];
};

} // namespace rows

/// The automorphism X -> X^k, k odd, of rows in NTT form, modulo whatever prime: it moves words, and changes none.
/// A group of 2^m words that begins at a multiple of 2^m comes from one such group, for every m: a cache line is
/// filled from a single other one, in one of eight orders.
class Automorphism {
public:
    Automorphism(u64 degree, long k);

    /// `out` is not `in`.
    void apply(const u64* in, u64* out) const { apply(in, 0, degree_, out); }
    /// Writes the words [begin, begin + count) of the image to `out`; both are multiples of a cache line, or all.
    void apply(const u64* in, u64 begin, u64 count, u64* out) const;

private:
    u64 degree_;
    rows::LineOrder orders_[rows::lineWords];
    DeviceSpecificArray<int> lines_; ///< for each line of the image the first word of its source + the order
};

} // namespace Torvo
