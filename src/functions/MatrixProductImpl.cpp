#include "functions/MatrixProductImpl.hpp"

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/OutputShape.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/CipherOperations.hpp"
#include "functions/Messages.hpp"
#include "persistence/Limits.hpp"

#include <algorithm>
#include <bit>
#include <span>
#include <utility>

namespace Torvo {

namespace {

void requireLevel(const Context& context, u64 level) {
    const u64 top = context->parameter.chain_length - 1;
    if (level < levelsOfMatrixProduct || level > top)
        throw RuntimeException(
            message::matrixProductLevel(level, context->parameter.name, levelsOfMatrixProduct, top));
}

/// The transforms of a product, and where they are applied.
struct Recipe {
    Recipe(const Context& context, u64 dimension, const TransformPlace& place)
        : permutations(dimension), shearPlace(place), shiftPlace{place.log_slots, place.level - 1},
          factor(productCorrection(context, place.level - 2)) {}

    LinearTransformImpl shearOfFirst() const {
        return LinearTransformImpl::permutation(permutations.shearOfFirst(), 1.0);
    }
    LinearTransformImpl shearOfSecond() const {
        return LinearTransformImpl::permutation(permutations.shearOfSecond(), 1.0);
    }
    LinearTransformImpl shiftOfFirst(u64 k) const {
        return LinearTransformImpl::permutation(permutations.shiftOfFirst(k), factor);
    }
    LinearTransformImpl shiftOfSecond(u64 k) const {
        return LinearTransformImpl::permutation(permutations.shiftOfSecond(k), 1.0);
    }

    MatrixPermutations permutations;
    TransformPlace shearPlace, shiftPlace;
    double factor;
};

constexpr u64 anyKeys = ~u64{0};

} // namespace

void requireMatrixDimension(u64 dimension) {
    const u64 most = u64{1} << (std::countr_zero(limit::degree / 2) / 2);
    if (!std::has_single_bit(dimension) || dimension > most)
        throw RuntimeException(message::matrixDimension(dimension, most));
}

// ---- the permutations

template <class SourceOf>
std::vector<u64> MatrixPermutations::sources(SourceOf sourceOf) const {
    std::vector<u64> all;
    all.reserve(d_ * d_);
    for (u64 i = 0; i < d_; ++i)
        for (u64 j = 0; j < d_; ++j) {
            const auto [row, column] = sourceOf(i, j);
            all.push_back(row % d_ * d_ + column % d_);
        }
    return all;
}

std::vector<u64> MatrixPermutations::shearOfFirst() const {
    return sources([](u64 i, u64 j) { return std::pair{i, i + j}; });
}

std::vector<u64> MatrixPermutations::shearOfSecond() const {
    return sources([](u64 i, u64 j) { return std::pair{i + j, j}; });
}

std::vector<u64> MatrixPermutations::shiftOfFirst(u64 k) const {
    return sources([k](u64 i, u64 j) { return std::pair{i, j + k}; });
}

std::vector<u64> MatrixPermutations::shiftOfSecond(u64 k) const {
    return sources([k](u64 i, u64 j) { return std::pair{i + k, j}; });
}

std::vector<u64> MatrixPermutations::transposition() const {
    return sources([](u64 i, u64 j) { return std::pair{j, i}; });
}

// ---- the product

namespace {

const Context& requireProduct(const Context& context, u64 dimension, u64 level) {
    requireContext(context);
    requireMatrixDimension(dimension);
    requireLevel(context, level);
    return context;
}

} // namespace

MatrixProductImpl::MatrixProductImpl(const Context& context, u64 dimension, const TransformPlace& place)
    : dimension_(dimension), first_{EncodedTransformImpl(requireProduct(context, dimension, place.level)),
                                    {}},
      second_{EncodedTransformImpl(context), {}} {
    const Recipe recipe(context, dimension, place);
    const auto encode = [&](const LinearTransformImpl& transform, const TransformPlace& at) {
        return EncodedTransformImpl(context, transform, at, anyKeys);
    };
    first_.shear = encode(recipe.shearOfFirst(), recipe.shearPlace);
    second_.shear = encode(recipe.shearOfSecond(), recipe.shearPlace);
    for (u64 k = 0; k < dimension; ++k) {
        first_.shifts.push_back(encode(recipe.shiftOfFirst(k), recipe.shiftPlace));
        second_.shifts.push_back(encode(recipe.shiftOfSecond(k), recipe.shiftPlace));
    }
}

std::set<u64> MatrixProductImpl::rotationIndices() const {
    std::set<u64> indices;
    const auto add = [&](const EncodedTransformImpl& transform) {
        for (const u64 index : transform.rotationIndices()) indices.insert(index);
    };
    for (const Side* side : {&first_, &second_}) {
        add(side->shear);
        std::ranges::for_each(side->shifts, add);
    }
    return indices;
}

std::set<u64> MatrixProductImpl::rotationIndices(const Context& context, u64 dimension,
                                                 const TransformPlace& place) {
    requireProduct(context, dimension, place.level);
    const Recipe recipe(context, dimension, place);
    std::set<u64> indices;
    const auto add = [&](const LinearTransformImpl& transform, const TransformPlace& at) {
        for (const u64 index : TransformPlan(context, transform, at, anyKeys).rotationIndices())
            indices.insert(index);
    };
    add(recipe.shearOfFirst(), recipe.shearPlace);
    add(recipe.shearOfSecond(), recipe.shearPlace);
    for (u64 k = 0; k < dimension; ++k) {
        add(recipe.shiftOfFirst(k), recipe.shiftPlace);
        add(recipe.shiftOfSecond(k), recipe.shiftPlace);
    }
    return indices;
}

std::vector<Ciphertext> MatrixProductImpl::shifted(const HomEvaluatorImpl& evaluator,
                                                   const Ciphertext& sheared, const Side& side, u64 begin,
                                                   u64 end) {
    std::vector<const EncodedTransformImpl*> shifts;
    for (u64 k = begin; k < end; ++k) shifts.push_back(&side.shifts[k]);
    return applyTransforms(evaluator, sheared, shifts);
}

Ciphertext MatrixProductImpl::mult(const HomEvaluator& on, const Ciphertext& a, const Ciphertext& b) const {
    const HomEvaluatorImpl& evaluator = *on.getImpl();
    const EncodedTransformImpl *const ofFirst = &first_.shear, *const ofSecond = &second_.shear;
    requireTransformable(evaluator, a, std::span(&ofFirst, 1));
    requireTransformable(evaluator, b, std::span(&ofSecond, 1));
    const CipherOperations operations(on);
    const std::set<u64> indices = rotationIndices();
    evaluator.requireLeftRotationKeys({indices.begin(), indices.end()});
    operations.requireMultiplicationKey();

    const Ciphertext first = std::move(applyTransforms(evaluator, a, std::span(&ofFirst, 1)).front());
    const Ciphertext second = std::move(applyTransforms(evaluator, b, std::span(&ofSecond, 1)).front());
    return sumOfShiftedProducts(operations, dimension_, [&](bool isFirst, u64 begin, u64 end) {
        return shifted(evaluator, isFirst ? first : second, isFirst ? first_ : second_, begin, end);
    });
}

} // namespace Torvo
