#pragma once

#include "core/Integers.hpp"
#include "functions/Operations.hpp"
#include "functions/SeriesSplit.hpp"
#include "functions/SeriesTerms.hpp"

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Torvo {

/// The map of an interval [lower, upper] to [-1, 1], on which a Chebyshev basis lives: y = (x - middle) / half.
struct IntervalMap {
    double middle = 0;
    double half = 1;
};

/// That of a series.
inline IntervalMap intervalOf(const ChebyshevSeries& f) {
    const double lower = f.getLowerBound(), upper = f.getUpperBound();
    return {lower / 2 + upper / 2, upper / 2 - lower / 2};
}

/// A power of an argument, times a factor that whoever uses it takes out again: what the scales of levels, the map of
/// an interval and products of Chebyshev polynomials leave behind costs neither a level nor a product of its own.
template <class Value>
struct ScaledPower {
    Value value;
    double factor;
    u64 level;
};

/// Evaluates polynomials of one basis in one argument, which share its powers.
///
/// The powers are those of `SeriesSplit`, in the Chebyshev basis by T_(m+n) = 2 T_m T_n - T_|m-n|. The argument may
/// come with a factor: with that, an interval that is at most 4 wide needs no level to be mapped to [-1, 1], and a
/// wider one only where its powers would grow beyond `largestFactor`.
template <class Value>
class SeriesEvaluation {
public:
    /// Keeps a reference to the operations. The split is searched for here, once for as many evaluations as one likes.
    SeriesEvaluation(const Operations<Value>& operations, std::span<const SeriesTerms> series,
                     const IntervalMap& interval);

    /// What is spent by the polynomial of the highest degree.
    u64 levels() const { return (isMappedByLevel_ ? 1 : 0) + (isInSquares_ ? 1 : 0) + depth_; }
    /// Multiplies all polynomials by a factor, which is not 0.
    void scale(double factor);
    /// The values of all polynomials at `x`, each below the level of `x` by what its own degree spends.
    std::vector<Value> evaluate(const Value& x);

    /// The size up to which powers may grow: what rounds constants is then still far below what rounds products.
    static constexpr double largestFactor = 64;

private:
    using Power = ScaledPower<Value>;

    /// The integer by which a product of two powers with these factors is multiplied to come near the size of one,
    /// and the factor that it has then.
    std::pair<long, double> factorOfProduct(double first, double second) const;
    /// The factor that the argument has before it is raised to its powers, with a multiplication by an integer alone.
    std::pair<long, double> factorOfArgument() const;
    /// The largest factor of all powers of that argument.
    double growth() const;
    Power argument(const Value& x) const;
    Power product(u64 first, u64 second) const;
    double factorAt(const Power& power, u64 level) const;

    /// target * terms, at `depth`.
    Value part(const SeriesTerms& terms, u64 depth, double target) const;
    /// Adds that to a sum that owes a rescale.
    void addPart(const SeriesTerms& terms, u64 depth, double target, Value& sum, bool& isEmpty) const;
    void addTo(Value& sum, bool& isEmpty, Value&& term) const;
    /// Adds factor * c * T_index for each index and coefficient c, at `level`.
    void addMultiples(const std::vector<std::pair<u64, Coefficient>>& multiples, double factor, u64 level,
                      Value& sum, bool& isEmpty) const;
    void addNumber(const Coefficient& c, Value& in_out) const;
    Value number(const Value& x, const Coefficient& c) const;

    const Operations<Value>& operations_;
    std::vector<SeriesTerms> series_;
    IntervalMap interval_;
    std::optional<SeriesSplit> split_; ///< none where all polynomials are numbers
    bool isInSquares_ = false; ///< even polynomials are those of half the degree in the power of index 2
    bool isMappedByLevel_ = false;
    u64 depth_ = 0;
    std::map<u64, Power> powers_;
};

} // namespace Torvo
