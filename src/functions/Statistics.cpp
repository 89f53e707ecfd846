#include <Torvo/Statistics.hpp>

#include "core/Failure.hpp"
#include "evaluator/Messages.hpp"
#include "functions/AnalysisGuards.hpp"
#include "functions/ChebyshevSeriesImpl.hpp"
#include "functions/Inverses.hpp"
#include "functions/MessageOperations.hpp"
#include "functions/Messages.hpp"
#include "functions/Samples.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <span>
#include <string>
#include <utility>

namespace Torvo {

namespace {

template <class Value>
std::span<const Value> only(const Value& x) {
    return {&x, 1};
}

template <class Value>
using Span = std::span<const Value>;

// ---- sums

template <class Value>
Value sumOf(Evaluating<Value> on, Span<Value> x, const SlotBlocks& blocks) {
    return Samples<Value>(on.operations(), "sum", blocks, {x}).sum(x, 1, false);
}

template <class Value>
Value meanOf(Evaluating<Value> on, Span<Value> x, const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "mean", blocks, {x});
    return samples.sum(x, 1 / static_cast<double>(samples.size()), false);
}

/// The weights over their sum in the block.
std::vector<Message> normalized(std::span<const Message> weights, u64 length) {
    std::vector<Message> results(weights.begin(), weights.end());
    for (u64 first = 0; first < results.front().getSize(); first += length) {
        std::complex<double> sum = 0;
        for (const Message& each : results)
            for (u64 i = first; i < first + length; ++i) sum += each[i];
        if (!std::isfinite(std::abs(sum)) || sum == 0.0)
            throw RuntimeException(message::weightsGiven("weightedMean", first / length, decimalOf(sum)));
        for (Message& each : results)
            for (u64 i = first; i < first + length; ++i) each[i] /= sum;
    }
    return results;
}

template <class Value>
Value weightedMeanOf(Evaluating<Value> on, Span<Value> x, std::span<const Message> weights,
                     const SlotBlocks& blocks) {
    const std::string name = "weightedMean";
    const Operations<Value>& operations = on.operations();
    if (!x.empty()) requireAsMany(name, x.size(), weights.size());
    const Samples<Value> samples(operations, name, blocks, {x});
    for (const Message& each : weights) {
        requireSlots(each);
        require(each.getLogSlots() == operations.logSlots(x.front()), message::differentLogSlots);
    }
    const std::vector<Message> factors = normalized(weights, samples.blockLength());
    std::vector<Value> products = samples.prepared(x, 1 + samples.levels(1), false, samples.bound());
    for (u64 k = 0; k < products.size(); ++k) {
        operations.multSlotsAtLevel(products[k], factors[k], operations.level(products[k]), products[k]);
        if (k > 0) operations.add(products[0], products[k], products[0]);
    }
    operations.rescale(products[0]);
    samples.addUpSlots(products[0]);
    return std::move(products[0]);
}

/// An inverse that errs by a part d of itself makes the mean err by the same part, and with weights of one sign that is
/// no larger than the largest number.
template <class Value>
Value weightedMeanOf(Evaluating<Value> on, Span<Value> x, Span<Value> weights, double lowest, double highest,
                     double error, const SlotBlocks& blocks) {
    const std::string name = "weightedMean";
    const Operations<Value>& operations = on.operations();
    const Samples<Value> samples(operations, name, blocks, {x, weights});
    requireInterval(name, lowest, highest, Domain::OneSign);
    requireErrorOf(name, error);
    requireRatio(name, lowest, highest);
    const double relativeError = error / (std::numbers::sqrt2 * samples.bound());
    InverseStage<Value> inverse(operations, lowest, highest, relativeError);
    samples.requireAtOnce(samples.levels(1) + inverse.levels() + 1, {weights});
    samples.requireAtOnce(1 + samples.levels(1) + 1, {x});
    samples.requireRotations();

    const double largest = std::max(std::abs(lowest), std::abs(highest));
    const double productBound = samples.bound() * largest;
    const u64 levels = 1 + samples.levels(1);
    std::vector<Value> w = samples.prepared(weights, levels, true, std::max(largest, productBound));
    std::vector<Value> numbers = samples.prepared(x, levels, false, productBound);
    const Value sum = samples.sumOfPrepared(w, 1);
    Value mean = samples.sumOfProducts(numbers, w), quotient = inverse.evaluate(name, sum);
    prepareFor(operations, name, 1, {productBound, false}, samples.bound(), {&mean});
    const double smallest = std::min(std::abs(lowest), std::abs(highest));
    prepareFor(operations, name, 1, {(1 + std::min(relativeError, 1.0)) / smallest, true}, samples.bound(),
               {&quotient});
    operations.mult(mean, quotient, mean);
    return mean;
}

// ---- sums of products

template <class Value>
Value innerProductOf(Evaluating<Value> on, Span<Value> x, Span<Value> y, const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "innerProduct", blocks, {x, y});
    const u64 levels = 1 + samples.levels(1);
    const double bound = 2 * static_cast<double>(samples.size()) * samples.bound() * samples.bound();
    std::vector<Value> first = samples.prepared(x, levels, false, bound);
    std::vector<Value> second = samples.prepared(y, levels, false, bound);
    return samples.sumOfProducts(first, second);
}

