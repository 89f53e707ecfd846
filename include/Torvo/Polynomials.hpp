#pragma once

#include <Torvo/ChebyshevSeries.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>

#include <complex>
#include <vector>

namespace Torvo {

/// @name Polynomials of encrypted numbers
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says.
///
/// A polynomial of degree d spends ceil(log2(d + 1)) levels and about 2 sqrt(d) products (docs/functions.md has the
/// table). An interval that is at most 4 wide costs no level; a wider one costs one where the powers would grow too
/// large. The bits of the result: docs/functions.md, or a `Plan`.
///
/// Inputs are on slots, have two elements and owe no rescale; outside the interval the result is what the polynomial
/// makes of it, soon far from the function that it approximates. The output owes no rescale, and may be the input. A
/// refused call leaves it as it was. A bootstrapping evaluator keeps the level that a bootstrap of the result needs where
/// it leaves the unit square.
///
/// @throws RuntimeException in this order: the texts of `HomEvaluator` for operands; "evaluate of degree ", the degree,
///         " needs ", a number, " levels, but the ciphertext has ", a number, ". Bootstrap it first, or give a
///         BootstrappingEvaluator in place of the evaluator."; with a bootstrapping evaluator or a plan for one instead
///         the texts of `BootstrappingEvaluator`; "Failed to load the multiplication key"
/// @{

/// out = f(in). A bootstrapping evaluator takes the numbers for real ones of the interval.
template <class Value>
TORVO_API void evaluate(Evaluating<Value> on, const Value& in, const ChebyshevSeries& f, Value& out);

/// outs[k] = f[k](in), which share the powers of `in`. Each spends what its own degree asks for.
/// @throws RuntimeException also "[evaluate] The list of series is empty; give at least one", "[evaluate] Series ", its
///         number, " is on the interval from ", a number, " to ", a number, ", but the first one on that from ", a
///         number, " to ", a number, "; give series on one interval"
template <class Value>
TORVO_API void evaluate(Evaluating<Value> on, const Value& in, const std::vector<ChebyshevSeries>& f,
                        std::vector<Value>& outs);

/// A series of its own for each slot, or for each of equally long blocks of slots: with n slots, f[k] is that of the
/// slots from k n / f.size() on.
/// @throws RuntimeException also those of the form with many outputs; "[evaluate] The number of series is ", the
///         number, ", which does not divide the ", a number, " slots; give one for each block of equally many slots"
template <class Value>
TORVO_API void evaluateBlockwise(Evaluating<Value> on, const Value& in, const std::vector<ChebyshevSeries>& f,
                                 Value& out);

/// out = the sum over k of coefficients[k] in^k. For numbers in [-1, 1], real or complex: beyond degree 10 or so a
/// Chebyshev series loses fewer bits.
/// @param bound  what real and imaginary parts of `in` do not exceed, for a bootstrapping evaluator
/// @throws RuntimeException also the texts of `ChebyshevSeries` for its coefficients
template <class Value>
TORVO_API void evaluateMonomials(Evaluating<Value> on, const Value& in,
                                 const std::vector<std::complex<double>>& coefficients, Value& out,
                                 double bound = 1);
/// @}

} // namespace Torvo
