#pragma once

#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo {

/// Where a ciphertext carries its numbers: on the complex slots, where evaluation needs them, or directly on
/// the coefficients of the polynomial. The numbers are part of the file formats.
enum class EncodingType : std::uint32_t { Slot = 0, Coefficient = 1 };

} // namespace Torvo
