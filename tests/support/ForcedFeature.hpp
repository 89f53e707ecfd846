#pragma once

#include "core/Integers.hpp"

#include <optional>

namespace Torvo::test {

/// While it lives, `getCurrentFeature()` answers `feature` on every thread, in programs linked with the test
/// support. Not nested, not for concurrent use.
class ForcedFeature {
public:
    explicit ForcedFeature(u64 feature);
    ~ForcedFeature();
    ForcedFeature(const ForcedFeature&) = delete;
    ForcedFeature& operator=(const ForcedFeature&) = delete;
};

} // namespace Torvo::test
