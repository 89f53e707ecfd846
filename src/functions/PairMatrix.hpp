#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"

#include <Torvo/Comparisons.hpp>

#include <string>

namespace Torvo {

/// All pairs of n numbers: slot i n + j of n^2 slots belongs to the numbers i and j. Rows end where the next one
/// begins, and the last one where the first begins.
///
/// All rotations are to the left by powers of two. The sum of n slots from a slot on is that of a row only for the
/// first slot of the row; over the slots of a column it is that of the column for each of them.
template <class Value>
class PairMatrix {
public:
    /// Keeps a reference to `operations`.
    PairMatrix(const Operations<Value>& operations, u64 logNumbers)
        : operations_(operations), logNumbers_(logNumbers), numbers_(u64{1} << logNumbers) {}

    u64 logSlots() const { return 2 * logNumbers_; }
    u64 slots() const { return u64{1} << logSlots(); }
    /// Those of all members.
    std::vector<u64> rotations() const;

    /// Each number in its column: x_j in all slots i n + j. Costs nothing.
    Value columns(const Value& numbers) const;
    /// The way back from what is the same in all slots of a column.
    Value numbers(const Value& columns) const;

    /// Each number in its row, x_i in all slots i n + j, from what has it in its column; spends two levels.
    Value rowsOf(const Value& columns) const;
    /// The sum of each row in all slots of the row before it (that of the first one in the last one); spends a level.
    Value sumsInRowsBefore(const Value& in) const;
    /// Brings each row to the place of the row before it.
    Value rowsBefore(const Value& in) const;
    /// The sum of each column in all slots of the column.
    Value sumsOfColumns(const Value& in) const { return sumOfRotations(in, numbers_); }
    /// The sum of all numbers that stand in their columns, in all slots.
    Value sumOfNumbers(const Value& columns) const { return sumOfRotations(columns, 1); }

    /// A number for each slot, f(i, j).
    template <class F>
    Message plain(F f) const {
        Message m(logSlots());
        for (u64 i = 0; i < numbers_; ++i)
            for (u64 j = 0; j < numbers_; ++j) m[i * numbers_ + j] = f(i, j);
        return m;
    }

private:
    /// in + its rotations by stride, 2 stride, ..., (n - 1) stride.
    Value sumOfRotations(const Value& in, u64 stride) const;
    /// What the last slot of each row holds, in all slots of the row; spends a level.
    Value spreadFromEnds(const Value& in) const;

    const Operations<Value>& operations_;
    u64 logNumbers_, numbers_;
};

} // namespace Torvo
