#pragma once

#include "core/Failure.hpp"
#include "core/Messages.hpp"

#include <memory>

namespace Torvo {

/// Returns its argument, a context of a ring or of plain LWE, so that a constructor can check it before its
/// first use.
/// @throws RuntimeException "The context is null. Make one with makeContext."
template <class Content>
const std::shared_ptr<Content>& requireContext(const std::shared_ptr<Content>& context) {
    require(context != nullptr, message::nullContext);
    return context;
}

} // namespace Torvo
