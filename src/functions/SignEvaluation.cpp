#include "functions/SignEvaluation.hpp"

#include "encoding/EncodingBound.hpp"
#include "functions/Messages.hpp"
#include "functions/SignComposite.hpp"
#include "functions/SignTables.hpp"

#include <Torvo/Plan.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace Torvo {

namespace {

/// The smallest and the largest value on [low, high], of points that lie as close as the extrema of a polynomial with
/// equal errors from `low` on do: closer where the numbers are smaller.
std::pair<double, double> extremesOf(const ChebyshevSeries& stage, double low, double high) {
    const u64 points = 64 * (stage.getDegree() + 1);
    double smallest = stage.evaluate(low).real(), largest = smallest;
    for (u64 i = 0; i <= points; ++i) {
        const double part = static_cast<double>(i) / static_cast<double>(points);
        for (const double x : {low * std::pow(high / low, part), low + (high - low) * part}) {
            const double y = stage.evaluate(x).real();
            smallest = std::min(smallest, y);
            largest = std::max(largest, y);
        }
    }
    return {smallest, largest};
}

double powerOfHalf(u64 exponent) {
    return std::ldexp(1.0, -static_cast<int>(exponent));
}

} // namespace

double errorWithNoise(const std::vector<ChebyshevSeries>& stages, double least,
                      const std::vector<double>& noise) {
    double low = least, high = 1;
    for (u64 k = 0; k < stages.size(); ++k) {
        if (low <= noise[k]) return 1;
        std::tie(low, high) = extremesOf(stages[k], low - noise[k], high + noise[k]);
    }
    return std::min(1.0, std::max(1 - low, high - 1) + noise.back());
}

/// A stage of degree d passes an error of T_k on with a slope of up to k^2 / d, so it ends with the errors of some
/// d^2 / 20 rescales at the slots that are hit hardest, and of three at least; the last one is flat where its inputs
/// are, and ends with those of four. Plans measure so much for degrees from 7 to 63. What is compared are the numbers
/// that the first stage is given: only a bootstrap disturbs them, and doubles its error where it divides by a bound that
/// is no integer.
std::vector<double> noiseOfStages(const std::vector<ChebyshevSeries>& stages,
                                  const std::vector<SlotNoise>& noise) {
    std::vector<double> result{2 * noise[0].bootstrap};
    for (u64 k = 0; k < stages.size(); ++k) {
        const auto degree = static_cast<double>(stages[k].getDegree());
        result.push_back(std::max(3.0, degree * degree / 20) * noise[k].rescale + noise[k].bootstrap);
    }
    result.back() = 4 * noise.back().rescale;
    return result;
}

void requireAccuracy(const std::string& what, const Accuracy& accuracy, u64 mostMargin, u64 mostError) {
    const bool isAllowed = leastSignExponent <= accuracy.margin && accuracy.margin <= mostMargin &&
                           leastSignExponent <= accuracy.error && accuracy.error <= mostError;
    if (!isAllowed)
        throw RuntimeException(
            message::accuracyOutside(what, accuracy.margin, accuracy.error, mostMargin, mostError));
}

void requireBoundOfNumbers(const std::string& what, double bound) {
    const bool isAllowed = 0x1p-32 <= bound && bound <= 0x1p32; // does not hold for NaN
    if (!isAllowed) throw RuntimeException(message::boundOutside(what, decimal(bound)));
}

template <class Value>
SignEvaluation<Value>::SignEvaluation(const Operations<Value>& operations, std::string what, const Value& x,
                                      const Accuracy& accuracy, double bound)
    : operations_(operations), what_(std::move(what)) {
    requireAccuracy(what_, accuracy, mostSignExponent, mostSignExponent);
    for (const ChebyshevSeries& each : signComposite(accuracy.margin, accuracy.error)) {
        const double stageBound = stages_.empty() ? bound : 1;
        const SeriesTerms terms = termsOf(each);
        SeriesEvaluation<Value> evaluation(operations_, {&terms, 1}, {0, stageBound});
        const u64 levels = evaluation.levels();
        stages_.push_back({std::move(evaluation), stageBound, levels});
    }
    requireAboveNoise(x, accuracy);
}

