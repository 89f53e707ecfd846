#pragma once

#include "core/Integers.hpp"

#include <algorithm>

namespace Torvo {

/// Transpositions of words at the speed of memory: target(j)[i] = source(i)[j], where source(i) and target(j)
/// give the first word of a row. Sources and targets must not overlap.
///
/// Both sides are touched in whole cache lines of eight words: eight sources are read at eight columns into a
/// block on the stack and leave it as eight words for each of eight targets. Without the block rows that lie
/// a power of two apart, as polynomials do, would put each other out of the cache before a line is used up.
namespace transposition {

inline constexpr u64 lineWords = 8;
/// Side of a tile: what a tile touches of both sides stays in a second-level cache.
inline constexpr u64 tileWords = 256;

/// The indices from `begin` to `end` - 1.
struct Range {
    u64 begin;
    u64 end;
};

/// Columns j to j + width - 1 of the sources i to i + height - 1.
template <u64 height, u64 width, class Source, class Target>
inline void moveBlock(u64 i, u64 j, const Source& source, const Target& target) {
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
    for (; j + lineWords <= columns.end; j += lineWords) moveBlock<height, lineWords>(i, j, source, target);
    for (; j < columns.end; ++j) moveBlock<height, 1>(i, j, source, target);
}

template <class Source, class Target>
void moveTile(Range rows, Range columns, const Source& source, const Target& target) {
    u64 i = rows.begin;
    for (; i + lineWords <= rows.end; i += lineWords) moveStrip<lineWords>(i, columns, source, target);
    for (; i + 2 <= rows.end; i += 2) moveStrip<2>(i, columns, source, target);
    if (i < rows.end) moveStrip<1>(i, columns, source, target);
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
