#pragma once

#include "core/Integers.hpp"
#include "functions/Messages.hpp"
#include "functions/Operations.hpp"

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/FunctionEvaluator.hpp>

#include <string>
#include <utility>
#include <vector>

namespace Torvo {

enum class Domain { All, OneSign, Positive, FromZero };

/// @throws RuntimeException function, " is given the interval from ", ...
void requireInterval(const std::string& function, double lower, double upper, Domain domain);
/// Refuses bounds of one sign with a ratio above 2^32, in whose functions doubles lose too many bits.
void requireRatio(const std::string& function, double lower, double upper);
/// @throws RuntimeException function, " is given the bound ", ...
void requireBound(const std::string& function, double bound);
/// @throws RuntimeException function, " is given the error ", ...
void requireErrorOf(const std::string& function, double error);

/// Makes sure of `levels` for numbers of `range`, of which a result up to `resultBound` is made. Numbers outside the
/// unit square keep one level more than others, for their own bootstrap: it must be there before the result is.
template <class Value>
void prepareFor(const Operations<Value>& operations, const std::string& what, u64 levels, const Range& range,
                double resultBound, std::vector<Value*> values) {
    const bool isRaised = operations.givesLevelsBack() && resultBound > 1 && range.bound <= 1;
    operations.prepare(what, levels + (isRaised ? 1 : 0), range, std::move(values));
}

/// f(in), as a part of a function that spends `levelsBehind` on the result. Where no levels are given back on the
/// way, a refusal names those of both together.
template <class Value>
Value evaluateFor(Evaluating<Value> on, const std::string& function, const Value& in,
                  const ChebyshevSeries& f, double resultBound, u64 levelsBehind = 0);

} // namespace Torvo
