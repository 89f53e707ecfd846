#pragma once

#include <Torvo/Comparisons.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>

namespace Torvo {

/// The order of a sort.
enum class Order { Ascending, Descending };

/// @name Sorting of encrypted numbers
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says. The
/// n numbers are the slots of a message of exactly n slots, n a power of two from 2 to 128; they are real and in
/// [-bound, bound]. A ciphertext of n slots holds them over and over, so it is read with n^2 slots, and all pairs are
/// compared at once; the ring needs as many. With n = 2^m, the keys are those of rotations to the left by 1, 2, 4, ...,
/// n^2 / 2, and a bootstrapper needs the constants for 2m log slots. The output has n slots again.
///
/// Levels: two to spread the numbers; those of a sign (`Comparisons.hpp`) of margin + 1 bits of margin, which compares
/// them; those of a second sign of m + 2 bits of margin, which compares ranks with places; and some more. Both signs
/// have at least 4 bits of each, and at most 16.
///
/// | function | bits of error of the first sign | of the second | levels more | error of the result, up to |
/// | --- | --- | --- | --- | --- |
/// | `rank` | error + m - 1 | none | 0 | 2^-error |
/// | `argmax` | m + 1 | error | 0 | 2^-error |
/// | `max` | error + m + 2 | error + m | 1 | 2^-error bound |
/// | `sort`, `topK` | error + m + 2 | error + m | 2 | 2^-error bound |
///
/// **Numbers that are close.** Equal numbers keep the order of their slots. Numbers that differ by more than
/// 2^(1 - margin) (1 + 2^-margin) bound, the margin for short, are told apart. Where all numbers are equal or differ by
/// more than the margin, the results are the exact ones within their errors.
///
/// Numbers that are closer without being equal form clusters, together with all that are closer than the margin to one
/// of them. A cluster of k numbers takes k neighbouring places of the sorted list, and the other places are as if it
/// were exact. What stands in its places:
/// - Of two numbers, in both places one between them, within 2^(1 - error) bound (or 2^(m - 13) bound, where that is
///   more), and both together have the sum of the two. So two close numbers may be exchanged, but none is lost.
/// - Of three or more, sums of parts of them, where the parts of each number add up to one: the sum of the list is kept,
///   but a place may hold nothing and its neighbour two numbers. Ranks alone do not tell such numbers apart; give a
///   margin of more bits, or round what you encrypt to multiples of the margin.
///
/// So does `max`, whose cluster is that of the largest number; in its slots `argmax` gives parts of 1.
///
/// The output owes no rescale, and may be the input. A refused call leaves it as it was.
///
/// @throws RuntimeException in this order: the texts of `HomEvaluator` for operands; the name of the function, " takes
///         2 to 128 numbers, one in each slot, but is given ", a number, " slots; encrypt a message of as many slots as
///         there are numbers"; the name, " of ", n, " numbers compares them in ", their square, " slots, but the ring
///         has ", a number, "; take fewer numbers or a larger ring"; of `topK` "topK is asked for the largest ", the
///         count, " of ", n, " numbers; give 1 to as many as there are"; the text of bounds of `Comparisons.hpp`; that
///         of accuracies, with 15 bits of margin at most, and 16 - m bits of error (16 for `argmax`, 17 - m for `rank`,
///         but 16 at most); "Failed to load the left rotation keys for indices " and all that are missing; the texts of
///         noise and of levels of `Comparisons.hpp`; "Failed to load the multiplication key"
/// @{

/// out = for each number the count of those that stand before it when they are sorted: 0 to n - 1.
template <class Value>
TORVO_API void rank(Evaluating<Value> on, const Value& in, double bound, Value& out,
                    const Accuracy& accuracy = {}, Order order = Order::Ascending);

/// out = the numbers in order, the first one in slot 0.
template <class Value>
TORVO_API void sort(Evaluating<Value> on, const Value& in, double bound, Value& out,
                    const Accuracy& accuracy = {}, Order order = Order::Ascending);

/// out = the `count` largest numbers, the largest one in slot 0; 0 in the other slots.
template <class Value>
TORVO_API void topK(Evaluating<Value> on, const Value& in, unsigned long count, double bound, Value& out,
                    const Accuracy& accuracy = {});

/// out = 1 in the slot of the largest number, the first of several; 0 in the others.
template <class Value>
TORVO_API void argmax(Evaluating<Value> on, const Value& in, double bound, Value& out,
                      const Accuracy& accuracy = {});

/// out = the largest number in every slot.
template <class Value>
TORVO_API void max(Evaluating<Value> on, const Value& in, double bound, Value& out,
                   const Accuracy& accuracy = {});
/// @}

} // namespace Torvo
