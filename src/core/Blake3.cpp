#include "core/Blake3.hpp"

#include "core/SecureWipe.hpp"

namespace Torvo::utils {

void doBLAKE3Hash(void* out, std::size_t out_len, const void* in, std::size_t in_len) {
    BLAKE3Output(in, in_len).read(0, out, out_len);
}

void doBLAKE3KeyedHash(void* out, std::size_t out_len, const void* in, std::size_t in_len, const void* key) {
    BLAKE3Output(in, in_len, key).read(0, out, out_len);
}

BLAKE3Output::BLAKE3Output(const void* in, std::size_t in_len) {
    blake3_hasher_init(&hasher_);
    blake3_hasher_update(&hasher_, in, in_len);
}

BLAKE3Output::BLAKE3Output(const void* in, std::size_t in_len, const void* key) {
    blake3_hasher_init_keyed(&hasher_, static_cast<const std::uint8_t*>(key));
    blake3_hasher_update(&hasher_, in, in_len);
}

BLAKE3Output::~BLAKE3Output() {
    wipe(&hasher_, sizeof hasher_);
}

void BLAKE3Output::read(u64 position, void* out, std::size_t out_len) const {
    blake3_hasher_finalize_seek(&hasher_, position, static_cast<std::uint8_t*>(out), out_len);
}

} // namespace Torvo::utils
