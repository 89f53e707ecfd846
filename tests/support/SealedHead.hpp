#pragma once

#include "core/Blake3.hpp"
#include "core/Integers.hpp"

#include <string>

namespace Torvo::test {

/// The head of a file of bootstrapping constants ends with a digest of what is before (docs/files.md).
constexpr u64 sealedBytes = 192, sealBytes = 32;

inline std::string blake3(const std::string& bytes) {
    std::string digest(32, '\0');
    utils::doBLAKE3Hash(digest.data(), digest.size(), bytes.data(), bytes.size());
    return digest;
}

/// With the digest that belongs to the head, if there is a whole one.
inline std::string resealed(std::string file) {
    if (file.size() < sealedBytes) return file;
    const u64 before = sealedBytes - sealBytes;
    return file.replace(before, sealBytes, blake3(file.substr(0, before)));
}

} // namespace Torvo::test
