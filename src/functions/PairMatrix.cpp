#include "functions/PairMatrix.hpp"

#include <Torvo/Plan.hpp>

#include <vector>

namespace Torvo {

template <class Value>
std::vector<u64> PairMatrix<Value>::rotations() const {
    std::vector<u64> indices;
    for (u64 index = 1; index < slots(); index *= 2) indices.push_back(index);
    return indices;
}

template <class Value>
Value PairMatrix<Value>::columns(const Value& numbers) const {
    Value out = operations_.unset();
    operations_.readWithLogSlots(numbers, logSlots(), out);
    return out;
}

template <class Value>
Value PairMatrix<Value>::numbers(const Value& columns) const {
    Value out = operations_.unset();
    operations_.readWithLogSlots(columns, logNumbers_, out);
    return out;
}

template <class Value>
Value PairMatrix<Value>::sumOfRotations(const Value& in, u64 stride) const {
    Value sum = in, rotated = operations_.unset();
    for (u64 count = 1; count < numbers_; count *= 2) {
        operations_.leftRotate(sum, count * stride, rotated);
        operations_.add(sum, rotated, sum);
    }
    return sum;
}

template <class Value>
Value PairMatrix<Value>::spreadFromEnds(const Value& in) const {
    Value ends = operations_.unset();
    operations_.multSlots(in, plain([this](u64, u64 j) { return j + 1 == numbers_ ? 1.0 : 0.0; }), ends);
    return sumOfRotations(ends, 1);
}

/// Behind the last slot of row i and within a turn of n slots, number i < n - 1 stands in its column of row i + 1, and
/// number n - 1 in the last slot itself. With all others masked, the sum of the turn is number i.
template <class Value>
Value PairMatrix<Value>::rowsOf(const Value& columns) const {
    const Message picks = plain([this](u64 i, u64 j) {
        const bool isPicked = i == j + 1 || (i + 1 == numbers_ && j + 1 == numbers_);
        return isPicked ? 1.0 : 0.0;
    });
    Value picked = operations_.unset();
    operations_.multSlots(columns, picks, picked);
    return spreadFromEnds(sumOfRotations(picked, 1));
}

template <class Value>
Value PairMatrix<Value>::sumsInRowsBefore(const Value& in) const {
    Value sums = sumOfRotations(in, 1);
    operations_.leftRotate(sums, 1, sums);
    return spreadFromEnds(sums);
}

template <class Value>
Value PairMatrix<Value>::rowsBefore(const Value& in) const {
    Value out = operations_.unset();
    operations_.leftRotate(in, numbers_, out);
    return out;
}

template class PairMatrix<Ciphertext>;
template class PairMatrix<Message>;
template class PairMatrix<PlannedCiphertext>;

} // namespace Torvo
