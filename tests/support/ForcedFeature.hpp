#pragma once

#include "arithmetic/kernels/Feature.hpp"
#include "core/Integers.hpp"

#include <optional>

namespace Torvo::test {

/// While it lives, `getCurrentFeature()` answers `feature` on every thread, in programs linked with the test
/// support; or both it and `currentForm()` answer what makes the kernels run in `form`, which the processor must
/// have. Not nested, not for concurrent use.
class ForcedFeature {
public:
    explicit ForcedFeature(u64 feature);
    explicit ForcedFeature(KernelForm form);
    ~ForcedFeature();
    ForcedFeature(const ForcedFeature&) = delete;
    ForcedFeature& operator=(const ForcedFeature&) = delete;
};

} // namespace Torvo::test