/// What a squared distance cannot exceed.
template <class Value>
double largestSquare(const Samples<Value>& samples) {
    return 4 * static_cast<double>(samples.size()) * samples.bound() * samples.bound();
}

template <class Value>
Value squaredDistanceOf(const Samples<Value>& samples, Span<Value> x, Span<Value> y, double resultBound) {
    const u64 levels = 1 + samples.levels(1);
    const std::vector<Value> first = samples.prepared(x, levels, true, resultBound);
    std::vector<Value> differences =
        samples.differences(first, samples.prepared(y, levels, true, resultBound));
    return samples.sumOfProducts(differences, differences);
}

/// What deviations are multiplied by so that their products are parts of a mean.
template <class Value>
double factorOf(const Samples<Value>& samples, Variance kind, const std::string& function) {
    if (kind == Variance::Sample && samples.size() == 1)
        throw RuntimeException(message::sampleOfOne(function));
    const u64 divisor = samples.size() - (kind == Variance::Sample ? 1 : 0);
    return 1 / std::sqrt(static_cast<double>(divisor));
}

/// What no variance or covariance exceeds: n / (n - 1) is 2 at most.
template <class Value>
double largestVariance(const Samples<Value>& samples, Variance kind) {
    return (kind == Variance::Sample ? 2 : 1) * samples.bound() * samples.bound();
}

/// What variances and covariances spend: one level for the factor or the mask, one for the products, and one for their
/// mask.
template <class Value>
u64 levelsOfVariance(const Samples<Value>& samples, double factor) {
    return samples.levels(factor / static_cast<double>(samples.size())) + 1 + samples.levels(1);
}

/// The deviations of x from their mean, times a factor, of which variances up to `resultBound` are made.
template <class Value>
std::vector<Value> deviationsOf(const Samples<Value>& samples, Span<Value> x, double factor,
                                double resultBound) {
    return samples.deviations(samples.prepared(x, levelsOfVariance(samples, factor), true, resultBound),
                              factor);
}

template <class Value>
Value varianceOf(Evaluating<Value> on, Span<Value> x, Variance kind, const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "variance", blocks, {x});
    std::vector<Value> d =
        deviationsOf(samples, x, factorOf(samples, kind, "variance"), largestVariance(samples, kind));
    return samples.sumOfProducts(d, d);
}

template <class Value>
Value covarianceOf(Evaluating<Value> on, Span<Value> x, Span<Value> y, Variance kind,
                   const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "covariance", blocks, {x, y});
    const double factor = factorOf(samples, kind, "covariance");
    const double bound = largestVariance(samples, kind);
    samples.requireAtOnce(levelsOfVariance(samples, factor), {x, y});
    std::vector<Value> dx = deviationsOf(samples, x, factor, bound);
    std::vector<Value> dy = deviationsOf(samples, y, factor, bound);
    return samples.sumOfProducts(dx, dy);
}

