#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/Integers.hpp"
#include "functions/TransformPlan.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

#include <span>
#include <vector>

namespace Torvo {

class HomEvaluatorImpl;

/// The record behind an encoded transform.
class EncodedTransformImpl {
public:
    /// Of one rotation, moved back by its giant step: the rows of the live primes, then those of the temporary ones,
    /// in NTT form.
    struct Diagonal {
        u64 rotation;
        DeviceSpecificArray<u64> rows;
    };

    /// Empty.
    explicit EncodedTransformImpl(const Context& context);
    EncodedTransformImpl(const Context& context, const LinearTransformImpl& transform,
                         const TransformPlace& place, u64 maxKeys);
    /// `factor` times the transform, by the steps of a plan for another level.
    EncodedTransformImpl(const Context& context, const LinearTransformImpl& transform,
                         const TransformPlan& plan, const TransformPlace& place, double factor);

    const Context& getContext() const { return context_; }
    bool isEmpty() const { return diagonals_.empty(); }
    const TransformPlace& getPlace() const { return place_; }
    const std::vector<Diagonal>& getDiagonals() const { return diagonals_; }
    const TransformSteps& getSteps() const { return steps_; }
    std::vector<u64> rotationIndices() const;
    /// Of the numbers of `rotations` diagonals at a level.
    static u64 byteCount(const Context& context, u64 rotations, u64 level);
    u64 byteCount() const { return byteCount(context_, diagonals_.size(), place_.level); }

    /// Head, log slots, level, degree, stride, baby steps, diagonals (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Into an empty object. Every number is held to the ring before memory is taken by it.
    void load(InputArchive& archive);

private:
    u64 wordCount() const { return wordCount(context_, place_.level); }
    static u64 wordCount(const Context& context, u64 level);

    Context context_;
    TransformPlace place_{0, 0};
    TransformSteps steps_;
    std::vector<Diagonal> diagonals_; ///< by ascending rotation
};

/// A ciphertext, and for each result the transform of it that is added to that.
struct TransformedInput {
    const Ciphertext* in;
    std::vector<const EncodedTransformImpl*> transforms;
};

/// Refuses what `EncodedTransform::apply` refuses, but for missing keys.
void requireTransformable(const HomEvaluatorImpl& evaluator, const Ciphertext& in,
                          std::span<const EncodedTransformImpl* const> transforms);
/// What `EncodedTransform::apply` gives, for each of `transforms`; refuses as that does.
std::vector<Ciphertext> applyTransforms(const HomEvaluatorImpl& evaluator, const Ciphertext& in,
                                        std::span<const EncodedTransformImpl* const> transforms);
/// The sums over all inputs, one or more with equally many transforms, one or more; refuses as `applyTransforms`.
std::vector<Ciphertext> sumTransforms(const HomEvaluatorImpl& evaluator,
                                      std::span<const TransformedInput> inputs);

} // namespace Torvo
