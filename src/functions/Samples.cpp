#include "functions/Samples.hpp"

#include "functions/AnalysisGuards.hpp"
#include "functions/Messages.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plan.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <utility>

namespace Torvo {

namespace {

/// What has to hold before the slots of the first value can be counted.
template <class Value>
u64 logSlotsOf(const Operations<Value>& operations, const std::string& function,
               std::initializer_list<std::span<const Value>> operands) {
    const std::span<const Value> first = *operands.begin();
    if (first.empty()) throw RuntimeException(message::nothingGiven(function));
    for (const auto& operand : operands) requireAsMany(function, first.size(), operand.size());
    for (const auto& operand : operands)
        for (const Value& x : operand) operations.requireOperand(x);
    return operations.logSlots(first.front());
}

} // namespace

template <class Value>
Samples<Value>::Samples(const Operations<Value>& operations, const std::string& function,
                        const SlotBlocks& blocks, std::initializer_list<Span> operands)
    : operations_(operations), function_(function), bound_(blocks.bound), count_(operands.begin()->size()),
      sums_(operations, function, blocks.length, logSlotsOf(operations, function, operands)) {
    requireBound(function, bound_);
}

template <class Value>
void Samples<Value>::requireAtOnce(u64 levels, std::initializer_list<Span> operands) const {
    for (const Span& operand : operands)
        for (const Value& x : operand) operations_.requireAtOnce(function_, levels, x);
}

template <class Value>
typename Samples<Value>::Values Samples<Value>::prepared(Span x, u64 levels, bool isReal,
                                                         double resultBound) const {
    Values copies(x.begin(), x.end());
    std::vector<Value*> pointers;
    for (Value& copy : copies) pointers.push_back(&copy);
    prepareFor(operations_, function_, levels, {bound_, isReal}, resultBound, std::move(pointers));
    lower(copies, lowestLevel(copies));
    return copies;
}

template <class Value>
u64 Samples<Value>::lowestLevel(Span x) const {
    u64 lowest = operations_.level(x.front());
    for (const Value& each : x) lowest = std::min(lowest, operations_.level(each));
    return lowest;
}

template <class Value>
void Samples<Value>::lower(std::span<Value> x, u64 level) const {
    for (Value& each : x)
        if (operations_.level(each) > level) operations_.levelDown(each, level, each);
}

template <class Value>
Value Samples<Value>::slotwiseSum(Span x) const {
    Value sum = x.front();
    for (const Value& term : x.subspan(1)) operations_.add(sum, term, sum);
    return sum;
}

template <class Value>
Value Samples<Value>::sum(Span x, double factor, bool isReal) const {
    Value sum = slotwiseSum(x);
    if (const u64 levels = sums_.levels(factor); levels > 0)
        operations_.prepare(function_, levels, {bound_ * static_cast<double>(count_), isReal}, {&sum});
    sums_.sum(sum, factor);
    return sum;
}

template <class Value>
Value Samples<Value>::sumOfPrepared(Span x, double factor) const {
    Value sum = slotwiseSum(x);
    sums_.sum(sum, factor);
    return sum;
}

template <class Value>
typename Samples<Value>::Values Samples<Value>::deviations(Span x, double factor) const {
    const Value mean = sumOfPrepared(x, factor / static_cast<double>(size()));
    Values results(x.begin(), x.end());
    for (Value& each : results) {
        if (factor != 1) operations_.mult(each, factor, each);
        operations_.sub(each, mean, each);
    }
    return results;
}

template <class Value>
Value Samples<Value>::sumOfProducts(Values& x, Values& y) const {
    const u64 level = std::min(lowestLevel(x), lowestLevel(y));
    lower(x, level);
    lower(y, level);
    Value sum = operations_.unset(), product = operations_.unset();
    operations_.tensor(x[0], y[0], sum);
    for (u64 k = 1; k < x.size(); ++k) {
        operations_.tensor(x[k], y[k], product);
        operations_.add(sum, product, sum);
    }
    operations_.relinearize(sum);
    operations_.rescale(sum);
    sums_.sum(sum);
    return sum;
}

template <class Value>
typename Samples<Value>::Values Samples<Value>::differences(Span x, Span y) const {
    Values results(x.begin(), x.end());
    for (u64 k = 0; k < x.size(); ++k) operations_.sub(results[k], y[k], results[k]);
    return results;
}

template class Samples<Ciphertext>;
template class Samples<Message>;
template class Samples<PlannedCiphertext>;

} // namespace Torvo
