#include <Torvo/Sorting.hpp>

#include "functions/Messages.hpp"
#include "functions/PairMatrix.hpp"
#include "functions/SignEvaluation.hpp"
#include "functions/SignTables.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace Torvo {

namespace {

constexpr u64 mostLogNumbers = 7;
/// An offset of half the margin, which decides between equal numbers, takes a bit of it.
constexpr u64 mostMargin = mostSignExponent - 1;

unsigned atLeastTabled(u64 bits) {
    return static_cast<unsigned>(std::max(bits, leastSignExponent));
}

/// The guards of all functions, and their common beginning.
template <class Value>
class SortedPairs {
public:
    SortedPairs(Evaluating<Value> on, const char* what, const Value& in)
        : operations_(on.operations()), logNumbers_(checkedLogNumbers(on.operations(), what, in)),
          what_(std::string(what) + " of " + std::to_string(numbers()) + " numbers"),
          matrix_(operations_, logNumbers_) {
        const u64 most = operations_.mostLogSlots();
        if (matrix_.logSlots() > most)
            throw RuntimeException(message::pairsOutside(what, numbers(), matrix_.slots(), u64{1} << most));
    }

    /// @param mostError  of the accuracy
    void require(double bound, const Accuracy& accuracy, u64 mostError) const {
        requireBoundOfNumbers(what_, bound);
        requireAccuracy(what_, accuracy, mostMargin, mostError);
        operations_.requireRotations(matrix_.rotations());
    }

    const Operations<Value>& operations() const { return operations_; }
    const PairMatrix<Value>& matrix() const { return matrix_; }
    const std::string& what() const { return what_; }
    u64 logNumbers() const { return logNumbers_; }
    u64 numbers() const { return u64{1} << logNumbers_; }

    /// The sign by which a number is compared with a rank: ranks that err by less than 1/4 lie at 2^-(m + 2) n or more
    /// from the halves between them.
    SignEvaluation<Value> signOfRanks(const Value& x, u64 errorBits) const {
        return {operations_, what_, x, {atLeastTabled(logNumbers_ + 2), atLeastTabled(errorBits)}, 1};
    }
    /// What the comparison of the numbers has to err by at most, so that n - 1 halves of it are below 1/4.
    u64 errorBitsOfRanks() const { return logNumbers_ + 1; }
    /// The same where the ranks of two close numbers, which lie between two whole ones, have to add up. A sign of ranks
    /// has a slope of some 4 there, so halves of n errors of each let the weights of a place differ from 1 by 4 n of
    /// them.
    u64 errorBitsOfCloseRanks(u64 errorBits) const {
        return std::min(errorBits + logNumbers_ + 2, mostSignExponent);
    }

private:
    static u64 checkedLogNumbers(const Operations<Value>& operations, const char* what, const Value& in) {
        operations.requireOperand(in);
        const u64 logNumbers = operations.logSlots(in);
        if (logNumbers < 1 || logNumbers > mostLogNumbers)
            throw RuntimeException(message::countOfNumbers(what, u64{1} << logNumbers));
        return logNumbers;
    }

    const Operations<Value>& operations_;
    u64 logNumbers_;
    std::string what_;
    PairMatrix<Value> matrix_;
};

/// The comparison of all pairs. Slot (i, j) holds x_i - x_j, or that of the opposite order, and an offset that is
/// positive for j <= i and negative for j > i: the smallest that is told from 0, so that of equal numbers the earlier
/// one comes first, and each number counts itself.
template <class Value>
class PairComparison {
public:
    PairComparison(const SortedPairs<Value>& pairs, const Value& in, double bound, unsigned margin,
                   u64 errorBits)
        : pairs_(pairs), columns_(pairs.matrix().columns(in)), rows_(pairs.operations().unset()),
          bound_(bound), offset_(std::ldexp(1.0, -static_cast<int>(margin) - 1)),
          sign_(pairs.operations(), pairs.what(), columns_, {margin + 1, atLeastTabled(errorBits)},
                widest()) {}

    /// To spread the numbers, and of all stages.
    u64 levels() const { return 2 + sign_.levels(); }
    void requireLevels(u64 more) const {
        pairs_.operations().requireAtOnce(pairs_.what(), levels() + more, columns_);
    }

