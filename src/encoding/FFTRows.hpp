#pragma once

#include "core/Integers.hpp"
#include "encoding/FFTKernels.hpp"

/// The pieces of fft::Kernels, each once, over a lanes type of real numbers. As in ModulusRows.hpp everything is a
/// template, and internal linkage of the lanes type keeps every instantiation within its unit.
namespace Torvo::fft {

/// Blocks of this many elements, 32 KiB with both parts, go through all their stages in the first-level cache.
inline constexpr u64 cachedBlock = 2048;

/// As many complex numbers as there are lanes.
template <class L>
struct Numbers {
    typename L::Reals re, im;
};

template <class L>
[[gnu::always_inline]] inline Numbers<L> load(Split a, u64 i) {
    return {L::load(a.re + i), L::load(a.im + i)};
}

template <class L>
[[gnu::always_inline]] inline Numbers<L> load(Roots a, u64 i) {
    return {L::load(a.re + i), L::load(a.im + i)};
}

template <class L>
[[gnu::always_inline]] inline Numbers<L> splat(Roots a, u64 i) {
    return {L::splat(a.re[i]), L::splat(a.im[i])};
}

template <class L>
[[gnu::always_inline]] inline void store(Split a, u64 i, const Numbers<L>& x) {
    L::store(a.re + i, x.re);
    L::store(a.im + i, x.im);
}

/// x * t, rounded as the plain formula of std::complex is.
template <class L>
[[gnu::always_inline]] inline Numbers<L> product(const Numbers<L>& x, const Numbers<L>& t) {
    return {L::sub(L::mul(x.re, t.re), L::mul(x.im, t.im)), L::add(L::mul(x.re, t.im), L::mul(x.im, t.re))};
}

/// (x, y) = (x + y*t, x - y*t).
template <class L>
[[gnu::always_inline]] inline void forwardButterfly(Numbers<L>& x, Numbers<L>& y, const Numbers<L>& t) {
    const Numbers<L> v = product(y, t);
    y = {L::sub(x.re, v.re), L::sub(x.im, v.im)};
    x = {L::add(x.re, v.re), L::add(x.im, v.im)};
}

/// (x, y) = (x + y, (x - y)*t).
template <class L>
[[gnu::always_inline]] inline void backwardButterfly(Numbers<L>& x, Numbers<L>& y, const Numbers<L>& t) {
    const Numbers<L> difference{L::sub(x.re, y.re), L::sub(x.im, y.im)};
    x = {L::add(x.re, y.re), L::add(x.im, y.im)};
    y = product(difference, t);
}

/// Which way the stages go: up from blocks of two elements, or down to them.
enum class Direction { Forward, Backward };

/// The stages over blocks of 2q and of 4q elements, on element j of each quarter of a block of 4q.
template <Direction direction, class L>
[[gnu::always_inline]] inline void fourButterflies(Numbers<L> (&x)[4], u64 q, u64 j, Roots roots) {
    const auto inner = load<L>(roots, q + j);
    const auto low = load<L>(roots, 2 * q + j), high = load<L>(roots, 3 * q + j);
    if constexpr (direction == Direction::Forward) {
        forwardButterfly(x[0], x[1], inner);
        forwardButterfly(x[2], x[3], inner);
        forwardButterfly(x[0], x[2], low);
        forwardButterfly(x[1], x[3], high);
    } else {
        backwardButterfly(x[0], x[2], low);
        backwardButterfly(x[1], x[3], high);
        backwardButterfly(x[0], x[1], inner);
        backwardButterfly(x[2], x[3], inner);
    }
}

/// The stages over blocks of 2q and of 4q elements, on a[0, size); q is a multiple of the width.
template <Direction direction, class L>
void twoStages(Split a, u64 size, u64 q, Roots roots) {
    for (u64 i = 0; i < size; i += 4 * q) {
        for (u64 j = i; j < i + q; j += L::width) {
            Numbers<L> x[4] = {load<L>(a, j), load<L>(a, j + q), load<L>(a, j + 2 * q),
                               load<L>(a, j + 3 * q)};
            fourButterflies<direction>(x, q, j - i, roots);
            for (u64 k = 0; k < 4; ++k) store(a, j + k * q, x[k]);
        }
    }
}

/// The stage over blocks of 2q elements, on a[0, size).
template <Direction direction, class L>
void oneStage(Split a, u64 size, u64 q, Roots roots) {
    for (u64 i = 0; i < size; i += 2 * q) {
        for (u64 j = i; j < i + q; j += L::width) {
            auto x = load<L>(a, j), y = load<L>(a, j + q);
            const auto t = load<L>(roots, q + j - i);
            if constexpr (direction == Direction::Forward)
                forwardButterfly(x, y, t);
            else
                backwardButterfly(x, y, t);
            store(a, j, x);
            store(a, j + q, y);
        }
    }
}

/// The stages over blocks of more than `from` and up to `size` elements, on a[0, size). Two stages share a pass;
/// where their number is odd, that over the shortest blocks has its own.
template <Direction direction, class L>
void stages(Split a, u64 size, u64 from, Roots roots) {
    const bool isOdd = ((size / from) & 0xaaaaaaaaaaaaaaaa) != 0;
    const u64 first = isOdd ? 2 * from : from;
    if constexpr (direction == Direction::Forward) {
        if (isOdd) oneStage<direction, L>(a, size, from, roots);
        for (u64 q = first; q < size; q *= 4) twoStages<direction, L>(a, size, q, roots);
    } else {
        for (u64 q = size / 4; q >= first; q /= 4) twoStages<direction, L>(a, size, q, roots);
        if (isOdd) oneStage<direction, L>(a, size, from, roots);
    }
}

/// The stages within blocks of the cache before those across them, or after them.
template <class L>
void forwardBlock(Split a, u64 size, Roots roots) {
    const u64 cached = size < cachedBlock ? size : cachedBlock;
    for (u64 i = 0; i < size; i += cached) stages<Direction::Forward, L>(a + i, cached, L::width, roots);
    stages<Direction::Forward, L>(a, size, cached, roots);
}

template <class L>
void backwardBlock(Split a, u64 size, Roots roots) {
    const u64 cached = size < cachedBlock ? size : cachedBlock;
    stages<Direction::Backward, L>(a, size, cached, roots);
    for (u64 i = 0; i < size; i += cached) stages<Direction::Backward, L>(a + i, cached, L::width, roots);
}

template <class L>
void forwardQuarters(Split a, double* slots, u64 n, u64 begin, u64 end, Roots roots) {
    const u64 q = n / 4;
    for (u64 j = begin; j < end; j += L::width) {
        Numbers<L> x[4] = {load<L>(a, j), load<L>(a, j + q), load<L>(a, j + 2 * q), load<L>(a, j + 3 * q)};
        fourButterflies<Direction::Forward>(x, q, j, roots);
        for (u64 k = 0; k < 4; ++k) L::storePairs(slots + 2 * (j + k * q), x[k].re, x[k].im);
    }
}

template <class L>
void backwardQuarters(const double* slots, Split a, u64 n, u64 begin, u64 end, Roots roots) {
    const u64 q = n / 4;
    for (u64 j = begin; j < end; j += L::width) {
        Numbers<L> x[4];
        for (u64 k = 0; k < 4; ++k) L::loadPairs(slots + 2 * (j + k * q), x[k].re, x[k].im);
        fourButterflies<Direction::Backward>(x, q, j, roots);
        for (u64 k = 0; k < 4; ++k) store(a, j + k * q, x[k]);
    }
}

/// `width` vectors: elements of `width` columns in the slots, or of as many blocks of `width` elements in `a`.
template <class L>
struct Square {
    typename L::Reals re[L::width], im[L::width];

