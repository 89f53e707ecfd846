#include "support/ForcedFeature.hpp"

#include <atomic>

namespace Torvo {

namespace {

constexpr u64 notForced = ~u64{0};
std::atomic<u64> forcedFeature{notForced};

const KernelForm processorForm = detail::readWidestForm();
std::atomic<KernelForm> widestForm{processorForm};

} // namespace

u64 getCurrentFeature() {
    // Read once, unlike in the library: on a virtual machine the question costs more than a row of the toy
    // presets, of which most tests consist.
    static const u64 processor = detail::readProcessorFeature();
    const u64 forced = forcedFeature.load(std::memory_order_relaxed);
    return forced == notForced ? processor : forced;
}

KernelForm currentForm() {
    return (getCurrentFeature() & featureAVX2) != 0 ? widestForm.load(std::memory_order_relaxed)
                                                    : KernelForm::Scalar;
}

namespace test {

ForcedFeature::ForcedFeature(u64 feature) {
    forcedFeature = feature;
}

ForcedFeature::ForcedFeature(KernelForm form) : ForcedFeature(form == KernelForm::Scalar ? 0 : featureAVX2) {
    widestForm = form;
}

ForcedFeature::~ForcedFeature() {
    forcedFeature = notForced;
    widestForm = processorForm;
}

} // namespace test

} // namespace Torvo
