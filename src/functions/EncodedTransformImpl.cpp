#include "functions/EncodedTransformImpl.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "arithmetic/kernels/ThrowingLoop.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "encoding/Encoding.hpp"
#include "functions/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <bit>

namespace Torvo {

EncodedTransformImpl::EncodedTransformImpl(const Context& context) : context_(requireContext(context)) {}

EncodedTransformImpl::EncodedTransformImpl(const Context& context, const LinearTransformImpl& transform,
                                           const TransformPlace& place, u64 maxKeys)
    : EncodedTransformImpl(context, transform, TransformPlan(context, transform, place, maxKeys), place, 1) {}

EncodedTransformImpl::EncodedTransformImpl(const Context& context, const LinearTransformImpl& transform,
                                           const TransformPlan& plan, const TransformPlace& place,
                                           double factor)
    : context_(context), place_(place), steps_(plan.getSteps()) {
    const Ring ring = ringOf(context);
    std::vector<u64> primes;
    for (u64 t = 0; t < ring.total(); ++t)
        if (t <= place.level || t >= ring.numBase) primes.push_back(t);
    for (const TransformMask& mask : plan.getMasks())
        diagonals_.push_back({mask.rotation, DeviceSpecificArray<u64>(wordCount())});
    factor *= productCorrection(context, place.level);
    // A message that repeats has the polynomial of one period.
    forEachIndexOrThrow(diagonals_.size(), [&](u64 k) {
        const TransformMask& mask = plan.getMasks()[k];
        Message numbers = transform.numbers(mask, steps_.giant(mask.rotation));
        for (auto& slot : numbers) slot *= factor;
        Encoding(context_, numbers, place_.level, 0).takeRows(primes, diagonals_[k].rows.getData());
    });
}

u64 EncodedTransformImpl::wordCount(const Context& context, u64 level) {
    const Ring ring = ringOf(context);
    return (level + 1 + ring.numTemp) * ring.degree;
}

u64 EncodedTransformImpl::byteCount(const Context& context, u64 rotations, u64 level) {
    return rotations * wordCount(context, level) * sizeof(u64);
}

std::vector<u64> EncodedTransformImpl::rotationIndices() const {
    std::vector<u64> rotations;
    rotations.reserve(diagonals_.size());
    for (const Diagonal& diagonal : diagonals_) rotations.push_back(diagonal.rotation);
    return keyIndices(rotations, steps_);
}

void EncodedTransformImpl::save(OutputArchive& archive) const {
    require(!isEmpty(), message::transformEmpty);
    const Ring ring = ringOf(context_);
    saveHashAndTag(archive, ring.context_hash, ObjectTag::EncodedTransform);
    archive(place_.log_slots, place_.level, ring.degree, steps_.stride, steps_.babySteps,
            static_cast<u64>(diagonals_.size()));
    for (const Diagonal& diagonal : diagonals_) archive(diagonal.rotation, diagonal.rows);
}

void EncodedTransformImpl::load(InputArchive& archive) {
    const Ring ring = ringOf(context_);
    verifyHashAndTag(archive, ring.context_hash, ObjectTag::EncodedTransform);
    u64 degree = 0, count = 0;
    archive(place_.log_slots, place_.level, degree, steps_.stride, steps_.babySteps, count);
    verify(degree == ring.degree && place_.level != 0 && place_.level < ring.numBase);
    verify(place_.log_slots < static_cast<u64>(std::countr_zero(degree)));
    const u64 slots = u64{1} << place_.log_slots;
    verify(steps_.stride % 2 == 1 && steps_.stride <= slots);
    verify(std::has_single_bit(steps_.babySteps) && steps_.babySteps <= slots);
    verify(0 < count && count <= slots);
    steps_.slots = slots;
    for (u64 k = 0, least = 0; k < count; ++k) {
        u64 rotation = 0;
        archive(rotation);
        verify(least <= rotation && rotation < slots);
        least = rotation + 1;
        diagonals_.push_back({rotation, {}});
        diagonals_.back().rows.loadSized(archive, {wordCount()});
    }
}

} // namespace Torvo