    Numbers<L> get(u64 i) const { return {re[i], im[i]}; }
    [[gnu::always_inline]] void set(u64 i, const Numbers<L>& x) {
        re[i] = x.re;
        im[i] = x.im;
    }
    [[gnu::always_inline]] void transpose() {
        L::transpose(re);
        L::transpose(im);
    }
    /// The stage over blocks of 2 * half vectors; all lanes of a vector have one root.
    template <Direction direction>
    [[gnu::always_inline]] void stage(u64 half, Roots roots) {
#pragma GCC unroll 8
        for (u64 k = 0; k < L::width / 2; ++k) {
            const u64 j = k & (half - 1), i = 2 * k - j;
            Numbers<L> x{re[i], im[i]}, y{re[i + half], im[i + half]};
            if constexpr (direction == Direction::Forward)
                forwardButterfly(x, y, splat<L>(roots, half + j));
            else
                backwardButterfly(x, y, splat<L>(roots, half + j));
            set(i, x);
            set(i + half, y);
        }
    }
};

/// i < width with the order of its bits reversed.
template <class L>
[[gnu::always_inline]] constexpr u64 reversedLane(u64 i) {
    u64 reversed = 0;
    for (u64 bit = 1; bit < L::width; bit *= 2, i /= 2) reversed = 2 * reversed + (i & 1);
    return reversed;
}

/// Counts up from a multiple of the width in steps of it, and holds the count with its bits reversed, among those
/// below n / width.
template <class L>
class ReversedColumn {
public:
    [[gnu::always_inline]] ReversedColumn(u64 n, u64 begin) : half_(n / L::width / 2) {
        for (u64 bit = half_, rest = begin; rest != 0; bit /= 2, rest /= 2) reversed_ += (rest & 1) * bit;
    }
    /// The reversed bits of the count + lane.
    [[gnu::always_inline]] u64 operator[](u64 lane) const {
        return reversed_ + reversedLane<L>(lane) * (2 * half_ / L::width);
    }
    [[gnu::always_inline]] void step() {
        u64 bit = half_ / L::width;
        for (; (reversed_ & bit) != 0; bit /= 2) reversed_ ^= bit;
        reversed_ ^= bit;
    }

private:
    u64 half_;
    u64 reversed_ = 0;
};

// With i = c + reversed(m) * columns, element i of the slots becomes element m of block reversed(c) of `a`.

template <class L>
void forwardColumns(const double* slots, Split a, u64 n, u64 begin, u64 end, Roots roots) {
    const u64 columns = n / L::width;
    ReversedColumn<L> block(n, begin);
    for (u64 c = begin; c < end; c += L::width, block.step()) {
        Square<L> s;
#pragma GCC unroll 8
        for (u64 m = 0; m < L::width; ++m)
            L::loadPairs(slots + 2 * (reversedLane<L>(m) * columns + c), s.re[m], s.im[m]);
#pragma GCC unroll 3
        for (u64 half = 1; half < L::width; half *= 2) s.template stage<Direction::Forward>(half, roots);
        s.transpose();
#pragma GCC unroll 8
        for (u64 lane = 0; lane < L::width; ++lane) store(a, L::width * block[lane], s.get(lane));
    }
}

/// The quotient by n, a power of two, is the product with its inverse.
template <class L>
void backwardColumns(Split a, double* slots, u64 n, u64 begin, u64 end, Roots roots) {
    const u64 columns = n / L::width;
    const auto inverse = L::splat(1.0 / static_cast<double>(n));
    ReversedColumn<L> block(n, begin);
    for (u64 c = begin; c < end; c += L::width, block.step()) {
        Square<L> s;
#pragma GCC unroll 8
        for (u64 lane = 0; lane < L::width; ++lane) s.set(lane, load<L>(a, L::width * block[lane]));
        s.transpose();
#pragma GCC unroll 3
        for (u64 half = L::width / 2; half >= 1; half /= 2)
            s.template stage<Direction::Backward>(half, roots);
#pragma GCC unroll 8
        for (u64 m = 0; m < L::width; ++m)
            L::storePairs(slots + 2 * (reversedLane<L>(m) * columns + c), L::mul(s.re[m], inverse),
                          L::mul(s.im[m], inverse));
    }
}

template <class L>
[[gnu::always_inline]] constexpr Kernels makeKernels() {
    return {.width = L::width,
            .forwardColumns = forwardColumns<L>,
            .forwardBlock = forwardBlock<L>,
            .forwardQuarters = forwardQuarters<L>,
            .backwardQuarters = backwardQuarters<L>,
            .backwardBlock = backwardBlock<L>,
            .backwardColumns = backwardColumns<L>};
}

} // namespace Torvo::fft
