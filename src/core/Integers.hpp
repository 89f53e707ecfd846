#pragma once

#include <cstdint>

namespace Torvo {

/// A coefficient word. `unsigned long` is 64 bits wide on every platform of this library.
using u64 = unsigned long;
static_assert(sizeof(u64) == 8);

__extension__ using u128 = unsigned __int128;
__extension__ using i128 = __int128;

} // namespace Torvo
