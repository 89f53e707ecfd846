#pragma once

#include "core/Integers.hpp"

#include <algorithm>

namespace Torvo {

/// Transpositions of words at the speed of memory: target(j)[i] = source(i)[j], where source(i) and target(j)
/// give the first word of a row. Sources and targets must not overlap.
///
/// A block of 32 sources at 32 columns is gathered on the stack, and then written as 32 words to each of 32
/// targets. So both sides are read and written in runs of several cache lines, although the rows of
/// polynomials are a power of two apart and compete for the same few lines of the first-level cache.
namespace transposition {

/// Side of a tile. The words of both sides in a tile fit a second-level cache.
inline constexpr u64 tileWords = 256;

/// The indices from `begin` to `end` - 1.
struct Range {
    u64 begin;
    u64 end;
};

/// Calls body(i) for i = begin, begin + step, ... as long as a whole step fits before `end`; the first index
/// left over.
template <u64 step, class Body>
u64 inSteps(u64 begin, u64 end, Body&& body) {
    for (; begin + step <= end; begin += step) body(begin);
    return begin;
}

/// Columns j to j + width - 1 of the sources i to i + height - 1.
template <u64 height, u64 width, class Source, class Target>
void moveBlock(u64 i, u64 j, const Source& source, const Target& target) {
    u64 block[width][height];
    for (u64 a = 0; a < height; ++a) {
        const u64* row = source(i + a) + j;
        for (u64 b = 0; b < width; ++b) block[b][a] = row[b];
    }
    for (u64 b = 0; b < width; ++b) std::copy_n(block[b], height, target(j + b) + i);
}

/// The sources i to i + height - 1 at all of `columns`.
template <u64 height, class Source, class Target>
void moveStrip(u64 i, Range columns, const Source& source, const Target& target) {
    u64 j = columns.begin;
    j = inSteps<32>(j, columns.end, [&](u64 at) { moveBlock<height, 32>(i, at, source, target); });
    j = inSteps<8>(j, columns.end, [&](u64 at) { moveBlock<height, 8>(i, at, source, target); });
    inSteps<1>(j, columns.end, [&](u64 at) { moveBlock<height, 1>(i, at, source, target); });
}

template <class Source, class Target>
void moveTile(Range rows, Range columns, const Source& source, const Target& target) {
    u64 i = rows.begin;
    i = inSteps<32>(i, rows.end, [&](u64 at) { moveStrip<32>(at, columns, source, target); });
    i = inSteps<8>(i, rows.end, [&](u64 at) { moveStrip<8>(at, columns, source, target); });
    i = inSteps<2>(i, rows.end, [&](u64 at) { moveStrip<2>(at, columns, source, target); });
    inSteps<1>(i, rows.end, [&](u64 at) { moveStrip<1>(at, columns, source, target); });
}

/// Number of tiles along `length` indices.
inline u64 numTiles(u64 length) {
    return (length + tileWords - 1) / tileWords;
}

/// The indices of tile `t` along `range`.
inline Range tile(Range range, u64 t) {
    const u64 begin = range.begin + t * tileWords;
    return {begin, std::min(begin + tileWords, range.end)};
}

/// target(j)[i] = source(i)[j] for i in `rows` and j in `columns`, on the calling thread.
template <class Source, class Target>
void move(Range rows, Range columns, const Source& source, const Target& target) {
    for (u64 s = 0; s < numTiles(rows.end - rows.begin); ++s)
        for (u64 t = 0; t < numTiles(columns.end - columns.begin); ++t)
            moveTile(tile(rows, s), tile(columns, t), source, target);
}

} // namespace transposition
} // namespace Torvo
