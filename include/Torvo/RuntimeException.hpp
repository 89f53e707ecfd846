#pragma once

#include <Torvo/Export.hpp>

#include <stdexcept>

namespace Torvo {

/// The one exception type of the library's own. Its `what()` is a fixed text, which callers may compare.
class TORVO_API RuntimeException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Torvo
