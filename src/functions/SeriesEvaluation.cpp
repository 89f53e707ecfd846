#include "functions/SeriesEvaluation.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Message.hpp>
#include <Torvo/Plan.hpp>

#include <algorithm>
#include <cmath>

namespace Torvo {

namespace {

u64 distance(u64 a, u64 b) {
    return a > b ? a - b : b - a;
}

} // namespace

template <class Value>
SeriesEvaluation<Value>::SeriesEvaluation(const Operations<Value>& operations,
                                          std::span<const SeriesTerms> series, const IntervalMap& interval)
    : operations_(operations), series_(series.begin(), series.end()), interval_(interval) {
    const auto allLack = [this](u64 parity) {
        return std::ranges::all_of(series_, [&](const SeriesTerms& terms) { return terms.lacks(parity); });
    };
    std::vector<u64> degrees;
    isInSquares_ =
        allLack(1) && !std::ranges::all_of(series_, [](const auto& terms) { return terms.degree() == 0; });
    for (SeriesTerms& terms : series_) {
        if (isInSquares_) terms = terms.inSquares();
        if (terms.degree() > 0) degrees.push_back(terms.degree());
    }
    if (degrees.empty()) return;
    depth_ = seriesDepth(std::ranges::max(degrees));
    split_.emplace(degrees, allLack(0) ? SeriesSplit::Terms::Odd : SeriesSplit::Terms::All);
    isMappedByLevel_ = growth() > largestFactor;
}

template <class Value>
void SeriesEvaluation<Value>::scale(double factor) {
    for (SeriesTerms& terms : series_) terms = terms.times(factor);
}

// ---- factors

template <class Value>
std::pair<long, double> SeriesEvaluation<Value>::factorOfProduct(double first, double second) const {
    const bool isChebyshev = series_.front().basis() == SeriesBasis::Chebyshev;
    const double factor = first * second / (isChebyshev ? 2 : 1);
    const double n = std::max(1.0, std::round(1 / factor));
    return {static_cast<long>(n), n * factor};
}

template <class Value>
std::pair<long, double> SeriesEvaluation<Value>::factorOfArgument() const {
    const double n = std::max(1.0, std::round(1 / interval_.half));
    return {static_cast<long>(n), n * interval_.half};
}

template <class Value>
double SeriesEvaluation<Value>::growth() const {
    if (levels() < 2) return 1; // a linear function takes its argument as it is
    double first = factorOfArgument().second;
    double largest = first;
    if (isInSquares_) largest = std::max(largest, first = factorOfProduct(first, first).second);
    std::map<u64, double> factors{{1, first}};
    for (const SeriesSplit::Power& power : split_->powers()) {
        factors[power.index] = factorOfProduct(factors.at(power.first), factors.at(power.second)).second;
        largest = std::max(largest, factors[power.index]);
    }
    return largest;
}

template <class Value>
double SeriesEvaluation<Value>::factorAt(const Power& power, u64 level) const {
    return power.factor * operations_.scaleRatio(power.level, level);
}

// ---- powers

template <class Value>
ScaledPower<Value> SeriesEvaluation<Value>::argument(const Value& x) const {
    Value y = operations_.unset();
    operations_.add(x, -interval_.middle, y);
    if (isMappedByLevel_) {
        operations_.mult(y, 1 / interval_.half, y);
        const u64 level = operations_.level(y);
        return {std::move(y), 1, level};
    }
    const auto [n, factor] = factorOfArgument();
    if (n != 1) operations_.multInteger(y, n, y);
    const u64 level = operations_.level(y);
    return {std::move(y), factor, level};
}

/// From T_m and T_n of their factors f and g: f g T_m T_n = f g / 2 (T_(m+n) + T_|m-n|).
template <class Value>
ScaledPower<Value> SeriesEvaluation<Value>::product(u64 m, u64 n) const {
    const Power &first = powers_.at(m), &second = powers_.at(n);
    const u64 level = std::min(first.level, second.level);
    const auto [multiplier, factor] = factorOfProduct(factorAt(first, level), factorAt(second, level));
    Value value = operations_.unset();
    operations_.tensor(first.value, second.value, value);
    operations_.relinearize(value);
    if (multiplier != 1) operations_.multInteger(value, multiplier, value);
    const double gain = operations_.rescaleGain(level);
    if (series_.front().basis() == SeriesBasis::Chebyshev) {
        bool isEmpty = false;
        if (m == n)
            addNumber(Coefficient(-factor * gain), value);
        else
            addMultiples({{distance(m, n), Coefficient(-factor)}}, 1, level, value, isEmpty);
    }
    operations_.rescale(value);
    return {std::move(value), factor * gain, level - 1};
}

// ---- parts

template <class Value>
void SeriesEvaluation<Value>::addNumber(const Coefficient& c, Value& in_out) const {
    if (c.isZero()) return;
    if (c.isUniform())
        operations_.add(in_out, c.of(0), in_out);
    else
        operations_.addSlots(in_out, Message(c.numbers()), in_out);
}

template <class Value>
void SeriesEvaluation<Value>::addTo(Value& sum, bool& isEmpty, Value&& term) const {
    if (isEmpty)
        sum = std::move(term);
    else
        operations_.add(sum, term, sum);
    isEmpty = false;
}

/// The numbers that are the same for all slots in one pass, the others one by one.
template <class Value>
void SeriesEvaluation<Value>::addMultiples(const std::vector<std::pair<u64, Coefficient>>& multiples,
                                           double factor, u64 level, Value& sum, bool& isEmpty) const {
    std::vector<const Value*> uniform;
    std::vector<std::complex<double>> numbers;
    Value term = operations_.unset();
    for (const auto& [index, c] : multiples) {
        if (c.isZero()) continue;
        const Power& power = powers_.at(index);
        const Coefficient scaled = c.times(factor / factorAt(power, level));
        if (scaled.isUniform()) {
            uniform.push_back(&power.value);
            numbers.push_back(scaled.of(0));
        } else {
            operations_.multSlotsAtLevel(power.value, Message(scaled.numbers()), level, term);
            addTo(sum, isEmpty, std::move(term));
            term = operations_.unset();
        }
    }
    if (uniform.empty()) return;
    operations_.sumMultiplesAtLevel(uniform, numbers, level, term);
    addTo(sum, isEmpty, std::move(term));
}

template <class Value>
void SeriesEvaluation<Value>::addPart(const SeriesTerms& terms, u64 depth, double target, Value& sum,
                                      bool& isEmpty) const {
    const u64 level = powers_.at(1).level - depth + 1;
    const double owed = target / operations_.rescaleGain(level); // what the rescale brings to `target`
    const u64 m = split_->divisor(terms.degree(), depth);
    if (m == 0) {
        std::vector<std::pair<u64, Coefficient>> multiples;
        for (u64 k = 1; k <= terms.degree(); ++k)
            if (!terms[k].isZero()) multiples.emplace_back(k, terms[k]);
        addMultiples(multiples, owed, level, sum, isEmpty);
        return addNumber(terms[0].times(target), sum);
    }
    if (m == terms.degree()) {
        addMultiples({{m, terms[m]}}, owed, level, sum, isEmpty);
        return addPart(terms.below(m), depth, target, sum, isEmpty);
    }
    const auto [quotient, rest] = terms.divideByPower(m);
    const Power& power = powers_.at(m);
    Value product = part(quotient, depth - 1, owed / factorAt(power, level));
    operations_.tensor(product, power.value, product);
    addTo(sum, isEmpty, std::move(product));
    addPart(rest, depth, target, sum, isEmpty);
}

template <class Value>
Value SeriesEvaluation<Value>::part(const SeriesTerms& terms, u64 depth, double target) const {
    Value sum = operations_.unset();
    bool isEmpty = true;
    addPart(terms, depth, target, sum, isEmpty);
    operations_.relinearize(sum);
    operations_.rescale(sum);
    return sum;
}

template <class Value>
Value SeriesEvaluation<Value>::number(const Value& x, const Coefficient& c) const {
    Value value = operations_.unset();
    operations_.multInteger(x, 0, value);
    addNumber(c, value);
    return value;
}

template <class Value>
std::vector<Value> SeriesEvaluation<Value>::evaluate(const Value& x) {
    powers_.clear();
    if (split_) {
        powers_.emplace(1, argument(x));
        if (isInSquares_) powers_.insert_or_assign(1, product(1, 1));
        for (const SeriesSplit::Power& power : split_->powers())
            powers_.emplace(power.index, product(power.first, power.second));
    }
    std::vector<Value> results;
    for (const SeriesTerms& terms : series_)
        results.push_back(terms.degree() == 0 ? number(x, terms[0])
                                              : part(terms, seriesDepth(terms.degree()), 1));
    return results;
}

template class SeriesEvaluation<Ciphertext>;
template class SeriesEvaluation<Message>;
template class SeriesEvaluation<PlannedCiphertext>;

} // namespace Torvo
