#pragma once

#include "Handles.hpp"

#include <memory>
#include <utility>
#include <vector>

namespace TorvoPython {

/// The outputs of a call as new objects of Python, each in a handle of its own.
template <class Object>
py::list listOf(std::vector<LibraryOf<Object>> outs) {
    py::list result;
    for (LibraryOf<Object>& out : outs) result.append(std::make_unique<Guarded<Object>>(std::move(out)));
    return result;
}

} // namespace TorvoPython
