#pragma once

#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>

namespace Torvo {

/// @name Functions of analysis
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says.
///
/// Every slot holds a real number x, and a domain is stated for it. On the domain the function that is computed differs
/// from the one that is named by no more than `error`, an absolute number; the errors of the operations come on top,
/// and a `Plan` predicts them: an error far below theirs costs levels and gains nothing. Outside the domain the result
/// is any number.
///
/// The function is a Chebyshev series of the lowest degree d that suffices, at ceil(log2(d + 1)) levels; or, where the
/// domain asks for too high a degree, a short series and steps that double its digits (with a bootstrapping evaluator
/// from degree 128 on). What needs the fewest levels is taken, and of that what needs the fewest products.
/// docs/functions.md has degrees and levels; a `Plan` says them for any domain.
///
/// Inputs are on slots, have two elements and owe no rescale. The output owes no rescale, and may be the input. A
/// refused call leaves it as it was.
///
/// @throws RuntimeException in this order, each behind the name of the function: " is given the interval from ", a
///         number, " to ", a number, and what is allowed; " is given the bound ", a number, "; give a positive, finite
///         one"; " is given the error ", a number, "; give a positive, finite one". Then the texts of `HomEvaluator`
///         for operands; those of `ChebyshevSeries` for an error that no series comes down to; those of `evaluate` for
///         levels, with the name of the function in place of "evaluate of degree" and a degree, and for keys
/// @{

/// out = 1 / in, for in from `lower` to `upper`: both positive, or both negative. With a bootstrapping evaluator the
/// error of a bootstrap grows with the largest |1 / in|.
/// @throws RuntimeException of the interval: "; give bounds of one sign, the lower one first, and both finite and not
///         0"; behind the text of the error: " is given the interval from ", a number, " to ", a number, "; give
///         bounds with a ratio of 2^32 at most, or allow a larger error for a square root near 0"
template <class Value>
TORVO_API void inverse(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                       Value& out);

/// out = the square root of in, for in from `lower`, which is 0 or more, to `upper`.
/// @throws RuntimeException of the interval: "; give finite bounds of 0 or more, the lower one first"; behind those
///         for the operand: the text of `inverse` for a ratio, where no series comes down to the error and the ratio
///         of `upper` to the larger of `lower` and error^2 is above 2^32
template <class Value>
TORVO_API void sqrt(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                    Value& out);

/// out = 1 / sqrt(in), for in from `lower`, which is positive, to `upper`.
/// @throws RuntimeException of the interval: "; give positive, finite bounds, the lower one first"; behind those for
///         the operand: the text of `inverse` for a ratio, where no series comes down to the error
template <class Value>
TORVO_API void inverseSqrt(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                           Value& out);

/// out = e^in, for in from `lower` to `upper`. The error is absolute: it is at least 2^-52 of e^upper.
/// @throws RuntimeException of the interval: "; give the lower bound first, and both finite"
template <class Value>
TORVO_API void exp(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                   Value& out);

/// out = the natural logarithm of in, for in from `lower`, which is positive, to `upper`. The degree grows with
/// sqrt(upper / lower), so that intervals with upper / lower above 2^13 or so are refused, by the text of
/// `ChebyshevSeries` for an error that no degree comes down to.
/// @throws RuntimeException of the interval: "; give positive, finite bounds, the lower one first"
template <class Value>
TORVO_API void log(Evaluating<Value> on, const Value& in, double lower, double upper, double error,
                   Value& out);

/// out = 1 / (1 + e^-in), for |in| up to `bound`, as all that follow.
template <class Value>
TORVO_API void sigmoid(Evaluating<Value> on, const Value& in, double bound, double error, Value& out);

/// out = the hyperbolic tangent of in.
template <class Value>
TORVO_API void tanh(Evaluating<Value> on, const Value& in, double bound, double error, Value& out);

/// out = in times the normal distribution's probability of numbers up to in: in (1 + erf(in / sqrt(2))) / 2.
template <class Value>
TORVO_API void gelu(Evaluating<Value> on, const Value& in, double bound, double error, Value& out);

/// out = the sine of in.
template <class Value>
TORVO_API void sin(Evaluating<Value> on, const Value& in, double bound, double error, Value& out);

/// out = the cosine of in.
template <class Value>
TORVO_API void cos(Evaluating<Value> on, const Value& in, double bound, double error, Value& out);

/// out = e^in divided by the sum of e^in over the block of `length` slots that the slot is in; a length of 0 stands
/// for all slots. The sums lie between n e^(-2 bound) and n of what is divided by e^bound first, for a length of n,
/// so that the error of an operation grows by e^(2 bound) / n: the bound is better small. Rotations: those of `sum`.
/// @throws RuntimeException behind the text of the bound: " is given blocks of ", a number, " slots; give a power of
///         two up to the ", a number, " slots of the ciphertext, or 0 for one block of all", behind those for the
///         operand
template <class Value>
TORVO_API void softmax(Evaluating<Value> on, const Value& in, double bound, double error, Value& out,
                       unsigned long length = 0);
/// @}

} // namespace Torvo
