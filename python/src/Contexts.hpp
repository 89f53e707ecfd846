#pragma once

#include "Guarded.hpp"

#include <Torvo/Context.hpp>

#include <string>

namespace TorvoPython {

/// A context as Python sees it. It never changes, so it needs no lock.
struct SharedContext {
    Torvo::Context context;
};

/// The file of a context: 69 bytes.
std::string recipeOf(const Torvo::Context& context);

/// The numbers of a context in words.
std::string describe(const Torvo::Context& context);

/// `guarded.getContext()` under its lock.
template <class T>
SharedContext contextOf(const Guarded<T>& self) {
    const Computing computing{reading(self)};
    return {self.object().getContext()};
}

} // namespace TorvoPython
