#pragma once

#include "core/Integers.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "functions/LinearTransformImpl.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

#include <set>
#include <vector>

namespace Torvo {

class HomEvaluatorImpl;

/// The permutations of the slots of d x d matrices, packed by rows, of which a product is made. With indices modulo d,
/// entry (i, j) of the image of M is
///
///   M(i, i + j) for the shear of the first operand, M(i + j, j) for that of the second;
///   M(i, j + k) for its k-th shift, M(i + k, j) for that of the second;
///
/// and the product is the sum over k < d of the products, entry by entry, of the k-th shifts of the sheared operands.
class MatrixPermutations {
public:
    explicit MatrixPermutations(u64 dimension) : d_(dimension) {}

    std::vector<u64> shearOfFirst() const;
    std::vector<u64> shearOfSecond() const;
    std::vector<u64> shiftOfFirst(u64 k) const;
    std::vector<u64> shiftOfSecond(u64 k) const;
    std::vector<u64> transposition() const;

private:
    template <class SourceOf>
    std::vector<u64> sources(SourceOf sourceOf) const;
    u64 d_;
};

/// The record behind a matrix product.
class MatrixProductImpl {
public:
    MatrixProductImpl(const Context& context, u64 dimension, const TransformPlace& place);

    const Context& getContext() const { return first_.shear.getContext(); }
    u64 getDimension() const { return dimension_; }
    const TransformPlace& getPlace() const { return first_.shear.getPlace(); }
    std::set<u64> rotationIndices() const;
    static std::set<u64> rotationIndices(const Context& context, u64 dimension, const TransformPlace& place);

    Ciphertext mult(const HomEvaluatorImpl& evaluator, const Ciphertext& a, const Ciphertext& b) const;

private:
    struct Side {
        EncodedTransformImpl shear;
        std::vector<EncodedTransformImpl> shifts;
    };
    static std::vector<Ciphertext> shifted(const HomEvaluatorImpl& evaluator, const Ciphertext& sheared,
                                           const Side& side, u64 begin, u64 end);

    u64 dimension_;
    Side first_, second_;
};

/// @throws RuntimeException "[MatrixProduct] the matrices have ", the number and so on
void requireMatrixDimension(u64 dimension);

} // namespace Torvo