/// With variances v, w and roots that each err by d, the quotient errs by d (sqrt(v) + sqrt(w)) and less.
template <class Value>
Value correlationOf(Evaluating<Value> on, Span<Value> x, Span<Value> y, double lowest, double highest,
                    double error, const SlotBlocks& blocks) {
    const std::string name = "correlation";
    const Operations<Value>& operations = on.operations();
    const Samples<Value> samples(operations, name, blocks, {x, y});
    requireInterval(name, lowest, highest, Domain::Positive);
    requireErrorOf(name, error);
    const double factor = factorOf(samples, Variance::Population, name);
    RootStage<Value> inverseRoot(operations, name, lowest, highest, error / (3 * std::sqrt(highest)),
                                 Root::Inverse);
    samples.requireAtOnce(levelsOfVariance(samples, factor) + inverseRoot.levels() + 2, {x, y});
    samples.requireRotations();
    std::vector<Value> dx = deviationsOf(samples, x, factor, highest);
    std::vector<Value> dy = deviationsOf(samples, y, factor, highest);
    Value result = samples.sumOfProducts(dx, dy);
    // The covariance is at most `highest`, with one root the square root of that.
    const double bound = std::max(1.0, highest);
    for (std::vector<Value>* d : {&dx, &dy}) {
        Value root = inverseRoot.evaluate(name, samples.sumOfProducts(*d, *d));
        prepareFor(operations, name, 1, {1.1 / std::sqrt(lowest), true}, bound, {&root});
        prepareFor(operations, name, 1, {bound, true}, bound, {&result});
        operations.mult(result, root, result);
    }
    return result;
}

template <class Value>
Value distanceOf(Evaluating<Value> on, Span<Value> x, Span<Value> y, double lowest, double highest,
                 double error, const SlotBlocks& blocks) {
    const std::string name = "distance";
    const Samples<Value> samples(on.operations(), name, blocks, {x, y});
    requireInterval(name, lowest, highest, Domain::FromZero);
    requireErrorOf(name, error);
    RootStage<Value> root(on.operations(), name, lowest, highest, error, Root::Plain);
    samples.requireAtOnce(1 + samples.levels(1) + root.levels(), {x, y});
    samples.requireRotations();
    return root.evaluate(name, squaredDistanceOf(samples, x, y, highest));
}

} // namespace

// ---- one value, and many

template <class Value>
void sum(Evaluating<Value> on, const Value& x, Value& out, const SlotBlocks& blocks) {
    out = sumOf<Value>(on, only(x), blocks);
}

template <class Value>
void sum(Evaluating<Value> on, const std::vector<Value>& x, Value& out, const SlotBlocks& blocks) {
    out = sumOf<Value>(on, x, blocks);
}

template <class Value>
void mean(Evaluating<Value> on, const Value& x, Value& out, const SlotBlocks& blocks) {
    out = meanOf<Value>(on, only(x), blocks);
}

template <class Value>
void mean(Evaluating<Value> on, const std::vector<Value>& x, Value& out, const SlotBlocks& blocks) {
    out = meanOf<Value>(on, x, blocks);
}

template <class Value>
void weightedMean(Evaluating<Value> on, const Value& x, const Message& weights, Value& out,
                  const SlotBlocks& blocks) {
    out = weightedMeanOf<Value>(on, only(x), only(weights), blocks);
}

template <class Value>
void weightedMean(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Message>& weights,
                  Value& out, const SlotBlocks& blocks) {
    out = weightedMeanOf<Value>(on, x, weights, blocks);
}

template <class Value>
void weightedMean(Evaluating<Value> on, const Value& x, const Value& weights, double lowest, double highest,
                  double error, Value& out, const SlotBlocks& blocks) {
    out = weightedMeanOf<Value>(on, only(x), only(weights), lowest, highest, error, blocks);
}

template <class Value>
void weightedMean(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& weights,
                  double lowest, double highest, double error, Value& out, const SlotBlocks& blocks) {
    out = weightedMeanOf<Value>(on, x, weights, lowest, highest, error, blocks);
}

template <class Value>
void innerProduct(Evaluating<Value> on, const Value& x, const Value& y, Value& out,
                  const SlotBlocks& blocks) {
    out = innerProductOf<Value>(on, only(x), only(y), blocks);
}

template <class Value>
void innerProduct(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y, Value& out,
                  const SlotBlocks& blocks) {
    out = innerProductOf<Value>(on, x, y, blocks);
}

