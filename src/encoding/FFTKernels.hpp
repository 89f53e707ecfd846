#pragma once

#include "core/Integers.hpp"

/// The transform of FFT on vectors, in pieces that the threads of a team share. Every element goes through the
/// operations of the scalar form in their order, each rounded by itself, so that the results have the same bits.
/// Infinities and NaN are not supported: the product of std::complex treats them apart.
namespace Torvo::fft {

/// Complex numbers, their parts in two arrays.
struct Split {
    double* re;
    double* im;

    [[gnu::always_inline]] Split operator+(u64 i) const { return {re + i, im + i}; }
};

/// The roots of one direction: that of butterfly j of a stage over blocks of 2 * half elements is at half + j.
struct Roots {
    const double* re;
    const double* im;
};

/// The least number of slots that every form of the kernels can transform.
inline constexpr u64 minVectorSlots = 64;

/// The pieces in one form, for n slots, a power of two and at least `minVectorSlots`. `slots` are n complex
/// numbers as std::complex lays them out; `a` has room for n. Ranges begin and end at multiples of eight.
struct Kernels {
    u64 width;
    /// The slots as `width` rows: bit reversal, and the stages over blocks of up to `width` elements, for the
    /// columns from `begin` on below `end` of n / width.
    void (*forwardColumns)(const double* slots, Split a, u64 n, u64 begin, u64 end, Roots roots);
    /// The stages over longer blocks of up to `size` elements, on a[0, size).
    void (*forwardBlock)(Split a, u64 size, Roots roots);
    /// The stages over blocks of n / 2 and of n elements: the elements from `begin` on below `end` of each quarter.
    void (*forwardQuarters)(Split a, double* slots, u64 n, u64 begin, u64 end, Roots roots);
    /// The same pieces backward; the columns are divided by n.
    void (*backwardQuarters)(const double* slots, Split a, u64 n, u64 begin, u64 end, Roots roots);
    void (*backwardBlock)(Split a, u64 size, Roots roots);
    void (*backwardColumns)(Split a, double* slots, u64 n, u64 begin, u64 end, Roots roots);
};

} // namespace Torvo::fft

/// Vectors of four numbers, for processors with AVX2.
namespace Torvo::AVX2 {
extern const fft::Kernels fftKernels;
}

/// Vectors of eight numbers, for processors with AVX-512 F, DQ and VL.
namespace Torvo::AVX512 {
extern const fft::Kernels fftKernels;
}
