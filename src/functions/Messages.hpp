#pragma once

/// The texts of the exceptions of this layer, each once.
namespace Torvo::message {

} // namespace Torvo::message