/// Scales may drift from level to level, so each stage has the noise of its own levels; with bootstraps these are not
/// known.
template <class Value>
bool SignEvaluation<Value>::isPromised(const Value& x, u64 margin, u64 error) const {
    const std::vector<ChebyshevSeries> stages = signComposite(margin, error);
    std::vector<SlotNoise> slotNoise;
    u64 from = operations_.level(x);
    for (const ChebyshevSeries& stage : stages) {
        u64 to = from - std::min(from, levelsOfDegree(stage.getDegree()));
        if (operations_.givesLevelsBack()) to = 0;
        slotNoise.push_back(operations_.noise(from, to, operations_.logSlots(x)));
        if (!operations_.givesLevelsBack()) from = to;
    }
    std::vector<double> noise = noiseOfStages(stages, slotNoise);
    // A bootstrap divides by the bound only where that is above 1: of a small one its error is a larger part.
    const double bound = stages_.front().bound;
    noise.front() *= std::max(1.0, std::ceil(bound) / (2 * bound));
    // The tables allow for as much in front of each stage.
    const bool isTabled =
        std::all_of(noise.begin(), noise.end() - 1, [](double each) { return each <= signNoise; });
    const double largest =
        isTabled ? powerOfHalf(error) + noise.back() : errorWithNoise(stages, powerOfHalf(margin), noise);
    return largest <= powerOfHalf(error) * (1 + noiseShare);
}

template <class Value>
void SignEvaluation<Value>::requireAboveNoise(const Value& x, const Accuracy& accuracy) const {
    if (isPromised(x, accuracy.margin, accuracy.error)) return;
    u64 best = accuracy.error - 1;
    while (best >= leastSignExponent && !isPromised(x, accuracy.margin, best)) --best;
    throw RuntimeException(message::accuracyBelowNoise(what_, accuracy.margin, accuracy.error,
                                                       best < leastSignExponent ? 0 : best));
}

template <class Value>
u64 SignEvaluation<Value>::levels() const {
    u64 sum = 0;
    for (const Stage& stage : stages_) sum += stage.levels;
    return sum;
}

template <class Value>
void SignEvaluation<Value>::requireLevels(u64 more, const Value& x) const {
    operations_.requireAtOnce(what_, levels() + more, x);
}

template <class Value>
void SignEvaluation<Value>::keepBehind(u64 levels) {
    if (operations_.givesLevelsBack()) stages_.back().levels += levels;
}

template <class Value>
void SignEvaluation<Value>::prepare(std::vector<Value*> values) const {
    const Stage& first = stages_.front();
    operations_.prepare(what_, first.levels, {first.bound, true}, std::move(values));
}

template <class Value>
std::vector<Value> SignEvaluation<Value>::evaluate(const std::vector<const Value*>& xs, double factor) const {
    std::vector<Value> values;
    for (u64 i = 0; i < stages_.size(); ++i) {
        const Stage& stage = stages_[i];
        const bool isLast = i + 1 == stages_.size();
        SeriesEvaluation<Value> evaluation = stage.evaluation;
        if (isLast) evaluation.scale(factor);
        if (i > 0) {
            std::vector<Value*> pointers;
            pointers.reserve(values.size());
            for (Value& value : values) pointers.push_back(&value);
            operations_.prepare(what_, stage.levels, {1, true}, pointers);
        }
        std::vector<Value> next;
        next.reserve(xs.size());
        for (u64 k = 0; k < xs.size(); ++k)
            next.push_back(std::move(evaluation.evaluate(i == 0 ? *xs[k] : values[k]).front()));
        values = std::move(next);
    }
    return values;
}

template <class Value>
Value SignEvaluation<Value>::evaluate(const Value& x, double factor) const {
    return std::move(evaluate(std::vector<const Value*>{&x}, factor).front());
}

template class SignEvaluation<Ciphertext>;
template class SignEvaluation<Message>;
template class SignEvaluation<PlannedCiphertext>;

} // namespace Torvo
