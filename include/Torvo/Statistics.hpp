#pragma once

#include <Torvo/Comparisons.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>
#include <Torvo/Message.hpp>

#include <vector>

namespace Torvo {

/// Which slots belong together: blocks of equally many slots, one after the other.
struct SlotBlocks {
    /// Slots of a block: a power of two, 1 for each slot by itself, or 0 for one block of all slots.
    unsigned long length = 0;
    /// What real and imaginary parts of the inputs do not exceed, for a bootstrapping evaluator.
    double bound = 1;
};

/// What a variance is divided by, where there are n numbers.
enum class Variance {
    Population, ///< n
    Sample,     ///< n - 1, for an estimate of the variance of what the numbers are drawn from
};

/// @name Statistics
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says.
///
/// The numbers are those in a block of slots; given many ciphertexts, those in the same block of all of them, so that n
/// is the length of a block times the number of ciphertexts. The result stands in every slot of its block. With
/// blocks of length 1 many ciphertexts are combined slot by slot.
///
/// A sum over blocks rotates by 1, 2, 4, ... to the left, and if a block is neither one slot nor all slots, by the same
/// steps to the right, for one level more. The keys for the powers of two that `genRotKeyBundle` makes suffice;
/// `PlanReport::leftRotations` names the few that a call needs. Factors such as 1/n cost no level of their own beside
/// a mask or another product.
///
/// | | levels, blocks of 1 or all slots | other blocks | products of ciphertexts |
/// | --- | --- | --- | --- |
/// | `sum` | 0 | 1 | |
/// | `mean` | 1, or 0 for a single number | 1 | |
/// | `innerProduct`, `squaredDistance` | 1 | 2 | 1 for each, and one relinearisation for all |
/// | `variance`, `covariance` | 2, or 1 for a single number | 3 | the same |
/// | `weightedMean` | 1 | 2 | |
/// | of encrypted weights | 1 and `inverse` | 2 and `inverse` | 1 for each, 1, and those of `inverse` |
/// | `distance` | 1 and `sqrt` | 2 and `sqrt` | also those of `sqrt` |
/// | `correlation` | 4 and `inverseSqrt` | 5 and `inverseSqrt` | 3 for each, 2, and those of 2 `inverseSqrt` |
/// | `histogram` | those of a sign | 1 more | those of a sign, for each number and each edge |
///
/// Without bootstraps a function of several stages asks for the levels of all of them before it computes anything, and
/// for all keys of rotations.
///
/// Inputs are on slots, have two elements and owe no rescale; their levels may differ. The output owes no rescale, and
/// may be an input. A refused call leaves it as it was.
///
/// @throws RuntimeException in this order, each behind the name of the function: " is given no ciphertext; give at
///         least one"; " is given ", a number, " ciphertexts, and ", a number, " to go with them; give as many of
///         both"; the texts of `HomEvaluator` for operands; " is given blocks of ", a number, " slots; give a power
///         of two up to the ", a number, " slots of the ciphertext, or 0 for one block of all"; " is given the bound
///         ", a number, "; give a positive, finite one". Then the texts of `evaluate` for levels, with this name, and
///         for keys
/// @{

/// Of real or complex numbers.
template <class Value>
TORVO_API void sum(Evaluating<Value> on, const Value& x, Value& out, const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void sum(Evaluating<Value> on, const std::vector<Value>& x, Value& out,
                   const SlotBlocks& blocks = {});

/// Of real or complex numbers.
template <class Value>
TORVO_API void mean(Evaluating<Value> on, const Value& x, Value& out, const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void mean(Evaluating<Value> on, const std::vector<Value>& x, Value& out,
                    const SlotBlocks& blocks = {});

/// The sum of w x over the sum of w. The weights are in the clear, a message for each ciphertext.
/// @throws RuntimeException behind the text of the bound: " is given weights whose sum in block ", its number, " is
///         ", a number, "; give finite ones with a sum that is not 0"; the texts of `HomEvaluator` for messages
template <class Value>
TORVO_API void weightedMean(Evaluating<Value> on, const Value& x, const Message& weights, Value& out,
                            const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void weightedMean(Evaluating<Value> on, const std::vector<Value>& x,
                            const std::vector<Message>& weights, Value& out, const SlotBlocks& blocks = {});

/// The same of encrypted weights: real numbers, all of them 0 or more, or all of them 0 or less. Their sum in each block
/// lies between `lowest` and `highest`, which are both positive or both negative. The error is that of the division;
/// with a bootstrapping evaluator the error of a bootstrap grows with the largest 1 / sum.
/// @throws RuntimeException behind the text of the bound: those of `inverse` for an interval and an error, with this
///         name
template <class Value>
TORVO_API void weightedMean(Evaluating<Value> on, const Value& x, const Value& weights, double lowest,
                            double highest, double error, Value& out, const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void weightedMean(Evaluating<Value> on, const std::vector<Value>& x,
                            const std::vector<Value>& weights, double lowest, double highest, double error,
                            Value& out, const SlotBlocks& blocks = {});

/// The sum of x y, of real or complex numbers, none of them conjugated.
template <class Value>
TORVO_API void innerProduct(Evaluating<Value> on, const Value& x, const Value& y, Value& out,
                            const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void innerProduct(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                            Value& out, const SlotBlocks& blocks = {});

/// Of real numbers, as all that follow. The mean is subtracted before the squares are taken, so that numbers that are
/// far from 0 lose no bits.
/// @throws RuntimeException behind the text of the bound: " of a sample takes two numbers or more, but this sample
///         has one; give more slots or ciphertexts, or take it for the population"
template <class Value>
TORVO_API void variance(Evaluating<Value> on, const Value& x, Variance kind, Value& out,
                        const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void variance(Evaluating<Value> on, const std::vector<Value>& x, Variance kind, Value& out,
                        const SlotBlocks& blocks = {});

/// @throws RuntimeException as `variance`
template <class Value>
TORVO_API void covariance(Evaluating<Value> on, const Value& x, const Value& y, Variance kind, Value& out,
                          const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void covariance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                          Variance kind, Value& out, const SlotBlocks& blocks = {});

/// The covariance over the square root of both variances, which lie between `lowest` and `highest`. The error is that
/// of `inverseSqrt`, chosen so that the result errs by no more than `error`.
/// @throws RuntimeException behind the text of the bound: those of `inverseSqrt` for an interval and an error, with
///         this name
template <class Value>
TORVO_API void correlation(Evaluating<Value> on, const Value& x, const Value& y, double lowest,
                           double highest, double error, Value& out, const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void correlation(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                           double lowest, double highest, double error, Value& out,
                           const SlotBlocks& blocks = {});

/// The sum of (x - y)^2.
template <class Value>
TORVO_API void squaredDistance(Evaluating<Value> on, const Value& x, const Value& y, Value& out,
                               const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void squaredDistance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                               Value& out, const SlotBlocks& blocks = {});

/// The Euclidean distance: the root of the squared one, which lies between `lowest`, 0 or more, and `highest`.
/// @throws RuntimeException behind the text of the bound: those of `sqrt` for an interval and an error, with this name
template <class Value>
TORVO_API void distance(Evaluating<Value> on, const Value& x, const Value& y, double lowest, double highest,
                        double error, Value& out, const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void distance(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<Value>& y,
                        double lowest, double highest, double error, Value& out,
                        const SlotBlocks& blocks = {});

/// outs[k] = how many of the numbers lie between edges[k] and edges[k + 1]: one output less than there are edges.
///
/// The numbers lie within the bound of `blocks`. Each edge within it is compared with all numbers, once for both of its
/// bins, by a sign (`Comparisons.hpp`) of numbers up to B, which is the bound and the largest magnitude of these edges
/// together. An edge at the bound or beyond, an infinite one too, takes no comparison.
///
/// A number that is 2^-margin B or more from every edge counts as 1 in its bin and as 0 in the others, within 2^-error;
/// one that is closer to an edge counts partly in both of its bins, and in all bins together as 1, if the first and the
/// last edge are farther from it. So the count of a bin errs by n 2^-error at most, beside the numbers close to its
/// edges; and all counts together are n, without such an error, where the first and the last edge are not within the
/// bound. Bins should be wider than 2^(1 - margin) B: in narrower ones a number may count as anything from -1 to 1.
/// @throws RuntimeException behind the text of the bound: that of bounds of `Comparisons.hpp`; "histogram takes two
///         edges or more, but is given ", a number, "; give both ends of each bin"; "histogram is given edge ", its
///         number, " at ", a number, ", but the one in front of it at ", a number, "; give edges in ascending order";
///         the texts of `Comparisons.hpp` for accuracies and noise
template <class Value>
TORVO_API void histogram(Evaluating<Value> on, const Value& x, const std::vector<double>& edges,
                         std::vector<Value>& outs, const Accuracy& accuracy = {},
                         const SlotBlocks& blocks = {});
template <class Value>
TORVO_API void histogram(Evaluating<Value> on, const std::vector<Value>& x, const std::vector<double>& edges,
                         std::vector<Value>& outs, const Accuracy& accuracy = {},
                         const SlotBlocks& blocks = {});
/// @}

} // namespace Torvo
