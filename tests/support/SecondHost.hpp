#pragma once

#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/LWEContext.hpp>

#include <memory>
#include <set>

namespace Torvo::test {

/// A second place in main memory. A context that serves it computes there, with the same words as on the
/// first; an operand that was left behind on the first is refused.
inline constexpr Device secondHost{DeviceType::CPU, 1};

inline Context servingSecondHost(ParameterPreset preset) {
    return std::make_shared<ContextContent>(preset, std::set{secondHost});
}
inline LWE::Context servingSecondHost(LWE::ParameterPreset preset) {
    return std::make_shared<LWE::ContextContent>(preset, std::set{secondHost});
}

/// A copy on the second host.
template <class T>
T onSecondHost(T object) {
    object.to(secondHost);
    return object;
}

} // namespace Torvo::test
