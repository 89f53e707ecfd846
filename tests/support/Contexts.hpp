#pragma once

#include <Torvo/Context.hpp>

#include <map>

namespace Torvo::test {

/// The context of a preset, made once per program.
inline const Context& contextOf(ParameterPreset preset) {
    static std::map<ParameterPreset, Context> made;
    auto& context = made[preset];
    if (context == nullptr) context = makeContext(preset);
    return context;
}

} // namespace Torvo::test
