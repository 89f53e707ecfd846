#include "functions/Exchange.hpp"

#include "functions/ChebyshevNodes.hpp"
#include "functions/Extremum.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Torvo {

namespace {

using Symmetry = ChebyshevSeries::Symmetry;

/// How many points are looked at between two of the reference.
constexpr u64 pointsPerGap = 16;
constexpr double tolerance = 1e-12;
/// Where f has steps of its own, a table for example, errors never come together further.
constexpr double roughTolerance = 0.01;

/// q by its values at nodes, with one weight each: sum w_i q_i / (u - u_i) over sum w_i / (u - u_i).
template <class Real>
struct Barycentric {
    std::vector<Real> nodes, weights, values;

    Real operator()(Real u) const {
        Real above = 0, below = 0;
        for (u64 i = 0; i < nodes.size(); ++i) {
            const Real distance = u - nodes[i];
            if (distance == 0) return values[i];
            const Real share = weights[i] / distance;
            above += share * values[i];
            below += share;
        }
        return above / below;
    }
};

template <class To, class From>
std::vector<To> rounded(const std::vector<From>& numbers) {
    std::vector<To> result(numbers.size());
    std::transform(numbers.begin(), numbers.end(), result.begin(),
                   [](const From& number) { return static_cast<To>(number); });
    return result;
}

/// A place with the signed error there.
using Error = Peak<long double>;

class Exchange {
public:
    explicit Exchange(const MinimaxProblem& problem)
        : problem_(problem), isOdd_(problem.symmetry == Symmetry::Odd),
          isSquared_(problem.symmetry != Symmetry::None), terms_(!isSquared_ ? problem.degree + 1
                                                                 : isOdd_    ? (problem.degree + 1) / 2
                                                                             : problem.degree / 2 + 1) {}

    Minimax run() {
        chooseFirstReference();
        for (int step = 0; step < exchangeSteps; ++step) {
            interpolateLevelled();
            const std::vector<Error> extrema = extremaOf(scannedErrors());
            possible_ = std::max(possible_, magnitude(level_));
            const Quad largest = largestOf(extrema);
            if (step == 0 || largest < best_.largest) best_ = {largest, exact_, reference_};
            if (isBestWithin(tolerance)) break;
            exchange(extrema);
        }
        return {coefficients(), best_.largest, possible_, isBestWithin(roughTolerance), best_.reference};
    }

private:
    template <class Real>
    Real variable(Real x) const {
        return isSquared_ ? x * x : x;
    }
    template <class Real>
    Real weight(Real x) const {
        return isOdd_ ? x : Real(1);
    }

    /// The extrema of T_terms in u. At 0 an odd polynomial has no choice.
    void chooseFirstReference() {
        const long double low = variable(problem_.lower), high = variable(problem_.upper);
        for (u64 i = 0; i <= terms_; ++i) {
            const long double y = -std::cos(std::numbers::pi_v<long double> * static_cast<long double>(i) /
                                            static_cast<long double>(terms_));
            const long double u = ((1 - y) * low + (1 + y) * high) / 2;
            const long double x = isSquared_ ? std::sqrt(u) : u;
            reference_.push_back(std::clamp(x, problem_.lower, problem_.upper));
        }
        if (isOdd_ && reference_.front() == 0) reference_.front() = reference_[1] / 2;
    }

    /// Takes the polynomial whose errors at the reference have one size and alternating signs: the level E
    /// for which the divided difference of (f_i - (-1)^i E) / w_i over all points is 0.
    void interpolateLevelled() {
        const u64 count = reference_.size();
        exact_ = {std::vector<Quad>(count), std::vector<Quad>(count, 1), std::vector<Quad>(count)};
        for (u64 i = 0; i < count; ++i) exact_.nodes[i] = variable<Quad>(reference_[i]);
        // A quarter of the interval is what keeps such products close to 1.
        const Quad unit = (variable<Quad>(problem_.upper) - variable<Quad>(problem_.lower)) / 4;
        for (u64 i = 0; i < count; ++i) {
            for (u64 j = 0; j < count; ++j)
                if (j != i) exact_.weights[i] *= (exact_.nodes[i] - exact_.nodes[j]) / unit;
            exact_.weights[i] = 1 / exact_.weights[i];
        }
        Quad above = 0, below = 0;
        for (u64 i = 0; i < count; ++i) {
            exact_.values[i] = valueAt(reference_[i]);
            const Quad share = exact_.weights[i] / weight<Quad>(reference_[i]);
            above += share * exact_.values[i];
            below += i % 2 == 0 ? share : -share;
        }
        level_ = above / below;
        for (u64 i = 0; i < count; ++i)
            exact_.values[i] =
                (exact_.values[i] - (i % 2 == 0 ? level_ : -level_)) / weight<Quad>(reference_[i]);
        quick_ = {rounded<long double>(exact_.nodes), rounded<long double>(exact_.weights),
                  rounded<long double>(exact_.values)};
    }

    Quad valueAt(long double x) {
        const Quad value = problem_.f(x);
        scale_ = std::max(scale_, magnitude(value));
        return value;
    }
    long double quickError(long double x) {
        return static_cast<long double>(valueAt(x)) - weight(x) * quick_(variable(x));
    }
    Quad exactError(long double x) { return valueAt(x) - weight<Quad>(x) * exact_(variable<Quad>(x)); }

