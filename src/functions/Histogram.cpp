#include "encoding/EncodingBound.hpp"
#include "functions/Messages.hpp"
#include "functions/Samples.hpp"
#include "functions/SignEvaluation.hpp"
#include "functions/SignTables.hpp"

#include <Torvo/RuntimeException.hpp>
#include <Torvo/Statistics.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

namespace Torvo {

namespace {

constexpr const char* name = "histogram";

void requireEdges(std::span<const double> edges) {
    if (edges.size() < 2) throw RuntimeException(message::edgesGiven(edges.size()));
    for (u64 k = 1; k < edges.size(); ++k) {
        const bool isAbove = edges[k - 1] < edges[k]; // does not hold for NaN
        if (!isAbove) throw RuntimeException(message::edgeGiven(k, decimal(edges[k]), decimal(edges[k - 1])));
    }
}

/// Those that numbers of [-bound, bound] may lie on both sides of.
std::vector<double> innerEdges(std::span<const double> edges, double bound) {
    std::vector<double> inner;
    std::ranges::copy_if(edges, std::back_inserter(inner),
                         [bound](double edge) { return -bound < edge && edge < bound; });
    return inner;
}

/// Half of the numbers above an edge less half of those below, for each edge.
template <class Value>
std::vector<Value> halfSums(const Operations<Value>& operations, const Samples<Value>& samples,
                            std::span<const Value> x, std::span<const double> edges,
                            const Accuracy& accuracy) {
    const double largest = std::max(std::abs(edges.front()), std::abs(edges.back()));
    const auto lowest =
        std::ranges::min_element(x, {}, [&](const Value& each) { return operations.level(each); });
    SignEvaluation<Value> sign(operations, name, *lowest, accuracy, samples.bound() + largest);
    const u64 levels = samples.levels(1);
    sign.requireLevels(levels, *lowest);
    samples.requireRotations();
    // Sums leave the unit square, and then need a level more for a bootstrap of their own.
    sign.keepBehind(levels + (samples.size() > 1 ? 1 : 0));
    const std::vector<Value> numbers = samples.prepared(x, sign.levelsOfFirst(), true, 1);

    std::vector<Value> sums;
    // Two at a time: an even number of values, of which any two are bootstrapped as one.
    for (u64 first = 0; first < numbers.size(); first += 2) {
        std::vector<Value> differences;
        for (u64 j = first; j < std::min<u64>(first + 2, numbers.size()); ++j)
            for (const double edge : edges)
                operations.add(numbers[j], -edge, differences.emplace_back(operations.unset()));
        std::vector<const Value*> pointers;
        pointers.reserve(differences.size());
        for (const Value& each : differences) pointers.push_back(&each);
        std::vector<Value> signs = sign.evaluate(pointers, 0.5);
        for (u64 i = 0; i < signs.size(); ++i) {
            if (sums.size() < edges.size())
                sums.push_back(std::move(signs[i]));
            else
                operations.add(sums[i % edges.size()], signs[i], sums[i % edges.size()]);
        }
    }
    for (Value& sum : sums) samples.addUpSlots(sum);
    return sums;
}

/// How many numbers lie above an edge: a constant, and what varies with them, if anything.
template <class Value>
struct CountAbove {
    double constant;
    const Value* variable;
};

template <class Value>
Value difference(const Operations<Value>& operations, const CountAbove<Value>& a, const CountAbove<Value>& b,
                 const Value& like) {
    Value out = operations.unset();
    if (a.variable != nullptr && b.variable != nullptr)
        operations.sub(*a.variable, *b.variable, out);
    else if (a.variable != nullptr)
        out = *a.variable;
    else if (b.variable != nullptr)
        operations.negate(*b.variable, out);
    else
        operations.multInteger(like, 0, out);
    if (a.constant != b.constant) operations.add(out, a.constant - b.constant, out);
    return out;
}

template <class Value>
std::vector<Value> histogramOf(Evaluating<Value> on, std::span<const Value> x, std::span<const double> edges,
                               const Accuracy& accuracy, const SlotBlocks& blocks) {
    const Operations<Value>& operations = on.operations();
    const Samples<Value> samples(operations, name, blocks, {x});
    requireBoundOfNumbers(name, samples.bound());
    requireEdges(edges);
    requireAccuracy(name, accuracy, mostSignExponent, mostSignExponent);
    const std::vector<double> inner = innerEdges(edges, samples.bound());
    std::vector<Value> sums;
    if (!inner.empty()) sums = halfSums<Value>(operations, samples, x, inner, accuracy);

    const auto n = static_cast<double>(samples.size());
    std::vector<CountAbove<Value>> counts;
    for (u64 next = 0; const double edge : edges) {
        const bool isInner = next < inner.size() && edge == inner[next];
        counts.push_back(isInner ? CountAbove<Value>{n / 2, &sums[next++]}
                                 : CountAbove<Value>{edge < 0 ? n : 0, nullptr});
    }
    std::vector<Value> bins;
    for (u64 k = 0; k + 1 < edges.size(); ++k)
        bins.push_back(difference(operations, counts[k], counts[k + 1], x.front()));
    return bins;
}

} // namespace

template <class Value>
void histogram(Evaluating<Value> on, const Value& x, const std::vector<double>& edges,
               std::vector<Value>& outs, const Accuracy& accuracy, const SlotBlocks& blocks) {
    outs = histogramOf<Value>(on, {&x, 1}, edges, accuracy, blocks);
}

template <class Value>
void histogram(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<double>& edges,
               std::vector<Value>& outs, const Accuracy& accuracy, const SlotBlocks& blocks) {
    outs = histogramOf<Value>(on, x, edges, accuracy, blocks);
}

#define TORVO_FOR_VALUE(Value)                                                                               \
    template TORVO_API void histogram(Evaluating<Value>, const Value&, const std::vector<double>&,           \
                                      std::vector<Value>&, const Accuracy&, const SlotBlocks&);              \
    template TORVO_API void histogram(Evaluating<Value>, const std::vector<Value>&,                          \
                                      const std::vector<double>&, std::vector<Value>&, const Accuracy&,      \
                                      const SlotBlocks&)

TORVO_FOR_VALUE(Ciphertext);
TORVO_FOR_VALUE(Message);
TORVO_FOR_VALUE(PlannedCiphertext);

#undef TORVO_FOR_VALUE

} // namespace Torvo
