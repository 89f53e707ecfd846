#pragma once

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/HomEvaluator.hpp>
#include <Torvo/LinearTransform.hpp>

#include <memory>
#include <vector>

namespace Torvo {

class MatrixProductImpl;

/// Products of encrypted square matrices of d rows, d being a power of two. A matrix lies row by row in d * d slots:
/// its entry (i, j) in slot i d + j. With more slots in use there are several matrices, one behind the other, and
/// each is multiplied with the one that lies at the same place in the other ciphertext.
///
/// A product spends three levels: one for the shears of both operands (the first along its rows, the second along its
/// columns), one for the d shifts of each, and one for the sum of the d products, which are relinearized and rescaled
/// once. Source: Jiang, Kim, Lauter, Song, "Secure Outsourced Matrix Computation", IACR ePrint 2018/1041.
///
/// It needs the multiplication key, and rotation keys of about 3 d indices, 4 d with more than d * d slots.
/// Memory: about 6 d encoded rotations, twice as many with more slots (`EncodedTransform`).
///
/// Copies share the data, which never change. Any number of threads may use one.
class TORVO_API MatrixProduct {
public:
    /// For matrices of `dimension` rows in ciphertexts with 2^log_slots slots in use, which come to `level` or above
    /// it.
    /// @throws RuntimeException "The context is null. Make one with makeContext."; with a text that begins with
    ///         "[MatrixProduct] ", in this order: for a dimension that is no power of two or above 512; a level below
    ///         3 or above the chain. As the constructor of `EncodedTransform`, for the number of slots
    MatrixProduct(const Context& context, unsigned long dimension, unsigned long log_slots,
                  unsigned long level);

    const Context& getContext() const;
    unsigned long getDimension() const;
    unsigned long getLogSlots() const;
    unsigned long getLevel() const;
    /// The indices of the left rotation keys that it needs, in ascending order (`KeyGenerator::genLeftRotKey`).
    std::vector<unsigned long> getRotationIndices() const;
    /// The same before anything is encoded, for the constructor of the same arguments.
    /// @throws RuntimeException as the constructor
    static std::vector<unsigned long> getRotationIndices(const Context& context, unsigned long dimension,
                                                         unsigned long log_slots, unsigned long level);

    /// Writes the products of the matrices of `a` with those of `b`, three levels below that of this object, with the
    /// same slots in use and nothing owed. An operand above that level is brought down to it first. `out` may be an
    /// operand, and is unchanged where the call is refused.
    /// @throws RuntimeException as `EncodedTransform::apply` for `a`, then for `b`, except for keys; those that are
    ///         missing are all named then. "Failed to load the multiplication key"
    void mult(const HomEvaluator& evaluator, const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const;

    /// The map of each matrix to its transpose, a permutation of slots by 2 d - 1 rotations.
    /// @throws RuntimeException "[MatrixProduct] ", for a dimension as above
    static LinearTransform transposition(unsigned long dimension);

private:
    std::shared_ptr<const MatrixProductImpl> impl_;
};

} // namespace Torvo
