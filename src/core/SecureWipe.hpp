#pragma once

#include <cstddef>

namespace Torvo::utils {

/// Overwrites memory that held a secret, by stores that the compiler may not drop.
void wipe(void* data, std::size_t byteCount) noexcept;

} // namespace Torvo::utils
