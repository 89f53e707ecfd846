#include "arithmetic/elements/Messages.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "crypto/OperandRing.hpp"
#include "crypto/OutputShape.hpp"
#include "encoding/Stamp.hpp"
#include "evaluator/HomEvaluatorImpl.hpp"
#include "functions/EncodedTransformImpl.hpp"
#include "functions/Messages.hpp"

#include <array>
#include <map>
#include <memory>
#include <set>

namespace Torvo {

namespace {

using Transforms = std::span<const EncodedTransformImpl* const>;

void requireAlike(Transforms transforms) {
    const TransformPlace& first = transforms.front()->getPlace();
    for (const EncodedTransformImpl* transform : transforms) {
        const TransformPlace& place = transform->getPlace();
        if (place.level != first.level || place.log_slots != first.log_slots)
            throw RuntimeException(
                message::transformsDiffer(first.level, first.log_slots, place.level, place.log_slots));
    }
}

/// The keys of all rotations, in use as long as this lives.
class RotationKeys {
public:
    RotationKeys(const HomEvaluatorImpl& evaluator, const Device& device,
                 std::span<const TransformedInput> inputs)
        : evaluator_(evaluator), device_(device) {
        std::set<u64> indices;
        for (const TransformedInput& input : inputs)
            for (const EncodedTransformImpl* transform : input.transforms)
                for (const u64 index : transform->rotationIndices()) indices.insert(index);
        evaluator.requireLeftRotationKeys({indices.begin(), indices.end()});
        for (const u64 index : indices) keys_[index] = evaluator.leftRotationKey(index);
    }

    /// By the key of `index`; the identity for 0.
    KeyOfMap step(u64 index) const {
        if (index == 0) return {1, nullptr};
        const u64 galois = evaluator_.getContext()->fft.getGaloisElement(index, device_);
        return {static_cast<long>(galois), keys_.at(index).get()};
    }

private:
    const HomEvaluatorImpl& evaluator_;
    Device device_;
    std::map<u64, std::shared_ptr<EvaluationKey>> keys_;
};

/// The steps of all transforms of one input; of the terms of a giant step the one of the ciphertext itself comes first.
struct Steps {
    std::vector<KeyOfMap> babies;
    std::vector<std::vector<RotatedSum>> results;
};

Steps stepsOf(const RotationKeys& keys, Transforms transforms) {
    std::map<u64, u64> places; // of the baby steps
    Steps steps;
    for (const EncodedTransformImpl* transform : transforms) {
        std::map<u64, std::vector<DiagonalTerm>> giants;
        for (const auto& [rotation, rows] : transform->getDiagonals()) {
            const u64 baby = transform->getSteps().baby(rotation);
            const auto [place, isNew] = places.try_emplace(baby, steps.babies.size());
            if (isNew) steps.babies.push_back(keys.step(baby));
            auto& terms = giants[transform->getSteps().giant(rotation)];
            terms.insert(baby == 0 ? terms.begin() : terms.end(), {place->second, rows.getData()});
        }
        auto& result = steps.results.emplace_back();
        for (auto& [giant, terms] : giants) result.push_back({keys.step(giant), std::move(terms)});
    }
    return steps;
}

} // namespace

void requireTransformable(const HomEvaluatorImpl& evaluator, const Ciphertext& in, Transforms transforms) {
    for (const EncodedTransformImpl* transform : transforms)
        require(!transform->isEmpty(), message::transformEmpty);
    for (const EncodedTransformImpl* transform : transforms)
        requireSameRing(transform->getContext(), evaluator.getContext(), message::foreignTransform);
    utils::requireOnSlots(in);
    require(in.getNumPoly() == 2, message::sizeNotTwo);
    requireAlike(transforms);
    utils::requireNothingOwed(in);
    const auto& [log_slots, level] = transforms.front()->getPlace();
    if (in.getLevel() < level) throw RuntimeException(message::belowTransform(in.getLevel(), level));
    if (in.getLogSlots() != log_slots)
        throw RuntimeException(message::otherSlotsThanTransform(in.getLogSlots(), log_slots));
    requireOfRing(evaluator.getContext(), in);
    require(!in.isModUp(), message::operandsOfOtherRing);
}

std::vector<Ciphertext> applyTransforms(const HomEvaluatorImpl& evaluator, const Ciphertext& in,
                                        Transforms transforms) {
    if (transforms.empty()) return {};
    const TransformedInput input{&in, {transforms.begin(), transforms.end()}};
    return sumTransforms(evaluator, std::span(&input, 1));
}

std::vector<Ciphertext> sumTransforms(const HomEvaluatorImpl& evaluator,
                                      std::span<const TransformedInput> inputs) {
    for (const TransformedInput& input : inputs) requireTransformable(evaluator, *input.in, input.transforms);
    const TransformedInput& first = inputs.front();
    for (const TransformedInput& input : inputs)
        requireAlike(std::array{first.transforms[0], input.transforms[0]});
    const RotationKeys keys(evaluator, first.in->getDevice(), inputs);
    const u64 level = first.transforms.front()->getPlace().level;
    std::vector<Ciphertext> lowered;
    std::vector<Steps> steps;
    std::vector<SummedDiagonals> operands;
    lowered.reserve(inputs.size()); // the operands point into them
    steps.reserve(inputs.size());
    for (const auto& [in, transforms] : inputs) {
        const bool isAbove = in->getLevel() > level;
        if (isAbove)
            evaluator.levelDown(*in, level, lowered.emplace_back(unsetCiphertext(evaluator.getContext())));
        const auto& [babies, results] = steps.emplace_back(stepsOf(keys, transforms));
        operands.push_back({isAbove ? lowered.back() : *in, babies, results});
    }
    std::vector<Ciphertext> outs = evaluator.getKeySwitcher().sumDiagonals(operands);
    const Stamp stamp = Stamp::of(*first.in).owing(1);
    for (Ciphertext& out : outs) {
        stamp.putOn(out);
        evaluator.rescale(out);
    }
    return outs;
}

} // namespace Torvo
