#include "support/ForcedFeature.hpp"

#include "arithmetic/kernels/Feature.hpp"

#include <atomic>

namespace Torvo {

namespace {

constexpr u64 notForced = ~u64{0};
std::atomic<u64> forcedFeature{notForced};

} // namespace

u64 getCurrentFeature() {
    // Read once, unlike in the library: on a virtual machine the question costs more than a row of the toy
    // presets, of which most tests consist.
    static const u64 processor = detail::readProcessorFeature();
    const u64 forced = forcedFeature.load(std::memory_order_relaxed);
    return forced == notForced ? processor : forced;
}

namespace test {

ForcedFeature::ForcedFeature(u64 feature) {
    forcedFeature = feature;
}

ForcedFeature::~ForcedFeature() {
    forcedFeature = notForced;
}

} // namespace test

} // namespace Torvo
