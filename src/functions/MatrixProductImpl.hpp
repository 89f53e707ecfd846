#pragma once

#include "core/Integers.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "functions/LinearTransformImpl.hpp"
#include "functions/Operations.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>
#include <Torvo/HomEvaluator.hpp>

#include <algorithm>
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

    Ciphertext mult(const HomEvaluator& on, const Ciphertext& a, const Ciphertext& b) const;

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

/// Those of the shears, of the shifts and of the sum of products.
inline constexpr u64 levelsOfMatrixProduct = 3;

/// The last step of a product: the sum over k of the products of the k-th shifts, relinearised and rescaled together.
/// shifted(isFirst, begin, end) gives those from `begin` to `end` - 1 of one operand.
template <class Value, class Shifted>
Value sumOfShiftedProducts(const Operations<Value>& operations, u64 dimension, Shifted shifted) {
    // With more at once, what they keep until the division would fill as much memory as whole digits; with fewer, the
    // operand would be decomposed more often.
    constexpr u64 shiftsAtOnce = 8;
    Value sum = operations.unset(), product = operations.unset();
    for (u64 begin = 0; begin < dimension; begin += shiftsAtOnce) {
        const u64 end = std::min(begin + shiftsAtOnce, dimension);
        const auto left = shifted(true, begin, end);
        const auto right = shifted(false, begin, end);
        for (u64 k = 0; k < left.size(); ++k) {
            const bool isFirst = begin + k == 0;
            operations.tensor(left[k], right[k], isFirst ? sum : product);
            if (!isFirst) operations.add(sum, product, sum);
        }
    }
    operations.relinearize(sum);
    operations.rescale(sum);
    return sum;
}

} // namespace Torvo