    /// The errors at the reference, the bounds, and points between them.
    std::vector<Error> scannedErrors() {
        std::vector<long double> ends = reference_;
        if (ends.front() > problem_.lower) ends.insert(ends.begin(), problem_.lower);
        if (ends.back() < problem_.upper) ends.push_back(problem_.upper);
        std::vector<Error> errors;
        for (u64 i = 0; i + 1 < ends.size(); ++i)
            for (u64 j = 0; j < pointsPerGap; ++j) {
                const auto part = static_cast<long double>(j) / static_cast<long double>(pointsPerGap);
                const long double x = ends[i] + (ends[i + 1] - ends[i]) * part;
                errors.emplace_back(x, quickError(x));
            }
        errors.emplace_back(ends.back(), quickError(ends.back()));
        return errors;
    }

    /// The largest error of each run of one sign. So neighbours have different signs.
    std::vector<Error> extremaOf(const std::vector<Error>& errors) {
        std::vector<Error> extrema;
        for (u64 begin = 0, end = 0; begin < errors.size(); begin = end) {
            const bool isNegative = errors[begin].second < 0;
            u64 peak = begin;
            for (end = begin; end < errors.size() && (errors[end].second < 0) == isNegative; ++end)
                if (magnitude(errors[end].second) > magnitude(errors[peak].second)) peak = end;
            extrema.push_back(refined(errors, peak, isNegative ? -1 : 1));
        }
        return extrema;
    }

    Error refined(const std::vector<Error>& errors, u64 peak, int sign) {
        Error top = errors[peak];
        if (0 < peak && peak + 1 < errors.size()) {
            const auto upright = [&](const Error& error) { return Error(error.first, sign * error.second); };
            top = climb<long double>([&](long double x) { return sign * quickError(x); },
                                     upright(errors[peak - 1]), upright(top), upright(errors[peak + 1]));
        }
        return {top.first, static_cast<long double>(exactError(top.first))};
    }

    /// No polynomial has an error below any level at a reference.
    bool isBestWithin(double part) const {
        return best_.largest - possible_ <= part * possible_ + problem_.noise * scale_;
    }

    static Quad largestOf(const std::vector<Error>& extrema) {
        long double largest = 0;
        for (const Error& extremum : extrema) largest = std::max(largest, magnitude(extremum.second));
        return largest;
    }

    /// Takes as many of the extrema as the reference has points, and the largest among them. Of two
    /// neighbours that go together, what is left still alternates.
    void exchange(std::vector<Error> extrema) {
        const auto size = [](const Error& extremum) { return magnitude(extremum.second); };
        while (extrema.size() > reference_.size()) {
            const auto least =
                std::min_element(extrema.begin(), extrema.end(),
                                 [&](const auto& a, const auto& b) { return size(a) < size(b); });
            const bool isEnd = least == extrema.begin() || least + 1 == extrema.end();
            if (isEnd)
                extrema.erase(least);
            else if (extrema.size() == reference_.size() + 1)
                extrema.erase(size(extrema.front()) < size(extrema.back()) ? extrema.begin()
                                                                           : extrema.end() - 1);
            else
                extrema.erase(size(*(least - 1)) < size(*(least + 1)) ? least - 1 : least,
                              size(*(least - 1)) < size(*(least + 1)) ? least + 1 : least + 2);
        }
        if (extrema.size() < reference_.size()) return shiftReference();
        for (u64 i = 0; i < reference_.size(); ++i) reference_[i] = extrema[i].first;
        if (isOdd_ && reference_.front() == 0) reference_.front() = reference_[1] / 2;
    }

    /// A level of 0 leaves too few extrema where f and the reference have a symmetry in common. This breaks
    /// it.
    void shiftReference() {
        const auto count = static_cast<long double>(reference_.size());
        for (u64 i = 0; i + 1 < reference_.size(); ++i)
            reference_[i] +=
                (reference_[i + 1] - reference_[i]) * static_cast<long double>(i + 1) / (3 * count);
    }

    /// Those of the wrong parity are exactly 0.
    std::vector<Quad> coefficients() const {
        const ChebyshevNodes<Quad> nodes(problem_.degree + 1);
        const Quad low = isSquared_ ? -Quad(problem_.upper) : Quad(problem_.lower), high = problem_.upper;
        std::vector<Quad> values, c;
        for (u64 j = 0; j <= problem_.degree; ++j) {
            const Quad y = nodes.node(j), x = ((1 - y) * low + (1 + y) * high) / 2;
            values.push_back(weight(x) * best_.polynomial(variable(x)));
        }
        for (u64 k = 0; k <= problem_.degree; ++k) {
            const bool isTerm = !isSquared_ || (k % 2 == 1) == isOdd_;
            c.push_back(isTerm ? nodes.coefficient(values, k) : Quad(0));
        }
        return c;
    }

    const MinimaxProblem& problem_;
    bool isOdd_, isSquared_;
    u64 terms_;
    std::vector<long double> reference_; ///< ascending, terms_ + 1 of them
    Barycentric<Quad> exact_;
    Barycentric<long double> quick_; ///< the same rounded, to look for extrema with
    struct Attempt {
        Quad largest = 0;
        Barycentric<Quad> polynomial;
        std::vector<long double> reference;
    };
    Attempt best_;      ///< the one with the smallest largest error so far
    Quad level_ = 0;    ///< with its sign at the first point of the reference
    Quad possible_ = 0; ///< the largest level so far
    Quad scale_ = 0;    ///< the largest value of f so far
};

} // namespace

Minimax minimaxOf(const MinimaxProblem& problem) {
    return Exchange(problem).run();
}

} // namespace Torvo