    /// factor * sign of each pair.
    Value signs(Order order, double factor) {
        const Operations<Value>& operations = pairs_.operations();
        // One more than it spends: differences may be too large for a bootstrap where the numbers are not.
        operations.prepare(pairs_.what(), 3, {bound_, true}, {&columns_});
        rows_ = pairs_.matrix().rowsOf(columns_);
        Value difference = operations.unset();
        const bool isAscending = order == Order::Ascending;
        operations.sub(isAscending ? rows_ : columns_, isAscending ? columns_ : rows_, difference);
        const double offset = offset_ * widest();
        operations.addSlots(difference,
                            pairs_.matrix().plain([&](u64 i, u64 j) { return j <= i ? offset : -offset; }),
                            difference);
        sign_.prepare({&difference, keepsRows_ ? &rows_ : &columns_});
        return sign_.evaluate(difference, factor);
    }

    /// The numbers, which are kept with levels to spend: those of `rows` if asked for before `signs`, or of `columns`.
    void keepRows() { keepsRows_ = true; }
    Value& rows() { return rows_; }
    Value& columns() { return columns_; }

private:
    /// The largest difference with its offset, which is a part of it.
    double widest() const { return 2 * bound_ / (1 - offset_); }

    const SortedPairs<Value>& pairs_;
    Value columns_, rows_;
    double bound_, offset_;
    SignEvaluation<Value> sign_;
    bool keepsRows_ = false;
};

/// The numbers in order; of those, the first `count`, and 0 behind them.
template <class Value>
void sortPairs(const SortedPairs<Value>& pairs, const Value& in, double bound, const Accuracy& accuracy,
               Order order, u64 count, Value& out) {
    const Operations<Value>& operations = pairs.operations();
    const PairMatrix<Value>& matrix = pairs.matrix();
    PairComparison<Value> comparison(pairs, in, bound, accuracy.margin,
                                     pairs.errorBitsOfCloseRanks(accuracy.error));
    const SignEvaluation<Value> signOfRanks =
        pairs.signOfRanks(comparison.columns(), accuracy.error + pairs.logNumbers());
    comparison.requireLevels(1 + signOfRanks.levels() + 1);
    comparison.keepRows();
    const auto n = static_cast<double>(pairs.numbers());

    // The rank of the number of each row over n is the sum of the row, + 1/2 - 1/n: it counts itself.
    Value ranks = comparison.signs(order, 1 / (2 * n));
    operations.prepare(pairs.what(), 1, {1, true}, {&ranks});
    ranks = matrix.sumsInRowsBefore(ranks);
    Value rows = matrix.rowsBefore(comparison.rows());
    operations.addSlots(
        ranks, matrix.plain([&](u64, u64 j) { return 0.5 - (static_cast<double>(j) + 0.5) / n; }), ranks);

    // Half a sign of rank - j + 1/2 in column j, less that of column j + 1, is 1 for the rank j alone. Behind the last
    // column comes the first of the next row, whose sign is known to be 1, but should be -1.
    signOfRanks.prepare({&ranks});
    Value isPlace = signOfRanks.evaluate(ranks, 0.5), next = operations.unset();
    operations.leftRotate(isPlace, 1, next);
    operations.sub(isPlace, next, isPlace);
    operations.addSlots(
        isPlace, matrix.plain([&](u64, u64 j) { return j + 1 == pairs.numbers() ? 1.0 : 0.0; }), isPlace);

    if (count < pairs.numbers()) {
        operations.prepare(pairs.what(), 2, {bound, true}, {&rows});
        operations.multSlots(rows, matrix.plain([&](u64, u64 j) { return j < count ? 1.0 : 0.0; }), rows);
    }
    operations.prepare(pairs.what(), 1, {1, true}, {&isPlace});
    operations.mult(isPlace, rows, isPlace);
    out = matrix.numbers(matrix.sumsOfColumns(isPlace));
}

/// 1 in the column of the largest number.
template <class Value>
Value isLargest(const SortedPairs<Value>& pairs, PairComparison<Value>& comparison,
                const SignEvaluation<Value>& signOfRanks) {
    const Operations<Value>& operations = pairs.operations();
    const auto n = static_cast<double>(pairs.numbers());
    // The rank of the number of each column over n is 1/2 less the sum of the column.
    Value ranks = pairs.matrix().sumsOfColumns(comparison.signs(Order::Descending, 1 / (2 * n)));
    operations.add(ranks, 0.5 / n - 0.5, ranks);
    signOfRanks.prepare({&ranks});
    Value out = signOfRanks.evaluate(ranks, 0.5);
    operations.add(out, 0.5, out);
    return out;
}

} // namespace

