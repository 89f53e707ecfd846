#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"
#include "functions/SlotSums.hpp"

#include <Torvo/Statistics.hpp>

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace Torvo {

/// The numbers that a statistic is about: those of a block, in each of many values.
template <class Value>
class Samples {
public:
    using Values = std::vector<Value>;
    using Span = std::span<const Value>;

    /// The guards that all statistics share, for one or more operands. Keeps a reference to the operations.
    Samples(const Operations<Value>& operations, const std::string& function, const SlotBlocks& blocks,
            std::initializer_list<Span> operands);

    u64 blockLength() const { return sums_.length(); }
    /// How many numbers there are.
    u64 size() const { return count_ * sums_.length(); }
    /// What a sum over the slots times a factor spends.
    u64 levels(double factor) const { return sums_.levels(factor); }

    /// Refuses operands with fewer levels than all stages of a function spend on them.
    void requireAtOnce(u64 levels, std::initializer_list<Span> operands) const;
    /// Names all keys at once that sums over the slots lack.
    void requireRotations() const { operations_.requireRotations(sums_.rotations()); }

    /// Copies of `x`, on which `levels` can be spent, and brought to one level. `resultBound` is that of what is made
    /// of them.
    Values prepared(Span x, u64 levels, bool isReal, double resultBound) const;
    /// factor times the sum of all numbers. `isReal` says what a bootstrap may take away.
    Value sum(Span x, double factor, bool isReal) const;
    /// Adds up the slots of each block. Where that needs a level, it is there.
    void addUpSlots(Value& in_out) const { sums_.sum(in_out); }
    /// factor times the sum of prepared values.
    Value sumOfPrepared(Span x, double factor) const;
    double bound() const { return bound_; }
    /// factor times what each number is above the mean; of prepared values, one level below them.
    Values deviations(Span x, double factor) const;
    /// The sum of all products of prepared values, which are relinearised and rescaled together. The values may be the
    /// same; those at a higher level are lowered to that of the others.
    Value sumOfProducts(Values& x, Values& y) const;
    /// x - y, of prepared values.
    Values differences(Span x, Span y) const;

private:
    u64 lowestLevel(Span x) const;
    void lower(std::span<Value> x, u64 level) const;
    Value slotwiseSum(Span x) const;

    const Operations<Value>& operations_;
    std::string function_;
    double bound_;
    u64 count_;
    SlotSums<Value> sums_;
};

} // namespace Torvo
