#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>

namespace Torvo {

/// How close a comparison is to the exact one, in bits: 4 to 16 of each.
///
/// A comparison is a polynomial, and so goes steadily from one result to the other. Closer to the threshold than the
/// margin its result lies anywhere between both. More of either costs levels: docs/functions.md has the table.
struct Accuracy {
    unsigned margin = 8; ///< 2^-margin of the largest difference that can be
    unsigned error = 8;  ///< 2^-error of a result that is as large as 1
};

/// @name Comparisons of encrypted numbers
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says. All
/// inputs are real numbers in [-bound, bound], on slots; inputs have two elements and owe no rescale. What lies
/// outside is soon as far off as a polynomial of a high degree makes it.
///
/// Each is made of the same sign, a composite of polynomials: for one of a number x with |x| <= B, where B depends on
/// the function, the sign is within 2^-error of -1 or 1 for |x| >= 2^-margin B, and between -1 - 2^-error and
/// 1 + 2^-error elsewhere. To the error comes that of the ciphertexts, at most an eighth of it: where more is to be
/// expected, the call is refused.
///
/// | function | B | levels | closer to the edge than the margin |
/// | --- | --- | --- | --- |
/// | `sign`, `step` | bound | those of the sign | between the results of both sides |
/// | `abs`, `relu` | bound | one more | between 0 and the result |
/// | `isBelow` | 2 bound | those of the sign | between 0 and 1 |
/// | `max`, `min` | 2 bound | one more | between both numbers |
/// | `clamp` | bound + the larger of abs(lower) and abs(upper) | one more | between the number and the end |
/// | `isInInterval` | the same | those of the sign | between 0 and 1 |
///
/// The table holds for B up to 2; a larger one costs one level more where its powers would grow too large
/// (`Polynomials.hpp`). A bootstrapping evaluator bootstraps in front of the first stage of the composite that has not
/// the levels, and inputs are bootstrapped with it where their level is as low: two real ciphertexts take one
/// bootstrap.
///
/// The output owes no rescale, and may be an input. A refused call leaves it as it was.
///
/// @throws RuntimeException in this order: the texts of `HomEvaluator` for operands; the name of the function, " is
///         given the bound ", the bound, " of its numbers; give one from 2^-32 to 2^32"; for an interval the name,
///         " is given the interval from ", the lower bound, " to ", the upper one, "; give the lower bound first, and
///         both within the bound of the numbers"; the name, " is asked for with a margin of 2^-", the margin, " and an
///         error of 2^-", the error, "; give 4 to 16 bits of margin and 4 to 16 bits of error"; the name, " needs signs
///         from 2^-", the margin, " on, within 2^-", the error, ", but the noise of this parameter lets 2^-", a number,
///         " be promised at best. Allow a larger error or take a parameter with a larger scale.", or " lets no error be
///         promised there. Take a larger margin or a parameter with a larger scale."; the name, " needs ", a number, "
///         levels, but the ciphertext has ", a number, ". Bootstrap it first, or give a BootstrappingEvaluator in place
///         of the evaluator."; with a bootstrapping evaluator or a plan for one instead the texts of
///         `BootstrappingEvaluator`; "Failed to load the multiplication key"
/// @{

/// out = 1 where in > 0, -1 where in < 0.
template <class Value>
TORVO_API void sign(Evaluating<Value> on, const Value& in, double bound, Value& out,
                    const Accuracy& accuracy = {});

/// out = 1 where in > 0, 0 where in < 0, both within half of 2^-error.
template <class Value>
TORVO_API void step(Evaluating<Value> on, const Value& in, double bound, Value& out,
                    const Accuracy& accuracy = {});

/// out = 1 where a < b, 0 where a > b, both within half of 2^-error.
template <class Value>
TORVO_API void isBelow(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
                       const Accuracy& accuracy = {});

/// out = the larger number of each slot, within 2^-error bound.
template <class Value>
TORVO_API void max(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
                   const Accuracy& accuracy = {});

/// out = the smaller number of each slot, within 2^-error bound.
template <class Value>
TORVO_API void min(Evaluating<Value> on, const Value& a, const Value& b, double bound, Value& out,
                   const Accuracy& accuracy = {});

/// out = |in|, within 2^-error bound.
template <class Value>
TORVO_API void abs(Evaluating<Value> on, const Value& in, double bound, Value& out,
                   const Accuracy& accuracy = {});

/// out = in where in > 0, 0 where in < 0, within half of 2^-error bound.
template <class Value>
TORVO_API void relu(Evaluating<Value> on, const Value& in, double bound, Value& out,
                    const Accuracy& accuracy = {});

/// out = in within [lower, upper], and the closer end outside, within 2^-error B.
template <class Value>
TORVO_API void clamp(Evaluating<Value> on, const Value& in, double lower, double upper, double bound,
                     Value& out, const Accuracy& accuracy = {});

/// out = 1 where lower < in < upper, 0 outside, within 2^-error.
template <class Value>
TORVO_API void isInInterval(Evaluating<Value> on, const Value& in, double lower, double upper, double bound,
                            Value& out, const Accuracy& accuracy = {});
/// @}

} // namespace Torvo
