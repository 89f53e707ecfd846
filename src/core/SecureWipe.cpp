#include "core/SecureWipe.hpp"

#include <cstring>

namespace Torvo::utils {

void wipe(void* data, std::size_t byteCount) noexcept {
    if (byteCount != 0) explicit_bzero(data, byteCount);
}

} // namespace Torvo::utils
