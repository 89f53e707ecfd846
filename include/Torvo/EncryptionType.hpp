#pragma once

#include <Torvo/Export.hpp>

#include <cstdint>

namespace Torvo {

/// The lattice problem behind a secret key or ciphertext: `RLWE` works on one ring element (rank 1),
/// `MLWE` on a vector of several (rank above 1). The numbers are part of the file formats.
enum class EncryptionType : std::uint32_t { MLWE = 0, RLWE = 1 };

using enum EncryptionType;

} // namespace Torvo
