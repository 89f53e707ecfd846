#pragma once

#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"
#include "persistence/Limits.hpp"

#include <Torvo/Message.hpp>

#include <bit>
#include <complex>
#include <map>
#include <vector>

namespace Torvo {

/// The part of a diagonal that one rotation serves: its rows from `begin` to `end` - 1.
struct TransformMask {
    u64 rotation; ///< to the left, below the slots in use
    u64 diagonal;
    u64 begin, end;
};

/// The record behind a linear transform: the entries of its matrix that are not zero, by diagonals.
class LinearTransformImpl {
public:
    struct Entry {
        u64 row;
        std::complex<double> value;
    };
    /// By index, rows ascending.
    using Diagonals = std::map<u64, std::vector<Entry>>;

    static constexpr u64 mostSlots = limit::degree / 2;
    static bool isSize(u64 size) { return std::has_single_bit(size) && size <= mostSlots; }

    LinearTransformImpl(u64 size, Diagonals diagonals);
    /// out[i] = factor * in[sources[i]].
    static LinearTransformImpl permutation(const std::vector<u64>& sources, double factor);

    u64 getSize() const { return size_; }
    const Diagonals& getDiagonals() const { return diagonals_; }

    /// What is not zero, by ascending rotation. Where blocks are smaller than the slots in use, the rows of a diagonal
    /// that reach across the end of their block need a rotation of their own.
    std::vector<TransformMask> masks(u64 slots) const;
    /// The numbers of a mask, one period of them, moved to the right by `shift`, cyclically.
    Message numbers(const TransformMask& mask, u64 shift) const;

    void apply(const Message& in, Message& out) const;
    /// The largest sum of the parts of a row: what a part of the result is at most, for parts of at most 1.
    double largestRow() const;

    /// Tag, size, diagonals (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Where the load fails, nothing has changed.
    void load(InputArchive& archive);

private:
    u64 size_;
    Diagonals diagonals_; ///< never empty: that of index 0 is there, without entries, where all are zero
};

} // namespace Torvo
