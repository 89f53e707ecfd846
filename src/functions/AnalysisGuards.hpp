#pragma once

#include "core/Integers.hpp"
#include "functions/Messages.hpp"
#include "functions/Operations.hpp"

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

/// @throws RuntimeException function, " is given ", first, " ciphertexts, and ", second, ...
void requireAsMany(const std::string& function, u64 first, u64 second);
/// The same for one pair or more.
/// @throws RuntimeException function, " is given no ciphertext; give at least one"; as `requireAsMany`
void requirePairs(const std::string& function, u64 first, u64 second);

/// Whether `prepareFor` asks what a result is bounded by.
template <class Value>
bool dependsOnResult(const Operations<Value>& operations, const Range& range) {
    return operations.givesLevelsBack() && range.bound <= 1;
}

/// Makes sure of `levels` for numbers of `range`, of which a result up to `resultBound` is made. Numbers outside the
/// unit square keep one level more than others, for their own bootstrap: it must be there before the result is.
template <class Value>
void prepareFor(const Operations<Value>& operations, const std::string& what, u64 levels, const Range& range,
                double resultBound, std::vector<Value*> values) {
    const bool isRaised = dependsOnResult(operations, range) && resultBound > 1;
    operations.prepare(what, levels + (isRaised ? 1 : 0), range, std::move(values));
}

} // namespace Torvo
