#pragma once

#include <Torvo/CachedMatrixProduct.hpp>
#include <Torvo/CachedTransform.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/FunctionEvaluator.hpp>

#include <vector>

namespace Torvo {

/// What a bootstrapping evaluator has to know of the numbers of a linear function.
struct LinearBounds {
    /// What real and imaginary parts of the inputs do not exceed.
    double bound = 1;
    /// Whether imaginary parts of the inputs are but errors, which a bootstrap may take away.
    bool isReal = false;
    /// What real and imaginary parts of the results do not exceed; 0 for what follows from `bound` and the matrices.
    double resultBound = 0;
};

/// @name Linear functions of encrypted numbers
/// `Value` is `Ciphertext`, `Message` or `PlannedCiphertext`; the first argument is what `FunctionEvaluator` says. For
/// those who manage levels and encode beforehand there are `EncodedTransform` and `MatrixProduct`.
///
/// A transform may be given as a `LinearTransform`, and is encoded for the call then; or as a `CachedTransform`, which
/// keeps what was encoded for the next call. `MatrixProduct::transposition` is one that transposes matrices. A product
/// may be given as the dimension of its matrices, or as a `CachedMatrixProduct`.
///
/// Transforms spend one level, products of matrices three, both from that of the lowest input. Inputs are on slots, have
/// two elements, equally many slots, and owe no rescale; their levels may differ. Outputs owe nothing and may be inputs.
/// A refused call leaves them as they were.
///
/// @throws RuntimeException in this order: the texts of `HomEvaluator` for operands, one after the other; "Two operands
///         have different logSlots"; the name of the function, " is given the bound ", a number, "; give a positive,
///         finite one"; those of `CachedTransform::getRotationIndices`; "Failed to load the left rotation key for index "
///         and the index, or "Failed to load the left rotation keys for indices " and all that are missing; the texts of
///         `evaluate` for levels, with the name of the function; "[encode] Cannot encode the ..." for entries that are
///         too large for the level
/// @{

/// The transform of `in`.
template <class Value>
TORVO_API void applyTransform(Evaluating<Value> on, const Value& in, const CachedTransform& transform,
                              Value& out, const LinearBounds& bounds = {});

/// Several transforms of one input, which share the decomposition and the rotations that several of them need: outs[k]
/// is that of transforms[k].
template <class Value>
TORVO_API void applyTransform(Evaluating<Value> on, const Value& in,
                              const std::vector<CachedTransform>& transforms, std::vector<Value>& outs,
                              const LinearBounds& bounds = {});

/// The sum over k of the transform transforms[k] of ins[k], divided by the temporary primes and rescaled once.
/// @throws RuntimeException before all others: "sumOfTransforms is given no ciphertext; give at least one";
///         "sumOfTransforms is given ", a number, " ciphertexts, and ", a number, " to go with them; give as many of both"
template <class Value>
TORVO_API void sumOfTransforms(Evaluating<Value> on, const std::vector<Value>& ins,
                               const std::vector<CachedTransform>& transforms, Value& out,
                               const LinearBounds& bounds = {});

/// The products of the matrices of `a` with those of `b`, packed as `MatrixProduct` says.
/// @throws RuntimeException behind the texts for rotation keys: "Failed to load the multiplication key"
template <class Value>
TORVO_API void multiplyMatrices(Evaluating<Value> on, const Value& a, const Value& b,
                                const CachedMatrixProduct& product, Value& out,
                                const LinearBounds& bounds = {});
/// @}

} // namespace Torvo