template <class Value>
void variance(Evaluating<Value> on, const Value& x, Variance kind, Value& out, const SlotBlocks& blocks) {
    out = varianceOf<Value>(on, only(x), kind, blocks);
}

template <class Value>
void variance(Evaluating<Value> on, const std::vector<Value>& x, Variance kind, Value& out,
              const SlotBlocks& blocks) {
    out = varianceOf<Value>(on, x, kind, blocks);
}

template <class Value>
void covariance(Evaluating<Value> on, const Value& x, const Value& y, Variance kind, Value& out,
                const SlotBlocks& blocks) {
    out = covarianceOf<Value>(on, only(x), only(y), kind, blocks);
}

template <class Value>
void covariance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y, Variance kind,
                Value& out, const SlotBlocks& blocks) {
    out = covarianceOf<Value>(on, x, y, kind, blocks);
}

template <class Value>
void correlation(Evaluating<Value> on, const Value& x, const Value& y, double lowest, double highest,
                 double error, Value& out, const SlotBlocks& blocks) {
    out = correlationOf<Value>(on, only(x), only(y), lowest, highest, error, blocks);
}

template <class Value>
void correlation(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                 double lowest, double highest, double error, Value& out, const SlotBlocks& blocks) {
    out = correlationOf<Value>(on, x, y, lowest, highest, error, blocks);
}

template <class Value>
void squaredDistance(Evaluating<Value> on, const Value& x, const Value& y, Value& out,
                     const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "squaredDistance", blocks, {only(x), only(y)});
    out = squaredDistanceOf<Value>(samples, only(x), only(y), largestSquare(samples));
}

template <class Value>
void squaredDistance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                     Value& out, const SlotBlocks& blocks) {
    const Samples<Value> samples(on.operations(), "squaredDistance", blocks, {x, y});
    out = squaredDistanceOf<Value>(samples, x, y, largestSquare(samples));
}

template <class Value>
void distance(Evaluating<Value> on, const Value& x, const Value& y, double lowest, double highest,
              double error, Value& out, const SlotBlocks& blocks) {
    out = distanceOf<Value>(on, only(x), only(y), lowest, highest, error, blocks);
}

template <class Value>
void distance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y, double lowest,
              double highest, double error, Value& out, const SlotBlocks& blocks) {
    out = distanceOf<Value>(on, x, y, lowest, highest, error, blocks);
}

#define TORVO_FOR_OPERANDS(Value, Operand, Weights)                                                          \
    template TORVO_API void sum(Evaluating<Value>, const Operand&, Value&, const SlotBlocks&);               \
    template TORVO_API void mean(Evaluating<Value>, const Operand&, Value&, const SlotBlocks&);              \
    template TORVO_API void weightedMean(Evaluating<Value>, const Operand&, const Weights&, Value&,          \
                                         const SlotBlocks&);                                                 \
    template TORVO_API void weightedMean(Evaluating<Value>, const Operand&, const Operand&, double, double,  \
                                         double, Value&, const SlotBlocks&);                                 \
    template TORVO_API void innerProduct(Evaluating<Value>, const Operand&, const Operand&, Value&,          \
                                         const SlotBlocks&);                                                 \
    template TORVO_API void variance(Evaluating<Value>, const Operand&, Variance, Value&,                    \
                                     const SlotBlocks&);                                                     \
    template TORVO_API void covariance(Evaluating<Value>, const Operand&, const Operand&, Variance, Value&,  \
                                       const SlotBlocks&);                                                   \
    template TORVO_API void correlation(Evaluating<Value>, const Operand&, const Operand&, double, double,   \
                                        double, Value&, const SlotBlocks&);                                  \
    template TORVO_API void squaredDistance(Evaluating<Value>, const Operand&, const Operand&, Value&,       \
                                            const SlotBlocks&);                                              \
    template TORVO_API void distance(Evaluating<Value>, const Operand&, const Operand&, double, double,      \
                                     double, Value&, const SlotBlocks&)

#define TORVO_FOR_VALUE(Value)                                                                               \
    TORVO_FOR_OPERANDS(Value, Value, Message);                                                               \
    TORVO_FOR_OPERANDS(Value, std::vector<Value>, std::vector<Message>)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE
#undef TORVO_FOR_OPERANDS

} // namespace Torvo
