#include "functions/CachedTransformImpl.hpp"

#include "context/ContextContent.hpp"
#include "context/SameRing.hpp"
#include "core/RequireContext.hpp"

#include <algorithm>
#include <atomic>
#include <set>
#include <utility>

namespace Torvo {

namespace {

u64 nextId() {
    static std::atomic<u64> next{0};
    return next++;
}

/// What `all` has that is wanted, or what `make` gives, which is kept then unless another thread was faster.
template <class Kept, class IsWanted, class Make>
Kept keptOrMade(std::mutex& mutex, std::vector<Kept>& all, IsWanted isWanted, Make make) {
    const auto find = [&] { return std::ranges::find_if(all, isWanted); };
    {
        const std::lock_guard lock(mutex);
        if (const auto found = find(); found != all.end()) return *found;
    }
    Kept made = make();
    const std::lock_guard lock(mutex);
    if (const auto found = find(); found != all.end()) return *found;
    return all.emplace_back(std::move(made));
}

} // namespace

CachedTransformImpl::CachedTransformImpl(std::function<Transform()> makeTransform, u64 maxKeys)
    : makeTransform_(std::move(makeTransform)), maxKeys_(maxKeys), id_(nextId()) {}

std::shared_ptr<const TransformPlan> CachedTransformImpl::plan(const Context& context, u64 log_slots) const {
    const u64 level = std::max<u64>(requireContext(context)->parameter.encryption_level, 1);
    const auto isWanted = [&](const KeptPlan& kept) {
        return kept.log_slots == log_slots && isSameRing(kept.context, context);
    };
    return keptOrMade(mutex_, plans_, isWanted,
                      [&] {
                          const TransformPlace place{log_slots, level};
                          return KeptPlan{
                              context, log_slots,
                              std::make_shared<TransformPlan>(context, *transform(), place, maxKeys_)};
                      })
        .plan;
}

std::shared_ptr<const EncodedTransformImpl>
CachedTransformImpl::encoded(const Context& context, const TransformPlace& place, double factor) const {
    const auto isWanted = [&](const KeptEncoding& kept) {
        const TransformPlace& its = kept.encoding->getPlace();
        return its.level == place.level && its.log_slots == place.log_slots && kept.factor == factor &&
               isSameRing(kept.encoding->getContext(), context);
    };
    return keptOrMade(mutex_, encodings_, isWanted,
                      [&] {
                          const auto steps = plan(context, place.log_slots);
                          return KeptEncoding{factor, std::make_shared<EncodedTransformImpl>(
                                                          context, *transform(), *steps, place, factor)};
                      })
        .encoding;
}

u64 CachedTransformImpl::encodedBytes() const {
    const std::lock_guard lock(mutex_);
    u64 bytes = 0;
    for (const KeptEncoding& kept : encodings_) bytes += kept.encoding->byteCount();
    return bytes;
}

void CachedTransformImpl::clear() const {
    std::vector<KeptEncoding> given;
    const std::lock_guard lock(mutex_);
    given.swap(encodings_);
}

std::vector<u64> rotationIndicesOf(const std::vector<std::shared_ptr<const CachedTransformImpl>>& transforms,
                                   const Context& context, u64 log_slots) {
    std::set<u64> indices;
    for (const auto& transform : transforms)
        for (const u64 index : transform->plan(context, log_slots)->rotationIndices()) indices.insert(index);
    return {indices.begin(), indices.end()};
}

} // namespace Torvo
