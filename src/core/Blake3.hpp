#pragma once

#include "core/Integers.hpp"

#include <blake3.h>

#include <cstddef>

namespace Torvo::utils {

/// The first `out_len` bytes of the BLAKE3 extendable output of `in`.
void doBLAKE3Hash(void* out, std::size_t out_len, const void* in, std::size_t in_len);
/// The same, keyed with 32 bytes.
void doBLAKE3KeyedHash(void* out, std::size_t out_len, const void* in, std::size_t in_len, const void* key);

/// The BLAKE3 extendable output of one message, read at any place: byte `position + i` of the output that
/// `doBLAKE3Hash` gives, or `doBLAKE3KeyedHash` with a key of 32 bytes. Reads are const and may run on many
/// threads at once. Wiped at its end.
class BLAKE3Output {
public:
    BLAKE3Output(const void* in, std::size_t in_len);
    BLAKE3Output(const void* in, std::size_t in_len, const void* key);
    ~BLAKE3Output();
    BLAKE3Output(const BLAKE3Output&) = delete;
    BLAKE3Output& operator=(const BLAKE3Output&) = delete;
    void read(u64 position, void* out, std::size_t out_len) const;

private:
    blake3_hasher hasher_;
};

} // namespace Torvo::utils