template <class Value>
void rank(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy,
          Order order) {
    const SortedPairs<Value> pairs(on, "rank", in);
    const u64 lost = pairs.logNumbers() - 1; // n - 1 halves of the error of a sign
    pairs.require(bound, accuracy, mostSignExponent - lost);
    PairComparison<Value> comparison(pairs, in, bound, accuracy.margin, accuracy.error + lost);
    comparison.requireLevels(0);
    Value ranks = pairs.matrix().sumsOfColumns(comparison.signs(order, -0.5));
    pairs.operations().add(ranks, static_cast<double>(pairs.numbers()) / 2, ranks);
    out = pairs.matrix().numbers(ranks);
}

template <class Value>
void sort(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy,
          Order order) {
    const SortedPairs<Value> pairs(on, "sort", in);
    pairs.require(bound, accuracy, mostSignExponent - pairs.logNumbers());
    sortPairs(pairs, in, bound, accuracy, order, pairs.numbers(), out);
}

template <class Value>
void topK(Evaluating<Value> on, const Value& in, unsigned long count, double bound, Value& out,
          const Accuracy& accuracy) {
    const SortedPairs<Value> pairs(on, "topK", in);
    if (count < 1 || count > pairs.numbers())
        throw RuntimeException(message::topOutside(count, pairs.numbers()));
    pairs.require(bound, accuracy, mostSignExponent - pairs.logNumbers());
    sortPairs(pairs, in, bound, accuracy, Order::Descending, count, out);
}

template <class Value>
void argmax(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    const SortedPairs<Value> pairs(on, "argmax", in);
    pairs.require(bound, accuracy, mostSignExponent);
    PairComparison<Value> comparison(pairs, in, bound, accuracy.margin, pairs.errorBitsOfRanks());
    const SignEvaluation<Value> signOfRanks = pairs.signOfRanks(comparison.columns(), accuracy.error);
    comparison.requireLevels(signOfRanks.levels());
    out = pairs.matrix().numbers(isLargest(pairs, comparison, signOfRanks));
}

template <class Value>
void max(Evaluating<Value> on, const Value& in, double bound, Value& out, const Accuracy& accuracy) {
    const SortedPairs<Value> pairs(on, "max", in);
    pairs.require(bound, accuracy, mostSignExponent - pairs.logNumbers());
    PairComparison<Value> comparison(pairs, in, bound, accuracy.margin,
                                     pairs.errorBitsOfCloseRanks(accuracy.error));
    const SignEvaluation<Value> signOfRanks =
        pairs.signOfRanks(comparison.columns(), accuracy.error + pairs.logNumbers());
    comparison.requireLevels(signOfRanks.levels() + 1);
    Value largest = isLargest(pairs, comparison, signOfRanks);
    pairs.operations().prepare(pairs.what(), 1, {1, true}, {&largest});
    pairs.operations().mult(largest, comparison.columns(), largest);
    out = pairs.matrix().numbers(pairs.matrix().sumOfNumbers(largest));
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void rank(Evaluating<Value>, const Value&, double, Value&, const Accuracy&, Order);   \
    template TORVO_API void sort(Evaluating<Value>, const Value&, double, Value&, const Accuracy&, Order);   \
    template TORVO_API void topK(Evaluating<Value>, const Value&, unsigned long, double, Value&,             \
                                 const Accuracy&);                                                           \
    template TORVO_API void argmax(Evaluating<Value>, const Value&, double, Value&, const Accuracy&);        \
    template TORVO_API void max(Evaluating<Value>, const Value&, double, Value&, const Accuracy&)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
